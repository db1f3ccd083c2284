// Light-weight commit for packages that change often (the per-channel
// modules): the staged changes become visible to every reader at once, and
// the flash copy is rewritten only now and then.
#pragma once

struct uci_context;
struct uci_package;

// Same contract as uci_commit (context, address of the package handle,
// overwrite flag, which is ignored); UCI_OK or a uci error code. Saves the
// package's pending changes to the save directory, which every uci_load
// replays, so readers see them at once. The configuration file itself is
// rewritten by the daemon's flusher (uci_flush.h), never here: the library's
// merging commit empties the change log before the new file is in place, so
// a crash in between would lose answered changes. Caller's thread; the
// context must not be used by another thread meanwhile.
int uci_dummy_commit(uci_context *ctx, uci_package **p, bool overwrite);
