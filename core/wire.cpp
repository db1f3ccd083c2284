#include "core/wire.h"

#include "platform/stats.h"
#include "platform/trace.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <poll.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

enum { SOCK_RETRIES = 100 };

ssize_t sock_read(int fd, uint8_t *buf, size_t len)
{
    if (fd < 0 || !buf || len == 0) {
        DS_ERR("Invalid params.");
        return -1;
    }
    for (int tries = SOCK_RETRIES; tries > 0; tries--) {
        ssize_t n = read(fd, buf, len);
        if (n == 0) {
            DS_ERR("read_len = 0.");
            return 0;
        }
        if (n > 0) {
            buf[n] = 0;
            return n;
        }
        if (errno != EAGAIN && errno != EINTR) {
            DS_ERR("read_len = -1, errno=%d.", errno);
            return -1;
        }
    }
    DS_ERR("read_len = -1, try_cnt <= 0.");
    return -1;
}

namespace {

// Moves up to len read-ahead bytes into buf; the count.
size_t take_buffered(sock_reader *r, uint8_t *buf, size_t len)
{
    size_t n = std::min(len, r->end - r->pos);
    memcpy(buf, r->data + r->pos, n);
    r->pos += n;
    return n;
}

// What else has arrived already, without waiting: a plain read in place of
// the read-ahead would have returned those bytes as well. Errors and end of
// stream are left for the next read to report.
size_t take_arrived(int fd, uint8_t *buf, size_t len)
{
    ssize_t n;
    do {
        n = recv(fd, buf, len, MSG_DONTWAIT);
    } while (n < 0 && errno == EINTR);
    return n > 0 ? static_cast<size_t>(n) : 0;
}

} // namespace

int64_t sock_monotonic_ns(void)
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

void sock_reader_init(sock_reader *r, int fd)
{
    r->fd = fd;
    r->pos = 0;
    r->end = 0;
    r->since_ns = 0;
    r->allow_ns = 0;
    r->floor_ns = 0;
    r->reads = 0;
    r->cut = 0;
}

void sock_reader_set_deadline(sock_reader *r, int64_t since_ns)
{
    r->since_ns = since_ns > 0 ? since_ns : 1;
    r->allow_ns = SOCK_DEADLINE_MS * 1000000;
    r->floor_ns = sock_monotonic_ns() + SOCK_DEADLINE_GRACE_MS * 1000000;
}

void sock_reader_allow(sock_reader *r, size_t len)
{
    size_t counted = std::min(len, static_cast<size_t>(TLV_REQUEST_MAX));
    r->allow_ns += SOCK_DEADLINE_FULL_MS * 1000000 * static_cast<int64_t>(counted) / TLV_REQUEST_MAX;
}

namespace {

enum : int64_t { NS_PER_MS = 1000000 };

// Nanoseconds left before the deadline (<= 0 when it has passed).
int64_t time_left(const sock_reader *r)
{
    return std::max(r->since_ns + r->allow_ns, r->floor_ns) - sock_monotonic_ns();
}

// Waits until fd is readable or the deadline passes. False at the deadline.
bool wait_readable(const sock_reader *r)
{
    int64_t left = time_left(r);
    if (left <= 0) {
        DS_TRACE_AS("sock_read", TRACE_ERROR, "Client too slow, records not complete in time.");
        return false;
    }
    pollfd p{.fd = r->fd, .events = POLLIN, .revents = 0};
    poll(&p, 1, static_cast<int>((left + NS_PER_MS - 1) / NS_PER_MS));
    return true;
}

// One read from the socket under the deadline, with sock_read's results.
// The first read of a connection may block (the receive time-out bounds
// it) unless the deadline is near: a client that sends its records at once
// costs exactly one system call. Any later read first takes what has
// arrived; only a read that would wait looks at the clock, then waits in
// poll for what remains of the deadline.
ssize_t read_in_time(sock_reader *r, uint8_t *buf, size_t len)
{
    if (!r->since_ns)
        return sock_read(r->fd, buf, len);
    int flags = r->reads++ == 0 && time_left(r) > 1000 * NS_PER_MS ? 0 : MSG_DONTWAIT;
    for (;;) {
        ssize_t n = recv(r->fd, buf, len, flags);
        if (n > 0) {
            buf[n] = 0;
            return n;
        }
        if (n == 0) {
            DS_TRACE_AS("sock_read", TRACE_ERROR, "read_len = 0.");
            return 0;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
            DS_TRACE_AS("sock_read", TRACE_ERROR, "read_len = -1, errno=%d.", errno);
            return -1;
        }
        if (errno != EINTR && !wait_readable(r)) {
            if (!r->cut++)
                stats_count(STATS_DEADLINE_CUT); // once per connection
            return -1;
        }
        flags = MSG_DONTWAIT;
    }
}

} // namespace

