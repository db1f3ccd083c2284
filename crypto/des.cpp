#include "crypto/des.h"

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

const uint8_t kIP[64] = {58, 50, 42, 34, 26, 18, 10, 2, 60, 52, 44, 36, 28, 20, 12, 4,
                         62, 54, 46, 38, 30, 22, 14, 6, 64, 56, 48, 40, 32, 24, 16, 8,
                         57, 49, 41, 33, 25, 17, 9,  1, 59, 51, 43, 35, 27, 19, 11, 3,
                         61, 53, 45, 37, 29, 21, 13, 5, 63, 55, 47, 39, 31, 23, 15, 7};
const uint8_t kFP[64] = {40, 8, 48, 16, 56, 24, 64, 32, 39, 7, 47, 15, 55, 23, 63, 31,
                         38, 6, 46, 14, 54, 22, 62, 30, 37, 5, 45, 13, 53, 21, 61, 29,
                         36, 4, 44, 12, 52, 20, 60, 28, 35, 3, 43, 11, 51, 19, 59, 27,
                         34, 2, 42, 10, 50, 18, 58, 26, 33, 1, 41, 9,  49, 17, 57, 25};
const uint8_t kE[48] = {32, 1,  2,  3,  4,  5,  4,  5,  6,  7,  8,  9,  8,  9,  10, 11,
                        12, 13, 12, 13, 14, 15, 16, 17, 16, 17, 18, 19, 20, 21, 20, 21,
                        22, 23, 24, 25, 24, 25, 26, 27, 28, 29, 28, 29, 30, 31, 32, 1};
const uint8_t kP[32] = {16, 7, 20, 21, 29, 12, 28, 17, 1,  15, 23, 26, 5,  18, 31, 10,
                        2,  8, 24, 14, 32, 27, 3,  9,  19, 13, 30, 6,  22, 11, 4,  25};
const uint8_t kPC1[56] = {57, 49, 41, 33, 25, 17, 9,  1,  58, 50, 42, 34, 26, 18,
                          10, 2,  59, 51, 43, 35, 27, 19, 11, 3,  60, 52, 44, 36,
                          63, 55, 47, 39, 31, 23, 15, 7,  62, 54, 46, 38, 30, 22,
                          14, 6,  61, 53, 45, 37, 29, 21, 13, 5,  28, 20, 12, 4};
const uint8_t kPC2[48] = {14, 17, 11, 24, 1,  5,  3,  28, 15, 6,  21, 10, 23, 19, 12, 4,
                          26, 8,  16, 7,  27, 20, 13, 2,  41, 52, 31, 37, 47, 55, 30, 40,
                          51, 45, 33, 48, 44, 49, 39, 56, 34, 53, 46, 42, 50, 36, 29, 32};
