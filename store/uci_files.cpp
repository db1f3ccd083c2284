#include "store/uci_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <uci.h>

#include <cerrno>
#include <cstdio>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform/paths.h"
#include "platform/safe_file.h"
#include "platform/trace.h"

namespace {

// The target's mode and owner go to the new file, so a restore or a flush
// never widens who may read a package.
bool copy_owner(int fd, const std::string &target)
{
    struct stat st;
    if (lstat(target.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return true;
    if (fchmod(fd, st.st_mode & 07777) != 0)
        return false;
    if (st.st_uid == geteuid() && st.st_gid == getegid())
        return true;
    return fchown(fd, st.st_uid, st.st_gid) == 0;
}

} // namespace

bool uci_store_name_ok(const char *name)
{
    if (!name || !*name)
        return false;
    for (const char *c = name; *c; c++) {
        bool ok = (*c >= 'a' && *c <= 'z') || (*c >= 'A' && *c <= 'Z') ||
                  (*c >= '0' && *c <= '9') || *c == '_' || *c == '-';
        if (!ok)
            return false;
    }
    return true;
}

uci_store_dirs uci_store_default(void)
{
    return {dsd_path("/etc/config"), dsd_path("/tmp/.uci")};
}

uci_store_dirs uci_store_of(const uci_context *ctx)
{
    return {ctx->confdir, ctx->savedir};
}

std::string config_path(const uci_store_dirs &d, const std::string &pkg)
{
    return d.conf + "/" + pkg;
}

std::string config_temp(const uci_store_dirs &d, const std::string &pkg)
{
    return d.conf + "/.dsd-tmp-" + pkg;
}

bool read_fd(int fd, std::string *out)
{
    out->clear();
    return lseek(fd, 0, SEEK_SET) == 0 && sf_read_all(fd, out, SIZE_MAX) == 0;
}

bool read_file(const std::string &path, std::string *out)
{
    fd_holder f{open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)};
    return f.fd >= 0 && read_fd(f.fd, out);
}

bool write_beside(const std::string &target, const std::string &tmp, const std::string &body)
{
    unlink(tmp.c_str());
    int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) {
        DS_ERR("create %s failed, errno %d", tmp.c_str(), errno);
        return false;
    }
    bool ok = copy_owner(fd, target) && sf_write_all(fd, body) == 0 && fsync(fd) == 0;
    ok = close(fd) == 0 && ok;
    if (!ok) {
        DS_ERR("write %s failed, errno %d", tmp.c_str(), errno);
        unlink(tmp.c_str());
    }
    return ok;
}

void sync_dir(const std::string &dir)
{
    fd_holder d{open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (d.fd >= 0)
        fsync(d.fd);
}

std::vector<std::string> dir_names(const std::string &dir)
{
    std::vector<std::string> names;
    std::unique_ptr<DIR, int (*)(DIR *)> d(opendir(dir.c_str()), closedir);
    if (!d)
        return names;
    while (dirent *e = readdir(d.get())) {
        struct stat st;
        if (e->d_name[0] != '.' && lstat((dir + "/" + e->d_name).c_str(), &st) == 0 &&
            S_ISREG(st.st_mode))
            names.emplace_back(e->d_name);
    }
    return names;
}

void rmdir_tree_flat(const std::string &dir)
{
    std::unique_ptr<DIR, int (*)(DIR *)> d(opendir(dir.c_str()), closedir);
    if (!d)
        return;
    while (dirent *e = readdir(d.get())) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0)
            unlinkat(dirfd(d.get()), e->d_name, 0);
    }
    d.reset();
    rmdir(dir.c_str());
}

void remove_daemon_temps(const std::string &dir)
{
    std::unique_ptr<DIR, int (*)(DIR *)> d(opendir(dir.c_str()), closedir);
    if (!d)
        return;
    while (dirent *e = readdir(d.get())) {
        if (strncmp(e->d_name, ".dsd-tmp-", 9) == 0)
            unlinkat(dirfd(d.get()), e->d_name, 0);
    }
}

int uci_export_string(uci_context *ctx, uci_package *p, std::string *out)
{
    char *buf = nullptr;
    size_t len = 0;
    FILE *f = open_memstream(&buf, &len);
    if (!f) {
        DS_ERR("open_memstream failed");
        return -1;
    }
    int rc = uci_export(ctx, f, p, false);
    fclose(f);
    std::unique_ptr<char, void (*)(void *)> hold(buf, free);
    if (rc != UCI_OK) {
        DS_ERR("uci_export error");
        return -1;
    }
    out->assign(buf ? buf : "", len);
    return 0;
}

