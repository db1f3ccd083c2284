#include <libubox/usock.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

static void set_flags(int fd, int type)
{
    if (!(type & USOCK_NOCLOEXEC))
        fcntl(fd, F_SETFD, fcntl(fd, F_GETFD) | FD_CLOEXEC);
    if (type & USOCK_NONBLOCK)
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

static int unix_socket(int type, const char *path)
{
    sockaddr_un sun{};
    if (strlen(path) >= sizeof(sun.sun_path))
        return -1;
    sun.sun_family = AF_UNIX;
    strcpy(sun.sun_path, path);
    int socktype = (type & 0xff) == USOCK_TCP ? SOCK_STREAM : SOCK_DGRAM;
    int fd = socket(AF_UNIX, socktype, 0);
    if (fd < 0)
        return -1;
    set_flags(fd, type);
    const sockaddr *sa = reinterpret_cast<const sockaddr *>(&sun);
    int rc;
    if (type & USOCK_SERVER) {
        rc = bind(fd, sa, sizeof(sun));
        if (rc == 0 && socktype == SOCK_STREAM)
            rc = listen(fd, SOMAXCONN);
    } else {
        rc = connect(fd, sa, sizeof(sun));
    }
    if (rc != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

int usock(int type, const char *host, const char *service)
{
    (void)service;
    if (!(type & USOCK_UNIX) || !host)
        return -1;
    return unix_socket(type, host);
}
