#include "core/context.h"

#include "platform/trace.h"
#include "platform/uci_access.h"

#include <json-c/json.h>
#include <uci.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

// The pool is process-wide by design: one context per worker, handed out and
// taken back under g_pool_mutex. The mutex guards every context's `free`
// flag and the (re)allocation of its buffer and uci context; everything else
// in a context belongs to the one worker that owns it.
static ds_context g_contexts[DS_CONTEXT_COUNT];
static pthread_mutex_t g_pool_mutex = PTHREAD_MUTEX_INITIALIZER;

enum { BUSY_POLL_US = 100000 };

static uint8_t *new_buffer(void)
{
    return static_cast<uint8_t *>(calloc(1, DS_BUF_SIZE));
}

// Blocks until asynchronous work started by the request has let go of ctx.
static void wait_not_busy(ds_context *ctx)
{
    for (;;) {
        pthread_mutex_lock(&ctx->lock);
        uint8_t busy = ctx->busy;
        pthread_mutex_unlock(&ctx->lock);
        if (!busy)
            return;
        usleep(BUSY_POLL_US);
    }
}

// Drops every per-request field of ctx. Caller holds g_pool_mutex.
static void reset_request_fields(ds_context *ctx)
{
    free(ctx->user);
    ctx->user = nullptr;
    ctx->group = 0;
    ctx->client = 0;
    ctx->method = DS_METHOD_NONE;
    ctx->error_code = 0;
    json_object_put(ctx->req_obj);
    ctx->req_obj = nullptr;
    json_object_put(ctx->res_obj);
    ctx->res_obj = nullptr;
    if (ctx->uci_ctx)
        uci_free_context(ctx->uci_ctx);
    ctx->uci_ctx = nullptr;
    memset(ctx->marks, 0, sizeof(ctx->marks));
}

// Sets up one pool slot. 0, or -1 after tracing why.
static int init_one(ds_context *ctx)
{
    memset(static_cast<void *>(ctx), 0, sizeof(*ctx));
    ctx->fd = -1;
    pthread_mutex_init(&ctx->lock, nullptr);
    ctx->free = 1;
    ctx->buf = new_buffer();
    if (!ctx->buf) {
        DS_TRACE_AS("context_init", TRACE_ERROR, "Malloc buffer failed.");
        return -1;
    }
    ctx->buf_size = DS_BUF_SIZE;
    ctx->uci_ctx = dsd_uci_alloc();
    if (!ctx->uci_ctx) {
        DS_TRACE_AS("context_init", TRACE_ERROR, "Uci context alloc failed.");
        return -1;
    }
    return 0;
}

int context_init(void)
{
    pthread_mutex_init(&g_pool_mutex, nullptr);
    for (int i = 0; i < DS_CONTEXT_COUNT; i++) {
        if (init_one(&g_contexts[i]) != 0) {
            // Slots after i were never set up: give them a lock to destroy.
            for (int j = i + 1; j < DS_CONTEXT_COUNT; j++) {
                memset(static_cast<void *>(&g_contexts[j]), 0, sizeof(ds_context));
                g_contexts[j].fd = -1;
                pthread_mutex_init(&g_contexts[j].lock, nullptr);
            }
            context_destroy();
            return 0;
        }
    }
    return 1;
}

// Makes sure a free slot has its buffer and uci context. 0 or -1.
// Caller holds g_pool_mutex.
static int prepare_slot(ds_context *ctx)
{
    if (!ctx->buf) {
        ctx->buf = new_buffer();
        if (!ctx->buf) {
            DS_TRACE_AS("context_alloc", TRACE_ERROR, "Malloc buffer failed.");
            return -1;
        }
        ctx->buf_size = DS_BUF_SIZE;
    }
    if (!ctx->uci_ctx) {
        ctx->uci_ctx = dsd_uci_alloc();
        if (!ctx->uci_ctx) {
            DS_TRACE_AS("context_alloc", TRACE_ERROR, "Uci context alloc failed.");
            return -1;
        }
    }
    return 0;
}

ds_context *context_alloc(void)
{
    pthread_mutex_lock(&g_pool_mutex);
    ds_context *found = nullptr;
    for (int i = 0; i < DS_CONTEXT_COUNT; i++) {
        if (g_contexts[i].free == 1) {
            found = &g_contexts[i];
            break;
        }
    }
    if (found && prepare_slot(found) != 0)
        found = nullptr;
    if (found)
        found->free = 0;
    pthread_mutex_unlock(&g_pool_mutex);
    return found;
}

void context_free(ds_context *ctx)
{
    if (!ctx)
        return;
    wait_not_busy(ctx);
    pthread_mutex_lock(&g_pool_mutex);
    if (ctx->fd >= 0) {
        close(ctx->fd);
        ctx->fd = -1;
    }
    if (ctx->buf_size != DS_BUF_SIZE) {
        // Grown for a long request (or lost): the next owner gets a fresh one.
        free(ctx->buf);
        ctx->buf = nullptr;
        ctx->buf_size = 0;
    } else {
        memset(ctx->buf, 0, DS_BUF_SIZE);
    }
    reset_request_fields(ctx);
    pthread_mutex_lock(&ctx->lock);
    ctx->busy = 0;
    pthread_mutex_unlock(&ctx->lock);
    ctx->free = 1;
    pthread_mutex_unlock(&g_pool_mutex);
}

void context_destroy(void)
{
    pthread_mutex_lock(&g_pool_mutex);
    for (int i = 0; i < DS_CONTEXT_COUNT; i++) {
        ds_context *ctx = &g_contexts[i];
        wait_not_busy(ctx);
        if (ctx->fd >= 0)
            close(ctx->fd);
        ctx->fd = -1;
        free(ctx->buf);
        ctx->buf = nullptr;
        ctx->buf_size = 0;
        reset_request_fields(ctx);
        pthread_mutex_destroy(&ctx->lock);
        ctx->busy = 0;
        ctx->free = 1;
    }
    pthread_mutex_unlock(&g_pool_mutex);
    pthread_mutex_destroy(&g_pool_mutex);
}

int context_free_count(void)
{
    pthread_mutex_lock(&g_pool_mutex);
    int n = 0;
    for (int i = 0; i < DS_CONTEXT_COUNT; i++)
        n += g_contexts[i].free == 1 ? 1 : 0;
    pthread_mutex_unlock(&g_pool_mutex);
    return n;
}

void context_set_busy(ds_context *ctx, int busy)
{
    if (!ctx)
        return;
    pthread_mutex_lock(&ctx->lock);
    ctx->busy = busy ? 1 : 0;
    pthread_mutex_unlock(&ctx->lock);
}

int context_test_mark(const ds_context *ctx, int byte, uint8_t bit)
{
    if (!ctx || byte < 0 || byte >= 3)
        return 0;
    return (ctx->marks[byte] & bit) ? 1 : 0;
}

void context_set_mark(ds_context *ctx, int byte, uint8_t bit)
{
    if (!ctx || byte < 0 || byte >= 3)
        return;
    ctx->marks[byte] |= bit;
}
