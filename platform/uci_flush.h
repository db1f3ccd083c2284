// Crash-safe merging of a package's change log into its configuration file,
// and the background flusher of the light commit.
//
// Every write the daemon makes to a configuration file goes through
// uci_flush_package (the ordinary commit and the flusher) or
// uci_install_packages (restore); a read cache hooks there.
#pragma once

#include <string>
#include <utility>
#include <vector>

enum {
    // A light-committed change reaches the configuration file within two
    // windows at most (one to be noticed, one rewrite); a package is
    // rewritten at most once per window by the flusher.
    UCI_FLUSH_WINDOW_S = 5,
};

// Merges the complete lines of `package`'s change log into its file: the
// merged package is written to a temporary file beside it, synced, renamed
// over it, and only then is exactly that prefix removed from the log. A
// journal of the prefix lets uci_store_recover finish or undo a flush cut
// short at any instant, so no answered change is lost or applied twice.
// Locks the package (the caller may hold it already). 0, or -1 with a trace.
// Any thread.
int uci_flush_package(const char *package);

struct uci_store_dirs;
// The same in another store (a context's directories: uci_store_of).
int uci_flush_package_at(const uci_store_dirs &dirs, const char *package);

// Notes that `package` has light-committed changes for the flusher. Any thread.
void uci_flush_mark(const char *package);

// Flushes every noted package now (before a backup, a restore, a reboot,
// a reset or an upgrade, and on SIGTERM). 0, or -1 when one failed (the
// others are still flushed and the failed one stays noted). Any thread that
// holds no package lock.
int uci_flush_all(void);

// Flushes every package whose change log holds anything (staged by this
// daemon or by another uci client): what a backup, a reboot, a reset or an
// upgrade must not miss. Same result and threads as uci_flush_all.
int uci_flush_logged(void);

// Starts the background flusher thread (one rewrite per package per
// UCI_FLUSH_WINDOW_S at most). 0 or -1. Main thread, once.
int uci_flusher_start(void);

// Stops the flusher thread after a last flush of everything noted. Main thread.
void uci_flusher_stop(void);

// Start-up: finishes or undoes flushes a crash interrupted (from their
// journals), removes the daemon's temporary files from the configuration and
// save directories and the backup/restore work files of /tmp, and notes every package with a non-empty change log so
// the flusher writes it. Before the first request; main thread.
void uci_store_recover(void);

// Replaces the named packages all or nothing: every package is written to a
// temporary file beside its target first (created exclusively, no symlink
// followed, the existing file's mode and owner kept, synced); only when all
// are written are they renamed into place. On any failure before the renames
// the configuration directory is left byte-identical, without temporaries.
// Locks every package (in name order) and flushes its change log first, so a
// commit never reapplies an older read over the restored file. 0 or -1.
// Worker thread holding no package lock.
int uci_install_packages(const std::vector<std::pair<std::string, std::string>> &files);

// Start-up, before uci_store_recover removes temporaries: an install that
// had written all its temporary files (its marker is on disk) is finished
// by renaming the rest into place, so a crash never leaves a mix of old and
// restored packages. Main thread, before the first request.
void uci_install_recover(void);
