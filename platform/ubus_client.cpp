// ubus client layer: a bus connection per call, JSON text in, a json-c object
// out, plus the process-wide asynchronous call queue.
//
// Written against the public libubus/libubox API so the same source builds
// with OpenWrt's libraries on the device and with compat/ on a host.
#include "platform/ubus_client.h"

#include <json-c/json.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubus.h>
}

#include "platform/paths.h"
#include "platform/stats.h"
#include "platform/stop_signal.h"
#include "platform/trace.h"

namespace {

struct blob_buf_guard {
    blob_buf b;
    bool live = false;
    blob_buf_guard() { memset(&b, 0, sizeof b); }
    ~blob_buf_guard()
    {
        if (live)
            blob_buf_free(&b);
    }
};

struct json_put {
    void operator()(json_object *o) const { json_object_put(o); }
};
using json_ptr = std::unique_ptr<json_object, json_put>;

struct conn_free {
    void operator()(ubus_context *c) const { ubus_free_connection(c); }
};
using conn_ptr = std::unique_ptr<ubus_context, conn_free>;

} // namespace

// A new bus connection on "/var/run/ubus.sock" (under DSD_ROOT), owned by the
// caller (ubus_free_connection), or null with a trace. When nothing exists at
// that path the library's own default socket is used: current OpenWrt
// releases run ubusd on "/var/run/ubus/ubus.sock" and keep no link at the
// old place. Any thread.
ubus_context *ubus_create_connection(void)
{
    std::string path = dsd_path("/var/run/ubus.sock");
    bool present = access(path.c_str(), F_OK) == 0;
    ubus_context *conn = ubus_connect(present ? path.c_str() : nullptr);
    stop_signal_restore(); // uloop_init took SIGTERM over
    if (!conn)
        DS_ERR("connect ubus error.");
    return conn;
}

// Closes and frees conn; null is ignored. The thread that used it.
void ubus_free_connection(ubus_context *conn)
{
    if (conn)
        ubus_free(conn);
}

// json-c's old error pointers are small negative values cast to a pointer.
static bool json_error_pointer(const json_object *obj)
{
    return (uintptr_t)obj >= (uintptr_t)-4000;
}

// Data callback of the invoke in ubus_call: req->priv is the caller's out
// reply, replaced by this message parsed (null when it does not parse). Runs
// inside ubus_invoke on the calling thread.
void ubus_call_cb(ubus_request *req, int type, blob_attr *msg)
{
    (void)type;
    if (!req || !req->priv)
        return;
    auto **out = (json_object **)req->priv;
    // Several replies: only the last one is kept.
    if (*out)
        json_object_put(*out);
    *out = nullptr;
    if (!msg) {
        DS_ERR("msg is NULL");
        return;
    }
    char *text = blobmsg_format_json_with_cb(msg, true, nullptr, nullptr, -1);
    if (!text) {
        DS_ERR("ubus has not response.\n");
        return;
    }
    json_object *obj = json_tokener_parse(text);
    free(text);
    *out = json_error_pointer(obj) ? nullptr : obj;
}

// Counts one call that ended with a bus status.
static void count_bus_call(int status)
{
    stats_count(STATS_BUS_CALLS);
    if (status != UBUS_STATUS_OK)
        stats_count(STATS_BUS_FAILURES);
    if (status == UBUS_STATUS_TIMEOUT)
        stats_count(STATS_BUS_TIMEOUTS);
}

