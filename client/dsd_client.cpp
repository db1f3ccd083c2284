#include "client/dsd_client.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

bool write_all(int fd, const char *data, size_t len)
{
    while (len > 0) {
        ssize_t n = send(fd, data, len, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

// Waits until fd has data (or end of stream) for up to timeout_ms; 0 waits
// in the read itself. False on a time-out or error.
bool wait_readable(int fd, int timeout_ms)
{
    if (timeout_ms <= 0)
        return true;
    for (;;) {
        pollfd p{.fd = fd, .events = POLLIN, .revents = 0};
        int r = poll(&p, 1, timeout_ms);
        if (r < 0 && errno == EINTR)
            continue;
        return r > 0;
    }
}

// One read of up to len bytes after waiting; the count, or -1 on a time-out,
// an error or end of stream.
ssize_t read_some(int fd, char *data, size_t len, int timeout_ms)
{
    for (;;) {
        if (!wait_readable(fd, timeout_ms))
            return -1;
        ssize_t n = read(fd, data, len);
        if (n < 0 && errno == EINTR)
            continue;
        return n > 0 ? n : -1;
    }
}

bool read_all(int fd, char *data, size_t len, int timeout_ms)
{
    while (len > 0) {
        ssize_t n = read_some(fd, data, len, timeout_ms);
        if (n < 0)
            return false;
        data += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

std::string json_escape(const std::string &s)
{
    std::string out;
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char buf[8];
            snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

// The daemon answers with one record and then closes, so the response is
// read in large pieces rather than header and value apart. Bytes after the
// record are not looked at.
bool read_response(int fd, uint32_t *type, std::string *value, int timeout_ms)
{
    enum : size_t { HEADER = 8, PIECE = 16384, MAX_VALUE = 16u << 20 };
    std::string got;
    size_t want = HEADER;
    while (got.size() < want) {
        size_t have = got.size();
        got.resize(have + std::max<size_t>(PIECE, want - have));
        ssize_t n = read_some(fd, got.data() + have, got.size() - have, timeout_ms);
        if (n < 0)
            return false;
        got.resize(have + static_cast<size_t>(n));
        if (want == HEADER && got.size() >= HEADER) {
            uint32_t header[2];
            memcpy(header, got.data(), sizeof header);
            if (ntohl(header[1]) > MAX_VALUE)
                return false;
            *type = ntohl(header[0]);
            want = HEADER + ntohl(header[1]);
        }
    }
    value->assign(got, HEADER, want - HEADER);
    return true;
}

} // namespace

int dsd_connect(const std::string &socket_path)
{
    sockaddr_un addr{};
    if (socket_path.size() >= sizeof addr.sun_path)
        return -1;
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, socket_path.c_str(), socket_path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

void dsd_append_record(std::string *out, uint32_t type, const std::string &value)
{
    uint32_t header[2] = {htonl(type), htonl(static_cast<uint32_t>(value.size()))};
    out->append(reinterpret_cast<const char *>(header), sizeof header);
    out->append(value);
}

bool dsd_send_record(int fd, uint32_t type, const std::string &value)
{
    std::string bytes;
    dsd_append_record(&bytes, type, value);
    return write_all(fd, bytes.data(), bytes.size());
}

bool dsd_send_record_bytes(int fd, const std::string &bytes)
{
    return write_all(fd, bytes.data(), bytes.size());
}

bool dsd_read_record(int fd, uint32_t *type, std::string *value, int timeout_ms, uint32_t max_len)
{
    uint32_t header[2];
    if (!read_all(fd, reinterpret_cast<char *>(header), sizeof header, timeout_ms))
        return false;
    uint32_t len = ntohl(header[1]);
    if (len > max_len)
        return false;
    *type = ntohl(header[0]);
    value->assign(len, '\0');
    return read_all(fd, value->data(), len, timeout_ms);
}

std::string dsd_info_json(const dsd_identity &who)
{
    return "{\"user\": \"" + json_escape(who.user) + "\", \"group\": " + std::to_string(who.group) +
           ", \"client\": " + std::to_string(who.client) + "}";
}

std::string dsd_request(const std::string &socket_path, const dsd_identity &who,
                        const std::string &request, int timeout_ms, std::string *error)
{
    auto failed = [&](const char *why) {
        if (error)
            *error = why;
        return std::string();
    };
    int fd = dsd_connect(socket_path);
    if (fd < 0)
        return failed("cannot connect");
    std::string response;
    uint32_t type = 0;
    // Both records in one write: the daemon then usually finds the whole
    // request in its first read.
    std::string records;
    dsd_append_record(&records, 1, dsd_info_json(who));
    dsd_append_record(&records, 2, request);
    bool ok = dsd_send_record_bytes(fd, records) && read_response(fd, &type, &response, timeout_ms);
    close(fd);
    if (!ok)
        return failed("no response");
    if (type != 3)
        return failed("unexpected record type");
    return response;
}
