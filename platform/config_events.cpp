#include "platform/config_events.h"

#include <json-c/json.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubus.h>
}

#include "platform/stats.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"

namespace {

enum { QUEUE_MAX = 256 };

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
    std::map<std::string, int64_t> changes;
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
// connection. False when the bus refused or is gone (*conn is then reset).
bool send_on(conn_ptr *conn, const std::string &text)
{
    if (!*conn)
        conn->reset(ubus_create_connection());
    if (!*conn)
        return false;
    blob_buf b;
    memset(&b, 0, sizeof b);
    bool ok = blob_buf_init(&b, 0) == 0 && blobmsg_add_json_from_string(&b, text.c_str()) &&
              ubus_send_event(conn->get(), CONFIG_EVENT_NAME, b.head) == 0;
    blob_buf_free(&b);
    if (!ok)
        conn->reset();
    return ok;
}

// A failed send is tried once more on a new connection (the bus may have
// restarted since the last event); a bus still gone drops the event.
void sender_main(void)
{
    event_queue &q = queue();
    conn_ptr conn;
    bool lost = false;
    for (;;) {
        std::unique_lock<std::mutex> hold(q.lock);
        q.wake.wait(hold, [&] { return !q.texts.empty(); });
        std::string text = std::move(q.texts.front());
        q.texts.pop_front();
        hold.unlock();
        if (send_on(&conn, text) || send_on(&conn, text)) {
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

void config_event_post(const char *package, json_object *event)
{
    if (!g_enabled || !event || !package) {
        json_object_put(event);
        return;
    }
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
    int64_t change = ++q.changes[package];
    if (!q.started || q.texts.size() >= QUEUE_MAX) {
        hold.unlock();
        json_object_put(event);
        stats_count(STATS_EVENTS_DROPPED);
        return;
    }
    json_object_object_add(event, "change", json_object_new_int64(change));
    q.texts.emplace_back(json_object_to_json_string_ext(event, JSON_C_TO_STRING_PLAIN));
    hold.unlock();
    json_object_put(event);
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
