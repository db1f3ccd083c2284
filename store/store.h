// The uci store: the daemon's one way into its configuration (uci packages
// under /etc/config, changes staged in /tmp/.uci). Everything else in store/
// is private to it; code above includes this header only.
//
// Reads go through a view: an immutable snapshot of a package as uci would
// load it now (config file with its change log replayed), served from a
// cache shared by the workers, or parsed privately when the cache cannot
// serve. Writes go through a transaction (store_txn): it holds its packages
// for its lifetime, stages edits, and then commits each package (ordinary or
// light) or is dropped; a package dropped or whose commit failed is left as
// it was, file and change log byte for byte.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

struct json_object;
struct uci_context;
struct uci_section;
struct uci_snapshot;

// ---------------------------------------------------------------------------
// Names: a read-mostly index of NUL-terminated names to small integers (open
// addressing in one array, so a look-up touches one or two cache lines). A
// caller that looks one name up in several indexes (model rows, then a
// package's sections) hashes it once (name_key) and probes each with the key.

struct name_key {
    const char *name;
    size_t len;
    uint64_t hash;
};

struct name_index {
    struct slot {
        const char *name; // null: empty slot; the caller keeps the text alive
        uint32_t hash;    // low half of the key's hash
        uint32_t value;
    };
    std::vector<slot> slots; // a power of two, at most two thirds full
    size_t count = 0;
};

// The key of a NUL-terminated name. Any thread.
name_key name_key_of(const char *name);

// Makes room for `names` entries and empties the index. Building thread only.
void name_index_reset(name_index *idx, size_t names);

// Adds `name` with `value` unless the name is there already (the first one
// stays, as a front-to-back walk would find it). `name` must outlive the
// index. False when the index is full. Building thread only.
bool name_index_add(name_index *idx, const char *name, uint32_t value);

// The value of the key's name in *value; false when absent. Any thread,
// once the index is built.
bool name_index_find_key(const name_index &idx, const name_key &key, uint32_t *value);
bool name_index_find(const name_index &idx, const char *name, uint32_t *value);

// ---------------------------------------------------------------------------
// Contexts and directories.

// A store: its configuration and save directories.
struct uci_store_dirs {
    std::string conf, save;
};

// The daemon's store (the system's, or under DSD_ROOT on a host).
uci_store_dirs uci_store_default(void);

// A uci context on the daemon's store, after checking that its save
// directory is a real one of ours. Each request owns one (ds_context's
// uci_ctx); a transaction stages through it. Null on failure; free with
// uci_free_context.
uci_context *dsd_uci_alloc(void);

// A context on other directories (tests, tools, the flush's private one):
// only `savedir`'s change files are replayed. Null on failure.
uci_context *dsd_uci_alloc_at(const char *confdir, const char *savedir);

// A name uci accepts on load and writes without quotes (section, type,
// option): letters, digits and '_'.
bool uci_section_name_ok(const char *name);

// ---------------------------------------------------------------------------
// Views.

enum {
    UCI_CACHE_BYTES = 1536 * 1024, // all cached snapshots together
};

using uci_snapshot_ref = std::shared_ptr<const uci_snapshot>;

// The cached snapshot of `package` (read and kept on a miss). Null when the
// cache cannot serve (DSD_UCI_CACHE=0 at the first call, a package that
// cannot be loaded, the bounded wait for its lock expired while the thread
// holds another): the caller then reads another way. Any thread.
uci_snapshot_ref uci_cache_open(const char *package);

// A view of `package` as `ctx` would load it now: the cached snapshot when
// `ctx` is on the daemon's store (or null), else (or when the cache cannot
// serve) a private parse on `ctx`'s directories, never kept. Null, with a
// trace, only when the package cannot be loaded. Sees every change staged
// before the call, the calling transaction's included. Any thread.
uci_snapshot_ref store_view(uci_context *ctx, const char *package);

// One section's JSON form (".name", ".type", options in uci's order, a list
// as an array of strings), a new object; null with "uci cannot found."
// traced when the package has no such section. Any thread.
json_object *uci_snapshot_section(const uci_snapshot &snap, const char *section);

