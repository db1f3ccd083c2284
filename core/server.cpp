#include "core/server.h"

extern "C" {
#include <libubox/usock.h>
}

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "core/dispatch.h"
#include "core/pool.h"
#include "core/wire.h"
#include "platform/paths.h"
#include "platform/trace.h"

namespace {

// A silent client costs a worker one second per read attempt, not forever.
bool set_timeouts(int fd)
{
    timeval tv{.tv_sec = 1, .tv_usec = 0};
    if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv) != 0) {
        DS_TRACE_AS("socket_accept_loop", TRACE_ERROR, "Setsockopt rcv timeout fail.");
        return false;
    }
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv) != 0) {
        DS_TRACE_AS("socket_accept_loop", TRACE_ERROR, "Setsockopt snd timeout fail.");
        return false;
    }
    return true;
}

void queue_connection(int fd, thd_pool *pool)
{
    if (!set_timeouts(fd)) {
        close(fd);
        return;
    }
    if (thd_pool_add_task(pool, ds_signal_handle, fd) != 0) {
        DS_TRACE_AS("socket_accept_loop", TRACE_INFO, "Add task to queue failed.");
        make_error_response(fd, -40109);
        close(fd);
    }
}

} // namespace

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

void socket_accept_loop(int listen_fd, thd_pool *pool)
{
    if (listen_fd < 0) {
        DS_ERR("Invalid params.");
        return;
    }
    for (;;) {
        sockaddr addr{};
        socklen_t len = sizeof addr; // 16 bytes; the peer is not used
        // close-on-exec from the start: a shell command forked by another
        // worker in between must not inherit the client's connection
        int fd = accept4(listen_fd, &addr, &len, SOCK_CLOEXEC);
        if (fd < 0) {
            DS_INFO("Failed to accept.");
            continue;
        }
        queue_connection(fd, pool);
    }
}
