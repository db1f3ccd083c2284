#include "core/dispatch.h"

#include <pthread.h>
#include <unistd.h>

#include <cstring>
#include <ctime>

#include "core/context.h"
#include "core/heap.h"
#include "core/wire.h"
#include "platform/error_codes.h"
#include "platform/stats.h"
#include "store/store.h"
#include "platform/trace.h"

namespace {

struct ds_method_row {
    const char *name;
    int code;
};

const ds_method_row ds_methods[] = {
    {.name = "get", .code = DS_METHOD_GET},
    {.name = "add", .code = DS_METHOD_ADD},
    {.name = "delete", .code = DS_METHOD_DELETE},
    {.name = "set", .code = DS_METHOD_SET},
    {.name = "do", .code = DS_METHOD_DO},
    {.name = "forward", .code = DS_METHOD_FORWARD},
    {.name = nullptr, .code = 0},
};

// Written once by start-up before the workers run; read by them only.
ds_serve_fn g_serve = nullptr;

// Hands the parsed request to the serve function and keeps its answer.
int32_t serve(ds_conn *ctx)
{
    if (!g_serve)
        return DS_ERR_METHOD;
    ds_call call = {.user = ctx->user, .group = ctx->group, .client = ctx->client, .method = ctx->method,
                    .req_obj = ctx->req_obj, .uci_ctx = ctx->uci_ctx, .text_limit = ctx->buf_size,
                    .res_obj = nullptr};
    int32_t code = g_serve(&call);
    ctx->res_obj = call.res_obj;
    return code;
}

long monotonic_ms(const timespec &ts)
{
    return ts.tv_sec * 1000L + ts.tv_nsec / 1000000L;
}

} // namespace

void dispatch_set_serve(ds_serve_fn serve)
{
    g_serve = serve;
}

int ds_method_code(const char *name)
{
    for (const ds_method_row *row = ds_methods; name && row->name; row++) {
        if (!strcmp(row->name, name))
            return row->code;
    }
    return 0;
}

int ds_signal_handle(int fd)
{
    DS_INFO("##dsd_parse thread_id: %lu##", static_cast<unsigned long>(pthread_self()));
    timespec start{}, end{};
    clock_gettime(CLOCK_MONOTONIC, &start);
    int64_t start_ns = start.tv_sec * 1000000000L + start.tv_nsec;

    ds_conn *ctx = context_alloc();
    if (!ctx) {
        DS_ERR("Failed to alloc a free context.");
        make_error_response(fd, DS_ERR_REQUEST);
        close(fd);
        return -1;
    }
    ctx->fd = fd;
    // The answer until the parse or the method knows better.
    ctx->error_code = DS_ERR_REQUEST;
    if (ds_signal_parse(ctx) != 0)
        DS_ERR("Failed to parse signal.");
    else
        ctx->error_code = serve(ctx);
    // Nothing a request locked may outlive it, whatever path it took.
    store_release_thread();
    // Counted before the answer leaves, so a client that reads the figures
    // next finds its own request in them.
    stats_request(ctx->method, ctx->error_code, stats_now_ns() - start_ns);
    ds_make_response(ctx);

    clock_gettime(CLOCK_MONOTONIC, &end);
    DS_INFO("##Time cost: %ld ms##", monotonic_ms(end) - monotonic_ms(start));
    context_free(ctx);
    heap_note_request();
    heap_trim_if_idle();
    return 0;
}