ssize_t sock_reader_read(sock_reader *r, uint8_t *buf, size_t len)
{
    if (!r || r->fd < 0 || !buf || len == 0) {
        DS_ERR("Invalid params.");
        return -1;
    }
    size_t n;
    if (r->pos < r->end) {
        n = take_buffered(r, buf, len);
        if (n < len)
            n += take_arrived(r->fd, buf + n, len - n);
    } else if (len >= SOCK_READAHEAD) {
        return read_in_time(r, buf, len);
    } else {
        ssize_t got = read_in_time(r, r->data, SOCK_READAHEAD);
        if (got <= 0)
            return got;
        r->pos = 0;
        r->end = static_cast<size_t>(got);
        n = take_buffered(r, buf, len);
    }
    buf[n] = 0;
    return static_cast<ssize_t>(n);
}

namespace {

// One writev, repeated only on EAGAIN/EINTR (100 calls at most). Last result.
ssize_t sock_writev(int fd, const iovec *iov, int count)
{
    ssize_t n = -1;
    for (int calls = 0; calls < SOCK_RETRIES; calls++) {
        n = writev(fd, iov, count);
        if (n != -1 || (errno != EAGAIN && errno != EINTR))
            break;
    }
    return n;
}

} // namespace

ssize_t sock_write(int fd, const void *buf, size_t len)
{
    if (fd < 0 || !buf || len == 0) {
        DS_ERR("Invalid params.");
        return -1;
    }
    iovec one{const_cast<void *>(buf), len};
    return sock_writev(fd, &one, 1);
}

namespace {

// Writes bytes [0, len) of buf, given that `done` are out already: short
// writes continue at the next offset. 0, or -1 when a write makes no progress.
int finish_write(int fd, const uint8_t *buf, size_t len, size_t done)
{
    while (done < len) {
        ssize_t n = sock_write(fd, buf + done, len - done);
        if (n <= 0)
            return -1;
        done += static_cast<size_t>(n);
    }
    return 0;
}

} // namespace

// Header and value leave in one call, so the client wakes once for the
// whole record rather than once for the header and again for the value.
int jres_tlv_write(int fd, const char *data, uint32_t len)
{
    if (!data || fd < 0 || len == 0) {
        DS_ERR("Invalid params.");
        return -1;
    }
    uint32_t header[2] = {htonl(TLV_RESPONSE), htonl(len)};
    iovec iov[2] = {{.iov_base = header, .iov_len = sizeof header},
                    {.iov_base = const_cast<char *>(data), .iov_len = len}};
    ssize_t n = sock_writev(fd, iov, 2);
    size_t sent = n > 0 ? static_cast<size_t>(n) : 0;
    if (n <= 0 || finish_write(fd, reinterpret_cast<const uint8_t *>(header), sizeof header,
                               std::min(sent, sizeof header)) != 0) {
        DS_ERR("Socket write TLV type and length failed.");
        return -1;
    }
    sent = sent > sizeof header ? sent - sizeof header : 0;
    if (finish_write(fd, reinterpret_cast<const uint8_t *>(data), len, sent) != 0) {
        DS_ERR("Socket write TLV value failed.");
        return -1;
    }
    return 0;
}

int make_error_response(int fd, int32_t code)
{
    if (fd < 0) {
        DS_ERR("Invalid params.");
        return -1;
    }
    char text[32] = {0};
    snprintf(text, sizeof(text), "{\"%s\": %d}", "error_code", code);
    DS_INFO("Response: %s.", text);
    if (jres_tlv_write(fd, text, static_cast<uint32_t>(strlen(text))) != 0) {
        DS_ERR("Write response TLV failed.");
        return -1;
    }
    return 0;
}
