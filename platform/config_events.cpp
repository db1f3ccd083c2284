#include "platform/config_events.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <string_view>
#include <thread>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubus.h>
}

#include "platform/stats.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"

namespace {

enum : int64_t {
    QUEUE_MAX = 256,
    // After a failed connect the bus is not tried again for this long: with
    // no bus at all every change would otherwise cost a connect attempt.
    RECONNECT_PAUSE_NS = 100 * 1000000LL,
    // Woken by the first event of a burst, the sender waits this long and
    // then sends everything queued: one wake-up per burst, not per change,
    // keeps it off the cores the requests run on.
    GATHER_NS = 20 * 1000000LL,
};

bool read_enabled(void)
{
    const char *v = getenv("DSD_EVENTS");
    return !(v && strcmp(v, "0") == 0);
}

const bool g_enabled = read_enabled();

// Events waiting for the sender, with the per-package counters: both under
// one lock, so the counters follow the order of the queue.
struct event_queue {
    std::mutex lock;
    std::condition_variable wake;
    std::deque<std::string> texts;
    std::map<std::string, int64_t, std::less<>> changes;
    bool started = false;
};

event_queue &queue(void)
{
    static event_queue *q = new event_queue; // lives as long as its thread
    return *q;
}

thread_local std::vector<std::string> t_commits;

struct conn_free {
    void operator()(ubus_context *c) const { ubus_free_connection(c); }
};
using conn_ptr = std::unique_ptr<ubus_context, conn_free>;

// Sends one event text on *conn, connecting first when there is no
// connection (unless a connect failed less than RECONNECT_PAUSE_NS ago,
// *retry_at). False when the bus refused or is gone (*conn is then reset).
bool send_on(conn_ptr *conn, const std::string &text, int64_t *retry_at)
{
    if (!*conn && stats_now_ns() < *retry_at)
        return false;
    if (!*conn)
        conn->reset(ubus_create_connection());
    if (!*conn) {
        *retry_at = stats_now_ns() + RECONNECT_PAUSE_NS;
        return false;
    }
    blob_buf b;
    memset(&b, 0, sizeof b);
    bool ok = blob_buf_init(&b, 0) == 0 && blobmsg_add_json_from_string(&b, text.c_str()) &&
              ubus_send_event(conn->get(), CONFIG_EVENT_NAME, b.head) == 0;
    blob_buf_free(&b);
    if (!ok)
        conn->reset();
    return ok;
}

// A send that fails on a connection made earlier is tried once more on a
// new one (the bus may have restarted since the last event); with no bus at
// all the event is dropped after one attempt to connect.
void sender_main(void)
{
    event_queue &q = queue();
    conn_ptr conn;
    bool lost = false;
    int64_t retry_at = 0;
    std::deque<std::string> batch;
    for (;;) {
        if (batch.empty()) {
            {
                std::unique_lock<std::mutex> hold(q.lock);
                q.wake.wait(hold, [&] { return !q.texts.empty(); });
            }
            std::this_thread::sleep_for(std::chrono::nanoseconds(GATHER_NS));
            std::lock_guard<std::mutex> hold(q.lock);
            batch.swap(q.texts);
        }
        std::string text = std::move(batch.front());
        batch.pop_front();
        bool had = conn != nullptr;
        if (send_on(&conn, text, &retry_at) || (had && send_on(&conn, text, &retry_at))) {
            stats_count(STATS_EVENTS_SENT);
            lost = false;
            continue;
        }
        stats_count(STATS_EVENTS_FAILED);
        if (!lost)
            DS_ERR("Send %s event failed: bus connection lost.", CONFIG_EVENT_NAME);
        lost = true;
    }
}

} // namespace

bool config_events_enabled(void)
{
    return g_enabled;
}

void config_event_post(const char *package, std::string text)
{
    if (!g_enabled || !package || text.empty())
        return;
    event_queue &q = queue();
    std::unique_lock<std::mutex> hold(q.lock);
    if (!q.started) {
        try {
            std::thread(sender_main).detach();
            q.started = true;
        } catch (const std::exception &) {
            DS_ERR("Start %s sender failed.", CONFIG_EVENT_NAME);
        }
    }
    auto counter = q.changes.find(std::string_view(package));
    if (counter == q.changes.end())
        counter = q.changes.emplace(package, 0).first;
    int64_t change = ++counter->second;
    if (!q.started || q.texts.size() >= static_cast<size_t>(QUEUE_MAX)) {
        hold.unlock();
        stats_count(STATS_EVENTS_DROPPED);
        return;
    }
    text.append(",\"change\":").append(std::to_string(change)).push_back('}');
    q.texts.push_back(std::move(text));
    hold.unlock();
    q.wake.notify_one();
}

void config_note_commit(const char *package)
{
    if (g_enabled && package && std::find(t_commits.begin(), t_commits.end(), package) == t_commits.end())
        t_commits.emplace_back(package);
}

std::vector<std::string> config_commits_take(void)
{
    std::vector<std::string> out;
    out.swap(t_commits);
    return out;
}
