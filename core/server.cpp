#include "core/server.h"

#include "core/dispatch.h"
#include "core/pool.h"
#include "core/wire.h"
#include "platform/paths.h"
#include "platform/trace.h"

#include <fcntl.h>
#include <libubox/usock.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

int unix_socket_init(void)
{
    std::string path = dsd_path("/tmp/dsd_server.sock");
    unlink(path.c_str());
    int fd = usock(USOCK_UNIX | USOCK_SERVER, path.c_str(), "0");
    if (fd < 0) {
        DS_ERR("Failed to create unix sock.");
        return -1;
    }
    return fd;
}

// Per-connection socket options: one-second I/O time-outs (the reads retry
// on them) and close-on-exec so shell commands of handlers do not inherit it.
// 0, or -1 after closing fd.
static int prepare_connection(int fd)
{
    timeval tv = {.tv_sec = 1, .tv_usec = 0};
    if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv)) != 0) {
        DS_TRACE_AS("socket_accept_loop", TRACE_ERROR, "Setsockopt rcv timeout fail.");
        close(fd);
        return -1;
    }
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv)) != 0) {
        DS_TRACE_AS("socket_accept_loop", TRACE_ERROR, "Setsockopt snd timeout fail.");
        close(fd);
        return -1;
    }
    int flags = fcntl(fd, F_GETFD);
    fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
    return 0;
}

void socket_accept_loop(int listen_fd, thd_pool *pool)
{
    if (listen_fd < 0) {
        DS_ERR("Invalid params.");
        return;
    }
    for (;;) {
        sockaddr addr{};
        socklen_t addr_len = sizeof(addr);
        int fd = accept(listen_fd, &addr, &addr_len);
        if (fd < 0) {
            DS_INFO("Failed to accept.");
            continue;
        }
        if (prepare_connection(fd) != 0)
            continue;
        if (thd_pool_add_task(pool, ds_signal_handle, fd) != 0) {
            DS_INFO("Add task to queue failed.");
            make_error_response(fd, -40109);
            close(fd);
        }
    }
}