// The same section for a response that is only serialised: a string object
// whose serialiser writes the stored JSON text unquoted (not for a response
// that is walked or re-coded). New object or null. Any thread.
json_object *uci_snapshot_section_text(const uci_snapshot &snap, const char *section);

// One section's stored text and its position among the snapshot's sections.
struct uci_section_text {
    size_t index;
    const char *text; // lives as long as the snapshot
    size_t len;
};

// Finds `section`; false, with nothing traced, when absent. Any thread.
bool uci_snapshot_find_text(const uci_snapshot &snap, const name_key &section, uci_section_text *out);

// How many sections the snapshot holds. Any thread.
size_t uci_snapshot_section_count(const uci_snapshot &snap);

// Every section of `type`: an array of one-member objects {name: section}
// in uci's order (empty when there is none). Any thread.
json_object *uci_snapshot_section_type(const uci_snapshot &snap, const char *type);

// A string option's value, living as long as the snapshot; null when the
// section or option is absent or the option is a list. Any thread.
const char *store_view_option(const uci_snapshot &snap, const char *section, const char *option);

// Whether the snapshot holds `section`. Any thread.
bool store_view_has(const uci_snapshot &snap, const char *section);

// Names of the sections of `type` in uci's order (a new array). Any thread.
json_object *store_view_type_names(const uci_snapshot &snap, const char *type);

// The whole package keyed by section name (a new object). Any thread.
json_object *store_view_package(const uci_snapshot &snap);

// The sections of `package` named by the keys of `wanted` (a JSON object),
// keyed by name as store_view_package forms them; for the set pipeline's
// diff. New object or null. The caller's thread owns `ctx`.
json_object *uci_cache_package_part(uci_context *ctx, const char *package, json_object *wanted);

// Bytes held by cached snapshots now (tests and the benchmark).
size_t uci_cache_bytes(void);

// Readers over a context (each is one view of the package; see store_view).
json_object *get_uci_section(uci_context *ctx, const char *package, const char *section);
json_object *get_uci_section_type(uci_context *ctx, const char *package, const char *type);
json_object *get_uci_package(uci_context *ctx, const char *package);
json_object *get_sec_names_by_type(uci_context *ctx, const char *package, const char *type);
json_object *get_uci_option(uci_context *ctx, const char *package, const char *section,
                            const char *option);
int section_exist(uci_context *ctx, const char *package, const char *section);
int get_sec_type_num(uci_context *ctx, const char *package, const char *type);
int get_free_section_index(uci_context *ctx, const char *package, const char *type);
// A string option as std::string; false when absent (or a list).
bool get_opt_text(uci_context *ctx, const char *package, const char *section, const char *option,
                  std::string *out);
// The option as a non-negative integer ("+12" is 12); -1 when absent or not one.
int get_opt_int_value(uci_context *ctx, const char *package, const char *section,
                      const char *option);
// A copy of a string option read on the daemon's store; the caller frees it.
char *get_opt_value_dup(const char *package, const char *section, const char *option);
// One string option read through a view; the text lives as long as the
// object (null when absent or a list).
struct store_opt {
    uci_snapshot_ref view;
    const char *text = nullptr;
};
store_opt store_read_opt(uci_context *ctx, const char *package, const char *section,
                         const char *option);

// ---------------------------------------------------------------------------
// Transactions.

enum {
    // Bound on waiting for a package while the thread holds another: two
    // transactions taking packages in opposite orders give up instead of
    // deadlocking.
    PKG_LOCK_NESTED_WAIT_MS = 10000,
};

// One package a transaction holds: where its change log stood when the
// transaction took it (or last committed it).
struct store_txn_pkg {
    std::string name;
    off_t log_len;
    bool log_existed;
    bool dirty; // staged since then
};

