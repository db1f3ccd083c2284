// Host libubus: one Unix stream connection to tools/hostbus per context.
//
// Frames in both directions are a 4-byte big-endian length and a JSON text:
//   lookup  {"op":"lookup","seq":n,"path":p}       -> {"seq":n,"status":s,"id":i}
//   invoke  {"op":"invoke","seq":n,"id":i,"method":m,"msg":{...}}
//                                                  -> {"seq":n,"status":s,"data":[text...]}
//   event   {"op":"send_event","seq":n,"type":t,"msg":{...}} -> {"seq":n,"status":s}
//   listen  {"op":"listen","seq":n,"pattern":p}    -> {"seq":n,"status":s}
//   unlisten {"op":"unlisten","seq":n,"pattern":p} -> {"seq":n,"status":s}
// and, unasked, to a listening connection: {"op":"event","type":t,"msg":{...}}.
// Each "data" text is one reply message; it reaches the data callback as a
// blob attribute holding that text. A reply that arrives after its caller gave
// up (time-out) carries an old sequence number and is skipped; an event that
// arrives while a call waits is kept for the loop.
#include <signal.h>
#include <arpa/inet.h>
#include <json-c/json.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "frame.h"
#include "libubus.h"
#include <libubox/uloop.h>

namespace {

struct json_put {
    void operator()(json_object *o) const { json_object_put(o); }
};
using json_ptr = std::unique_ptr<json_object, json_put>;

} // namespace

// The host library's state of a context.
struct host_ctx : ubus_context {
    int fd = -1;
    uint16_t seq = 0;
    std::deque<json_ptr> events; // event frames not yet delivered
    std::vector<std::pair<std::string, struct ubus_event_handler *>> handlers;
};

static host_ctx *H(struct ubus_context *ctx)
{
    return static_cast<host_ctx *>(ctx);
}

namespace {

struct free_del {
    void operator()(void *p) const { free(p); }
};

constexpr int kLookupTimeoutMs = 30000;

} // namespace

static const char *const ubus_status_text[__UBUS_STATUS_LAST] = {
    "Success", "Invalid command", "Invalid argument", "Method not found",
    "Not found", "No response", "Permission denied", "Request timed out",
    "Operation not supported", "Unknown error", "Connection failed",
    "Out of memory", "Parsing message data failed", "System error",
};

// Static text for a status; "Unknown error" out of range.
extern "C" const char *ubus_strerror(int error)
{
    if (error < 0 || error >= __UBUS_STATUS_LAST)
        return "Unknown error";
    return ubus_status_text[error];
}

static int64_t monotonic_ms(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (int64_t)ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

// Waits (until deadline_ms, or for ever when 0) for the frame answering seq.
// UBUS_STATUS_OK and *out, UBUS_STATUS_TIMEOUT, or UBUS_STATUS_CONNECTION_FAILED.
static int await_frame(struct ubus_context *ctx, uint16_t seq, int64_t deadline_ms,
                       json_ptr *out)
{
    for (;;) {
        int wait = -1;
        if (deadline_ms) {
            int64_t left = deadline_ms - monotonic_ms();
            if (left <= 0)
                return UBUS_STATUS_TIMEOUT;
            wait = (int)left;
        }
        struct pollfd pfd = {.fd = H(ctx)->fd, .events = POLLIN, .revents = 0};
        int pr = poll(&pfd, 1, wait);
        if (pr < 0 && errno == EINTR)
            continue;
        if (pr < 0)
            return UBUS_STATUS_CONNECTION_FAILED;
        if (pr == 0)
            return UBUS_STATUS_TIMEOUT;
        json_object *raw = nullptr;
        if (ubus_frame_recv(H(ctx)->fd, &raw) != 0)
            return UBUS_STATUS_CONNECTION_FAILED;
        json_ptr frame(raw);
        json_object *s = nullptr;
        if (frame && !json_object_object_get_ex(frame.get(), "seq", &s)) {
            H(ctx)->events.push_back(std::move(frame)); // unasked: an event
            continue;
        }
        if (!frame || json_object_get_int(s) != seq)
            continue; // a late answer to a call that already timed out
        *out = std::move(frame);
        return UBUS_STATUS_OK;
    }
}

static int frame_status(json_object *frame)
{
    json_object *s = nullptr;
    if (!json_object_object_get_ex(frame, "status", &s))
        return UBUS_STATUS_UNKNOWN_ERROR;
    return json_object_get_int(s);
}

// Connects to the broker at path (default "/var/run/ubus/ubus.sock", libubus's
// UBUS_UNIX_SOCKET of current OpenWrt releases); the caller
// owns the context (ubus_free). NULL when nothing listens there.
// What uloop_init does on the device when libubus connects: SIGTERM and
// SIGINT then only set a flag that a uloop would read.
static volatile sig_atomic_t g_uloop_signal;

static void uloop_flag_handler(int signo)
{
    g_uloop_signal = signo;
}

static void uloop_take_signals(void)
{
    struct sigaction sa;
    memset(&sa, 0, sizeof sa);
    sigemptyset(&sa.sa_mask);
    sa.sa_handler = uloop_flag_handler;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
}

// What the device's loop does while it runs: a signal still at its default
// disposition is taken (the old one saved in *old, *taken set); a handler
// the program installed is left alone.
static void uloop_take_default(int signo, struct sigaction *old, bool *taken)
{
    sigaction(signo, nullptr, old);
    *taken = old->sa_handler == SIG_DFL;
    if (!*taken)
        return;
    struct sigaction sa;
    memset(&sa, 0, sizeof sa);
    sigemptyset(&sa.sa_mask);
    sa.sa_handler = uloop_flag_handler;
    sigaction(signo, &sa, nullptr);
}

extern "C" struct ubus_context *ubus_connect(const char *path)
{
    uloop_take_signals();
    if (!path)
        path = "/var/run/ubus/ubus.sock";
    struct sockaddr_un sun;
    memset(&sun, 0, sizeof sun);
    sun.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof sun.sun_path)
        return nullptr;
    strcpy(sun.sun_path, path);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return nullptr;
    if (connect(fd, (struct sockaddr *)&sun, sizeof sun) != 0) {
        close(fd);
        return nullptr;
    }
    auto *ctx = new (std::nothrow) host_ctx;
    if (!ctx) {
        close(fd);
        return nullptr;
    }
    ctx->connection_lost = nullptr;
    ctx->fd = fd;
    return ctx;
}

