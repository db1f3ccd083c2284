// One request: who asked (user, group, client kind), the method, the
// request and response JSON, the error code and the store transaction of a
// changing method. ds_serve_call makes it from what core parsed (a ds_call)
// and hands the answer back; methods, checkers and module callbacks read it
// directly. Lives on the worker thread's stack for one request.
#pragma once

#include <cstdint>

#include "platform/serve_call.h"

struct json_object;
struct uci_context;
struct store_txn;

struct ds_context {
    const char *user;        // "user" of the info record (core's)
    uint8_t group;           // 1..3, 0 until read
    uint8_t client;          // 1..13, 0 until read
    uint8_t method;          // ds_method
    int32_t error_code;      // the response's "error_code"
    json_object *req_obj;    // core's; set cuts it down to the changes
    json_object *res_obj;    // the answer; null when no handler built one
    uci_context *uci_ctx;    // this request's own uci context (core's)
    store_txn *txn;          // the set pipeline's open transaction, else null
    uint32_t text_limit;     // the largest record the client could send
};