// An edit transaction over `ctx` (a request's own context, or one of a
// test's store). Packages are taken when named to store_txn_lock (in name
// order) or on their first edit, and held until the transaction ends. Each
// edit is staged at once (readers on any thread see it); store_txn_commit
// makes a package's staged edits final. When the transaction ends without
// a commit of a package it staged into, or the commit failed, the package's
// change log is cut back to where it stood and nothing of it stays visible.
// One thread; transactions nest (an inner one keeps what the outer holds).
struct store_txn {
    uci_context *ctx;
    size_t mark; // the thread's held packages at the start
    std::vector<store_txn_pkg> pkgs;

    explicit store_txn(uci_context *c);
    store_txn(const store_txn &) = delete;
    store_txn &operator=(const store_txn &) = delete;
    ~store_txn();
};

// Takes `packages` (sorted, duplicates ignored) for the transaction. Waits
// without bound when the thread holds nothing, else at most
// PKG_LOCK_NESTED_WAIT_MS per package. 0, or -1 with a trace (what was taken
// stays held until the end).
int store_txn_lock(store_txn *t, std::vector<std::string> packages);

// Stages the context's pending changes of `package` and makes them final:
// the ordinary commit merges the change log into the file (journalled
// flush); the light commit leaves the file to the background flusher
// (within 2 * UCI_FLUSH_WINDOW_S). 0, or -1 with the package rolled back.
int store_txn_commit(store_txn *t, const char *package, bool light);

// Rolls back every package staged into and not committed since, and
// releases what the transaction took. The destructor calls it.
void store_txn_drop(store_txn *t);

// Releases every package the calling thread still holds (the dispatcher,
// at the end of a request, whatever path it took).
void store_release_thread(void);

// Writers: each stages one change through the transaction (taking the
// package first), appends it to the change log and checks what was
// appended. 0 or -1 (a section set: >0 when the section is absent).
int set_uci_section(store_txn *t, const char *package, const char *section, json_object *obj);
int delete_section(store_txn *t, const char *package, const char *section);
int delete_section_type(store_txn *t, const char *package, const char *type);
int add_new_section(store_txn *t, const char *package, const char *type, const char *name);
int rename_section(store_txn *t, const char *package, const char *section, const char *new_name);
int set_opt_value(store_txn *t, const char *package, const char *section, const char *option,
                  const char *value);
int delete_opt_value(store_txn *t, const char *package, const char *section, const char *option,
                     const char *value);

// ---------------------------------------------------------------------------
// Flush, backup, restore and start-up.

enum {
    // A light-committed change reaches the configuration file within two
    // windows at most; a package is rewritten at most once per window.
    UCI_FLUSH_WINDOW_S = 5,
};

// Merges the complete lines of `package`'s change log into its file
// (journalled: a kill at any instant loses nothing and applies nothing
// twice). Takes the package (or keeps the caller's hold). 0, or -1 with a
// trace and the file and log as they were. Any thread.
int uci_flush_package(const char *package);
int uci_flush_package_at(const uci_store_dirs &dirs, const char *package);

// Flushes every light-committed package now (before a reboot, a reset, an
// upgrade, and on SIGTERM). 0, or -1 when one failed. A thread holding no
// package.
int uci_flush_all(void);

// Flushes every package whose change log holds anything (staged by this
// daemon or another uci client): before a backup or a restore.
int uci_flush_logged(void);

// The background flusher (one rewrite per package per window at most).
// Start once from the main thread; stop flushes everything noted.
int uci_flusher_start(void);
void uci_flusher_stop(void);

// Start-up, before the first request: finishes an interrupted restore,
// finishes or undoes interrupted flushes, removes the daemon's temporary
// files and notes every package with a staged change for the flusher.
void uci_store_recover(void);

// Replaces the named packages all or nothing (restore): each is written
// beside its target and synced, and only when all are written are they
// renamed into place. Takes every package in name order and flushes its log
// first. 0 or -1 (the directory as it was). Thread holding no package.
int uci_install_packages(const std::vector<std::pair<std::string, std::string>> &files);

// Reads the configuration file of `package` in `confdir` whole while holding
// the package, so a flush is never seen half done (backup). False when it
// cannot be read.
bool store_read_config(const std::string &confdir, const char *package, std::string *body);
