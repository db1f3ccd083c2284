// Restore's writer of configuration files: all packages or none.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "platform/config_events.h"
#include "platform/paths.h"
#include "store/pkg_lock.h"
#include "platform/trace.h"
#include "store/uci_cache.h"
#include "store/uci_files.h"
#include "store/uci_flush.h"

namespace {

using file_list = std::vector<std::pair<std::string, std::string>>;

void remove_temps(const uci_store_dirs &d, const file_list &files, size_t count)
{
    for (size_t i = 0; i < count; i++)
        unlink(config_temp(d, files[i].first).c_str());
}

// Locks every package in name order (so two installs cannot deadlock) and
// flushes what is staged for it: after the install the log must not replay
// older changes over the restored file.
int lock_and_flush(file_list *files)
{
    std::sort(files->begin(), files->end());
    for (const auto &f : *files) {
        if (!uci_store_name_ok(f.first.c_str())) {
            DS_ERR("package name %s refused", f.first.c_str());
            return -1;
        }
        if (pkg_lock(f.first.c_str()) != 0 || uci_flush_package(f.first.c_str()) != 0)
            return -1;
    }
    return 0;
}

// Written (and synced) once every temporary file of an install is complete:
// from then on the install must end with all packages renamed, even across a
// crash, or a kill between two renames would leave a mix of old and restored
// packages. Hidden and with a '.', so no package or backup can carry the name.
std::string install_marker(const uci_store_dirs &d)
{
    return d.conf + "/.dsd-install";
}

std::string marker_body(const file_list &files)
{
    std::string body;
    for (const auto &f : files)
        body += f.first + "\n";
    return body;
}

// Every destination is a regular file or free: a name taken by a directory,
// a link, a device or a socket would make its rename fail after others were
// done, so such an install is refused before anything is written.
bool destinations_ok(const uci_store_dirs &d, const file_list &files)
{
    for (const auto &f : files) {
        struct stat st;
        std::string path = config_path(d, f.first);
        if (lstat(path.c_str(), &st) == 0 ? !S_ISREG(st.st_mode) : errno != ENOENT) {
            DS_ERR("install %s refused: not a regular file", f.first.c_str());
            return false;
        }
    }
    return true;
}

// The copy of a package an install keeps until all renames are done. A '.'
// in the name: no package has one, so it never meets a package's temporary
// file, and the start-up clean-up of temporaries removes a stale one.
std::string config_old(const uci_store_dirs &d, const std::string &pkg)
{
    return config_temp(d, pkg) + ".old";
}

// Keeps the current file of every package as its old copy (a hard link, so
// the file itself stays in place). False when one cannot be kept.
bool keep_old(const uci_store_dirs &d, const std::vector<std::string> &names)
{
    for (const std::string &name : names) {
        unlink(config_old(d, name).c_str());
        if (link(config_path(d, name).c_str(), config_old(d, name).c_str()) != 0 && errno != ENOENT) {
            DS_ERR("keep %s failed, errno %d", name.c_str(), errno);
            return false;
        }
    }
    return true;
}

// Puts back the packages renamed so far (the first `done` names): the old
// copy over the restored file, or no file where there was none before.
void put_back(const uci_store_dirs &d, const std::vector<std::string> &names, size_t done)
{
    for (size_t i = 0; i < done; i++) {
        std::string path = config_path(d, names[i]), old = config_old(d, names[i]);
        if (access(old.c_str(), F_OK) == 0 ? rename(old.c_str(), path.c_str()) != 0 : unlink(path.c_str()) != 0)
            DS_ERR("put back %s failed, errno %d", names[i].c_str(), errno);
        uci_cache_drop(names[i].c_str());
    }
}

void drop_old(const uci_store_dirs &d, const std::vector<std::string> &names)
{
    for (const std::string &name : names)
        unlink(config_old(d, name).c_str());
}

// Renames every temporary file still present over its package. When one
// fails, the packages renamed before it are put back and the remaining
// temporaries removed: the install then changed nothing. 0 or -1.
int rename_temps(const uci_store_dirs &d, const std::vector<std::string> &names)
{
    int rc = 0;
    size_t done = 0;
    for (; done < names.size(); done++) {
        const std::string &name = names[done];
        if (access(config_temp(d, name).c_str(), F_OK) != 0)
            continue; // renamed before a crash
        if (rename(config_temp(d, name).c_str(), config_path(d, name).c_str()) != 0) {
            DS_ERR("install %s failed", name.c_str());
            rc = -1;
            break;
        }
        uci_cache_drop(name.c_str());
    }
    if (rc != 0) {
        put_back(d, names, done);
        for (const std::string &name : names)
            unlink(config_temp(d, name).c_str());
    }
    drop_old(d, names);
    sync_dir(d.conf);
    return rc;
}

} // namespace

int uci_install_packages(const file_list &in)
{
    file_list files = in;
    uci_store_dirs d = uci_store_default();
    pkg_lock_scope scope;
    if (files.empty() || lock_and_flush(&files) != 0 || !destinations_ok(d, files))
        return -1;
    for (size_t i = 0; i < files.size(); i++) {
        const auto &[name, body] = files[i];
        if (!write_beside(config_path(d, name), config_temp(d, name), body)) {
            remove_temps(d, files, i);
            return -1;
        }
    }
    if (!write_beside(install_marker(d), install_marker(d), marker_body(files))) {
        remove_temps(d, files, files.size());
        return -1;
    }
    sync_dir(d.conf);
    std::vector<std::string> names;
    for (const auto &f : files)
        names.push_back(f.first);
    if (!keep_old(d, names)) {
        drop_old(d, names);
        remove_temps(d, files, files.size());
        unlink(install_marker(d).c_str());
        return -1;
    }
    int rc = rename_temps(d, names);
    unlink(install_marker(d).c_str());
    for (size_t i = 0; rc == 0 && i < names.size(); i++)
        config_note_commit(names[i].c_str()); // a restore announces each package
    return rc;
}

void uci_install_recover(void)
{
    uci_store_dirs d = uci_store_default();
    std::string body;
    if (!read_file(install_marker(d), &body))
        return;
    std::vector<std::string> names;
    size_t start = 0;
    for (size_t end; (end = body.find('\n', start)) != std::string::npos; start = end + 1) {
        std::string name = body.substr(start, end - start);
        if (uci_store_name_ok(name.c_str()))
            names.push_back(name);
    }
    DS_INFO("finishing an interrupted restore of %zu packages", names.size());
    rename_temps(d, names);
    unlink(install_marker(d).c_str());
    sync_dir(d.conf);
}
