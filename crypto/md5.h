// MD5 (RFC 1321): the digest the configuration backup carries in its header.
#pragma once

#include <cstddef>
#include <cstdint>

struct md5_ctx {
    uint32_t state[4];
    uint64_t bytes;
    uint8_t block[64];
};

void md5_init(md5_ctx *ctx);
void md5_update(md5_ctx *ctx, const void *data, size_t len);
void md5_final(md5_ctx *ctx, uint8_t digest[16]);

// The 32 lower-case hex digits of a file's digest (NUL-terminated in hex).
// 0, or -1 when the file cannot be read. Any thread.
int md5_file_hex(const char *path, char hex[33]);
void md5_hex(const uint8_t digest[16], char hex[33]);
// The 32 lower-case hex digits of `len` bytes' digest. Any thread.
void md5_data_hex(const void *data, size_t len, char hex[33]);
