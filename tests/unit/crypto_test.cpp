// MD5 and DES against published vectors, the file cipher against known
// answers, and MD5 of a file read piecewise against the whole buffer's.
#include <algorithm>
#include <random>

#include "crypto/des.h"
#include "crypto/md5.h"
#include "harness/dsd_harness.h"

namespace {

std::string md5_of(const std::string &s)
{
    char hex[33];
    md5_data_hex(s.data(), s.size(), hex);
    return hex;
}

TEST(Md5, Rfc1321Vectors)
{
    EXPECT_EQ(md5_of(""), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5_of("a"), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(md5_of("abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5_of("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(md5_of("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(md5_of(std::string("1234567890", 10) + "1234567890123456789012345678901234567890123456789012345678901234567890"),
              "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, PiecewiseFileAndWholeAgree)
{
    std::mt19937 rng(1);
    std::string data(100000, '\0');
    for (auto &c : data)
        c = static_cast<char>(rng());
    md5_ctx ctx;
    md5_init(&ctx);
    for (size_t off = 0; off < data.size(); off += 777)
        md5_update(&ctx, data.data() + off, std::min<size_t>(777, data.size() - off));
    uint8_t d[16];
    md5_final(&ctx, d);
    char hex[33];
    md5_hex(d, hex);
    EXPECT_EQ(hex, md5_of(data));

    scratch_dir dir("dsd-md5");
    const std::string path = dir / "data.bin";
    std::ofstream(path, std::ios::binary) << data;
    char file_hex[33];
    ASSERT_EQ(md5_file_hex(path.c_str(), file_hex), 0);
    EXPECT_STREQ(file_hex, hex);
    EXPECT_EQ(md5_file_hex("/nonexistent/file", file_hex), -1);
}

TEST(Des, PublishedVectors)
{
    // The textbook example and a FIPS 81 vector.
    const uint8_t k1[8] = {0x13, 0x34, 0x57, 0x79, 0x9B, 0xBC, 0xDF, 0xF1};
    des_schedule ks;
    des_set_key(k1, &ks);
    EXPECT_EQ(des_encrypt_block(0x0123456789ABCDEFull, &ks), 0x85E813540F0AB405ull);
    EXPECT_EQ(des_decrypt_block(0x85E813540F0AB405ull, &ks), 0x0123456789ABCDEFull);
    const uint8_t k2[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    des_set_key(k2, &ks);
    EXPECT_EQ(des_encrypt_block(0x4E6F772069732074ull, &ks), 0x3FA40E8A984D4815ull);
}

std::string hex_of(const std::string &bytes)
{
    std::string out;
    char h[3];
    for (unsigned char c : bytes) {
        snprintf(h, sizeof h, "%02x", c);
        out += h;
    }
    return out;
}

// The file cipher is plain DES-CBC (zero IV, PKCS#7) under the key folded in
// half; the expected bytes come from openssl's des-cbc under that folded key.
TEST(Des, FileCipherKnownAnswersRoundTripsAndRefusesDamage)
{
    static const struct { size_t len; const char *cipher; } kat[] = {
        {.len = 0, .cipher = "407e19677f41d2b4"},
        {.len = 1, .cipher = "7d83b17384dcd9a9"},
        {.len = 8, .cipher = "ea8a0aaf05178ba709471e3068708b1f"},
        {.len = 13, .cipher = "ea8a0aaf05178ba71806b54279c1ce02"},
        {.len = 4096, .cipher = nullptr},
    };
    scratch_dir dir("dsd-des");
    const std::string plain_s = dir / "plain", enc_s = dir / "enc", back_s = dir / "back";
    const char *plain = plain_s.c_str(), *enc = enc_s.c_str(), *back = back_s.c_str();
    const char *key = "mqwer#!^$KLPZ392";
    for (const auto &k : kat) {
        std::string data(k.len, 'x');
        for (size_t i = 0; i < k.len; i++)
            data[i] = static_cast<char>(i * 31 + 7);
        std::ofstream(plain, std::ios::binary) << data;
        ASSERT_EQ(des_encrypt_file(plain, enc, key), 0);
        std::string cipher = slurp(enc);
        EXPECT_EQ(cipher.size(), (k.len / 8 + 1) * 8);
        if (k.cipher) {
            EXPECT_EQ(hex_of(cipher), k.cipher) << k.len;
        }
        ASSERT_EQ(des_decrypt_file(enc, back, key), 0);
        EXPECT_EQ(slurp(back), data) << k.len;
    }
    EXPECT_NE(des_decrypt_file(enc, back, "another key 1234"), 0); // padding check fails
    std::string cut = slurp(enc).substr(0, 4095);
    std::ofstream(enc, std::ios::binary) << cut;
    EXPECT_EQ(des_decrypt_file(enc, back, key), -1);
}

} // namespace
