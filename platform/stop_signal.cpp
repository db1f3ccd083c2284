#include "platform/stop_signal.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "platform/trace.h"

namespace {

// Written once by stop_signal_init before any other thread exists; read by
// the handler and stop_signal_restore.
int g_pipe[2] = {-1, -1};
void (*g_on_stop)(void) = nullptr;
std::atomic<bool> g_ready{false};

void on_stop_signal(int)
{
    int saved = errno;
    char c = 's';
    ssize_t n = write(g_pipe[1], &c, 1);
    (void)n; // a full pipe already holds a stop request
    errno = saved;
}

int install(void)
{
    struct sigaction sa{};
    sigemptyset(&sa.sa_mask);
    sa.sa_handler = on_stop_signal;
    sa.sa_flags = SA_RESTART;
    return sigaction(SIGTERM, &sa, nullptr) == 0 && sigaction(SIGINT, &sa, nullptr) == 0 ? 0 : -1;
}

void stop_main(void)
{
    // The signal goes to another thread: a handler run on this one, blocked
    // in the read it is meant to wake, may be deferred until that read
    // returns (so under sanitizers).
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGTERM);
    sigaddset(&mask, SIGINT);
    pthread_sigmask(SIG_BLOCK, &mask, nullptr);
    char c;
    while (read(g_pipe[0], &c, 1) < 0 && errno == EINTR) {
    }
    DS_INFO("Stop requested: flushing configuration.");
    if (g_on_stop)
        g_on_stop();
    _exit(0);
}

} // namespace

int stop_signal_init(void (*on_stop)(void))
{
    g_on_stop = on_stop;
    if (pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        DS_ERR("stop pipe failed");
        return -1;
    }
    // The reading end blocks; only the handler's end must never block.
    fcntl(g_pipe[0], F_SETFL, 0);
    g_ready = true;
    if (install() != 0) {
        DS_ERR("stop signal handler failed");
        return -1;
    }
    try {
        std::thread(stop_main).detach();
    } catch (const std::exception &) {
        DS_ERR("stop thread failed");
        return -1;
    }
    return 0;
}

void stop_signal_restore(void)
{
    if (g_ready && install() != 0)
        DS_ERR("stop signal handler failed");
}
