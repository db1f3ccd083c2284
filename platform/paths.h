// Host root for every absolute path the daemon touches.
//
// On the device DSD_ROOT is unset and every path is the one the system uses
// ("/etc/config", "/tmp/dsd_server.sock", ...). On a developer's machine
// DSD_ROOT=/some/dir makes the same binary use /some/dir/etc/config and so on,
// so it runs without root and never touches the host's /etc or /tmp.
#pragma once

#include <string>

// Returns DSD_ROOT + path for an absolute path, the path itself otherwise.
// Thread-safe; DSD_ROOT is read once per process.
std::string dsd_path(const char *path);

// The root itself ("" when unset).
const std::string &dsd_root(void);
