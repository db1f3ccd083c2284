// dsd: the configuration data-service daemon. Prepares tracing, signals, the
// model, the request contexts and the worker pool, then serves the Unix
// socket on the main thread for the life of the process.
#include "core/context.h"
#include "core/pool.h"
#include "core/server.h"
#include "core/shm.h"
#include "model/registry.h"
#include "platform/trace.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

enum { WORKER_COUNT = 6 };

// Runs on whichever thread takes the signal; installed one-shot.
static void sigchld_handler(int sig)
{
    (void)sig;
    for (;;) {
        pid_t pid = waitpid(-1, nullptr, WNOHANG);
        if (pid <= 0)
            break;
        DS_INFO("child (%d) exit.", static_cast<int>(pid));
    }
}

// SIGPIPE ignored so a vanished client fails a write instead of killing the
// process; SIGCHLD reaped. Both handlers reset after their first delivery.
// 0 or -1.
static int signal_init(void)
{
    struct sigaction sa {};
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_NODEFER | SA_RESETHAND;
    sa.sa_handler = SIG_IGN;
    DS_TRACE_AS("signal_init", TRACE_INFO, "SIGPIPE ignore.");
    if (sigaction(SIGPIPE, &sa, nullptr) != 0) {
        DS_TRACE_AS("signal_init", TRACE_ERROR, "SIGPIPE ignore failed.");
        return -1;
    }
    DS_TRACE_AS("signal_init", TRACE_INFO, "SIGCHLD capture.");
    sa.sa_handler = sigchld_handler;
    if (sigaction(SIGCHLD, &sa, nullptr) != 0) {
        DS_TRACE_AS("signal_init", TRACE_ERROR, "fail to set SIGCHLD sigaction");
        return -1;
    }
    return 0;
}

// Threshold from the uci debug mode, raised to everything by each -d.
static void trace_setup(int argc, char **argv)
{
    load_debug_mode();
    int mode = get_debug_mode();
    set_trace_level(mode == 0 || mode == 1 ? 3 : 2);
    int opt;
    while ((opt = getopt(argc, argv, "d")) != -1) {
        if (opt == 'd')
            set_trace_level(1);
    }
}

// Everything after the trace set-up; returns when start-up fails or the
// accept loop ends. Fills *pool and *root for the shut-down.
static void run(thd_pool **pool, ds_model_root **root)
{
    if (signal_init() != 0) {
        DS_ERR("Signal handler init failed.");
        return;
    }
    *root = model_init();
    if (!*root) {
        DS_ERR("Init ds model failed.");
        return;
    }
    if (model_register(*root) != 0) {
        DS_ERR("Register ds model failed.");
        return;
    }
    if (!context_init()) {
        DS_ERR("Init context failed.");
        return;
    }
    *pool = thd_pool_init(WORKER_COUNT);
    if (!*pool) {
        DS_ERR("Init thread pool failed.");
        return;
    }
    dsd_shm_init();
    int listen_fd = unix_socket_init();
    if (listen_fd < 0) {
        DS_ERR("Init Unix domain socket failed.");
        return;
    }
    socket_accept_loop(listen_fd, *pool);
}

int main(int argc, char **argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    trace_setup(argc, argv);
    DS_INFO("Dsd started.");
    thd_pool *pool = nullptr;
    ds_model_root *root = nullptr;
    run(&pool, &root);
    thd_pool_destroy(pool);
    context_destroy();
    model_destory(root);
    return 0;
}
