// Host subset of libubox's blobmsg (named attributes) helpers.
#pragma once

#include <libubox/blob.h>

#ifdef __cplusplus
extern "C" {
#endif

// Adds a member to the message being built in buf. 0, or a negative errno.
int blobmsg_add_string(struct blob_buf *buf, const char *name, const char *string);
int blobmsg_add_u32(struct blob_buf *buf, const char *name, uint32_t val);

#ifdef __cplusplus
}
#endif
