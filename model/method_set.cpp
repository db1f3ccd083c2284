// Placeholder until the set pipeline lands.
#include "core/context.h"
#include "model/methods.h"

int ds_handle_method_set(ds_context *ctx)
{
    ctx->error_code = -40105;
    return -1;
}

int ds_handle_method_set_without_srvcb(ds_context *ctx)
{
    ctx->error_code = -40105;
    return -1;
}
