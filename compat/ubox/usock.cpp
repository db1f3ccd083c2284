// Host usock: Unix-domain stream sockets, listening or connecting, with
// close-on-exec unless asked otherwise. Internet sockets are not needed by
// dsd and are refused.
#include <libubox/usock.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

int unix_socket(int type, const char *path)
{
    sockaddr_un addr{};
    if (!path || strlen(path) >= sizeof addr.sun_path) {
        errno = EINVAL;
        return -1;
    }
    addr.sun_family = AF_UNIX;
    strcpy(addr.sun_path, path);
    int kind = (type & 0xff) == USOCK_UDP ? SOCK_DGRAM : SOCK_STREAM;
    if (!(type & USOCK_NOCLOEXEC))
        kind |= SOCK_CLOEXEC;
    if (type & USOCK_NONBLOCK)
        kind |= SOCK_NONBLOCK;
    int fd = socket(AF_UNIX, kind, 0);
    if (fd < 0)
        return -1;
    auto *sa = reinterpret_cast<sockaddr *>(&addr);
    int rc = (type & USOCK_SERVER)
                 ? bind(fd, sa, sizeof addr) == 0 && (kind & SOCK_DGRAM || listen(fd, SOMAXCONN) == 0) ? 0 : -1
                 : connect(fd, sa, sizeof addr);
    if (rc < 0) {
        int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

} // namespace

int usock(int type, const char *host, const char *service)
{
    (void)service;
    if (!(type & USOCK_UNIX)) {
        errno = EAFNOSUPPORT;
        return -1;
    }
    return unix_socket(type, host);
}