// Closes and frees ctx; NULL ignored.
static void uloop_forget(struct ubus_context *ctx);

extern "C" void ubus_free(struct ubus_context *ctx)
{
    if (!ctx)
        return;
    uloop_forget(ctx);
    close(H(ctx)->fd);
    delete H(ctx);
}

// 0 and *id, or a status (4 when the broker knows no such object). Waits at
// most 30 s. One thread per context at a time.
extern "C" int ubus_lookup_id(struct ubus_context *ctx, const char *path, uint32_t *id)
{
    if (!ctx || !path || !id)
        return UBUS_STATUS_INVALID_ARGUMENT;
    uint16_t seq = ++H(ctx)->seq;
    json_ptr req(json_object_new_object());
    if (!req)
        return UBUS_STATUS_NO_MEMORY;
    json_object_object_add(req.get(), "op", json_object_new_string("lookup"));
    json_object_object_add(req.get(), "seq", json_object_new_int(seq));
    json_object_object_add(req.get(), "path", json_object_new_string(path));
    if (ubus_frame_send(H(ctx)->fd, req.get()) != 0)
        return UBUS_STATUS_CONNECTION_FAILED;
    json_ptr ans;
    int rc = await_frame(ctx, seq, monotonic_ms() + kLookupTimeoutMs, &ans);
    if (rc != UBUS_STATUS_OK)
        return rc;
    rc = frame_status(ans.get());
    if (rc != UBUS_STATUS_OK)
        return rc;
    json_object *v = nullptr;
    if (!json_object_object_get_ex(ans.get(), "id", &v))
        return UBUS_STATUS_UNKNOWN_ERROR;
    *id = (uint32_t)json_object_get_int64(v);
    return UBUS_STATUS_OK;
}

// The message object to send: the buffer's JSON text, or {} when absent.
static json_object *message_object(struct blob_attr *msg)
{
    if (msg && blob_len(msg) > 0) {
        json_object *o = json_tokener_parse((const char *)blob_data(msg));
        if (o && json_object_is_type(o, json_type_object))
            return o;
        json_object_put(o);
    }
    return json_object_new_object();
}

// Hands each reply text of the answer to cb as a blob attribute.
static void deliver_replies(struct ubus_request *req, json_object *ans, ubus_data_handler_t cb)
{
    json_object *data = nullptr;
    if (!cb || !json_object_object_get_ex(ans, "data", &data) ||
        !json_object_is_type(data, json_type_array))
        return;
    size_t n = json_object_array_length(data);
    for (size_t i = 0; i < n; i++) {
        json_object *item = json_object_array_get_idx(data, i);
        const char *text = json_object_get_string(item);
        size_t len = (size_t)json_object_get_string_len(item);
        size_t total = sizeof(struct blob_attr) + len + 1;
        if (total > BLOB_ATTR_LEN_MASK)
            continue;
        std::unique_ptr<struct blob_attr, free_del> attr(
            (struct blob_attr *)malloc(total));
        if (!attr)
            continue;
        attr->id_len = (uint32_t)total;
        memcpy(attr->data, text, len);
        attr->data[len] = '\0';
        cb(req, UBUS_MSG_DATA, attr.get());
    }
}

