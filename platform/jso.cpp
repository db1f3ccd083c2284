#include "platform/jso.h"

#include "platform/jso_parse.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

json_object *jso_from_string(const char *text)
{
    if (!text)
        return nullptr;
    json_object *obj = nullptr;
    if (jso_parse_plain(text, &obj))
        return obj;
    return json_tokener_parse(text);
}

const char *jso_to_string(json_object *obj)
{
    if (!obj)
        return nullptr;
    return json_object_to_json_string(obj);
}

json_object *jso_new_obj(void) { return json_object_new_object(); }

static int write_raw_text(json_object *jso, printbuf *pb, int, int)
{
    return printbuf_memappend(pb, json_object_get_string(jso), json_object_get_string_len(jso));
}

json_object *jso_new_raw(const char *text, size_t len)
{
    if (!text || len > INT32_MAX)
        return nullptr;
    json_object *obj = json_object_new_string_len(text, static_cast<int>(len));
    if (obj)
        json_object_set_serializer(obj, write_raw_text, nullptr, nullptr);
    return obj;
}
json_object *jso_new_array(void) { return json_object_new_array(); }
void jso_free_obj(json_object *obj) { json_object_put(obj); }

json_object *jso_obj_get(json_object *obj, const char *key)
{
    json_object *v = nullptr;
    if (!obj || !key || !json_object_is_type(obj, json_type_object))
        return nullptr;
    return json_object_object_get_ex(obj, key, &v) ? v : nullptr;
}

int jso_obj_get_int(json_object *obj, const char *key, int32_t *out)
{
    json_object *v = jso_obj_get(obj, key);
    if (!v || !out || !json_object_is_type(v, json_type_int))
        return -1;
    *out = json_object_get_int(v);
    return 0;
}

const char *jso_obj_get_string_origin(json_object *obj, const char *key)
{
    return jso_get_string_origin(jso_obj_get(obj, key));
}

bool jso_is_string(json_object *v) { return v && json_object_is_type(v, json_type_string); }
bool jso_is_int(json_object *v) { return v && json_object_is_type(v, json_type_int); }
bool jso_is_obj(json_object *v) { return v && json_object_is_type(v, json_type_object); }
bool jso_is_array(json_object *v) { return v && json_object_is_type(v, json_type_array); }
int32_t jso_get_int(json_object *v) { return v ? json_object_get_int(v) : 0; }

const char *jso_get_string_origin(json_object *v)
{
    return jso_is_string(v) ? json_object_get_string(v) : nullptr;
}

int jso_obj_add(json_object *obj, const char *key, json_object *val)
{
    if (!jso_is_obj(obj) || !key) {
        json_object_put(val);
        return -1;
    }
    return json_object_object_add(obj, key, val) == 0 ? 0 : -1;
}

int jso_obj_add_int(json_object *obj, const char *key, int32_t v)
{
    return jso_obj_add(obj, key, json_object_new_int(v));
}

int jso_obj_add_string(json_object *obj, const char *key, const char *s)
{
    if (!s)
        return -1;
    return jso_obj_add(obj, key, json_object_new_string(s));
}

static bool is_unreserved(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           c == '-' || c == '.' || c == '_' || c == '~';
}

static int hex_value(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool jso_url_encode(const char *in, std::string *out)
{
    static const char hex[] = "0123456789ABCDEF";
    if (!in || !out)
        return false;
    out->clear();
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(in); *p; p++) {
        if (is_unreserved(*p)) {
            out->push_back(static_cast<char>(*p));
        } else {
            out->push_back('%');
            out->push_back(hex[*p >> 4]);
            out->push_back(hex[*p & 0x0f]);
        }
    }
    return true;
}

// A decoded NUL would silently cut the value short in every C consumer, so
// "%00" is refused like any other malformed escape.
bool jso_url_decode(const char *in, std::string *out)
{
    if (!in || !out)
        return false;
    out->clear();
    for (const char *p = in; *p; p++) {
        if (*p != '%') {
            out->push_back(*p);
            continue;
        }
        int hi = hex_value(p[1]);
        int lo = hi < 0 ? -1 : hex_value(p[2]);
        if (lo < 0 || (hi == 0 && lo == 0))
            return false;
        out->push_back(static_cast<char>(hi << 4 | lo));
        p += 2;
    }
    return true;
}

static int code_value(json_object *v, int mode, int depth);

static int code_string(json_object *v, int mode)
{
    std::string coded;
    const char *s = json_object_get_string(v);
    bool ok = mode == JSO_URL_ENCODE ? jso_url_encode(s, &coded) : jso_url_decode(s, &coded);
    if (!ok)
        return -1;
    return json_object_set_string_len(v, coded.data(), static_cast<int>(coded.size())) ? 0 : -1;
}

static int code_children(json_object *v, int mode, int depth)
{
    if (json_object_is_type(v, json_type_object)) {
        json_object_object_foreach(v, key, child) {
            (void)key;
            if (code_value(child, mode, depth + 1) != 0)
                return -1;
        }
        return 0;
    }
    size_t n = json_object_array_length(v);
    for (size_t i = 0; i < n; i++) {
        if (code_value(json_object_array_get_idx(v, i), mode, depth + 1) != 0)
            return -1;
    }
    return 0;
}

// json-c's own parser stops at depth 32, so anything deeper never got here
// from the wire; the bound keeps recursion finite for objects built in code.
static int code_value(json_object *v, int mode, int depth)
{
    if (!v)
        return 0;
    if (depth > 64)
        return -1;
    switch (json_object_get_type(v)) {
    case json_type_string:
        return code_string(v, mode);
    case json_type_object:
    case json_type_array:
        return code_children(v, mode, depth);
    default:
        return 0;
    }
}

int jso_obj_url_coding(json_object *obj, int mode)
{
    if (!obj || (mode != JSO_URL_ENCODE && mode != JSO_URL_DECODE))
        return -1;
    return code_value(obj, mode, 0);
}


namespace {

// The decimal text of an integer exactly as parsed: json-c keeps values
// wider than 32 bits, and the text must not clamp them.
json_object *int_text(json_object *v)
{
    return json_object_new_string(json_object_to_json_string_ext(v, JSON_C_TO_STRING_PLAIN));
}

void ints_to_text(json_object *v);

void array_ints_to_text(json_object *arr)
{
    size_t n = json_object_array_length(arr);
    for (size_t i = 0; i < n; i++) {
        json_object *e = json_object_array_get_idx(arr, i);
        if (jso_is_int(e))
            json_object_array_put_idx(arr, i, int_text(e));
        else
            ints_to_text(e);
    }
}

// Objects and arrays at any depth: device lists and per-camera results are
// nested, and their numbers are text for the clients too.
void ints_to_text(json_object *v)
{
    if (jso_is_array(v)) {
        array_ints_to_text(v);
        return;
    }
    if (!jso_is_obj(v))
        return;
    json_object_object_foreach(v, key, val) {
        if (jso_is_int(val))
            json_object_object_add(v, key, int_text(val));
        else
            ints_to_text(val);
    }
}

} // namespace

int jso_foreach_modify_int_to_string(json_object *obj)
{
    if (!jso_is_obj(obj))
        return -1;
    ints_to_text(obj);
    return 0;
}
