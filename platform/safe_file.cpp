#include "platform/safe_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

// A planted tree must not make the removal recurse without end.
enum { MAX_DEPTH = 16 };

struct dir_closer {
    void operator()(DIR *d) const { closedir(d); }
};

int neg_errno(void)
{
    return errno ? -errno : -EIO;
}

int remove_at(int dirfd, const char *name, int depth);

int empty_dir(int dirfd, int depth)
{
    if (depth > MAX_DEPTH)
        return -ELOOP;
    int own = dup(dirfd);
    if (own < 0)
        return neg_errno();
    std::unique_ptr<DIR, dir_closer> d(fdopendir(own));
    if (!d) {
        int rc = neg_errno();
        close(own);
        return rc;
    }
    rewinddir(d.get());
    std::vector<std::string> names;
    while (dirent *e = readdir(d.get())) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0)
            names.emplace_back(e->d_name);
    }
    int rc = 0;
    for (const std::string &n : names) {
        int r = remove_at(dirfd, n.c_str(), depth);
        if (r != 0)
            rc = r;
    }
    return rc;
}

int remove_at(int dirfd, const char *name, int depth)
{
    if (unlinkat(dirfd, name, 0) == 0 || errno == ENOENT)
        return 0;
    if (errno != EISDIR && errno != EPERM)
        return neg_errno();
    sf_fd sub(openat(dirfd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!sub.ok())
        return errno == ENOENT ? 0 : neg_errno();
    int rc = empty_dir(sub.fd, depth + 1);
    if (rc != 0)
        return rc;
    return unlinkat(dirfd, name, AT_REMOVEDIR) == 0 || errno == ENOENT ? 0 : neg_errno();
}

bool is_dot_name(const std::string &n)
{
    return n.empty() || n == "." || n == "..";
}

} // namespace

sf_fd &sf_fd::operator=(sf_fd &&o) noexcept
{
    if (this != &o) {
        if (fd >= 0)
            close(fd);
        fd = o.fd;
        o.fd = -1;
    }
    return *this;
}

sf_fd::~sf_fd()
{
    if (fd >= 0)
        close(fd);
}

bool sf_split(const std::string &path, std::string *dir, std::string *name)
{
    size_t slash = path.rfind('/');
    std::string n = slash == std::string::npos ? path : path.substr(slash + 1);
    if (is_dot_name(n))
        return false;
    *name = n;
    *dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    return true;
}

int sf_open_dir(const char *path)
{
    int fd = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    return fd >= 0 ? fd : neg_errno();
}

int sf_open_dir_below(int dirfd, const std::string &rel)
{
    sf_fd cur(dup(dirfd));
    if (!cur.ok())
        return neg_errno();
    size_t pos = 0;
    while (pos < rel.size()) {
        size_t end = rel.find('/', pos);
        std::string part = rel.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
        pos = end == std::string::npos ? rel.size() : end + 1;
        if (part.empty() || part == ".")
            continue;
        if (part == "..")
            return -EXDEV;
        sf_fd next(openat(cur.fd, part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!next.ok())
            return neg_errno();
        cur = std::move(next);
    }
    int fd = cur.fd;
    cur.fd = -1;
    return fd;
}

int sf_create_at(int dirfd, const char *name, mode_t mode)
{
    if (unlinkat(dirfd, name, 0) != 0 && errno != ENOENT)
        return neg_errno();
    int fd = openat(dirfd, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd < 0)
        return neg_errno();
    if (fchmod(fd, mode) != 0) {
        int rc = neg_errno();
        close(fd);
        unlinkat(dirfd, name, 0);
        return rc;
    }
    return fd;
}

int sf_open_read_at(int dirfd, const char *name)
{
    sf_fd f(openat(dirfd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!f.ok())
        return neg_errno();
    struct stat st;
    if (fstat(f.fd, &st) != 0)
        return neg_errno();
    if (!S_ISREG(st.st_mode))
        return -EINVAL;
    int fd = f.fd;
    f.fd = -1;
    return fd;
}

int sf_remove_at(int dirfd, const char *name)
{
    return remove_at(dirfd, name, 0);
}

int sf_empty_dir(int dirfd)
{
    return empty_dir(dirfd, 0);
}

int sf_fresh_dir(int dirfd, const char *name, mode_t mode)
{
    int rc = sf_remove_at(dirfd, name);
    if (rc != 0)
        return rc;
    if (mkdirat(dirfd, name, mode) != 0)
        return neg_errno();
    sf_fd d(openat(dirfd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st;
    if (!d.ok() || fstat(d.fd, &st) != 0)
        return neg_errno();
    if (st.st_uid != geteuid())
        return -EPERM;
    if (fchmod(d.fd, mode) != 0)
        return neg_errno();
    int fd = d.fd;
    d.fd = -1;
    return fd;
}

int sf_write_all(int fd, const std::string &data)
{
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return n < 0 ? neg_errno() : -EIO;
        done += static_cast<size_t>(n);
    }
    return 0;
}

int sf_read_all(int fd, std::string *out, size_t max)
{
    char buf[4096];
    out->clear();
    for (;;) {
        ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return neg_errno();
        if (n == 0)
            return 0;
        if (out->size() + static_cast<size_t>(n) > max)
            return -EFBIG;
        out->append(buf, static_cast<size_t>(n));
    }
}

int sf_resolve_inside(const std::string &path, const std::string &allowed, std::string *rel)
{
    std::string dir, name;
    if (!sf_split(path, &dir, &name))
        return -EINVAL;
    std::unique_ptr<char, decltype(&free)> base(realpath(allowed.c_str(), nullptr), free);
    std::unique_ptr<char, decltype(&free)> parent(realpath(dir.c_str(), nullptr), free);
    if (!base || !parent)
        return neg_errno();
    std::string b = base.get(), p = parent.get();
    if (p == b) {
        *rel = name;
        return 0;
    }
    std::string prefix = b == "/" ? b : b + "/";
    if (p.compare(0, prefix.size(), prefix) != 0)
        return -EXDEV;
    *rel = p.substr(prefix.size()) + "/" + name;
    return 0;
}

sf_work_file::sf_work_file(int dirfd, std::string n) : dir(dup(dirfd)), name(std::move(n)) {}

sf_work_file::~sf_work_file()
{
    if (dir.ok())
        sf_remove_at(dir.fd, name.c_str());
}