// Host only: DSD_UBUS_MAX_TIMEOUT_MS caps every call's wait, so tests of a
// hung peer need not sit out the daemon's 30-second default.
static int capped_timeout(int timeout)
{
    const char *cap = getenv("DSD_UBUS_MAX_TIMEOUT_MS");
    int max = cap ? atoi(cap) : 0;
    if (max > 0 && (timeout <= 0 || timeout > max))
        return max;
    return timeout;
}

// Sends the call and waits for its answer (timeout ms, 0 for ever), handing
// each reply message to cb. The peer's status, 7 on time-out, 10 when the
// connection broke. One thread per context at a time.
extern "C" int ubus_invoke(struct ubus_context *ctx, uint32_t obj, const char *method,
                           struct blob_attr *msg, ubus_data_handler_t cb, void *priv,
                           int timeout)
{
    if (!ctx || !method)
        return UBUS_STATUS_INVALID_ARGUMENT;
    uint16_t seq = ++H(ctx)->seq;
    json_ptr call(json_object_new_object());
    if (!call)
        return UBUS_STATUS_NO_MEMORY;
    json_object_object_add(call.get(), "op", json_object_new_string("invoke"));
    json_object_object_add(call.get(), "seq", json_object_new_int(seq));
    json_object_object_add(call.get(), "id", json_object_new_int64(obj));
    json_object_object_add(call.get(), "method", json_object_new_string(method));
    json_object_object_add(call.get(), "msg", message_object(msg));
    if (ubus_frame_send(H(ctx)->fd, call.get()) != 0)
        return UBUS_STATUS_CONNECTION_FAILED;
    json_ptr ans;
    timeout = capped_timeout(timeout);
    int64_t deadline = timeout > 0 ? monotonic_ms() + timeout : 0;
    int rc = await_frame(ctx, seq, deadline, &ans);
    if (rc != UBUS_STATUS_OK)
        return rc;
    struct ubus_request req;
    memset(&req, 0, sizeof req);
    req.ctx = ctx;
    req.priv = priv;
    req.seq = seq;
    req.peer = obj;
    req.data_cb = cb;
    deliver_replies(&req, ans.get(), cb);
    req.status_code = frame_status(ans.get());
    return req.status_code;
}

// ---- events ----

// Sends a frame of op with the given string member and waits (30 s at most)
// for its status.
static int simple_request(struct ubus_context *ctx, const char *op, const char *key, const char *value,
                          json_object *msg)
{
    json_ptr owned(msg);
    uint16_t seq = ++H(ctx)->seq;
    json_ptr req(json_object_new_object());
    if (!req)
        return UBUS_STATUS_NO_MEMORY;
    json_object_object_add(req.get(), "op", json_object_new_string(op));
    json_object_object_add(req.get(), "seq", json_object_new_int(seq));
    json_object_object_add(req.get(), key, json_object_new_string(value));
    if (owned)
        json_object_object_add(req.get(), "msg", owned.release());
    if (ubus_frame_send(H(ctx)->fd, req.get()) != 0)
        return UBUS_STATUS_CONNECTION_FAILED;
    json_ptr ans;
    int rc = await_frame(ctx, seq, monotonic_ms() + kLookupTimeoutMs, &ans);
    return rc != UBUS_STATUS_OK ? rc : frame_status(ans.get());
}

extern "C" int ubus_send_event(struct ubus_context *ctx, const char *id, struct blob_attr *data)
{
    if (!ctx || !id)
        return UBUS_STATUS_INVALID_ARGUMENT;
    return simple_request(ctx, "send_event", "type", id, message_object(data));
}

extern "C" int ubus_register_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev,
                                           const char *pattern)
{
    if (!ctx || !ev || !pattern)
        return UBUS_STATUS_INVALID_ARGUMENT;
    int rc = simple_request(ctx, "listen", "pattern", pattern, nullptr);
    if (rc == UBUS_STATUS_OK)
        H(ctx)->handlers.emplace_back(pattern, ev);
    return rc;
}

