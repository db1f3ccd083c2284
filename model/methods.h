// The methods of the model. Each takes the request context, runs on the
// worker thread that owns it, leaves its answer in res_obj and returns 0 or
// the response's error code.
#pragma once

#include <cstdint>

struct ds_context;
struct ds_call;

// The one entry start-up hands to core: makes the request object of one
// parsed call, runs its method, leaves the answer in call->res_obj (the
// caller's to free) and returns the code. Worker thread of the call.
int32_t ds_serve_call(ds_call *call);
// Runs the request's method and returns its code (DS_ERR_METHOD for a
// method not handled here). Worker thread owning ctx.
int32_t ds_serve(ds_context *ctx);

int32_t ds_set(ds_context *ctx);
int32_t ds_add(ds_context *ctx);
int32_t ds_delete(ds_context *ctx);

int32_t ds_get(ds_context *ctx);
int32_t ds_do(ds_context *ctx);
int32_t ds_forward(ds_context *ctx);