const uint8_t kShifts[16] = {1, 1, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 2, 2, 1};
const uint8_t kS[8][64] = {
    {14, 4,  13, 1, 2,  15, 11, 8,  3,  10, 6,  12, 5,  9,  0, 7,  0, 15, 7,  4,  14, 2,
     13, 1,  10, 6, 12, 11, 9,  5,  3,  8,  4,  1,  14, 8,  13, 6, 2,  11, 15, 12, 9,  7,
     3,  10, 5,  0, 15, 12, 8,  2,  4,  9,  1,  7,  5,  11, 3,  14, 10, 0, 6,  13},
    {15, 1,  8,  14, 6,  11, 3,  4,  9,  7, 2,  13, 12, 0, 5,  10, 3,  13, 4,  7,  15, 2,
     8,  14, 12, 0,  1,  10, 6,  9,  11, 5, 0,  14, 7,  11, 10, 4, 13, 1,  5,  8,  12, 6,
     9,  3,  2,  15, 13, 8,  10, 1,  3,  15, 4,  2,  11, 6, 7,  12, 0,  5,  14, 9},
    {10, 0,  9,  14, 6, 3,  15, 5,  1,  13, 12, 7,  11, 4,  2,  8,  13, 7, 0,  9,  3,  4,
     6,  10, 2,  8,  5, 14, 12, 11, 15, 1,  13, 6,  4,  9,  8,  15, 3,  0, 11, 1,  2,  12,
     5,  10, 14, 7,  1, 10, 13, 0,  6,  9,  8,  7,  4,  15, 14, 3,  11, 5, 2,  12},
    {7,  13, 14, 3, 0,  6,  9,  10, 1,  2, 8,  5,  11, 12, 4,  15, 13, 8,  11, 5,  6,  15,
     0,  3,  4,  7, 2,  12, 1,  10, 14, 9, 10, 6,  9,  0,  12, 11, 7,  13, 15, 1,  3,  14,
     5,  2,  8,  4, 3,  15, 0,  6,  10, 1, 13, 8,  9,  4,  5,  11, 12, 7,  2,  14},
    {2,  12, 4,  1,  7,  10, 11, 6, 8,  5, 3,  15, 13, 0, 14, 9,  14, 11, 2,  12, 4,  7,
     13, 1,  5,  0,  15, 10, 3,  9, 8,  6, 4,  2,  1,  11, 10, 13, 7,  8,  15, 9,  12, 5,
     6,  3,  0,  14, 11, 8,  12, 7, 1,  14, 2,  13, 6,  15, 0,  9,  10, 4,  5,  3},
    {12, 1,  10, 15, 9, 2,  6,  8,  0,  13, 3,  4,  14, 7,  5,  11, 10, 15, 4,  2,  7,  12,
     9,  5,  6,  1,  13, 14, 0, 11, 3,  8,  9,  14, 15, 5,  2,  8,  12, 3,  7,  0,  4,  10,
     1,  13, 11, 6,  4,  3,  2, 12, 9,  5,  15, 10, 11, 14, 1,  7,  6,  0,  8,  13},
    {4,  11, 2,  14, 15, 0,  8,  13, 3,  12, 9,  7,  5,  10, 6,  1,  13, 0,  11, 7,  4,  9,
     1,  10, 14, 3,  5,  12, 2,  15, 8,  6,  1,  4,  11, 13, 12, 3,  7,  14, 10, 15, 6,  8,
     0,  5,  9,  2,  6,  11, 13, 8,  1,  4,  10, 7,  9,  5,  0,  15, 14, 2,  3,  12},
    {13, 2,  8,  4,  6,  15, 11, 1,  10, 9,  3,  14, 5,  0,  12, 7,  1,  15, 13, 8,  10, 3,
     7,  4,  12, 5,  6,  11, 0,  14, 9,  2,  7,  11, 4,  1,  9,  12, 14, 2,  0,  6,  10, 13,
     15, 3,  5,  8,  2,  1,  14, 7,  4,  10, 8,  13, 15, 12, 9,  0,  3,  5,  6,  11},
};

// Bit i of a table (1-based, counted from the most significant end of an
// in_bits-wide value) lands at output position i.
uint64_t permute(uint64_t in, const uint8_t *table, int out_bits, int in_bits)
{
    uint64_t out = 0;
    for (int i = 0; i < out_bits; i++)
        out = (out << 1) | ((in >> (in_bits - table[i])) & 1);
    return out;
}

uint32_t feistel(uint32_t r, uint64_t subkey)
{
    uint64_t x = permute(r, kE, 48, 32) ^ subkey;
    uint32_t s = 0;
    for (int i = 0; i < 8; i++) {
        int six = static_cast<int>((x >> (42 - 6 * i)) & 0x3f);
        int row = ((six & 0x20) >> 4) | (six & 1);
        int col = (six >> 1) & 0xf;
        s = (s << 4) | kS[i][row * 16 + col];
    }
    return static_cast<uint32_t>(permute(s, kP, 32, 32));
}

uint64_t crypt_block(uint64_t block, const des_schedule *ks, bool decrypt)
{
    uint64_t x = permute(block, kIP, 64, 64);
    uint32_t l = static_cast<uint32_t>(x >> 32), r = static_cast<uint32_t>(x);
    for (int i = 0; i < 16; i++) {
        uint32_t next = l ^ feistel(r, ks->sub[decrypt ? 15 - i : i]);
        l = r;
        r = next;
    }
    return permute((static_cast<uint64_t>(r) << 32) | l, kFP, 64, 64);
}

