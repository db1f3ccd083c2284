// The host broker: listens where ubusd would and speaks compat/ubus's own
// frames (see the comment at the top of compat/ubus/ubus.cpp). Built when the
// daemon links the host libubus; against the device's libubus the peers are
// registered on a real ubusd instead (ubusd_peers.cpp).
#ifndef DSD_REAL_BUS
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "compat/ubus/frame.h"
#include "hostbus.h"

namespace {

struct json_put {
    void operator()(json_object *o) const { json_object_put(o); }
};
using json_ptr = std::unique_ptr<json_object, json_put>;


// One connection's writes, whichever thread makes them: its own answers and
// the events other connections send to it.
struct conn_out {
    int fd;
    std::mutex mu;
};

struct listener {
    std::shared_ptr<conn_out> out;
    std::string pattern;
};

// Who listens for which events, as ubusd keeps it.
std::mutex g_listen_mu;
std::vector<listener> g_listeners;

} // namespace

static void sleep_ms(int64_t ms)
{
    struct timespec ts = {.tv_sec = (time_t)(ms / 1000), .tv_nsec = (long)(ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0) {
    }
}

// One call on the connection's own thread: the step's hold is slept through,
// which holds up this caller only.
static void invoke(hb_state *st, uint32_t id, const char *method, json_object *msg, hb_answer *out)
{
    hb_load_scenario(st);
    std::string object;
    {
        std::lock_guard<std::mutex> lock(st->mu);
        if (id == 0 || id > st->ids.size() || !method) {
            out->status = 4;
            return;
        }
        object = st->ids[id - 1];
    }
    json_ptr step(hb_begin_call(st, object.c_str(), method, msg));
    hb_hold hold = hb_step_hold(st, step.get());
    for (int64_t left = hold.wait_max_ms;
         !hold.wait_path.empty() && access(hold.wait_path.c_str(), F_OK) != 0 && left > 0; left -= 10)
        sleep_ms(10);
    if (hold.delay_ms > 0)
        sleep_ms(hold.delay_ms);
    hb_step_answer(step.get(), msg, out);
}

// One frame; an empty object for a text that is not JSON. Null at end of
// stream.
static json_object *read_frame(int fd)
{
    json_object *obj = nullptr;
    if (ubus_frame_recv(fd, &obj) != 0)
        return nullptr;
    return obj ? obj : json_object_new_object();
}

static json_object *get(json_object *obj, const char *key)
{
    json_object *v = nullptr;
    json_object_object_get_ex(obj, key, &v);
    return v;
}

// ubusd's rule: a pattern ending in '*' matches by prefix, any other exactly.
static bool pattern_matches(const std::string &pattern, const char *type)
{
    if (!pattern.empty() && pattern.back() == '*')
        return strncmp(type, pattern.c_str(), pattern.size() - 1) == 0;
    return pattern == type;
}

// Pushes {"op":"event","type","msg"} to every listener whose pattern matches.
static void route_event(const char *type, json_object *msg)
{
    json_ptr ev(json_object_new_object());
    json_object_object_add(ev.get(), "op", json_object_new_string("event"));
    json_object_object_add(ev.get(), "type", json_object_new_string(type));
    json_object_object_add(ev.get(), "msg", msg ? json_object_get(msg) : json_object_new_object());
    std::vector<std::shared_ptr<conn_out>> to;
    {
        std::lock_guard<std::mutex> lock(g_listen_mu);
        for (const listener &l : g_listeners) {
            if (pattern_matches(l.pattern, type) && std::find(to.begin(), to.end(), l.out) == to.end())
                to.push_back(l.out);
        }
    }
    for (const auto &out : to) {
        std::lock_guard<std::mutex> lock(out->mu);
        if (out->fd >= 0)
            ubus_frame_send(out->fd, ev.get()); // a listener gone is dropped when its thread ends
    }
}

// listen, unlisten and send_event. The status.
static int serve_event_op(const std::shared_ptr<conn_out> &out, const char *op, json_object *frame)
{
    if (!strcmp(op, "send_event")) {
        const char *type = json_object_get_string(get(frame, "type"));
        if (!type)
            return 2;
        route_event(type, get(frame, "msg"));
        return 0;
    }
    const char *pattern = json_object_get_string(get(frame, "pattern"));
    if (!pattern)
        return 2;
    std::lock_guard<std::mutex> lock(g_listen_mu);
    if (!strcmp(op, "listen")) {
        g_listeners.push_back({out, pattern});
        return 0;
    }
    std::erase_if(g_listeners, [&](const listener &l) { return l.out == out && l.pattern == pattern; });
    return 0;
}

// Answers one request frame. 0 to go on, -1 to drop the connection.
static int serve_frame(hb_state *st, const std::shared_ptr<conn_out> &conn, json_object *frame)
{
    int fd = conn->fd;
    const char *op = json_object_get_string(get(frame, "op"));
    json_ptr ans(json_object_new_object());
    json_object_object_add(ans.get(), "seq", json_object_get(get(frame, "seq")));
    if (op && !strcmp(op, "lookup")) {
        uint32_t id = 0;
        int status = hb_lookup(st, json_object_get_string(get(frame, "path")), &id);
        json_object_object_add(ans.get(), "status", json_object_new_int(status));
        json_object_object_add(ans.get(), "id", json_object_new_int64(id));
    } else if (op && !strcmp(op, "invoke")) {
        hb_answer out;
        invoke(st, (uint32_t)json_object_get_int64(get(frame, "id")),
               json_object_get_string(get(frame, "method")), get(frame, "msg"), &out);
        if (out.disconnect)
            return -1;
        json_object *data = json_object_new_array();
        for (const std::string &text : out.data)
            json_object_array_add(data, json_object_new_string_len(text.data(), (int)text.size()));
        json_object_object_add(ans.get(), "status", json_object_new_int(out.status));
        json_object_object_add(ans.get(), "data", data);
    } else if (op && (!strcmp(op, "send_event") || !strcmp(op, "listen") || !strcmp(op, "unlisten"))) {
        json_object_object_add(ans.get(), "status", json_object_new_int(serve_event_op(conn, op, frame)));
    } else {
        json_object_object_add(ans.get(), "status", json_object_new_int(1));
    }
    std::lock_guard<std::mutex> lock(conn->mu);
    return ubus_frame_send(fd, ans.get());
}

// Connection thread: requests are answered one at a time, in order.
static void serve_connection(hb_state *st, int fd)
{
    auto conn = std::make_shared<conn_out>();
    conn->fd = fd;
    for (;;) {
        json_ptr frame(read_frame(fd));
        if (!frame || serve_frame(st, conn, frame.get()) != 0)
            break;
    }
    {
        std::lock_guard<std::mutex> lock(g_listen_mu);
        std::erase_if(g_listeners, [&](const listener &l) { return l.out == conn; });
    }
    std::lock_guard<std::mutex> lock(conn->mu);
    close(fd);
    conn->fd = -1; // an event routed just now must not reach a reused number
}

static int listen_on(const std::string &path)
{
    struct sockaddr_un sun;
    memset(&sun, 0, sizeof sun);
    sun.sun_family = AF_UNIX;
    if (path.size() >= sizeof sun.sun_path || hb_mkdir_parent(path) != 0)
        return -1;
    strcpy(sun.sun_path, path.c_str());
    unlink(path.c_str());
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (bind(fd, (struct sockaddr *)&sun, sizeof sun) != 0 || listen(fd, 64) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

int hb_serve(hb_state *st, const std::string &socket_path)
{
    int lfd = listen_on(socket_path);
    if (lfd < 0) {
        fprintf(stderr, "hostbus: cannot listen on %s: %s\n", socket_path.c_str(), strerror(errno));
        return 1;
    }
    for (;;) {
        int fd = accept4(lfd, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            break;
        }
        std::thread(serve_connection, st, fd).detach();
    }
    close(lfd);
    return 1;
}
#endif
