#include "platform/jso_parse.h"

#include <json-c/json.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

namespace {

// json-c refuses deeper texts; they go to it so it can say so.
enum { PLAIN_MAX_DEPTH = 30, PLAIN_MAX_DIGITS = 18 };

struct jso_put {
    void operator()(json_object *o) const { json_object_put(o); }
};
using jso_hold = std::unique_ptr<json_object, jso_put>;

struct reader {
    const char *p;
    int depth;
};

bool parse_value(reader *r, json_object **out);

void skip_space(reader *r)
{
    while (*r->p == ' ' || *r->p == '\t' || *r->p == '\n' || *r->p == '\r')
        r->p++;
}

// A string without escapes or control characters; *begin and *len span
// its bytes.
bool parse_string(reader *r, const char **begin, size_t *len)
{
    if (*r->p != '"')
        return false;
    const char *s = ++r->p;
    for (;; r->p++) {
        unsigned char c = static_cast<unsigned char>(*r->p);
        if (c == '"')
            break;
        if (c < 0x20 || c == '\\')
            return false;
    }
    *begin = s;
    *len = static_cast<size_t>(r->p - s);
    r->p++;
    return true;
}

// An integer without a sign on zero, leading zeros, fraction or exponent,
// and short enough not to overflow.
bool parse_int(reader *r, json_object **out)
{
    bool negative = *r->p == '-';
    const char *d = negative ? r->p + 1 : r->p;
    if (*d < '0' || *d > '9' || (*d == '0' && (negative || (d[1] >= '0' && d[1] <= '9'))))
        return false;
    int64_t v = 0;
    for (int digits = 0; *d >= '0' && *d <= '9'; d++) {
        if (++digits > PLAIN_MAX_DIGITS)
            return false;
        v = v * 10 + (*d - '0');
    }
    if (*d == '.' || *d == 'e' || *d == 'E')
        return false;
    r->p = d;
    *out = json_object_new_int64(negative ? -v : v);
    return *out != nullptr;
}

bool parse_word(reader *r, const char *word, size_t len)
{
    for (size_t i = 0; i < len; i++) {
        if (r->p[i] != word[i])
            return false;
    }
    char next = r->p[len];
    if ((next >= 'a' && next <= 'z') || (next >= 'A' && next <= 'Z') || (next >= '0' && next <= '9'))
        return false;
    r->p += len;
    return true;
}

// The key needs its terminating NUL: short keys are copied on the stack.
bool add_member(json_object *obj, const char *key, size_t len, json_object *val)
{
    char small[64];
    std::string large;
    const char *name = small;
    if (len < sizeof small) {
        memcpy(small, key, len);
        small[len] = '\0';
    } else {
        large.assign(key, len);
        name = large.c_str();
    }
    if (json_object_object_add(obj, name, val) == 0)
        return true;
    json_object_put(val);
    return false;
}

// One "key": value member into obj.
bool parse_member(reader *r, json_object *obj)
{
    const char *key;
    size_t key_len;
    if (!parse_string(r, &key, &key_len))
        return false;
    skip_space(r);
    if (*r->p != ':')
        return false;
    r->p++;
    skip_space(r);
    json_object *val = nullptr;
    return parse_value(r, &val) && add_member(obj, key, key_len, val);
}

// One element value into arr.
bool parse_element(reader *r, json_object *arr)
{
    json_object *val = nullptr;
    if (!parse_value(r, &val))
        return false;
    if (json_object_array_add(arr, val) == 0)
        return true;
    json_object_put(val);
    return false;
}

// The items of an object or array up to its closing bracket, each read by
// `item` into `container`; the opening bracket is under r->p. Trailing
// commas and anything else unexpected are left to json-c.
bool parse_items(reader *r, char close, json_object *container, bool (*item)(reader *, json_object *))
{
    r->p++;
    skip_space(r);
    if (*r->p == close) {
        r->p++;
        return true;
    }
    for (;;) {
        if (!item(r, container))
            return false;
        skip_space(r);
        if (*r->p == close) {
            r->p++;
            return true;
        }
        if (*r->p != ',')
            return false;
        r->p++;
        skip_space(r);
    }
}

bool parse_nested(reader *r, json_object **out)
{
    if (++r->depth > PLAIN_MAX_DEPTH)
        return false;
    bool object = *r->p == '{';
    jso_hold made(object ? json_object_new_object() : json_object_new_array());
    bool ok = made && parse_items(r, object ? '}' : ']', made.get(), object ? parse_member : parse_element);
    r->depth--;
    if (ok)
        *out = made.release();
    return ok;
}

bool parse_value(reader *r, json_object **out)
{
    switch (*r->p) {
    case '{':
    case '[':
        return parse_nested(r, out);
    case '"': {
        const char *s;
        size_t len;
        if (!parse_string(r, &s, &len))
            return false;
        *out = json_object_new_string_len(s, static_cast<int>(len));
        return *out != nullptr;
    }
    case 't':
        if (!parse_word(r, "true", 4))
            return false;
        *out = json_object_new_boolean(1);
        return *out != nullptr;
    case 'f':
        if (!parse_word(r, "false", 5))
            return false;
        *out = json_object_new_boolean(0);
        return *out != nullptr;
    case 'n':
        *out = nullptr;
        return parse_word(r, "null", 4);
    default:
        return parse_int(r, out);
    }
}

} // namespace

bool jso_parse_plain(const char *text, json_object **out)
{
    if (!text)
        return false;
    reader r{text, 0};
    skip_space(&r);
    if (*r.p != '{' && *r.p != '[')
        return false;
    json_object *val = nullptr;
    if (!parse_value(&r, &val))
        return false;
    jso_hold hold(val);
    skip_space(&r);
    if (*r.p != '\0')
        return false;
    *out = hold.release();
    return true;
}
