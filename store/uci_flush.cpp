// Order of a flush of package P (holding P's lock):
//   1. the complete lines of <savedir>/P are copied to the work file
//      <savedir>/.dsd-flush-work/P, and a private context (save directory =
//      that work directory, no other delta path) loads the configuration file
//      with exactly those lines replayed;
//   2. the result is exported to <confdir>/.dsd-tmp-P and synced;
//   3. the work file is renamed to the journal <savedir>/.dsd-flush/P;
//   4. the temporary file is renamed over <confdir>/P, the directory synced;
//   5. the journalled prefix is cut from the change log;
//   6. the journal is removed.
// A crash before 3 leaves the old file and the whole log. With a journal and
// the temporary file still present, 4 did not happen: both are dropped. With
// a journal and no temporary file, 4 happened: the log loses the journalled
// prefix if it still starts with it. So a list append is never replayed over
// a file that already holds it, and no answered change is dropped.
#include "store/uci_flush.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <uci.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "platform/paths.h"
#include "platform/stats.h"
#include "store/pkg_lock.h"
#include "platform/trace.h"
#include "store/uci_access.h"
#include "store/uci_cache.h"
#include "store/uci_files.h"

namespace {

using dirs_t = uci_store_dirs;

std::string work_dir(const dirs_t &d) { return d.save + "/.dsd-flush-work"; }
std::string journal_dir(const dirs_t &d) { return d.save + "/.dsd-flush"; }
std::string log_path(const dirs_t &d, const std::string &pkg) { return d.save + "/" + pkg; }

using ctx_ptr = std::unique_ptr<uci_context, void (*)(uci_context *)>;

// The merged package exported to the temporary file beside the target.
int export_merged(const dirs_t &d, const std::string &pkg, const std::string &tmp)
{
    std::string work = work_dir(d);
    ctx_ptr ctx(dsd_uci_alloc_at(d.conf.c_str(), work.c_str()), uci_free_context);
    if (!ctx) {
        DS_ERR("uci context for %s failed", pkg.c_str());
        return -1;
    }
    uci_package *p = nullptr;
    if (uci_load(ctx.get(), pkg.c_str(), &p) != UCI_OK || !p) {
        DS_ERR("load %s for flush failed", pkg.c_str());
        return -1;
    }
    std::string body;
    if (uci_export_string(ctx.get(), p, &body) != 0)
        return -1;
    return write_beside(config_path(d, pkg), tmp, body) ? 0 : -1;
}

// Step 5: the log without the journalled prefix, if it still starts with it.
int cut_log_prefix(const dirs_t &d, const std::string &pkg, const std::string &prefix)
{
    std::string path = log_path(d, pkg);
    fd_holder log{open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW)};
    if (log.fd < 0)
        return errno == ENOENT ? 0 : -1;
    if (flock(log.fd, LOCK_EX) != 0)
        return -1;
    std::string text;
    if (!read_fd(log.fd, &text))
        return -1;
    if (text.compare(0, prefix.size(), prefix) != 0)
        return 0; // cut already
    std::string rest = text.substr(prefix.size());
    if (rest.empty())
        return ftruncate(log.fd, 0) == 0 ? 0 : -1;
    std::string tmp = d.save + "/.dsd-tmp-" + pkg;
    return write_beside(path, tmp, rest) && rename(tmp.c_str(), path.c_str()) == 0 ? 0 : -1;
}

// Finishes or undoes an interrupted flush of `pkg` (see the top of the file).
void recover_one(const dirs_t &d, const std::string &pkg)
{
    std::string journal = journal_dir(d) + "/" + pkg, tmp = config_temp(d, pkg);
    unlink((work_dir(d) + "/" + pkg).c_str());
    std::string prefix;
    bool journalled = read_file(journal, &prefix);
    if (journalled && access(tmp.c_str(), F_OK) != 0 && cut_log_prefix(d, pkg, prefix) != 0) {
        DS_ERR("cut change log of %s failed", pkg.c_str());
        return; // keep the journal: the next flush tries again
    }
    unlink(tmp.c_str());
    unlink(journal.c_str());
}

