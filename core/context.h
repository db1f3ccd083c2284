// Request contexts: one per request, from a fixed pool of six.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>

struct json_object;
struct uci_context;
struct store_txn;

enum {
    DS_CONTEXT_COUNT = 6,
    DS_BUF_SIZE = 32769, // 32768-byte info record + NUL
};

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

// Fields in the order the wire and pipelines were designed around; plain
// data so module callbacks can read it directly.
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
    uint8_t marks[3];        // once-per-request marks of module callbacks
    pthread_mutex_t lock;    // guards busy
    uint8_t busy;            // async work still uses the context
    uint32_t free;           // 1 in the pool, 0 while owned
    uint32_t buf_used;       // bytes of buf this request may have written,
                             // so the release clears only those
};

// Mark bits handed out to callbacks that may run several times per request.
// Each callback owns exactly one (byte, bit) pair; list them here so two
// callbacks never share one.
enum {
    DS_MARK_ALARM_INPUT_BYTE = 1,
    DS_MARK_ALARM_INPUT_BIT = 0x80,
    // after_apply_notif_list of each detection module
    DS_MARK_DETECTION_BYTE = 0,
    DS_MARK_MOTION_NOTIF_BIT = 0x01,
    DS_MARK_INTRUSION_NOTIF_BIT = 0x02,
    DS_MARK_LINECROSS_NOTIF_BIT = 0x04,
    DS_MARK_TAMPER_NOTIF_BIT = 0x08,
    DS_MARK_FACE_NOTIF_BIT = 0x10,
    DS_MARK_NETWORK_APPLY_BYTE = 2,
    DS_MARK_NETWORK_APPLY_BIT = 0x40,
};

// Prepares the pool at start-up. Non-zero on success, 0 on failure. Main thread.
int context_init(void);
// Takes a free context (first free in array order); null when none is free
// or its buffer or uci context cannot be made. Any thread.
ds_context *context_alloc(void);
// Gives a context back: waits for busy, closes fd, resets every field; the
// buffer the next request gets is all zero. Null ignored.
void context_free(ds_context *ctx);
// Tears the pool down at shut-down.
void context_destroy(void);
// Number of free contexts (for tests and the health check).
int context_free_count(void);

// Notes that bytes [0, n) of ctx->buf may now hold request data; whoever
// writes into the buffer calls it first. Owning worker thread.
void context_note_buf_used(ds_context *ctx, size_t n);

// busy helpers for asynchronous work started by a module callback.
void context_set_busy(ds_context *ctx, int busy);

// Once-per-request marks: returns 1 when (byte, bit) was already set.
int context_test_mark(const ds_context *ctx, int byte, uint8_t bit);
void context_set_mark(ds_context *ctx, int byte, uint8_t bit);
