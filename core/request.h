// Reading the info and request records of one connection into its context,
// and writing the response record back.
#pragma once

struct ds_context;

// Reads the two records from ctx->fd into ctx (user, group, client, request
// object, method code), leaving the reason of a failure in ctx->error_code.
// 0 when the second record was accepted, -1 otherwise. Worker thread owning ctx.
int ds_signal_parse(ds_context *ctx);

// Sends the response for ctx: its response object with "error_code" added
// (URL-encoded for client kinds 1 and 2), or the small error response.
// Sends nothing when ctx has no socket or no buffer. 0 or -1. Worker thread.
int ds_make_response(ds_context *ctx);

// Method code of a "method" name; 0 when the name is not a method.
int ds_method_code(const char *name);
