// Scratch uci directories for the store's tests.
#pragma once

#include "harness/dsd_harness.h"
#include "store/store.h"

struct uci_dirs {
    scratch_dir dir{"dsd-uci"};
    std::string root = dir.path, conf = root + "/config", save = root + "/save";

    uci_dirs()
    {
        if (system(("mkdir -p " + conf + " " + save).c_str()) != 0)
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

// A package and one edit of every kind the store makes on it, each valid
// from the package as written and after the rows before it.
inline const char kEditPackage[] = "config kind 'full'\n\toption a 'x'\n\tlist l 'p'\n"
                                   "config kind 'bare'\n"
                                   "config T 'T_1'\n"
                                   "config kind 'full'\n\toption u '\xc3\xa9'\n"; // merged into the first

struct edit_row {
    const char *name;
    int (*apply)(store_txn *t);
};

inline int set_section_values(store_txn *t)
{
    json_object *req = json_tokener_parse(R"({"a":"it's","l":["q","r"],"z":"","n":7})");
    int rc = set_uci_section(t, "pkg", "full", req);
    json_object_put(req);
    return rc;
}

inline const edit_row kEdits[] = {
    {"set section", set_section_values},
    {"set option", [](store_txn *t) { return set_opt_value(t, "pkg", "bare", "n", "a 'quoted' value"); }},
    {"delete option", [](store_txn *t) { return delete_opt_value(t, "pkg", "full", "a", nullptr); }},
    {"add section", [](store_txn *t) { return add_new_section(t, "pkg", "T", "T_2"); }},
    {"rename section", [](store_txn *t) { return rename_section(t, "pkg", "T_1", "T_9"); }},
    {"delete section", [](store_txn *t) { return delete_section(t, "pkg", "bare"); }},
    {"delete type", [](store_txn *t) { return delete_section_type(t, "pkg", "kind"); }},
    {nullptr, nullptr},
};
