// The fast request reader against json-c: whatever text it accepts, json-c
// accepts too and builds the same values of the same types, member order
// and repeated keys included.
#include <json-c/json.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/jso_parse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string in(reinterpret_cast<const char *>(data), size);
    std::string text = in.substr(0, in.find('\0'));
    json_object *fast = nullptr;
    if (!jso_parse_plain(text.c_str(), &fast))
        return 0;
    json_object *ref = json_tokener_parse(text.c_str());
    if (!ref)
        abort();
    std::string a = json_object_to_json_string_ext(fast, JSON_C_TO_STRING_PLAIN);
    std::string b = json_object_to_json_string_ext(ref, JSON_C_TO_STRING_PLAIN);
    if (a != b)
        abort();
    json_object_put(fast);
    json_object_put(ref);
    return 0;
}
