// Change notices for the uci directories, so that a read cache can skip
// re-checking file identities (two stat calls per package read, a tenth of a
// warm get's cost) while nothing in them has changed.
//
// The kernel queues an inotify event during the very system call that
// changes a file (write, rename, truncate, chmod, utimes), so a change that
// was finished before a request started is always queued when that request
// drains the queue. Writes through a shared mapping raise no event; uci and
// its tools never write that way.
#pragma once

#include <cstdint>

// A number that changes whenever something in the config directory or the
// change-log directory may have changed since the previous call: pending
// events are drained without blocking. When the directories cannot be
// watched (no inotify, a directory missing or replaced, a queue overflow)
// every call returns a new number, so callers re-check every time. Any
// thread; the first call sets the watches up.
uint64_t uci_watch_epoch(void);
