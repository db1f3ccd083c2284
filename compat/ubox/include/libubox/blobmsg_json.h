// Host subset of libblobmsg_json: JSON text to and from blob messages.
#pragma once

#include <stdbool.h>

#include <libubox/blobmsg.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef const char *(*blobmsg_json_format_t)(void *priv, struct blob_attr *attr);

// Adds the members of a top-level JSON object text to buf. False for any
// other text (not JSON, or JSON that is not an object).
bool blobmsg_add_json_from_string(struct blob_buf *buf, const char *str);

// JSON text of attr, malloc'd (caller frees), or NULL when attr is NULL or
// empty. With list true the children print as an object. indent -1 is compact;
// cb and priv are accepted for compatibility and unused on the host.
char *blobmsg_format_json_with_cb(struct blob_attr *attr, bool list,
                                  blobmsg_json_format_t cb, void *priv, int indent);

static inline char *blobmsg_format_json(struct blob_attr *attr, bool list)
{
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, -1);
}

#ifdef __cplusplus
}
#endif
