// One request: who asked (user, group, client kind), the method, the
// request and response JSON, the error code and the store transaction of a
// changing method. core fills the connection fields (fd, buf, the pool's
// bookkeeping) and the parsed request, hands it to the model's serve
// function, and answers with res_obj and error_code. Plain data so module
// callbacks can read it directly.
#pragma once

#include <pthread.h>

#include <cstdint>

struct json_object;
struct uci_context;
struct store_txn;

// Method codes kept in ds_context::method.
enum ds_method {
    DS_METHOD_NONE = 0,
    DS_METHOD_GET = 1,
    DS_METHOD_ADD = 2,
    DS_METHOD_DELETE = 3,
    DS_METHOD_SET = 4,
    DS_METHOD_DO = 5,
    DS_METHOD_FORWARD = 6,
};

// Fields in the order the wire and pipelines were designed around.
struct ds_context {
    int32_t fd;              // the connection; -1 when none
    uint8_t *buf;            // receive buffer; DS_BUF_SIZE bytes when idle
    uint32_t buf_size;       // DS_BUF_SIZE, or length + 1 after growth
    char *user;              // "user" of the info record, owned
    uint8_t group;           // 1..3, 0 until read
    uint8_t client;          // 1..13, 0 until read
    uint8_t method;          // ds_method
    int32_t error_code;      // the response's "error_code"
    json_object *req_obj;    // owned
    json_object *res_obj;    // owned; null when no handler built one
    uci_context *uci_ctx;    // this request's own uci context
    store_txn *txn;          // the set pipeline's open transaction, else null
    pthread_mutex_t lock;    // guards busy
    uint8_t busy;            // async work still uses the context
    uint32_t free;           // 1 in the pool, 0 while owned
    uint32_t buf_used;       // bytes of buf this request may have written,
                             // so the release clears only those
};
