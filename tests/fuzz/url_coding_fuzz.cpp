// URL coding: decoding arbitrary text never crashes; encoding then decoding
// gives back the original bytes; objects survive a round trip.
#include <json-c/json.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/jso.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string in(reinterpret_cast<const char *>(data), size);
    std::string text = in.substr(0, in.find('\0'));
    std::string out, back;
    jso_url_decode(text.c_str(), &out);
    if (!jso_url_encode(text.c_str(), &out) || !jso_url_decode(out.c_str(), &back) || back != text)
        abort();
    json_object *obj = json_tokener_parse(text.c_str());
    if (obj && json_object_is_type(obj, json_type_object)) {
        std::string before = json_object_to_json_string(obj);
        if (jso_obj_url_coding(obj, 0) != 0 || jso_obj_url_coding(obj, 1) != 0)
            abort();
        if (before != json_object_to_json_string(obj))
            abort();
    }
    json_object_put(obj);
    return 0;
}