// Calls req->object.req->method on conn with req->message (null: empty).
// A timeout below 1 becomes 30 in req. 0 and *reply (new reference owned by
// the caller, null when nothing parsable came back), or -1 with a trace.
// The thread that owns conn.
int ubus_call(ubus_context *conn, ubus_req *req, json_object **reply)
{
    if (!conn || !req || !req->object || !req->method)
        return -1;
    blob_buf_guard buf;
    if (blob_buf_init(&buf.b, 0) != 0)
        return -1;
    buf.live = true;
    if (req->message && !blobmsg_add_json_from_string(&buf.b, req->message)) {
        DS_ERR("failed to parse msg data.");
        return -1;
    }
    uint32_t id = 0;
    if (int status = ubus_lookup_id(conn, req->object, &id); status != 0) {
        DS_ERR("failed to lookup ubus object: %s.", req->object);
        count_bus_call(status);
        return -1;
    }
    if (req->timeout < 1)
        req->timeout = 30;
    int timeout_ms = req->timeout > INT_MAX / 1000 ? INT_MAX : req->timeout * 1000;
    if (reply)
        *reply = nullptr;
    json_object *scratch = nullptr;
    json_object **out = reply ? reply : &scratch;
    int status = ubus_invoke(conn, id, req->method, buf.b.head, ubus_call_cb, out, timeout_ms);
    json_object_put(scratch);
    count_bus_call(status);
    if (status != 0) {
        DS_ERR("ubus invoke error: %s.%s", req->object, req->method);
        return -1;
    }
    return 0;
}

// First member present of "err_code", "error_code", then integer "error".
// 0 and *err, or -1 when none is there.
static int reply_err_code(json_object *reply, int32_t *err)
{
    json_object *v = nullptr;
    if (json_object_object_get_ex(reply, "err_code", &v) ||
        json_object_object_get_ex(reply, "error_code", &v)) {
        *err = json_object_get_int(v);
        return 0;
    }
    if (json_object_object_get_ex(reply, "error", &v) && json_object_is_type(v, json_type_int)) {
        *err = json_object_get_int(v);
        return 0;
    }
    return -1;
}

// Calls on a connection of its own with the default timeout and reads the
// error number of the reply into *err. 0, or -1 (call failed, reply not an
// object, no error field). err null: 0 once the call succeeded. Any thread.
int ubus_call_get_err_code(const char *object, const char *method, const char *message,
                           int32_t *err)
{
    if (!object || !method)
        return -1;
    conn_ptr conn(ubus_create_connection());
    if (!conn)
        return -1;
    ubus_req req = {.object = object, .method = method, .message = message, .timeout = 0};
    json_object *raw = nullptr;
    int rc = ubus_call(conn.get(), &req, &raw);
    json_ptr reply(raw);
    if (rc != 0)
        return -1;
    if (!err)
        return 0;
    if (!reply || !json_object_is_type(reply.get(), json_type_object))
        return -1;
    return reply_err_code(reply.get(), err);
}

// 1 when the bus answers a lookup of object, 0 for a null name or no bus.
// Any thread.
int ubus_object_exists(const char *object)
{
    if (!object)
        return 0;
    conn_ptr conn(ubus_create_connection());
    if (!conn)
        return 0;
    uint32_t id = 0;
    // The library reports a missing object with a positive status, so any
    // name counts as present once connected; callers depend on that.
    int status = ubus_lookup_id(conn.get(), object, &id);
    return status >= 0 ? 1 : 0;
}

// ---- asynchronous call queue ----

namespace {

enum { QUEUE_LEN = 32, Q_OBJECT = 32, Q_METHOD = 64, Q_MESSAGE = 3072 };

struct queue_entry {
    char object[Q_OBJECT];
    char method[Q_METHOD];
    char message[Q_MESSAGE];
};

struct call_queue {
    ubus_context *conn;
    queue_entry entries[QUEUE_LEN];
    pthread_t thread;
    pthread_cond_t cond;
    uint32_t count;
    uint32_t stop;
    uint32_t rd, wr;
    pthread_mutex_t lock; // guards entries, count, indices and stop
};

} // namespace

// The one queue of the process. Created and destroyed by ubus_async_init and
// ubus_async_deinit, which run at start-up and shut-down only; between them
// every access goes through the queue's own mutex.
static call_queue *g_queue;

