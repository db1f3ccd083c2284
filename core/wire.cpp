#include "core/wire.h"

#include "platform/trace.h"

#include <arpa/inet.h>
#include <unistd.h>

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

ssize_t sock_write(int fd, const void *buf, size_t len)
{
    if (fd < 0 || !buf || len == 0) {
        DS_ERR("Invalid params.");
        return -1;
    }
    ssize_t n = -1;
    for (int calls = 0; calls < SOCK_RETRIES; calls++) {
        n = write(fd, buf, len);
        if (n != -1 || (errno != EAGAIN && errno != EINTR))
            break;
    }
    return n;
}

int jres_tlv_write(int fd, const char *data, uint32_t len)
{
    if (!data || fd < 0 || len == 0) {
        DS_ERR("Invalid params.");
        return -1;
    }
    uint32_t header[2] = {htonl(TLV_RESPONSE), htonl(len)};
    if (sock_write(fd, header, sizeof(header)) <= 0) {
        DS_ERR("Socket write TLV type and length failed.");
        return -1;
    }
    size_t off = 0;
    ssize_t n;
    do {
        n = sock_write(fd, data + off, len - off);
        if (n > 0)
            off += static_cast<size_t>(n);
    } while (n > 0 && off < len);
    if (n > 0)
        return 0;
    DS_ERR("Socket write TLV value failed.");
    return -1;
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
