// Per-package serialisation of the daemon's read-check-write of uci packages.
//
// A request (or the flusher) locks a package before it loads the package for
// a check and keeps the lock until after its commit, so two requests never
// interleave a check and a commit of one package whatever libuci is linked.
// Locks belong to the calling thread, are re-entrant, and are released
// together by pkg_unlock_to(). Packages differ: requests on different
// packages run in parallel.
#pragma once

#include <cstddef>

#include "store/store.h"

// Locks `package` for the calling thread (no-op when it already holds it).
// Waits without bound when the thread holds nothing, else at most
// PKG_LOCK_NESTED_WAIT_MS. 0, or -1 with a trace when the bounded wait
// expired or the name is null/empty. Any thread.
int pkg_lock(const char *package);

// Locks `package` only if that needs no wait (or the thread holds it
// already). 0, or -1 without a trace. Any thread.
int pkg_trylock(const char *package);

// True when the calling thread holds `package`.
bool pkg_lock_held(const char *package);

// Number of packages the calling thread holds; a mark for pkg_unlock_to.
size_t pkg_lock_mark(void);

// Releases every package the calling thread locked after `mark` was taken
// (0 releases all). Any thread; only its own locks.
void pkg_unlock_to(size_t mark);

// Releases, at the end of a scope, what the scope locked.
struct pkg_lock_scope {
    size_t mark = pkg_lock_mark();
    pkg_lock_scope() = default;
    pkg_lock_scope(const pkg_lock_scope &) = delete;
    pkg_lock_scope &operator=(const pkg_lock_scope &) = delete;
    ~pkg_lock_scope() { pkg_unlock_to(mark); }
};