// Steps 1 to 6 for a package whose lock the caller holds.
int flush_locked(const dirs_t &d, const std::string &pkg)
{
    int64_t started_ns = stats_now_ns();
    recover_one(d, pkg);
    std::string text;
    if (!read_file(log_path(d, pkg), &text))
        return 0; // no log: nothing staged
    std::string prefix = text.substr(0, text.rfind('\n') + 1);
    if (prefix.empty())
        return 0;
    std::string work = work_dir(d) + "/" + pkg, journal = journal_dir(d) + "/" + pkg;
    std::string tmp = config_temp(d, pkg);
    mkdir(work_dir(d).c_str(), 0700);
    mkdir(journal_dir(d).c_str(), 0700);
    if (!write_beside(log_path(d, pkg), work, prefix) || export_merged(d, pkg, tmp) != 0) {
        unlink(work.c_str());
        unlink(tmp.c_str());
        return -1;
    }
    if (rename(work.c_str(), journal.c_str()) != 0 ||
        rename(tmp.c_str(), config_path(d, pkg).c_str()) != 0) {
        DS_ERR("rename flushed %s failed", pkg.c_str());
        recover_one(d, pkg);
        return -1;
    }
    sync_dir(d.conf);
    uci_cache_drop(pkg.c_str());
    recover_one(d, pkg);
    stats_count(STATS_FLUSHES);
    stats_gauge_set(STATS_FLUSH_LAST_NS, stats_now_ns() - started_ns);
    return 0;
}

// Packages with light-committed changes not yet flushed, and the flusher.
std::mutex g_marked_lock;
std::condition_variable g_wake;
std::set<std::string> g_marked;
bool g_stop = false;
std::thread g_flusher;

std::set<std::string> take_marked(void)
{
    std::lock_guard<std::mutex> hold(g_marked_lock);
    std::set<std::string> out;
    out.swap(g_marked);
    stats_gauge_set(STATS_FLUSH_PENDING, 0);
    stats_gauge_set(STATS_FLUSH_OLDEST_NS, 0);
    return out;
}

void flusher_main(void)
{
    std::unique_lock<std::mutex> hold(g_marked_lock);
    while (!g_stop) {
        g_wake.wait_for(hold, std::chrono::seconds(UCI_FLUSH_WINDOW_S), [] { return g_stop; });
        hold.unlock();
        uci_flush_all();
        hold.lock();
    }
}

} // namespace

int uci_flush_package(const char *package)
{
    return uci_flush_package_at(uci_store_default(), package);
}

int uci_flush_package_at(const uci_store_dirs &dirs, const char *package)
{
    if (!package || !uci_store_name_ok(package)) {
        DS_ERR("Invalid params.");
        return -1;
    }
    pkg_lock_scope scope;
    if (pkg_lock(package) != 0)
        return -1;
    if (flush_locked(dirs, package) != 0) {
        DS_ERR("flush %s failed", package);
        return -1;
    }
    return 0;
}

void uci_flush_mark(const char *package)
{
    if (!package)
        return;
    std::lock_guard<std::mutex> hold(g_marked_lock);
    if (g_marked.empty())
        stats_gauge_set(STATS_FLUSH_OLDEST_NS, stats_now_ns());
    stats_gauge_add(STATS_FLUSH_PENDING, 1);
    g_marked.insert(package);
}

int uci_flush_all(void)
{
    int rc = 0;
    for (const std::string &pkg : take_marked()) {
        if (uci_flush_package(pkg.c_str()) != 0) {
            uci_flush_mark(pkg.c_str());
            rc = -1;
        }
    }
    return rc;
}

int uci_flusher_start(void)
{
    try {
        g_flusher = std::thread(flusher_main);
    } catch (const std::exception &) {
        DS_ERR("start flusher failed");
        return -1;
    }
    return 0;
}

void uci_flusher_stop(void)
{
    if (!g_flusher.joinable())
        return;
    {
        std::lock_guard<std::mutex> hold(g_marked_lock);
        g_stop = true;
    }
    g_wake.notify_all();
    g_flusher.join();
    uci_flush_all();
}

// Notes every package with a non-empty change log and a configuration file.
static void mark_logged(void)
{
    dirs_t d = uci_store_default();
    for (const std::string &pkg : dir_names(d.save)) {
        struct stat st;
        if (lstat(log_path(d, pkg).c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0 &&
            access(config_path(d, pkg).c_str(), F_OK) == 0)
            uci_flush_mark(pkg.c_str());
    }
}

int uci_flush_logged(void)
{
    mark_logged();
    return uci_flush_all();
}

void uci_store_recover(void)
{
    uci_install_recover();
    dirs_t d = uci_store_default();
    for (const std::string &pkg : dir_names(journal_dir(d)))
        recover_one(d, pkg);
    rmdir_tree_flat(work_dir(d));
    remove_daemon_temps(d.conf);
    remove_daemon_temps(d.save);
    // Backup and restore work files: plain configuration text a kill left.
    rmdir_tree_flat(dsd_path("/tmp/restore"));
    unlink(dsd_path("/tmp/decrypt_conf").c_str());
    unlink(dsd_path("/tmp/conf_package_md5").c_str());
    mark_logged();
}
