// Light-weight commit for packages that change often (the per-channel
// modules): the staged changes become visible to every reader at once, and
// the flash copy is rewritten only now and then.
#pragma once

struct uci_context;
struct uci_package;

enum {
    UCI_DUMMY_FLUSH_BYTES = 16384, // change log size that forces a real commit
    UCI_DUMMY_FLUSH_AGE = 60,      // seconds the flash copy may lag behind
};

// Same contract as uci_commit (context, address of the package handle,
// overwrite flag); UCI_OK or a uci error code. Saves the package's pending
// changes to the save directory, which every uci_load replays, so readers see
// them at once. The config file itself is rewritten (a real uci_commit, which
// may replace *p) only when the change log has reached UCI_DUMMY_FLUSH_BYTES
// or the file is older than UCI_DUMMY_FLUSH_AGE seconds; any ordinary commit
// of the package also writes everything staged. Caller's thread; the context
// must not be used by another thread meanwhile.
int uci_dummy_commit(uci_context *ctx, uci_package **p, bool overwrite);
