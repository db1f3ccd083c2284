// Read cache of parsed uci packages, shared by the workers.
//
// Readers (the get method and the set pipeline's diff) take a snapshot of a
// package: an immutable copy of its sections as uci would load them now
// (config file with the change log replayed). A snapshot stays valid while
// the package's write generation is unchanged and the identity of the config
// file and of its change log (device, inode, size, modification and change
// times in nanoseconds) is the one it was read under. Every write this
// process makes to a package must be followed by uci_cache_drop (or, for a
// set staged alone, uci_cache_patch) before the writing request answers;
// writers outside the process (the uci command line, an editor) are seen
// through the file identity. Requests still stage their own changes through
// their own uci context: a snapshot is never written, only replaced.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <string>

#include "store/store.h"

enum {
    UCI_CACHE_FRESH_MS = 30, // younger files are cached only when this process wrote them
};

// A snapshot of `package` loaded privately on `dirs` (never kept), or null.
uci_snapshot_ref uci_snapshot_load_at(const uci_store_dirs &dirs, const char *package);

// Forgets `package` and makes every snapshot read before the call stale.
// Call after each write this process made to the package's config file or
// change log (staging, commit, light commit and its flush, restore), from the
// writing thread, before the request that wrote answers.
void uci_cache_drop(const char *package);

// Drops `package` when the scope that writes it ends, on every path:
// declare it first thing in a function that stages or commits.
struct uci_cache_drop_guard {
    const char *package;
    ~uci_cache_drop_guard() { uci_cache_drop(package); }
};

// Identity of one file as the cache compares it.
struct uci_file_stamp {
    bool present;
    dev_t dev;
    ino_t ino;
    off_t size;
    timespec mtime, ctime;
};

// What a set that stages one section against the cached snapshot holds:
// the snapshot, its write generation and the files' identity before the save.
struct uci_cache_ticket {
    uci_snapshot_ref snap;
    uint64_t gen;
    uci_file_stamp conf, log;
};

// Fills *t with the current snapshot of `package` (never read on a miss)
// and the identity its files have now; false when none is current. The
// caller holds the package's lock until uci_cache_patch. Any thread.
bool uci_cache_ticket_take(const char *package, uci_cache_ticket *t);

// `section` of the snapshot in uci's config syntax (one config block, every
// value quoted), for importing that section alone into a request's context.
// False when the section is absent or any name is not a plain uci name or a
// value holds a line break (a replay of such a text could differ). Any thread.
bool uci_snapshot_section_config(const uci_snapshot &snap, const char *section, std::string *text);

// After a save that appended `tail` (change lines for section `s` alone) to
// `package`'s change log: installs the ticket's snapshot with `s` replaced
// by its staged form when the config file kept its identity and the log grew
// by exactly `tail`, byte for byte, and nothing else changed the package
// since the ticket was taken; drops the package otherwise, as uci_cache_drop.
// `s` is only read. Writing thread, holding the package's lock.
void uci_cache_patch(const uci_cache_ticket &t, const char *package, const uci_section *s,
                     const std::string &tail);
