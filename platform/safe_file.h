// Files and directories in places other programs can write to (/tmp, a
// destination named by a request), handled so that nothing planted there
// is followed.
//
// Contract, for every function below:
// - The last component of a name is never followed: a symbolic link there is
//   treated as the link itself (removed, replaced, or refused), never as what
//   it points to. Below a trusted base directory every component is opened
//   with O_NOFOLLOW, one at a time.
// - Files are created exclusively (O_CREAT|O_EXCL|O_NOFOLLOW|O_CLOEXEC) with
//   the mode given (umask does not apply); whatever stood at the name before
//   (a link, a hard link, a stale file) is unlinked first, so data never
//   lands in someone else's inode.
// - Work is done on descriptors (openat, unlinkat, renameat, mkdirat), so a
//   name swapped after it was checked is not re-resolved.
// - Results are 0 / a descriptor, or -errno; nothing aborts or traces.
// Any thread; no shared state.
#pragma once

#include <sys/types.h>

#include <string>

// An owned descriptor, closed on every path.
struct sf_fd {
    int fd = -1;
    sf_fd() = default;
    explicit sf_fd(int f) : fd(f) {}
    sf_fd(const sf_fd &) = delete;
    sf_fd &operator=(const sf_fd &) = delete;
    sf_fd(sf_fd &&o) noexcept : fd(o.fd) { o.fd = -1; }
    sf_fd &operator=(sf_fd &&o) noexcept;
    ~sf_fd();
    bool ok() const { return fd >= 0; }
};

// Splits "/a/b/c" into "/a/b" and "c". False for an empty last component,
// "." or "..".
bool sf_split(const std::string &path, std::string *dir, std::string *name);

// Opens a directory without following its last component. fd or -errno.
int sf_open_dir(const char *path);

// Opens rel (relative, "a/b/c") below the directory dirfd one component at
// a time, refusing any link or "..". fd or -errno.
int sf_open_dir_below(int dirfd, const std::string &rel);

// Creates name in dirfd exclusively with mode, first unlinking whatever
// non-directory stood there. A writable fd, or -errno.
int sf_create_at(int dirfd, const char *name, mode_t mode);

// Opens an existing regular file for reading without following a link.
// fd, or -errno (-ELOOP for a link, -EINVAL for a non-regular file).
int sf_open_read_at(int dirfd, const char *name);

// Removes name in dirfd: a link or file itself; a directory after emptying
// it the same way (never descending through a link). Missing is success.
// 0 or -errno.
int sf_remove_at(int dirfd, const char *name);

// Removes every entry of the directory dirfd as sf_remove_at does. 0 or -errno.
int sf_empty_dir(int dirfd);

// Replaces whatever is at dir/name with a new empty directory of mode owned
// by this process and opens it. fd or -errno (-EEXIST if someone recreated
// the name in between).
int sf_fresh_dir(int dirfd, const char *name, mode_t mode);

// Writes all of data / reads to end of file. 0 or -errno.
int sf_write_all(int fd, const std::string &data);
int sf_read_all(int fd, std::string *out, size_t max);

// Resolves path (which need not exist) and checks it lies strictly inside
// allowed: realpath of allowed, realpath of path's parent, the last
// component taken literally (never "." or ".."). On success *rel is path
// relative to allowed's real path ("sub/file"). 0, -EXDEV when outside,
// or -errno.
int sf_resolve_inside(const std::string &path, const std::string &allowed, std::string *rel);

// Removes dir/name when it goes out of scope: a work file is gone on every
// path, whatever it became in between. dirfd is duplicated.
struct sf_work_file {
    sf_fd dir;
    std::string name;
    sf_work_file(int dirfd, std::string n);
    sf_work_file(const sf_work_file &) = delete;
    sf_work_file &operator=(const sf_work_file &) = delete;
    ~sf_work_file();
};
