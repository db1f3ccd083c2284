#include "core/dispatch.h"

#include "core/context.h"
#include "core/request.h"
#include "core/wire.h"
#include "model/methods.h"
#include "platform/trace.h"

#include <pthread.h>
#include <unistd.h>

#include <ctime>

namespace {

struct method_handler_row {
    int code;
    int (*handler)(ds_context *ctx);
};

// add and delete run through the set pipeline, which branches on the code.
const method_handler_row k_handlers[] = {
    {.code = DS_METHOD_GET, .handler = ds_handle_method_get},
    {.code = DS_METHOD_ADD, .handler = ds_handle_method_set},
    {.code = DS_METHOD_DELETE, .handler = ds_handle_method_set},
    {.code = DS_METHOD_SET, .handler = ds_handle_method_set},
    {.code = DS_METHOD_DO, .handler = ds_handle_method_do},
    {.code = DS_METHOD_FORWARD, .handler = ds_handle_method_forward},
    {.code = DS_METHOD_NONE, .handler = nullptr},
};

long monotonic_ms(void)
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

int (*find_handler(int code))(ds_context *)
{
    for (const method_handler_row *row = k_handlers; row->handler; row++) {
        if (row->code == code)
            return row->handler;
    }
    return nullptr;
}

// Runs the method chosen by the parsed code; the outcome is in ctx.
void run_method(ds_context *ctx)
{
    int (*handler)(ds_context *) = find_handler(ctx->method);
    if (!handler) {
        DS_TRACE_AS("ds_signal_handle", TRACE_ERROR, "Signal method is illegal.");
        ctx->error_code = -40105;
        return;
    }
    if (handler(ctx) != 0)
        DS_TRACE_AS("ds_signal_handle", TRACE_ERROR, "Signal handle failed.");
}

} // namespace

int ds_signal_handle(int fd)
{
    DS_INFO("##dsd_parse thread_id: %lu##", static_cast<unsigned long>(pthread_self()));
    long start = monotonic_ms();
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
    ds_make_response(ctx);
    DS_INFO("##Time cost: %ld ms##", monotonic_ms() - start);
    context_free(ctx);
    return 0;
}
