#include "core/context.h"

#include <json-c/json.h>
#include <pthread.h>
#include <uci.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/heap.h"
#include "platform/trace.h"
#include "store/store.h"

namespace {

ds_conn g_contexts[DS_CONTEXT_COUNT];
// Guards every context's `free` flag and the (re)allocation of its buffer and
// uci context; taken only in alloc, release and destroy, never while a
// request runs.
pthread_mutex_t g_pool_lock = PTHREAD_MUTEX_INITIALIZER;
// Records are made safe to tear down (fd -1) only by context_init.
bool g_pool_ready = false;

// Frees what a request left in the context; the buffer is handled by the caller.
void clear_request(ds_conn *ctx)
{
    if (ctx->fd >= 0) {
        close(ctx->fd);
        ctx->fd = -1;
    }
    free(ctx->user);
    ctx->user = nullptr;
    ctx->group = 0;
    ctx->client = 0;
    ctx->method = DS_METHOD_NONE;
    ctx->error_code = 0;
    json_object_put(ctx->req_obj);
    json_object_put(ctx->res_obj);
    ctx->req_obj = nullptr;
    ctx->res_obj = nullptr;
    if (ctx->uci_ctx)
        uci_free_context(ctx->uci_ctx);
    ctx->uci_ctx = nullptr;
}

// `caller` names the pool operation in the trace.
bool give_buffer(ds_conn *ctx, const char *caller)
{
    ctx->buf = static_cast<uint8_t *>(calloc(1, DS_BUF_SIZE));
    if (!ctx->buf) {
        DS_TRACE_AS(caller, TRACE_ERROR, "Malloc buffer failed.");
        return false;
    }
    ctx->buf_size = DS_BUF_SIZE;
    return true;
}

bool give_uci(ds_conn *ctx, const char *caller)
{
    ctx->uci_ctx = dsd_uci_alloc();
    if (!ctx->uci_ctx) {
        DS_TRACE_AS(caller, TRACE_ERROR, "Uci context alloc failed.");
        return false;
    }
    return true;
}

} // namespace

int context_init(void)
{
    // Every record is made safe to tear down before anything is allocated,
    // so a failure half-way can release the whole pool the same way.
    for (ds_conn &ctx : g_contexts) {
        memset(&ctx, 0, sizeof ctx);
        ctx.fd = -1;
    }
    g_pool_ready = true;
    for (ds_conn &ctx : g_contexts) {
        if (!give_buffer(&ctx, __func__) || !give_uci(&ctx, __func__)) {
            context_destroy();
            return 0;
        }
        ctx.free = 1;
    }
    return 1;
}

ds_conn *context_alloc(void)
{
    pthread_mutex_lock(&g_pool_lock);
    ds_conn *found = nullptr;
    for (ds_conn &ctx : g_contexts) {
        if (ctx.free == 1) {
            found = &ctx;
            break;
        }
    }
    if (found && ((!found->buf && !give_buffer(found, __func__)) ||
                  (!found->uci_ctx && !give_uci(found, __func__))))
        found = nullptr;
    if (found)
        found->free = 0;
    pthread_mutex_unlock(&g_pool_lock);
    return found;
}

void context_free(ds_conn *ctx)
{
    if (!ctx)
        return;
    pthread_mutex_lock(&g_pool_lock);
    if (ctx->buf_size != DS_BUF_SIZE) {
        // a grown buffer goes back to the heap; the next request gets a fresh one
        heap_note_size(ctx->buf_size);
        free(ctx->buf);
        ctx->buf = nullptr;
        ctx->buf_size = 0;
    } else {
        // Only what the request wrote: zeroing all 32 KiB each time cost
        // more than a small request's whole parse.
        memset(ctx->buf, 0, std::min<size_t>(ctx->buf_used, DS_BUF_SIZE));
    }
    ctx->buf_used = 0;
    clear_request(ctx);
    ctx->free = 1;
    pthread_mutex_unlock(&g_pool_lock);
}

void context_destroy(void)
{
    if (!g_pool_ready)
        return;
    pthread_mutex_lock(&g_pool_lock);
    for (ds_conn &ctx : g_contexts) {
        clear_request(&ctx);
        free(ctx.buf);
        ctx.buf = nullptr;
        ctx.buf_size = 0;
        ctx.buf_used = 0;
        ctx.free = 1;
    }
    g_pool_ready = false;
    pthread_mutex_unlock(&g_pool_lock);
}

int context_free_count(void)
{
    pthread_mutex_lock(&g_pool_lock);
    int n = 0;
    for (const ds_conn &ctx : g_contexts)
        n += ctx.free == 1;
    pthread_mutex_unlock(&g_pool_lock);
    return n;
}

void context_note_buf_used(ds_conn *ctx, size_t n)
{
    if (ctx && n > ctx->buf_used)
        ctx->buf_used = static_cast<uint32_t>(std::min<size_t>(n, UINT32_MAX));
}

