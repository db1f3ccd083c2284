// Method handlers, chosen by method code in the dispatch table. Each takes
// the request context, returns 0 or -1, and leaves its result in res_obj and
// error_code. Called on the worker thread that owns the context.
#pragma once

struct ds_context;

int ds_handle_method_get(ds_context *ctx);
int ds_handle_method_set(ds_context *ctx);          // set, add and delete
int ds_handle_method_do(ds_context *ctx);
int ds_handle_method_forward(ds_context *ctx);