// Copies a possibly long string into a fixed field the way strncpy does,
// keeping the field terminated.
static void copy_field(char *dst, size_t size, const char *src)
{
    strncpy(dst, src, size - 1);
    dst[size - 1] = '\0';
}

// Takes the next entry into *out; false when the queue is being stopped.
static bool queue_take(call_queue *q, queue_entry *out)
{
    pthread_mutex_lock(&q->lock);
    while (q->count == 0 && !q->stop)
        pthread_cond_wait(&q->cond, &q->lock);
    if (q->stop) {
        pthread_mutex_unlock(&q->lock);
        return false;
    }
    memcpy(out, &q->entries[q->rd], sizeof *out);
    q->rd = (q->rd + 1) % QUEUE_LEN;
    q->count--;
    pthread_mutex_unlock(&q->lock);
    return true;
}

static void *ubus_sync_call_thread(void *arg)
{
    auto *q = (call_queue *)arg;
    prctl(PR_SET_NAME, "ubusCallThread", 0, 0, 0);
    auto entry = std::make_unique<queue_entry>();
    while (queue_take(q, entry.get())) {
        ubus_req req = {.object = entry->object, .method = entry->method,
                        .message = entry->message, .timeout = 5};
        json_object *reply = nullptr;
        if (ubus_call(q->conn, &req, &reply) != 0)
            DS_ERR("ubus call %s.%s fail.", entry->object, entry->method);
        json_object_put(reply);
    }
    return nullptr;
}

static void queue_destroy(call_queue *q)
{
    ubus_free_connection(q->conn);
    pthread_cond_destroy(&q->cond);
    pthread_mutex_destroy(&q->lock);
    free(q);
}

// Creates the queue, its connection and its worker. 0, or -1 when it already
// exists or any part fails (nothing is left behind). Start-up thread.
int ubus_async_init(void)
{
    if (g_queue)
        return -1;
    auto *q = (call_queue *)calloc(1, sizeof(call_queue));
    if (!q)
        return -1;
    pthread_mutex_init(&q->lock, nullptr);
    pthread_cond_init(&q->cond, nullptr);
    q->conn = ubus_create_connection();
    if (!q->conn || pthread_create(&q->thread, nullptr, ubus_sync_call_thread, q) != 0) {
        queue_destroy(q);
        return -1;
    }
    g_queue = q;
    return 0;
}

// Queues one call (strings copied, timeout ignored: the worker uses 5 s)
// without waiting. 0, or -1 for missing fields, no queue or a full queue.
// Any thread.
int ubus_add_call(const ubus_req *req)
{
    call_queue *q = g_queue;
    if (!req || !req->object || !req->method || !req->message || !q) {
        DS_ERR("ubus add call invalid arg.");
        return -1;
    }
    pthread_mutex_lock(&q->lock);
    if (q->count == QUEUE_LEN) {
        DS_ERR("ubus queue full.");
        pthread_mutex_unlock(&q->lock);
        return -1;
    }
    queue_entry *e = &q->entries[q->wr];
    copy_field(e->object, sizeof e->object, req->object);
    copy_field(e->method, sizeof e->method, req->method);
    copy_field(e->message, sizeof e->message, req->message);
    q->wr = (q->wr + 1) % QUEUE_LEN;
    q->count++;
    pthread_mutex_unlock(&q->lock);
    pthread_cond_signal(&q->cond);
    return 0;
}

// Stops and joins the worker, drops what is still queued, frees the queue.
// Shut-down thread; no ubus_add_call may run concurrently.
void ubus_async_deinit(void)
{
    call_queue *q = g_queue;
    if (!q)
        return;
    pthread_mutex_lock(&q->lock);
    q->stop = 1;
    pthread_mutex_unlock(&q->lock);
    pthread_cond_signal(&q->cond);
    pthread_join(q->thread, nullptr);
    // Calls still queued are dropped unsent.
    q->count = 0;
    g_queue = nullptr;
    queue_destroy(q);
}
