// A read-mostly index of NUL-terminated names to small integers: open
// addressing in one array, so a look-up touches one or two cache lines.
// Whole-package requests look up some 1,100 section names twice (model
// rows, then the cached package): a caller that looks one name up in
// several indexes hashes it once (name_key) and probes each with the key.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

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
// index. False when the index is full (more names than reset allowed).
// Building thread only; no reader may run concurrently.
bool name_index_add(name_index *idx, const char *name, uint32_t value);

// The value of the key's name in *value; false when absent. Any thread,
// once the index is built.
bool name_index_find_key(const name_index &idx, const name_key &key, uint32_t *value);

// The same for a NUL-terminated name.
bool name_index_find(const name_index &idx, const char *name, uint32_t *value);
