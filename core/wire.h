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
// Read-ahead for one connection's records: small records usually arrive
// together, so one read serves a header and the values behind it instead of
// one system call each. Lives on the worker's stack for one connection.
enum { SOCK_READAHEAD = 4096 };
// A connection delivers its records within a deadline, so neither silence
// nor a trickle of bytes holds a worker for long: SOCK_DEADLINE_MS from its
// arrival, plus SOCK_DEADLINE_FULL_MS scaled by each announced length
// against the largest request; one that waited in the queue past that still
// gets SOCK_DEADLINE_GRACE_MS from the moment a worker takes it.
enum : int64_t {
    SOCK_DEADLINE_MS = 2000,
    SOCK_DEADLINE_FULL_MS = 1000,
    SOCK_DEADLINE_GRACE_MS = 250,
};
struct sock_reader {
    int fd;
    size_t pos, end;                  // unread bytes are data[pos, end)
    int64_t since_ns;                 // arrival (monotonic); 0: no deadline
    int64_t allow_ns;                 // time the records may take from then
    int64_t floor_ns;                 // the deadline is never before this
    uint32_t reads;                   // reads from the socket so far
    uint32_t cut;                     // 1 once the deadline cut a read
    uint8_t data[SOCK_READAHEAD + 1]; // + 1: sock_read's NUL
};

// Starts an empty read-ahead on fd, without a deadline.
void sock_reader_init(sock_reader *r, int fd);
// Monotonic clock in nanoseconds.
int64_t sock_monotonic_ns(void);
// Gives the records a deadline counted from since_ns, the connection's
// arrival (SOCK_DEADLINE_MS, but at least SOCK_DEADLINE_GRACE_MS from now).
void sock_reader_set_deadline(sock_reader *r, int64_t since_ns);
// A record of len bytes was announced: its share of SOCK_DEADLINE_FULL_MS
// (lengths beyond the largest request count as the largest).
void sock_reader_allow(sock_reader *r, size_t len);
// sock_read through the read-ahead, with the same results: up to len bytes
// (what has arrived so far, never waiting for more once some are at hand),
// NUL written at buf[n] (buf holds len + 1), 0 at end of stream, -1 on error
// (also when the deadline passes while the read waits; the deadline is only
// looked at then). Lengths the read-ahead cannot hold are read straight into
// buf. Worker thread.
ssize_t sock_reader_read(sock_reader *r, uint8_t *buf, size_t len);
// One write, repeated only on EAGAIN/EINTR (100 calls at most). Last result.
ssize_t sock_write(int fd, const void *buf, size_t len);
// Writes a whole type-3 record. 0 or -1.
int jres_tlv_write(int fd, const char *data, uint32_t len);
// Writes {"error_code": code} as a type-3 record. 0 or -1.
int make_error_response(int fd, int32_t code);
