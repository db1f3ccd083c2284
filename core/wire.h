// TLV framing on the client socket: 4-byte type, 4-byte length, both
// big-endian, then the value.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

enum { TLV_INFO = 1, TLV_REQUEST = 2, TLV_RESPONSE = 3, TLV_HEADER_LEN = 8 };
enum { TLV_INFO_MAX = 32768, TLV_REQUEST_MAX = 262144 };

// One read with up to 100 retries on EAGAIN/EINTR. Bytes read (NUL written at
// buf[n], so buf holds len + 1), 0 at end of stream, -1 on error. Worker thread.
ssize_t sock_read(int fd, uint8_t *buf, size_t len);
// One write, repeated only on EAGAIN/EINTR (100 calls at most). Last result.
ssize_t sock_write(int fd, const void *buf, size_t len);
// Writes a whole type-3 record. 0 or -1.
int jres_tlv_write(int fd, const char *data, uint32_t len);
// Writes {"error_code": code} as a type-3 record. 0 or -1.
int make_error_response(int fd, int32_t code);
