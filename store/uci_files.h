// File helpers of the uci store writers (flush, restore, start-up cleanup).
// Paths are under the daemon's configuration and save directories; nothing
// here follows a symbolic link at the last component. Any thread.
#pragma once

#include <unistd.h>

#include <string>
#include <vector>

#include "store/store.h"

struct uci_context;
struct uci_package;

// Closes its descriptor at the end of the scope.
struct fd_holder {
    int fd;
    ~fd_holder()
    {
        if (fd >= 0)
            close(fd);
    }
};

// A uci package name the store accepts for a file name: letters, digits,
// '_' and '-' only.
bool uci_store_name_ok(const char *name);

// A context's store.
uci_store_dirs uci_store_of(const uci_context *ctx);

// <conf>/<pkg> and the daemon's temporary file beside it.
std::string config_path(const uci_store_dirs &d, const std::string &pkg);
std::string config_temp(const uci_store_dirs &d, const std::string &pkg);

// The whole content of an open descriptor / of a regular file (no symlink).
bool read_fd(int fd, std::string *out);
bool read_file(const std::string &path, std::string *out);

// Creates `tmp` exclusively (a stale one is removed first), with the mode
// and owner of `target` when it exists (0644 otherwise), writes `body` and
// syncs it. False (and no `tmp` left) on any failure.
bool write_beside(const std::string &target, const std::string &tmp, const std::string &body);

// fsync of a directory, so a rename in it survives a power cut.
void sync_dir(const std::string &dir);

// Names of the regular, non-hidden files of a directory.
std::vector<std::string> dir_names(const std::string &dir);

// Removes the entries of a flat work directory, then the directory.
void rmdir_tree_flat(const std::string &dir);

// Removes the daemon's temporary files (".dsd-tmp-*") of a directory.
void remove_daemon_temps(const std::string &dir);

// The package as uci writes it on commit. 0, or -1 with a trace.
int uci_export_string(uci_context *ctx, uci_package *p, std::string *out);

