// The access layer's private side: checked saves and the context helpers
// the transaction and the cache share. The public readers and writers are
// declared in store/store.h.
#pragma once

#include <string>

#include "store/store.h"

struct uci_package;

// uci_save whose append is checked: a torn last line already in the log is
// cut first; the context's pending changes, as the library writes them, must
// then be in the log whole, else it is cut back to its previous length. 0, or -1 with a
// trace. The caller holds the package.
int dsd_uci_save(uci_context *ctx, uci_package *p);

// Saves the context's pending changes of `package` (checked as
// dsd_uci_save). 0, or -1 when the package cannot be looked up or the save
// failed. The caller holds the package.
int dsd_uci_stage(uci_context *ctx, const char *package);

// Drops the context's copy of `package`, if loaded.
void dsd_uci_unload(uci_context *ctx, const char *package);

// The same, unless the copy holds changes not saved yet (a caller that
// edits the context directly and commits through a transaction).
void dsd_uci_forget(uci_context *ctx, const char *package);

// Appends `value` as uci writes it in config and change-log text: single
// quotes, a quote inside as '\''. Any thread.
void uci_append_quoted(std::string *out, const char *value);

// One section of a live package in its JSON form; null for null.
json_object *single_section(uci_section *s);
