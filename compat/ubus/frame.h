// The host bus's frames: a 4-byte big-endian length, then that many bytes
// of JSON text. Shared by the host libubus and the host bus daemon
// (tools/hostbus), which must agree on them byte for byte.
#pragma once

#include <arpa/inet.h>
#include <json-c/json.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <string>

constexpr uint32_t kUbusFrameMax = 16u << 20;

// Writes all of buf. 0 or -1 (never SIGPIPE: a peer gone is an error).
inline int ubus_frame_write_all(int fd, const void *buf, size_t len)
{
    const char *p = static_cast<const char *>(buf);
    while (len > 0) {
        ssize_t n = send(fd, p, len, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return -1;
        p += n;
        len -= static_cast<size_t>(n);
    }
    return 0;
}

// Reads exactly len bytes. 0, or -1 on error or end of stream.
inline int ubus_frame_read_all(int fd, void *buf, size_t len)
{
    char *p = static_cast<char *>(buf);
    while (len > 0) {
        ssize_t n = recv(fd, p, len, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return -1;
        p += n;
        len -= static_cast<size_t>(n);
    }
    return 0;
}

// Sends obj as one frame. 0, or -1 when it is too long or the peer is gone.
inline int ubus_frame_send(int fd, json_object *obj)
{
    size_t len = 0;
    const char *text = json_object_to_json_string_length(obj, JSON_C_TO_STRING_PLAIN, &len);
    if (!text || len > kUbusFrameMax)
        return -1;
    uint32_t be = htonl(static_cast<uint32_t>(len));
    if (ubus_frame_write_all(fd, &be, sizeof be) != 0)
        return -1;
    return ubus_frame_write_all(fd, text, len);
}

// Reads one frame into *out (the caller's; null when its text is not
// JSON). 0, or -1 at end of stream, on error or for an over-long length.
inline int ubus_frame_recv(int fd, json_object **out)
{
    *out = nullptr;
    uint32_t be = 0;
    if (ubus_frame_read_all(fd, &be, sizeof be) != 0)
        return -1;
    uint32_t len = ntohl(be);
    if (len > kUbusFrameMax)
        return -1;
    std::string body(len, '\0');
    if (ubus_frame_read_all(fd, body.data(), len) != 0)
        return -1;
    *out = json_tokener_parse(body.c_str());
    return 0;
}
