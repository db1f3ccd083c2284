// Scratch uci directories for the store's tests.
#pragma once

#include <uci.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "harness/dsd_harness.h"
#include "store/store.h"

struct uci_dirs {
    std::string root, conf, save;

    uci_dirs()
    {
        char tmpl[] = "/tmp/dsd-uci-XXXXXX";
        root = mkdtemp(tmpl);
        conf = root + "/config";
        save = root + "/save";
        std::string cmd = "mkdir -p " + conf + " " + save;
        if (system(cmd.c_str()) != 0)
            abort();
    }
    ~uci_dirs()
    {
        std::string cmd = "rm -rf " + root;
        if (system(cmd.c_str()) != 0)
            abort();
    }
    uci_context *context() const
    {
        uci_context *ctx = uci_alloc_context();
        uci_set_confdir(ctx, conf.c_str());
        uci_set_savedir(ctx, save.c_str());
        return ctx;
    }
    void write(const std::string &name, const std::string &text) const
    {
        std::ofstream(conf + "/" + name, std::ios::binary) << text;
    }
    std::string read(const std::string &name) const { return slurp(conf + "/" + name); }
    std::string changes(const std::string &name) const { return slurp(save + "/" + name); }
};

struct ctx_deleter {
    void operator()(uci_context *c) const { uci_free_context(c); }
};
using ctx_ptr = std::unique_ptr<uci_context, ctx_deleter>;

// A commit in a transaction of its own: for changes staged directly in
// `ctx` with libuci, as another uci client would.
inline int commit_in(uci_context *ctx, const char *pkg, bool light = false)
{
    store_txn t(ctx);
    return store_txn_commit(&t, pkg, light);
}

// The items of the list option at tuple ("pkg.sec.opt"); none when it is
// missing or not a list.
inline std::vector<std::string> uci_list(uci_context *ctx, std::string tuple)
{
    uci_ptr ptr{};
    std::vector<std::string> out;
    if (uci_lookup_ptr(ctx, &ptr, tuple.data(), true) != UCI_OK || !ptr.o || ptr.o->type != UCI_TYPE_LIST)
        return out;
    uci_element *e;
    uci_foreach_element(&ptr.o->v.list, e) out.emplace_back(e->name);
    return out;
}
