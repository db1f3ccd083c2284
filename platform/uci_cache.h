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

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

#include "platform/name_index.h"

struct json_object;
struct uci_context;
struct uci_section;
struct uci_snapshot;

enum {
    UCI_CACHE_BYTES = 1536 * 1024, // all snapshots together
    UCI_CACHE_FRESH_MS = 30,       // younger files are cached only when this process wrote them
};

using uci_snapshot_ref = std::shared_ptr<const uci_snapshot>;

// The current snapshot of `package`, read on a miss under the package's lock
// and kept unless its files changed too recently (by another writer) to be
// told from their next version. Null when the cache is switched off
// (DSD_UCI_CACHE=0 in the environment at the first call), when the package
// cannot be loaded, when the calling thread holds another package and the
// bounded wait for this one expired, or on bad arguments: the caller then
// reads through its own uci context, which also traces any failure.
// Any thread.
uci_snapshot_ref uci_cache_open(const char *package);

// One section's JSON form (".name", ".type", options in uci's order), a new
// object the caller releases; null with "uci cannot found." traced when the
// package has no such section. Any thread.
json_object *uci_snapshot_section(const uci_snapshot &snap, const char *section);

// The same section, for a response that is only serialised: a string object
// whose serialiser writes the section's stored JSON text unquoted, exactly
// what json_object_to_json_string writes for uci_snapshot_section's object.
// Not for a response that is walked or re-coded afterwards (URL coding):
// its type is string. New object or null, as uci_snapshot_section. Any thread.
json_object *uci_snapshot_section_text(const uci_snapshot &snap, const char *section);

// One section's stored text (the one uci_snapshot_section_text serialises)
// and its position among the snapshot's sections.
struct uci_section_text {
    size_t index;
    const char *text; // lives as long as the snapshot
    size_t len;
};

// Finds `section` for a caller that assembles a response from stored texts.
// False, with nothing traced, when the package has no such section. Any thread.
bool uci_snapshot_find_text(const uci_snapshot &snap, const name_key &section, uci_section_text *out);

// How many sections the snapshot holds. Any thread.
size_t uci_snapshot_section_count(const uci_snapshot &snap);

// Every section of `type` as get_uci_section_type forms them: an array of
// one-member objects in uci's order (empty when there is none). Any thread.
json_object *uci_snapshot_section_type(const uci_snapshot &snap, const char *type);

// The sections of `package` named by the keys of `wanted` (a JSON object),
// keyed by name as get_uci_package forms them; for the set pipeline's diff.
// Read through `ctx` (the whole package, with its traces) when the cache
// cannot serve. New object or null. The caller's thread owns `ctx`.
json_object *uci_cache_package_part(uci_context *ctx, const char *package, json_object *wanted);

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

// Bytes held by cached snapshots now (for tests and the benchmark).
size_t uci_cache_bytes(void);
