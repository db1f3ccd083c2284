// Loading, saving and committing packages: the config directory holds one
// file per package, the save directory one change log per package.
//
// Locking: a commit holds an exclusive flock on the config file (re-opened
// until the locked inode is the one the path names, since commits replace
// the file) and, inside it, one on the change log. Loads take both shared,
// so a reader sees the old file with its pending changes or the new file
// with an emptied log, never a mix. uci_save locks only the change log.
#include "uci_internal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct fd_closer {
    int fd = -1;
    ~fd_closer()
    {
        if (fd >= 0)
            close(fd); // also drops its flock
    }
};

std::string pkg_file(const char *dir, const char *name)
{
    return std::string(dir) + "/" + name;
}

bool read_fd(int fd, std::string &out)
{
    char buf[16384];
    for (;;) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            return true;
        out.append(buf, static_cast<size_t>(n));
    }
}

bool write_all(int fd, const std::string &data)
{
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// Opens and locks the file that `path` names at the moment the lock is held.
// Like uci, the lock is taken on the file as it was opened: a commit that
// waited while another replaced the file holds a lock on the old inode and
// works from stale content. The daemon serialises its own commits.
int open_locked(const std::string &path, int flags, int op)
{
    int fd = open(path.c_str(), flags | O_CLOEXEC, UCI_FILEMODE);
    if (fd < 0)
        return -1;
    while (flock(fd, op) < 0) {
        if (errno != EINTR) {
            close(fd);
            return -1;
        }
    }
    return fd;
}

void load_changes(uci_context *ctx, uci_package *p, int log_fd)
{
    std::string text;
    if (log_fd < 0 || !read_fd(log_fd, text))
        return;
    std::vector<uci_change> changes;
    uci_parse_changes(text, p->e.name, changes);
    (void)ctx;
    for (const auto &c : changes)
        uci_apply_change(p, c); // a change that no longer applies is dropped, as uci does
}

int parse_into(uci_context *ctx, uci_package *p, int fd)
{
    std::string text;
    if (!read_fd(fd, text))
        return UCI_ERR_IO;
    int line = 0;
    int rc = uci_parse_config(p, text, &line);
    if (rc != UCI_OK && (ctx->flags & UCI_FLAG_PERROR))
        fprintf(stderr, "uci: parse error in %s line %d\n", p->e.name, line);
    return rc;
}

bool ensure_dir(const char *dir)
{
    if (mkdir(dir, UCI_DIRMODE) == 0 || errno == EEXIST)
        return true;
    // create missing parents once (a fresh host root has no /tmp/.uci yet)
    std::string parent(dir);
    size_t slash = parent.rfind('/');
    if (slash == std::string::npos || slash == 0)
        return false;
    parent.resize(slash);
    return ensure_dir(parent.c_str()) && (mkdir(dir, UCI_DIRMODE) == 0 || errno == EEXIST);
}

// Writes the package beside its file and renames it over, so a crash leaves
// the old file or the new one, whole.
int write_atomically(uci_package *p, const std::string &path)
{
    size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return UCI_ERR_INVAL;
    std::string tmp = path.substr(0, slash + 1) + "." + path.substr(slash + 1) + ".XXXXXX";
    int fd = mkstemp(tmp.data());
    if (fd < 0)
        return UCI_ERR_IO;
    bool ok = write_all(fd, uci_export_text(p, false)) && fsync(fd) == 0;
    ok = close(fd) == 0 && ok;
    if (!ok || rename(tmp.c_str(), path.c_str()) != 0) {
        unlink(tmp.c_str());
        return UCI_ERR_IO;
    }
    std::string dir = path.substr(0, slash ? slash : 1);
    int dfd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        fsync(dfd);
        close(dfd);
    }
    return UCI_OK;
}

bool name_loaded(uci_context *ctx, const char *name)
{
    uci_element *e;
    uci_foreach_element(&ctx->root, e) {
        if (!strcmp(e->name, name))
            return true;
    }
    return false;
}

} // namespace

int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package)
{
    if (!ctx || !uci_name_valid(name, true))
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    if (name_loaded(ctx, name))
        return uci_set_error(ctx, UCI_ERR_DUPLICATE, __func__);
    std::string path = pkg_file(ctx->confdir, name);
    fd_closer cfg{open_locked(path, O_RDONLY, LOCK_SH)};
    if (cfg.fd < 0)
        return uci_set_error(ctx, errno == ENOENT ? UCI_ERR_NOTFOUND : UCI_ERR_IO, __func__);

    std::unique_ptr<uci_package, void (*)(uci_package *)> p(uci_pkg_new(ctx, name), uci_pkg_free);
    if (!p || !(p->path = strdup(path.c_str())))
        return uci_set_error(ctx, UCI_ERR_MEM, __func__);
    int rc = parse_into(ctx, p.get(), cfg.fd);
    if (rc != UCI_OK)
        return uci_set_error(ctx, rc, __func__);
    // Like uci: every directory of the delta path first (the default save
    // directory stays there after uci_set_savedir), then the save directory.
    uci_element *dir;
    uci_foreach_element(&ctx->delta_path, dir) {
        if (!dir->name || !strcmp(dir->name, ctx->savedir))
            continue;
        fd_closer extra{open(pkg_file(dir->name, name).c_str(), O_RDONLY | O_CLOEXEC)};
        if (extra.fd >= 0 && flock(extra.fd, LOCK_SH) == 0)
            load_changes(ctx, p.get(), extra.fd);
    }
    fd_closer log{open(pkg_file(ctx->savedir, name).c_str(), O_RDONLY | O_CLOEXEC)};
    if (log.fd >= 0 && flock(log.fd, LOCK_SH) == 0)
        load_changes(ctx, p.get(), log.fd);

    uci_list_add_(&ctx->root, &p->e.list);
    if (package)
        *package = p.get();
    p.release();
    return UCI_OK;
}