uint64_t load_be(const uint8_t *p)
{
    uint64_t v = 0;
    for (int i = 0; i < 8; i++)
        v = (v << 8) | p[i];
    return v;
}

void store_be(uint64_t v, uint8_t *p)
{
    for (int i = 7; i >= 0; i--, v >>= 8)
        p[i] = static_cast<uint8_t>(v);
}

void backup_key(const char *key16, des_schedule *ks)
{
    uint8_t key[8] = {0};
    size_t n = strlen(key16);
    for (size_t i = 0; i < n && i < 16; i++)
        key[i % 8] ^= static_cast<uint8_t>(key16[i]);
    des_set_key(key, ks);
}

bool read_file(const char *path, std::vector<uint8_t> *out)
{
    FILE *f = fopen(path, "rb");
    if (!f)
        return false;
    uint8_t buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0)
        out->insert(out->end(), buf, buf + n);
    bool ok = !ferror(f);
    fclose(f);
    return ok;
}

bool write_file(const char *path, const std::vector<uint8_t> &data)
{
    FILE *f = fopen(path, "wb");
    if (!f)
        return false;
    bool ok = fwrite(data.data(), 1, data.size(), f) == data.size();
    return fclose(f) == 0 && ok;
}

} // namespace

void des_set_key(const uint8_t key[8], des_schedule *ks)
{
    uint64_t cd = permute(load_be(key), kPC1, 56, 64);
    uint32_t c = static_cast<uint32_t>(cd >> 28) & 0x0fffffff, d = static_cast<uint32_t>(cd) & 0x0fffffff;
    for (int i = 0; i < 16; i++) {
        for (int s = 0; s < kShifts[i]; s++) {
            c = ((c << 1) | (c >> 27)) & 0x0fffffff;
            d = ((d << 1) | (d >> 27)) & 0x0fffffff;
        }
        ks->sub[i] = permute((static_cast<uint64_t>(c) << 28) | d, kPC2, 48, 56);
    }
}

uint64_t des_encrypt_block(uint64_t block, const des_schedule *ks)
{
    return crypt_block(block, ks, false);
}

uint64_t des_decrypt_block(uint64_t block, const des_schedule *ks)
{
    return crypt_block(block, ks, true);
}

int des_encrypt_data(std::vector<uint8_t> *data, const char *key16)
{
    if (!data || !key16)
        return -1;
    uint8_t pad = static_cast<uint8_t>(8 - data->size() % 8);
    data->insert(data->end(), pad, pad);
    des_schedule ks;
    backup_key(key16, &ks);
    uint64_t chain = 0;
    for (size_t i = 0; i < data->size(); i += 8) {
        chain = des_encrypt_block(load_be(&(*data)[i]) ^ chain, &ks);
        store_be(chain, &(*data)[i]);
    }
    return 0;
}

int des_decrypt_data(std::vector<uint8_t> *data, const char *key16)
{
    if (!data || !key16 || data->empty() || data->size() % 8)
        return -1;
    des_schedule ks;
    backup_key(key16, &ks);
    uint64_t chain = 0;
    for (size_t i = 0; i < data->size(); i += 8) {
        uint64_t c = load_be(&(*data)[i]);
        store_be(des_decrypt_block(c, &ks) ^ chain, &(*data)[i]);
        chain = c;
    }
    uint8_t pad = data->back();
    if (pad < 1 || pad > 8)
        return -1;
    for (size_t i = data->size() - pad; i < data->size(); i++) {
        if ((*data)[i] != pad)
            return -1;
    }
    data->resize(data->size() - pad);
    return 0;
}

int des_encrypt_file(const char *in, const char *out, const char *key16)
{
    std::vector<uint8_t> data;
    if (!in || !out || !key16 || !read_file(in, &data) || des_encrypt_data(&data, key16) != 0)
        return -1;
    return write_file(out, data) ? 0 : -1;
}

int des_decrypt_file(const char *in, const char *out, const char *key16)
{
    std::vector<uint8_t> data;
    if (!in || !out || !key16 || !read_file(in, &data) || des_decrypt_data(&data, key16) != 0)
        return -1;
    return write_file(out, data) ? 0 : -1;
}
