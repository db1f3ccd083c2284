// DES (FIPS 46-3) with the standard tables, and the file cipher of the
// configuration backup built on it.
//
// The backup's 16-character key is reduced to one DES key by XOR-ing its two
// halves; files are enciphered in CBC mode with a zero IV and PKCS#7
// padding, so a wrong key or a cut file is caught by the padding check on
// top of the MD5 line inside. Backups are only exchanged with this same
// implementation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

struct des_schedule {
    uint64_t sub[16]; // 48-bit round keys
};

void des_set_key(const uint8_t key[8], des_schedule *ks);
// One 64-bit block (big-endian bit order as the standard numbers them).
uint64_t des_encrypt_block(uint64_t block, const des_schedule *ks);
uint64_t des_decrypt_block(uint64_t block, const des_schedule *ks);

// Whole-file cipher with a 16-character key. 0, or -1 on I/O failure or
// (decrypting) a length or padding that no encryption could have produced.
int des_encrypt_file(const char *in, const char *out, const char *key16);
int des_decrypt_file(const char *in, const char *out, const char *key16);

// The same cipher on a buffer in place, for callers that keep plain text
// out of files. 0, or -1 (decrypting: a length or padding no encryption
// could have produced). Any thread.
int des_encrypt_data(std::vector<uint8_t> *data, const char *key16);
int des_decrypt_data(std::vector<uint8_t> *data, const char *key16);
