// Host blob buffers: the head attribute holds the compact JSON text of the
// object under construction, so building a message is editing one json-c
// object and writing its text back.
#include <json-c/json.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "libubox/blobmsg.h"
#include "libubox/blobmsg_json.h"

namespace {

struct json_put {
    void operator()(json_object *o) const { json_object_put(o); }
};
using json_ptr = std::unique_ptr<json_object, json_put>;

} // namespace

// Stores text (len bytes plus NUL) as the head attribute, growing the buffer.
static int blob_store_text(struct blob_buf *buf, const char *text, size_t len)
{
    size_t need = sizeof(struct blob_attr) + len + 1;
    if (need > BLOB_ATTR_LEN_MASK)
        return -ENOMEM;
    if (!buf->buf || (size_t)buf->buflen < need) {
        void *grown = realloc(buf->buf, need);
        if (!grown)
            return -ENOMEM;
        buf->buf = grown;
        buf->buflen = (int)need;
    }
    buf->head = (struct blob_attr *)buf->buf;
    buf->head->id_len = (uint32_t)need;
    memcpy(buf->head->data, text, len);
    buf->head->data[len] = '\0';
    return 0;
}

extern "C" int blob_buf_init(struct blob_buf *buf, int id)
{
    (void)id;
    if (!buf)
        return -EINVAL;
    return blob_store_text(buf, "{}", 2);
}

extern "C" void blob_buf_free(struct blob_buf *buf)
{
    if (!buf)
        return;
    free(buf->buf);
    buf->buf = nullptr;
    buf->head = nullptr;
    buf->buflen = 0;
}

// The object currently held by buf (an empty one for an uninitialised buffer).
static json_ptr blob_current(const struct blob_buf *buf)
{
    if (!buf->head || blob_len(buf->head) == 0)
        return json_ptr(json_object_new_object());
    json_ptr cur(json_tokener_parse(buf->head->data));
    if (!cur || !json_object_is_type(cur.get(), json_type_object))
        return json_ptr(json_object_new_object());
    return cur;
}

// Moves every member of add into buf's object. 0 or a negative errno.
static int blob_merge(struct blob_buf *buf, json_object *add)
{
    json_ptr cur = blob_current(buf);
    if (!cur)
        return -ENOMEM;
    json_object_object_foreach(add, key, val) {
        json_object_object_add(cur.get(), key, json_object_get(val));
    }
    size_t len = 0;
    const char *text = json_object_to_json_string_length(
        cur.get(), JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE, &len);
    if (!text)
        return -ENOMEM;
    return blob_store_text(buf, text, len);
}

extern "C" bool blobmsg_add_json_from_string(struct blob_buf *buf, const char *str)
{
    if (!buf || !str)
        return false;
    json_ptr obj(json_tokener_parse(str));
    if (!obj || !json_object_is_type(obj.get(), json_type_object))
        return false;
    return blob_merge(buf, obj.get()) == 0;
}

// Adds one member, taking over val.
static int blobmsg_add_member(struct blob_buf *buf, const char *name, json_object *val)
{
    json_ptr v(val);
    if (!buf || !name || !v)
        return -EINVAL;
    json_ptr one(json_object_new_object());
    if (!one)
        return -ENOMEM;
    json_object_object_add(one.get(), name, v.release());
    return blob_merge(buf, one.get());
}

extern "C" int blobmsg_add_string(struct blob_buf *buf, const char *name, const char *string)
{
    return blobmsg_add_member(buf, name, json_object_new_string(string ? string : ""));
}

extern "C" int blobmsg_add_u32(struct blob_buf *buf, const char *name, uint32_t val)
{
    return blobmsg_add_member(buf, name, json_object_new_int64(val));
}

extern "C" char *blobmsg_format_json_with_cb(struct blob_attr *attr, bool list,
                                             blobmsg_json_format_t cb, void *priv,
                                             int indent)
{
    (void)list;
    (void)cb;
    (void)priv;
    (void)indent;
    if (!attr || blob_raw_len(attr) <= sizeof(struct blob_attr))
        return nullptr;
    size_t len = blob_len(attr);
    char *text = (char *)malloc(len + 1);
    if (!text)
        return nullptr;
    memcpy(text, attr->data, len);
    text[len] = '\0';
    // The stored text carries its own NUL; an empty text formats as nothing.
    text[strnlen(text, len)] = '\0';
    if (text[0] == '\0') {
        free(text);
        return nullptr;
    }
    return text;
}
