// The model's entry for one request: the request object made from what
// core parsed, the method code chosen to its function. Start-up hands
// ds_serve_call to core, which reaches the model only through it.
#include "model/methods.h"

#include <cstddef>

#include "model/request.h"
#include "platform/error_codes.h"
#include "platform/trace.h"

namespace {

using method_fn = int32_t (*)(ds_context *ctx);

// Indexed by method code (ds_method).
const method_fn ds_method_fns[] = {
    nullptr,
    ds_get,
    ds_add,
    ds_delete,
    ds_set,
    ds_do,
    ds_forward,
};

} // namespace

int32_t ds_serve(ds_context *ctx)
{
    size_t n = sizeof ds_method_fns / sizeof ds_method_fns[0];
    method_fn fn = ctx->method < n ? ds_method_fns[ctx->method] : nullptr;
    if (!fn) {
        DS_TRACE_AS("ds_signal_handle", TRACE_ERROR, "Signal method is illegal.");
        return DS_ERR_METHOD;
    }
    int32_t code = fn(ctx);
    if (code != DS_OK)
        DS_TRACE_AS("ds_signal_handle", TRACE_ERROR, "Signal handle failed.");
    return code;
}

int32_t ds_serve_call(ds_call *call)
{
    ds_context ctx = {.user = call->user, .group = call->group, .client = call->client, .method = call->method,
                      .error_code = 0, .req_obj = call->req_obj, .res_obj = nullptr, .uci_ctx = call->uci_ctx,
                      .txn = nullptr, .text_limit = call->text_limit};
    int32_t code = ds_serve(&ctx);
    call->res_obj = ctx.res_obj;
    return code;
}
