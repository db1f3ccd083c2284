#include "core/server.h"

extern "C" {
#include <libubox/usock.h>
}

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

#include "core/dispatch.h"
#include "core/heap.h"
#include "core/pool.h"
#include "core/wire.h"
#include "platform/error_codes.h"
#include "platform/paths.h"
#include "platform/stats.h"
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
        stats_count(STATS_QUEUE_REFUSED);
        make_error_response(fd, DS_ERR_BUSY);
        close(fd);
    }
}

// Out of descriptors (of the process or of the system), accept fails at
// once for as long as the backlog holds a connection: retrying at once would
// spin a core. The loop sleeps instead, from ACCEPT_PAUSE_MIN_MS doubling to
// ACCEPT_PAUSE_MAX_MS, and serves again at the first accept that succeeds
// once connections have closed.
enum { ACCEPT_PAUSE_MIN_MS = 5, ACCEPT_PAUSE_MAX_MS = 100 };

bool out_of_descriptors(int err)
{
    return err == EMFILE || err == ENFILE || err == ENOBUFS || err == ENOMEM;
}

// After a failed accept: the pause before the next one (0: none), given the
// previous pause. The first pause of a shortage is traced, once.
int accept_pause(int err, int previous_ms)
{
    if (!out_of_descriptors(err)) {
        DS_TRACE_AS("socket_accept_loop", TRACE_INFO, "Failed to accept.");
        return 0;
    }
    if (previous_ms == 0) {
        DS_TRACE_AS("socket_accept_loop", TRACE_ERROR, "Failed to accept, errno=%d: pausing until descriptors free up.",
                    err);
        return ACCEPT_PAUSE_MIN_MS;
    }
    return previous_ms * 2 > ACCEPT_PAUSE_MAX_MS ? ACCEPT_PAUSE_MAX_MS : previous_ms * 2;
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
    // accept gives up (EAGAIN) after this long without a connection: the
    // quiet moment the heap is looked at.
    if (int settle_ms = heap_settle_ms(); settle_ms > 0) {
        timeval tv{.tv_sec = 0, .tv_usec = settle_ms * 1000};
        if (setsockopt(listen_fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv) != 0)
            DS_ERR("Failed to set the accept timeout.");
    }
    int pause_ms = 0;
    for (;;) {
        sockaddr addr{};
        socklen_t len = sizeof addr; // 16 bytes; the peer is not used
        // close-on-exec from the start: a shell command forked by another
        // worker in between must not inherit the client's connection
        int fd = accept4(listen_fd, &addr, &len, SOCK_CLOEXEC);
        if (fd < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            heap_settled();
            continue;
        }
        if (fd < 0) {
            pause_ms = accept_pause(errno, pause_ms);
            if (pause_ms > 0)
                poll(nullptr, 0, pause_ms);
            continue;
        }
        if (pause_ms > 0)
            DS_TRACE_AS("socket_accept_loop", TRACE_INFO, "Accepting again.");
        pause_ms = 0;
        queue_connection(fd, pool);
    }
}
