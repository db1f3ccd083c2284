// ubus client layer: one connection per call, JSON text in, JSON object out.
#pragma once

#include <cstdint>

struct ubus_context;
struct ubus_request;
struct blob_attr;
struct json_object;

struct ubus_req {
    const char *object;
    const char *method;
    const char *message;  // JSON object text, or null for an empty message
    int32_t timeout;      // seconds; below 1 means 30 (updated in place)
};

// Connects to the bus socket ("/var/run/ubus.sock" under DSD_ROOT, or the
// library's default socket when that path does not exist). Null on failure.
ubus_context *ubus_create_connection(void);
void ubus_free_connection(ubus_context *conn);
// 0 and *reply (new reference, may be null when nothing came back), or -1.
int ubus_call(ubus_context *conn, ubus_req *req, json_object **reply);
// Data callback of ubus_call's invoke: parses msg into *(json_object **)req->priv
// (null when there is no text or it does not parse; a later reply replaces an
// earlier one, which is released). Runs on the calling thread.
void ubus_call_cb(ubus_request *req, int type, blob_attr *msg);
