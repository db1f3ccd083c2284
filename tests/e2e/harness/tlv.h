// TLV records as bytes, for tests that build requests by hand: a header of
// two big-endian 32-bit words (type, length) and the value. Header-only so
// unit tests share it without the end-to-end harness library.
#pragma once

#include <arpa/inet.h>

#include <cstdint>
#include <string>

// The 8-byte header alone; len may announce more or less than follows.
inline std::string tlv_header(uint32_t type, uint32_t len)
{
    uint32_t h[2] = {htonl(type), htonl(len)};
    return std::string(reinterpret_cast<const char *>(h), sizeof h);
}

// A whole record: header and value.
inline std::string tlv(uint32_t type, const std::string &value)
{
    return tlv_header(type, static_cast<uint32_t>(value.size())) + value;
}
