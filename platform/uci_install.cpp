// Restore's writer of configuration files: all packages or none.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "platform/paths.h"
#include "platform/pkg_lock.h"
#include "platform/trace.h"
#include "platform/uci_cache.h"
#include "platform/uci_files.h"
#include "platform/uci_flush.h"

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
    int rc = 0;
    for (const auto &f : files) {
        if (rename(config_temp(d, f.first).c_str(), config_path(d, f.first).c_str()) != 0) {
            DS_ERR("install %s failed", f.first.c_str());
            unlink(config_temp(d, f.first).c_str());
            rc = -1;
        }
        uci_cache_drop(f.first.c_str());
    }
    sync_dir(d.conf);
    return rc;
}
