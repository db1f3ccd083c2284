// Edit transactions: the store's one way to change a package.
//
// Every edit is appended to the package's change log at once (so the
// transaction's own later reads, and its service callbacks, see it through
// any view). What makes it a transaction is the hold and the note of where
// each change log stood: a package that is not committed, or whose commit
// failed, has its log cut back to that point, its copy in the context
// dropped and its cached snapshot forgotten. Nothing else writes the log
// meanwhile: the daemon's writers all hold the package, and a flush that
// fails leaves log and file as they were (uci_flush.cpp).
#include <sys/stat.h>
#include <unistd.h>
#include <uci.h>

#include <algorithm>
#include <string>

#include "platform/config_events.h"
#include "platform/trace.h"
#include "store/pkg_lock.h"
#include "store/uci_access.h"
#include "store/uci_cache.h"
#include "store/uci_files.h"
#include "store/uci_flush.h"
#include "store/uci_txn.h"

namespace {

std::string log_path(const store_txn *t, const std::string &pkg)
{
    uci_store_dirs d = t->ctx ? uci_store_of(t->ctx) : uci_store_default();
    return d.save + "/" + pkg;
}

// Notes where the package's change log stands now.
void note_log(const store_txn *t, store_txn_pkg *p)
{
    struct stat st;
    p->log_existed = lstat(log_path(t, p->name).c_str(), &st) == 0;
    p->log_len = p->log_existed ? st.st_size : 0;
    p->dirty = false;
}

store_txn_pkg *held(store_txn *t, const char *package)
{
    for (store_txn_pkg &p : t->pkgs) {
        if (p.name == package)
            return &p;
    }
    return nullptr;
}

// The package's entry in `t`, taking the package first when it is new.
store_txn_pkg *join(store_txn *t, const char *package)
{
    if (store_txn_pkg *p = held(t, package))
        return p;
    if (pkg_lock(package) != 0)
        return nullptr;
    // A copy the context loaded before the hold may be stale: reads and
    // edits from here on start from the package as it is now.
    if (t->ctx)
        dsd_uci_forget(t->ctx, package);
    t->pkgs.push_back(store_txn_pkg{package, 0, false, false});
    note_log(t, &t->pkgs.back());
    return &t->pkgs.back();
}

// The change log back to where the transaction found it (or last committed
// it); the context's copy and the cached snapshot forgotten.
void roll_back(store_txn *t, store_txn_pkg *p)
{
    std::string path = log_path(t, p->name);
    struct stat st;
    bool now = lstat(path.c_str(), &st) == 0;
    bool ok = true;
    if (now && !p->log_existed)
        ok = unlink(path.c_str()) == 0;
    else if (now && st.st_size != p->log_len)
        ok = st.st_size > p->log_len && truncate(path.c_str(), p->log_len) == 0;
    if (!ok)
        DS_ERR("roll back change log %s failed", path.c_str());
    if (t->ctx)
        dsd_uci_unload(t->ctx, p->name.c_str());
    uci_cache_drop(p->name.c_str());
    p->dirty = false;
}

// After the staging: the file merged now, or left to the flusher.
int finish(store_txn *t, const char *package, bool light)
{
    if (light) {
        uci_flush_mark(package);
        return 0;
    }
    return uci_flush_package_at(uci_store_of(t->ctx), package);
}

} // namespace

store_txn::store_txn(uci_context *c) : ctx(c), mark(pkg_lock_mark()) {}

store_txn::~store_txn()
{
    store_txn_drop(this);
}

int store_txn_take(store_txn *t, const char *package)
{
    if (!t || !package || !*package) {
        DS_ERR("Invalid params.");
        return -1;
    }
    store_txn_pkg *p = join(t, package);
    if (!p)
        return -1;
    p->dirty = true;
    return 0;
}

int store_txn_lock(store_txn *t, std::vector<std::string> packages)
{
    if (!t)
        return -1;
    std::sort(packages.begin(), packages.end());
    packages.erase(std::unique(packages.begin(), packages.end()), packages.end());
    for (const std::string &pkg : packages) {
        if (pkg.empty() || !join(t, pkg.c_str())) {
            DS_ERR("Lock package %s failed.", pkg.c_str());
            return -1;
        }
    }
    return 0;
}

int store_txn_commit(store_txn *t, const char *package, bool light)
{
    if (!t || !t->ctx || !package || store_txn_take(t, package) != 0)
        return -1;
    if (dsd_uci_stage(t->ctx, package) != 0 || finish(t, package, light) != 0) {
        DS_ERR(light ? "uci_save error" : "uci_commit error");
        roll_back(t, held(t, package));
        return -1;
    }
    note_log(t, held(t, package));
    config_note_commit(package); // announced by the action that committed
    return 0;
}

void store_txn_drop(store_txn *t)
{
    if (!t)
        return;
    for (store_txn_pkg &p : t->pkgs) {
        if (p.dirty)
            roll_back(t, &p);
    }
    t->pkgs.clear();
    pkg_unlock_to(t->mark);
}

void store_release_thread(void)
{
    pkg_unlock_to(0);
}

bool store_read_config(const std::string &confdir, const char *package, std::string *body)
{
    store_txn hold(nullptr);
    return package && store_txn_lock(&hold, {package}) == 0 &&
           read_file(confdir + "/" + package, body);
}
