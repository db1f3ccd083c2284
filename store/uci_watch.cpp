#include "store/uci_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <string>

#include "platform/paths.h"

namespace {

enum : uint32_t {
    WATCH_EVENTS = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE |
                   IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF,
    // A directory reached through a link is not the one uci writes to.
    WATCH_FLAGS = IN_ONLYDIR | IN_DONT_FOLLOW,
};

// Guards the descriptor, the watches and the counter: the queue is drained
// by whichever worker asks first, and the others must see what it read.
struct watch_state {
    std::mutex lock;
    int fd = -1;
    int conf_wd = -1, log_wd = -1;
    std::string root; // the directories watched are this root's
    bool started = false;
    uint64_t epoch = 0;
};

watch_state &state(void)
{
    static watch_state s;
    return s;
}

// (Re)adds missing watches. True only when both directories were already
// watched: a watch added now misses what happened before it, so the caller
// counts that as a change. A new root (tests change it within one process)
// starts the watches afresh.
bool watches_steady(watch_state &s)
{
    const std::string &root = dsd_root();
    if (root != s.root) {
        for (int *wd : {&s.conf_wd, &s.log_wd}) {
            if (*wd >= 0)
                inotify_rm_watch(s.fd, *wd);
            *wd = -1;
        }
        s.root = root;
    }
    bool steady = s.conf_wd >= 0 && s.log_wd >= 0;
    if (s.conf_wd < 0)
        s.conf_wd = inotify_add_watch(s.fd, dsd_path("/etc/config").c_str(), WATCH_EVENTS | WATCH_FLAGS);
    if (s.log_wd < 0)
        s.log_wd = inotify_add_watch(s.fd, dsd_path("/tmp/.uci").c_str(), WATCH_EVENTS | WATCH_FLAGS);
    return steady;
}

// Reads every queued event; true when there was any. A watch the kernel
// dropped (its directory deleted or moved) is forgotten, to be added again.
bool drain(watch_state &s)
{
    alignas(inotify_event) char buf[4096];
    bool any = false;
    for (;;) {
        ssize_t n = read(s.fd, buf, sizeof buf);
        if (n <= 0)
            return any || (n < 0 && errno != EAGAIN && errno != EINTR);
        any = true;
        for (ssize_t off = 0; off < n;) {
            const auto *ev = reinterpret_cast<const inotify_event *>(buf + off);
            if (ev->mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_Q_OVERFLOW)) {
                if (ev->wd == s.conf_wd || (ev->mask & IN_Q_OVERFLOW))
                    s.conf_wd = -1;
                if (ev->wd == s.log_wd || (ev->mask & IN_Q_OVERFLOW))
                    s.log_wd = -1;
            }
            off += static_cast<ssize_t>(sizeof(inotify_event) + ev->len);
        }
    }
}

} // namespace

uint64_t uci_watch_epoch(void)
{
    watch_state &s = state();
    std::lock_guard<std::mutex> hold(s.lock);
    if (!s.started) {
        s.started = true;
        s.fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    }
    if (s.fd < 0)
        return ++s.epoch;
    bool changed = drain(s);
    if (!watches_steady(s) || changed)
        ++s.epoch;
    return s.epoch;
}