extern "C" int ubus_unregister_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev)
{
    if (!ctx || !ev)
        return UBUS_STATUS_INVALID_ARGUMENT;
    int rc = UBUS_STATUS_NOT_FOUND;
    for (auto it = H(ctx)->handlers.begin(); it != H(ctx)->handlers.end();) {
        if (it->second != ev) {
            ++it;
            continue;
        }
        rc = simple_request(ctx, "unlisten", "pattern", it->first.c_str(), nullptr);
        it = H(ctx)->handlers.erase(it);
    }
    return rc;
}

// The bus's rule: a pattern ending in '*' matches by prefix, any other
// one exactly.
static bool pattern_matches(const std::string &pattern, const char *type)
{
    if (!pattern.empty() && pattern.back() == '*')
        return strncmp(type, pattern.c_str(), pattern.size() - 1) == 0;
    return pattern == type;
}

// Hands one event frame to every matching handler of ctx.
static void deliver_event(struct ubus_context *ctx, json_object *frame)
{
    json_object *type = nullptr, *msg = nullptr;
    if (!json_object_object_get_ex(frame, "type", &type) || !json_object_object_get_ex(frame, "msg", &msg))
        return;
    size_t len = 0;
    const char *text = json_object_to_json_string_length(msg, JSON_C_TO_STRING_PLAIN, &len);
    size_t total = sizeof(struct blob_attr) + len + 1;
    std::unique_ptr<struct blob_attr, free_del> attr((struct blob_attr *)malloc(total));
    if (!attr || total > BLOB_ATTR_LEN_MASK)
        return;
    attr->id_len = (uint32_t)total;
    memcpy(attr->data, text, len);
    attr->data[len] = '\0';
    auto handlers = H(ctx)->handlers; // a handler may unregister itself
    for (auto &[pattern, ev] : handlers) {
        if (ev->cb && pattern_matches(pattern, json_object_get_string(type)))
            ev->cb(ctx, ev, json_object_get_string(type), attr.get());
    }
}

// ---- the loop of a listening client ----

bool uloop_cancelled;

static std::vector<struct ubus_context *> g_loop;

static void uloop_forget(struct ubus_context *ctx)
{
    g_loop.erase(std::remove(g_loop.begin(), g_loop.end(), ctx), g_loop.end());
}

extern "C" void ubus_add_uloop(struct ubus_context *ctx)
{
    if (ctx && std::find(g_loop.begin(), g_loop.end(), ctx) == g_loop.end())
        g_loop.push_back(ctx);
}

extern "C" int uloop_init(void)
{
    uloop_take_signals();
    return 0;
}

extern "C" void uloop_done(void)
{
    g_loop.clear();
}

// Reads one frame of ctx into its event queue. False when the connection is gone.
static bool read_event(struct ubus_context *ctx)
{
    json_ptr none;
    int rc = await_frame(ctx, 0, monotonic_ms() + 1, &none);
    return rc != UBUS_STATUS_CONNECTION_FAILED;
}

// The loop proper of uloop_run.
static int run_loop(void)
{
    while (!uloop_cancelled && !g_uloop_signal) {
        for (struct ubus_context *ctx : std::vector<struct ubus_context *>(g_loop)) {
            while (!H(ctx)->events.empty()) {
                json_ptr ev = std::move(H(ctx)->events.front());
                H(ctx)->events.pop_front();
                deliver_event(ctx, ev.get());
            }
        }
        std::vector<struct pollfd> fds;
        for (struct ubus_context *ctx : g_loop)
            fds.push_back({.fd = H(ctx)->fd, .events = POLLIN, .revents = 0});
        if (poll(fds.data(), fds.size(), 100) <= 0)
            continue;
        std::vector<struct ubus_context *> polled(g_loop);
        for (size_t i = 0; i < fds.size(); ++i) {
            if (fds[i].revents && !read_event(polled[i])) {
                // Hung up: out of the loop first, then told, as on the device.
                uloop_forget(polled[i]);
                if (polled[i]->connection_lost)
                    polled[i]->connection_lost(polled[i]);
            }
        }
    }
    return g_uloop_signal;
}

// Delivers queued events, then waits for more; returns at uloop_end or at a
// signal (its number). A lost connection leaves the loop and calls its
// connection_lost; the loop goes on. Like the device's loop it takes SIGINT and
// SIGTERM (those at their default) while it runs and gives them back after.
extern "C" int uloop_run(void)
{
    uloop_cancelled = false;
    g_uloop_signal = 0;
    struct sigaction old[2];
    bool taken[2];
    uloop_take_default(SIGTERM, &old[0], &taken[0]);
    uloop_take_default(SIGINT, &old[1], &taken[1]);
    int rc = run_loop();
    if (taken[0])
        sigaction(SIGTERM, &old[0], nullptr);
    if (taken[1])
        sigaction(SIGINT, &old[1], nullptr);
    return rc;
}
