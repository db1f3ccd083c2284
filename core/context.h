// Connection contexts: one per request, from a fixed pool of six, each with
// its connection, receive buffer and what the records said. The model's
// request object is made from them per call (platform/serve_call.h).
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/serve_call.h"

enum {
    DS_CONTEXT_COUNT = 6,
    DS_BUF_SIZE = 32769, // 32768-byte info record + NUL
};

// Fields in the order the wire and the pool were designed around.
struct ds_conn {
    int32_t fd;              // the connection; -1 when none
    uint8_t *buf;            // receive buffer; DS_BUF_SIZE bytes when idle
    uint32_t buf_size;       // DS_BUF_SIZE, or length + 1 after growth
    char *user;              // "user" of the info record, owned
    uint8_t group;           // 1..3, 0 until read
    uint8_t client;          // 1..13, 0 until read
    uint8_t method;          // ds_method
    int32_t error_code;      // the response's "error_code"
    json_object *req_obj;    // owned
    json_object *res_obj;    // owned; null when the method built none
    uci_context *uci_ctx;    // this request's own uci context, owned
    uint32_t free;           // 1 in the pool, 0 while owned
    uint32_t buf_used;       // bytes of buf this request may have written,
                             // so the release clears only those
};

// Prepares the pool at start-up. Non-zero on success, 0 on failure. Main thread.
int context_init(void);
// Takes a free context (first free in array order); null when none is free
// or its buffer or uci context cannot be made. Any thread.
ds_conn *context_alloc(void);
// Gives a context back: closes fd, resets every field; the
// buffer the next request gets is all zero. Null ignored.
void context_free(ds_conn *ctx);
// Tears the pool down at shut-down.
void context_destroy(void);
// Number of free contexts (for tests and the health check).
int context_free_count(void);

// Notes that bytes [0, n) of ctx->buf may now hold request data; whoever
// writes into the buffer calls it first. Owning worker thread.
void context_note_buf_used(ds_conn *ctx, size_t n);
