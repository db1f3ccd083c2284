// The hand-over between the connection layer and the model: what one
// connection asked, as core parsed it from the records, and the answer the
// model leaves for core to send. Plain data, so core needs nothing of the
// model's own request object and the model nothing of connections.
#pragma once

#include <cstdint>

struct json_object;
struct uci_context;

// Method codes, as the "method" member of the request record names them.
enum ds_method {
    DS_METHOD_NONE = 0,
    DS_METHOD_GET = 1,
    DS_METHOD_ADD = 2,
    DS_METHOD_DELETE = 3,
    DS_METHOD_SET = 4,
    DS_METHOD_DO = 5,
    DS_METHOD_FORWARD = 6,
};

struct ds_call {
    const char *user;       // "user" of the info record; core's, for the call
    uint8_t group;          // 1..3
    uint8_t client;         // 1..13
    uint8_t method;         // ds_method
    json_object *req_obj;   // core's; the method may cut it down in place
    uci_context *uci_ctx;   // this request's own uci context, core's
    uint32_t text_limit;    // bytes the connection could send in one record
    json_object *res_obj;   // the answer, null when none; core owns it after
};

// What answers one call: runs its method, leaves the answer in res_obj and
// returns the response's error code. Start-up wires the model's in.
using ds_serve_fn = int32_t (*)(ds_call *call);
