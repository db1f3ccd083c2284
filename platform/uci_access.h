// uci access layer: one lookup and one change per call, staged with uci_save
// until commit_package / dummy_commit_package.
//
// The layer keeps no state; the caller passes a uci context that only its
// thread uses (a request's own, or a private one). JSON results are new
// references the caller releases. A section's JSON form is an object with
// ".name", ".type", then one member per option in uci's order (string, or
// array of strings for a list).
#pragma once

#include <string>

struct uci_context;
struct uci_package;
struct uci_section;
struct json_object;

// A uci context with the configuration and save directories of this process
// (the system's, or under DSD_ROOT on a host). Null on failure; free with
// uci_free_context.
uci_context *dsd_uci_alloc(void);

// A context on the given directories (the flush uses a private save
// directory). Every other directory on the library's delta search path is
// replaced, so only `savedir`'s change files are replayed. Null on failure.
uci_context *dsd_uci_alloc_at(const char *confdir, const char *savedir);

// uci_save that never leaves a torn record: a torn last line already in the
// log is cut first, and a failed append brings the log back to its previous
// content. 0, or -1 with a trace. The caller holds the package's lock.
int dsd_uci_save(uci_context *ctx, uci_package *p);

// Drops the context's copy of `package`, if loaded, so the next lookup reads
// the file and the change log afresh (after taking the package's lock).
void dsd_uci_unload(uci_context *ctx, const char *package);

// A name uci accepts on load and writes without quotes (section, type,
// option): letters, digits and '_'.
bool uci_section_name_ok(const char *name);
// Appends `value` as uci writes it in config and change-log text: single
// quotes, a quote inside as '\''. Any thread.
void uci_append_quoted(std::string *out, const char *value);

json_object *get_uci_section(uci_context *ctx, const char *package, const char *section);
json_object *single_section(uci_section *s);
json_object *get_uci_section_type(uci_context *ctx, const char *package, const char *type);
json_object *get_uci_package(uci_context *ctx, const char *package);
json_object *get_sec_names_by_type(uci_context *ctx, const char *package, const char *type);
json_object *get_uci_option(uci_context *ctx, const char *package, const char *section,
                            const char *option);
int set_uci_section(uci_context *ctx, const char *package, const char *section, json_object *obj);
int do_delete_single_section(uci_context *ctx, const char *package, const char *section);
int delete_section(uci_context *ctx, const char *package, const char *section);
int delete_section_type(uci_context *ctx, const char *package, const char *type);
int add_new_section(uci_context *ctx, const char *package, const char *type, const char *name);
int rename_section(uci_context *ctx, const char *package, const char *section, const char *new_name);
int section_exist(uci_context *ctx, const char *package, const char *section);
int get_sec_type_num(uci_context *ctx, const char *package, const char *type);
int get_free_section_index(uci_context *ctx, const char *package, const char *type);
// Borrowed from uci: valid until the context changes the package.
const char *get_opt_value(uci_context *ctx, const char *package, const char *section,
                          const char *option);
int get_opt_int_value(uci_context *ctx, const char *package, const char *section,
                      const char *option);
// Uses a private context; the caller frees the copy. Any thread.
char *get_opt_value_dup(const char *package, const char *section, const char *option);
int set_opt_value(uci_context *ctx, const char *package, const char *section,
                  const char *option, const char *value);
int delete_opt_value(uci_context *ctx, const char *package, const char *section,
                     const char *option, const char *value);
// Every writer here locks the package for the calling thread (pkg_lock.h)
// for its own duration, or keeps the lock a caller already holds (the set
// pipeline holds its packages from before its diff until after its commit).

// Stages the context's changes and merges the change log into the file
// (uci_flush_package). 0 or -1.
int commit_package(uci_context *ctx, const char *package);
// Stages the context's changes (visible to every reader at once) and leaves
// the file to the background flusher, which writes it within
// 2 * UCI_FLUSH_WINDOW_S seconds. 0 or -1.
int dummy_commit_package(uci_context *ctx, const char *package);
