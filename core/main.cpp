// Process entry: start-up in a fixed order, then the accept loop for ever.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "core/context.h"
#include "core/heap.h"
#include "core/pool.h"
#include "core/server.h"
#include "platform/shm.h"
#include "core/dispatch.h"
#include "model/methods.h"
#include "model/registry.h"
#include "modules/module_table.h"
#include "platform/stop_signal.h"
#include "platform/trace.h"
#include "store/store.h"

namespace {

enum { WORKERS = 6 };

void sigchld_handler(int)
{
    int saved_errno = errno; // the interrupted code may be about to read it
    pid_t pid;
    while ((pid = waitpid(-1, nullptr, WNOHANG)) >= 1)
        DS_TRACE_AS("sigchld_handler", TRACE_INFO, "child (%d) exit.", static_cast<int>(pid));
    errno = saved_errno;
}

// SA_RESETHAND makes the SIGCHLD handler one-shot: after the first child the
// default disposition (which discards the status) applies. Kept so.
int signal_init(void)
{
    struct sigaction sa{};
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_NODEFER | SA_RESETHAND;
    DS_TRACE_AS("signal_init", TRACE_INFO, "SIGPIPE ignore.");
    sa.sa_handler = SIG_IGN;
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

// The stop thread's work on SIGTERM: everything staged reaches the files
// before the process exits.
void flush_for_stop(void)
{
    uci_flusher_stop();
    if (uci_flush_all() != 0)
        DS_ERR("flush before stop failed");
}

void set_threshold(int argc, char **argv)
{
    int mode = get_debug_mode();
    set_trace_level(mode == 0 || mode == 1 ? 3 : 2);
    int opt;
    while ((opt = getopt(argc, argv, "d")) != -1) {
        if (opt == 'd')
            set_trace_level(1);
    }
}

// Start-up failures are reported under the name of the process entry,
// whichever helper found them.
#define START_FAIL(msg) DS_TRACE_AS("main", TRACE_ERROR, msg)

// Runs steps 5 to 12; returns when a step fails or the accept loop ends.
void serve(ds_model_root **root, thd_pool **pool)
{
    if (signal_init() != 0) {
        START_FAIL("Signal handler init failed.");
        return;
    }
    if (!(*root = model_init())) {
        START_FAIL("Init ds model failed.");
        return;
    }
    if (model_register(*root) != 0) {
        START_FAIL("Register ds model failed.");
        return;
    }
    // core reaches the model only through this one function.
    dispatch_set_serve(ds_serve_call);
    // Before any request: finish what a crash cut short, then keep the
    // light commit's changes flowing to the files and flush them on SIGTERM.
    uci_store_recover();
    if (uci_flusher_start() != 0 || stop_signal_init(flush_for_stop) != 0) {
        DS_ERR("Init configuration flusher failed.");
        return;
    }
    if (!context_init()) {
        START_FAIL("Init context failed.");
        return;
    }
    if (!(*pool = thd_pool_init(WORKERS))) {
        START_FAIL("Init thread pool failed.");
        return;
    }
    dsd_shm_init();
    int fd = unix_socket_init();
    if (fd < 0) {
        START_FAIL("Init Unix domain socket failed.");
        return;
    }
    socket_accept_loop(fd, *pool);
}

} // namespace

int main(int argc, char **argv)
{
    // Traces go to a log file under procd or the test harness: flush per line.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    heap_init();
    load_debug_mode();
    set_threshold(argc, argv);
    DS_INFO("Dsd started.");

    ds_model_root *root = nullptr;
    thd_pool *pool = nullptr;
    serve(&root, &pool);

    thd_pool_destroy(pool);
    uci_flusher_stop();
    context_destroy();
    model_destory(root);
    return 0;
}
