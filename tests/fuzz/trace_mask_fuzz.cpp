// Trace masking: any text is masked without a crash, and a password put
// into any JSON object the fuzzer finds, at the top or one level down, never
// survives into the masked trace text.
#include <json-c/json.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/trace_mask.h"

namespace {

const char kSecret[] = "Zq9Secret";

void plant_and_check(json_object *obj)
{
    json_object_object_add(obj, "passwd", json_object_new_string(kSecret));
    json_object_object_foreach(obj, key, val) {
        (void)key;
        if (json_object_is_type(val, json_type_object)) {
            json_object_object_add(val, "old_password", json_object_new_string(kSecret));
            break;
        }
    }
    for (int flags : {JSON_C_TO_STRING_PLAIN, JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_PRETTY}) {
        std::string masked = trace_mask(json_object_to_json_string_ext(obj, flags));
        if (masked.find(kSecret) != std::string::npos)
            abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);
    trace_mask(text);
    if (text.find(kSecret) != std::string::npos)
        return 0;
    json_object *obj = json_tokener_parse(text.substr(0, text.find('\0')).c_str());
    if (obj && json_object_is_type(obj, json_type_object))
        plant_and_check(obj);
    json_object_put(obj);
    return 0;
}
