// Host subset of libubox's blob buffers.
//
// The names and signatures are those of OpenWrt's libubox so the daemon
// compiles unchanged against either. On the host a buffer's head attribute
// carries the compact JSON text of the object being built (NUL-terminated);
// nothing outside compat/ may rely on that.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Low 24 bits of id_len: the attribute's total length, header included.
#define BLOB_ATTR_LEN_MASK 0x00ffffff

struct blob_attr {
    uint32_t id_len;
    char data[];
};

struct blob_buf {
    struct blob_attr *head;
    bool (*grow)(struct blob_buf *buf, int minlen);
    int buflen;
    void *buf;
};

// Starts an empty message in buf (which starts zeroed or was used before).
// 0, or -ENOMEM.
int blob_buf_init(struct blob_buf *buf, int id);
// Releases the buffer's memory; buf may be initialised again afterwards.
void blob_buf_free(struct blob_buf *buf);

static inline unsigned int blob_raw_len(const struct blob_attr *attr)
{
    return attr->id_len & BLOB_ATTR_LEN_MASK;
}

static inline unsigned int blob_len(const struct blob_attr *attr)
{
    return blob_raw_len(attr) - (unsigned int)sizeof(struct blob_attr);
}

static inline void *blob_data(const struct blob_attr *attr)
{
    return (void *)attr->data;
}

#ifdef __cplusplus
}
#endif
