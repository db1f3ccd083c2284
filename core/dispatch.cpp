#include "core/dispatch.h"

#include <pthread.h>
#include <unistd.h>

#include <cstring>
#include <ctime>

#include "core/context.h"
#include "core/heap.h"
#include "core/wire.h"
#include "model/methods.h"
#include "platform/stats.h"
#include "store/store.h"
#include "platform/trace.h"

namespace {

using ds_method_fn = int (*)(ds_context *ctx);

struct ds_method_row {
    const char *name;
    int code;
    ds_method_fn handler;
};

// add and delete run through the set pipeline, which tells them apart by code.
const ds_method_row ds_methods[] = {
    {.name = "get", .code = DS_METHOD_GET, .handler = ds_handle_method_get},
    {.name = "add", .code = DS_METHOD_ADD, .handler = ds_handle_method_set},
    {.name = "delete", .code = DS_METHOD_DELETE, .handler = ds_handle_method_set},
    {.name = "set", .code = DS_METHOD_SET, .handler = ds_handle_method_set},
    {.name = "do", .code = DS_METHOD_DO, .handler = ds_handle_method_do},
    {.name = "forward", .code = DS_METHOD_FORWARD, .handler = ds_handle_method_forward},
    {.name = nullptr, .code = 0, .handler = nullptr},
};

ds_method_fn handler_of(int code)
{
    for (const ds_method_row *row = ds_methods; row->name; row++) {
        if (row->code == code)
            return row->handler;
    }
    return nullptr;
}

long monotonic_ms(const timespec &ts)
{
    return ts.tv_sec * 1000L + ts.tv_nsec / 1000000L;
}

void run_method(ds_context *ctx)
{
    ds_method_fn handler = handler_of(ctx->method);
    if (!handler) {
        DS_TRACE_AS("ds_signal_handle", TRACE_ERROR, "Signal method is illegal.");
        ctx->error_code = -40105;
        return;
    }
    if (handler(ctx) != 0)
        DS_TRACE_AS("ds_signal_handle", TRACE_ERROR, "Signal handle failed.");
}

} // namespace

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

    ds_context *ctx = context_alloc();
    if (!ctx) {
        DS_ERR("Failed to alloc a free context.");
        make_error_response(fd, -40101);
        close(fd);
        return -1;
    }
    ctx->fd = fd;
    ctx->error_code = -40101;
    if (ds_signal_parse(ctx) != 0)
        DS_ERR("Failed to parse signal.");
    else
        run_method(ctx);
    // Nothing a request locked may outlive it, whatever path it took.
    store_release_thread();
    // Counted before the answer leaves, so a client that reads the figures
    // next finds its own request in them.
    stats_request(ctx->method, ctx->error_code, stats_now_ns() - start_ns);
    ds_make_response(ctx);

    clock_gettime(CLOCK_MONOTONIC, &end);
    DS_INFO("##Time cost: %ld ms##", monotonic_ms(end) - monotonic_ms(start));
    context_free(ctx);
    heap_trim_if_idle();
    return 0;
}
