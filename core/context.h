// Request contexts: one per request, from a fixed pool of six, each with
// its connection and receive buffer.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>

// The request object itself belongs to the model; core holds a pool of
// them and fills the connection fields.
#include "model/request.h"

enum {
    DS_CONTEXT_COUNT = 6,
    DS_BUF_SIZE = 32769, // 32768-byte info record + NUL
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
