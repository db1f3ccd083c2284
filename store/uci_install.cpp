// Restore's writer of configuration files: all packages or none.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

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

// Renames every temporary file still present over its package; -1 when one
// fails (the temporary is removed, the others still go in place).
int rename_temps(const uci_store_dirs &d, const std::vector<std::string> &names)
{
    int rc = 0;
    for (const std::string &name : names) {
        if (access(config_temp(d, name).c_str(), F_OK) != 0)
            continue; // renamed before a crash
        if (rename(config_temp(d, name).c_str(), config_path(d, name).c_str()) != 0) {
            DS_ERR("install %s failed", name.c_str());
            unlink(config_temp(d, name).c_str());
            rc = -1;
        }
        uci_cache_drop(name.c_str());
    }
    sync_dir(d.conf);
    return rc;
}

} // namespace

int uci_install_packages(const file_list &in)
{
    file_list files = in;
    uci_store_dirs d = uci_store_default();
    pkg_lock_scope scope;
    if (files.empty() || lock_and_flush(&files) != 0)
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
    int rc = rename_temps(d, names);
    unlink(install_marker(d).c_str());
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
