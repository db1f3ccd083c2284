// Arbitrary bytes on a connection: the record parser and the response it
// leads to must never crash, leak or hang.
#include <json-c/json.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "core/context.h"
#include "core/dispatch.h"
#include "platform/trace.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    set_trace_level(3); // silent
    return context_init() ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Nobody reads the reply side: the input and its (up to three times
    // longer, URL-encoded) echo must both fit the socket buffers.
    if (size > 16384)
        return 0;
    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0)
        return 0;
    size_t off = 0;
    while (off < size) {
        ssize_t n = write(sv[1], data + off, size - off);
        if (n <= 0)
            break;
        off += static_cast<size_t>(n);
    }
    shutdown(sv[1], SHUT_WR);
    ds_conn *ctx = context_alloc();
    if (!ctx)
        abort(); // a context leaked by an earlier input
    ctx->fd = sv[0];
    ctx->error_code = -40101;
    if (ds_signal_parse(ctx) == 0 && ctx->req_obj && !ctx->res_obj) {
        ctx->res_obj = json_object_get(ctx->req_obj); // echo: exercises URL encoding of replies
    }
    ds_make_response(ctx);
    context_free(ctx);
    // The release clears only what the request wrote; nothing may be left.
    auto nonzero = [](uint8_t b) { return b != 0; };
    if (ctx->buf && std::any_of(ctx->buf, ctx->buf + ctx->buf_size, nonzero))
        abort();
    close(sv[1]);
    return 0;
}
