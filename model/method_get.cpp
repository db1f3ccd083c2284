// Placeholder until the get pipeline lands: no handler, so the request is
// refused as one that reached no method.
#include "core/context.h"
#include "model/methods.h"

int ds_handle_method_get(ds_context *ctx)
{
    ctx->error_code = -40105;
    return -1;
}
