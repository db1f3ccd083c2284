// Placeholder until the do and forward methods land.
#include "core/context.h"
#include "model/methods.h"

int ds_handle_method_do(ds_context *ctx)
{
    ctx->error_code = -40105;
    return -1;
}

int ds_handle_method_forward(ds_context *ctx)
{
    ctx->error_code = -40105;
    return -1;
}
