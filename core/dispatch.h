// One table maps method names to codes; the connection task owns the
// shared concerns (context, parsing, response, timing) and hands the parsed
// request to the serve function start-up wired in.
#pragma once

#include <cstdint>

#include "platform/serve_call.h"

struct ds_conn;

// Sets the serve function; main thread, before the workers start.
void dispatch_set_serve(ds_serve_fn serve);

// The method code of a "method" name (exact, case-sensitive), or 0.
int ds_method_code(const char *name);

// Thread-pool task for one accepted connection: takes a context, parses the
// records, runs the method's handler, answers, releases the context (which
// closes fd). 0, or -1 when no context was free. Worker thread.
int ds_signal_handle(int fd);

// Parses the info and request records into ctx (code starts at -40101).
// 0 when the second record was good, -1 otherwise. Worker thread.
int ds_signal_parse(ds_conn *ctx);
// Sends the response record for ctx's res_obj / error_code. Worker thread.
void ds_make_response(ds_conn *ctx);
