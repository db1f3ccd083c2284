// Checkers and helpers over arbitrary text: no crash, and the answers keep
// their invariants (codes from the documented set, accepted texts made only
// of the allowed bytes, parsers agreeing with each other).
#include <json-c/json.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "model/checkers.h"

static void check_ipv4(const char *text)
{
    int32_t rc = ipv4_check_host(text);
    if (rc != 0 && rc != -40301 && rc != -40302 && rc != -40303 && rc != -40304 && rc != -40309)
        abort();
    if (rc == 0 && (strlen(text) > 15 || strlen(text) < 7))
        abort();
}

static void check_domain(const char *text)
{
    if (!domain_is_valid(text))
        return;
    size_t len = strlen(text);
    if (len == 0 || len > 254 || text[0] == '.' || text[len - 1] == '.' || strstr(text, ".."))
        abort();
    for (const char *p = text; *p; ++p) {
        if (!isalnum(static_cast<unsigned char>(*p)) && !strchr("_.-", *p))
            abort();
    }
}

static void check_numbers(const char *text)
{
    int32_t v32 = 0;
    int64_t v64 = 0;
    int ok32 = str_to_int(text, &v32);
    int ok64 = str_to_int64(text, &v64);
    if (ok32 != ok64)
        abort();
    if (ok32 == 0 && static_cast<int32_t>(static_cast<uint64_t>(v64)) != v32)
        abort();
}

// The generic checkers on the text as a JSON string and, when it parses, as
// JSON: every answer is 0 or a negative code.
static void check_checkers(const char *text)
{
    static const ds_int_range ir{0, 100};
    static const ds_double_range dr{-1.0, 1.0};
    static const ds_len_range lr{1, 32};
    json_object *values[2] = {json_object_new_string(text), json_tokener_parse(text)};
    for (json_object *v : values) {
        if (!v)
            continue;
        int32_t rc[] = {
            check_enum_type(nullptr, v, nullptr, ds_enum_on_off, 0),
            check_mixed_enum_type(nullptr, v, nullptr, ds_enum_0_1, 0),
            check_int_type(nullptr, v, nullptr, &ir, 0),
            check_double_type(nullptr, v, nullptr, &dr, 0),
            check_string_type(nullptr, v, nullptr, &lr, 0),
            check_ip_type(nullptr, v, nullptr, nullptr, 0),
        };
        for (int32_t r : rc) {
            if (r > 0)
                abort();
        }
        json_object_put(v);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string in(reinterpret_cast<const char *>(data), size);
    std::string text = in.substr(0, in.find('\0'));
    const char *t = text.c_str();
    check_ipv4(t);
    check_domain(t);
    check_numbers(t);
    check_checkers(t);
    is_valid_string(t, text.size());
    ipv4_to_uint(t);
    return 0;
}
