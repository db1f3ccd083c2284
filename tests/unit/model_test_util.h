// Scratch device root for the model's unit tests: DSD_ROOT must be set before
// the first path is resolved (it is read once per process), so the root is
// made by a static initialiser of the including test file.
#pragma once

#include "model/request.h"
#include "harness/dsd_harness.h"
#include "model/methods.h"
#include "store/store.h"

struct model_scratch_root {
    scratch_dir dir{"dsd-model"};
    std::string root = dir.path;

    model_scratch_root()
    {
        for (const char *sub : {"/etc", "/etc/config", "/tmp", "/tmp/.uci"})
            mkdir((root + sub).c_str(), 0755);
        setenv("DSD_ROOT", root.c_str(), 1);
    }
    std::string conf(const std::string &pkg) const { return root + "/etc/config/" + pkg; }
    void write(const std::string &pkg, const std::string &text) const
    {
        std::ofstream(conf(pkg), std::ios::binary) << text;
        std::string rm = "rm -f '" + root + "/tmp/.uci/" + pkg + "'";
        if (system(rm.c_str()) != 0)
            abort();
    }
    std::string read(const std::string &pkg) const { return slurp(conf(pkg)); }
};

struct jso_del {
    void operator()(json_object *o) const { json_object_put(o); }
};

// One request on ctx as a worker serves it: the request replaced, a fresh uci
// context (as the context pool provides), ds_serve. 0, or -1 for any error
// code (which stays in ctx->error_code).
inline int serve_request(ds_context *ctx, int method, const char *request)
{
    json_object_put(ctx->req_obj);
    json_object_put(ctx->res_obj);
    ctx->res_obj = nullptr;
    ctx->req_obj = json_tokener_parse(request);
    EXPECT_NE(ctx->req_obj, nullptr) << request;
    ctx->method = static_cast<uint8_t>(method);
    ctx->error_code = -40101;
    if (ctx->uci_ctx) // the device's uci_free_context does not take null
        uci_free_context(ctx->uci_ctx);
    ctx->uci_ctx = dsd_uci_alloc();
    ctx->error_code = ds_serve(ctx);
    return ctx->error_code == 0 ? 0 : -1;
}

// Frees what serve_request left in ctx.
inline void release_context(ds_context *ctx)
{
    json_object_put(ctx->req_obj);
    json_object_put(ctx->res_obj);
    if (ctx->uci_ctx)
        uci_free_context(ctx->uci_ctx);
}

// An option as a fresh reader sees it; "<none>" when absent.
inline std::string stored(const char *pkg, const char *sec, const char *opt)
{
    char *v = get_opt_value_dup(pkg, sec, opt);
    std::string s = v ? v : "<none>";
    free(v);
    return s;
}
