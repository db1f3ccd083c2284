// ubus client layer: a bus connection per call, JSON text in, a json-c object
// out.
//
// Written against the public libubus/libubox API so the same source builds
// with OpenWrt's libraries on the device and with compat/ on a host.
#include "platform/ubus_client.h"

#include <json-c/json.h>
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
    if (ubus_lookup_id(conn, req->object, &id) != 0) {
        DS_ERR("failed to lookup ubus object: %s.", req->object);
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
    if (status != 0) {
        DS_ERR("ubus invoke error: %s.%s", req->object, req->method);
        return -1;
    }
    return 0;
}
