#include "crypto/md5.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

const uint8_t kShift[64] = {7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
                            5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
                            4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
                            6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};

// K[i] = floor(|sin(i + 1)| * 2^32), as the algorithm defines it.
struct sine_table {
    uint32_t k[64];
    sine_table()
    {
        for (int i = 0; i < 64; i++)
            k[i] = static_cast<uint32_t>(std::fabs(std::sin(static_cast<double>(i + 1))) * 4294967296.0);
    }
};
const sine_table kSine;

uint32_t rotl(uint32_t x, int c)
{
    return (x << c) | (x >> (32 - c));
}

void transform(uint32_t state[4], const uint8_t block[64])
{
    uint32_t m[16];
    for (int i = 0; i < 16; i++)
        m[i] = static_cast<uint32_t>(block[i * 4]) | static_cast<uint32_t>(block[i * 4 + 1]) << 8 |
               static_cast<uint32_t>(block[i * 4 + 2]) << 16 | static_cast<uint32_t>(block[i * 4 + 3]) << 24;
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (int i = 0; i < 64; i++) {
        uint32_t f;
        int g;
        if (i < 16) {
            f = (b & c) | (~b & d);
            g = i;
        } else if (i < 32) {
            f = (d & b) | (~d & c);
            g = (5 * i + 1) % 16;
        } else if (i < 48) {
            f = b ^ c ^ d;
            g = (3 * i + 5) % 16;
        } else {
            f = c ^ (b | ~d);
            g = (7 * i) % 16;
        }
        uint32_t tmp = d;
        d = c;
        c = b;
        b = b + rotl(a + f + kSine.k[i] + m[g], kShift[i]);
        a = tmp;
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
}

} // namespace

void md5_init(md5_ctx *ctx)
{
    ctx->state[0] = 0x67452301;
    ctx->state[1] = 0xefcdab89;
    ctx->state[2] = 0x98badcfe;
    ctx->state[3] = 0x10325476;
    ctx->bytes = 0;
}

void md5_update(md5_ctx *ctx, const void *data, size_t len)
{
    const auto *p = static_cast<const uint8_t *>(data);
    size_t have = ctx->bytes % 64;
    ctx->bytes += len;
    while (len > 0) {
        size_t take = 64 - have < len ? 64 - have : len;
        memcpy(ctx->block + have, p, take);
        have += take;
        p += take;
        len -= take;
        if (have == 64) {
            transform(ctx->state, ctx->block);
            have = 0;
        }
    }
}

void md5_final(md5_ctx *ctx, uint8_t digest[16])
{
    uint64_t bits = ctx->bytes * 8;
    uint8_t pad = 0x80;
    md5_update(ctx, &pad, 1);
    uint8_t zero = 0;
    while (ctx->bytes % 64 != 56)
        md5_update(ctx, &zero, 1);
    uint8_t len[8];
    for (int i = 0; i < 8; i++)
        len[i] = static_cast<uint8_t>(bits >> (8 * i));
    md5_update(ctx, len, 8);
    for (int i = 0; i < 4; i++)
        for (int j = 0; j < 4; j++)
            digest[i * 4 + j] = static_cast<uint8_t>(ctx->state[i] >> (8 * j));
}

void md5_hex(const uint8_t digest[16], char hex[33])
{
    for (int i = 0; i < 16; i++)
        snprintf(hex + 2 * i, 3, "%02x", digest[i]);
}

void md5_data_hex(const void *data, size_t len, char hex[33])
{
    md5_ctx m;
    md5_init(&m);
    md5_update(&m, data, len);
    uint8_t digest[16];
    md5_final(&m, digest);
    md5_hex(digest, hex);
}

int md5_file_hex(const char *path, char hex[33])
{
    FILE *f = path ? fopen(path, "rb") : nullptr;
    if (!f)
        return -1;
    md5_ctx ctx;
    md5_init(&ctx);
    uint8_t buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0)
        md5_update(&ctx, buf, n);
    bool failed = ferror(f) != 0;
    fclose(f);
    if (failed)
        return -1;
    uint8_t digest[16];
    md5_final(&ctx, digest);
    md5_hex(digest, hex);
    return 0;
}