int uci_unload(struct uci_context *ctx, struct uci_package *p)
{
    if (!ctx || !p)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    uci_pkg_free(p);
    return UCI_OK;
}

int uci_save(struct uci_context *ctx, struct uci_package *p)
{
    if (!ctx || !p)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    // Like uci: a package that was not loaded from the config directory
    // (an import) has no change log, and saving it commits it.
    if (!p->has_delta)
        return uci_commit(ctx, &p, false);
    auto &pending = pkg_priv(p)->pending;
    if (pending.empty())
        return UCI_OK;
    if (!ensure_dir(ctx->savedir))
        return uci_set_error(ctx, UCI_ERR_IO, __func__);
    std::string text;
    for (const auto &c : pending)
        text += uci_format_change(p->e.name, c);
    fd_closer log{open(pkg_file(ctx->savedir, p->e.name).c_str(),
                       O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, UCI_FILEMODE)};
    if (log.fd < 0 || flock(log.fd, LOCK_EX) < 0)
        return uci_set_error(ctx, UCI_ERR_IO, __func__);
    // As on the device, whose library writes through stdio without checking:
    // a failed or short append (a full /tmp) still answers OK and may leave
    // a torn last record. The caller verifies what was appended.
    (void)write_all(log.fd, text);
    pending_clear(p);
    return UCI_OK;
}

// Re-reads the package under the locks, replays every saved change (this
// context's and any other's), writes the result and empties the log.
static int commit_merged(uci_context *ctx, uci_package *p, const std::string &path)
{
    fd_closer cfg{open_locked(path, O_RDWR | O_CREAT, LOCK_EX)};
    if (cfg.fd < 0)
        return UCI_ERR_IO;
    fd_closer log{open(pkg_file(ctx->savedir, p->e.name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC,
                       UCI_FILEMODE)};
    if (log.fd < 0 || flock(log.fd, LOCK_EX) < 0)
        return UCI_ERR_IO;
    uci_pkg_clear(p);
    int rc = parse_into(ctx, p, cfg.fd);
    if (rc != UCI_OK)
        return rc;
    load_changes(ctx, p, log.fd);
    // uci empties the log before the new file is in place: a crash in
    // between loses the merged changes (the daemon never relies on this).
    if (ftruncate(log.fd, 0) != 0)
        return UCI_ERR_IO;
    return write_atomically(p, path);
}

int uci_commit(struct uci_context *ctx, struct uci_package **package, bool overwrite)
{
    if (!ctx || !package || !*package)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    uci_package *p = *package;
    if (!p->path && !overwrite) // uci merges only into the file a package came from
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    std::string path = p->path ? p->path : pkg_file(ctx->confdir, p->e.name);
    if (!ensure_dir(ctx->savedir))
        return uci_set_error(ctx, UCI_ERR_IO, __func__);
    int rc;
    if (overwrite) {
        fd_closer cfg{open_locked(path, O_RDWR | O_CREAT, LOCK_EX)};
        rc = cfg.fd < 0 ? UCI_ERR_IO : write_atomically(p, path);
        if (rc == UCI_OK && truncate(pkg_file(ctx->savedir, p->e.name).c_str(), 0) != 0 &&
            errno != ENOENT)
            rc = UCI_ERR_IO;
        pending_clear(p);
    } else if (!p->has_delta) {
        // Without a change log uci writes the package as it is in memory.
        fd_closer cfg{open_locked(path, O_RDWR | O_CREAT, LOCK_EX)};
        rc = cfg.fd < 0 ? UCI_ERR_IO : write_atomically(p, path);
        pending_clear(p);
    } else {
        rc = uci_save(ctx, p);
        if (rc == UCI_OK)
            rc = commit_merged(ctx, p, path);
    }
    return rc == UCI_OK ? UCI_OK : uci_set_error(ctx, rc, __func__);
}

int uci_import(struct uci_context *ctx, FILE *stream, const char *name,
               struct uci_package **package, bool single)
{
    (void)single;
    if (!ctx || !stream || !uci_name_valid(name, true))
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    if (name_loaded(ctx, name))
        return uci_set_error(ctx, UCI_ERR_DUPLICATE, __func__);
    std::string text;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, stream)) > 0)
        text.append(buf, n);
    std::unique_ptr<uci_package, void (*)(uci_package *)> p(uci_pkg_new(ctx, name), uci_pkg_free);
    if (!p)
        return uci_set_error(ctx, UCI_ERR_MEM, __func__);
    p->has_delta = false; // only a load from the config directory has a change log
    int rc = uci_parse_config(p.get(), text, nullptr);
    if (rc != UCI_OK)
        return uci_set_error(ctx, rc, __func__);
    uci_list_add_(&ctx->root, &p->e.list);
    if (package)
        *package = p.get();
    p.release();
    return UCI_OK;
}

int uci_export(struct uci_context *ctx, FILE *stream, struct uci_package *package, bool header)
{
    if (!ctx || !stream)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    uci_element *e;
    if (package) {
        std::string text = uci_export_text(package, header);
        fwrite(text.data(), 1, text.size(), stream);
        return UCI_OK;
    }
    uci_foreach_element(&ctx->root, e) {
        std::string text = uci_export_text(uci_to_package(e), header);
        fwrite(text.data(), 1, text.size(), stream);
    }
    return UCI_OK;
}
