#include "store/store.h"

#include <cstring>

namespace {

// Eight bytes a step with one multiply each: names are short, and a byte
// loop's chain of multiplies cost more than the probe.
uint64_t hash_bytes(const char *p, size_t len)
{
    const uint64_t k = 0x9E3779B97F4A7C15ull;
    uint64_t h = len * k;
    for (; len >= 8; p += 8, len -= 8) {
        uint64_t w;
        memcpy(&w, p, 8);
        h = (h ^ w) * k;
        h ^= h >> 29;
    }
    if (len) {
        uint64_t w = 0;
        memcpy(&w, p, len);
        h = (h ^ w) * k;
        h ^= h >> 29;
    }
    return h;
}

bool same(const name_index::slot &s, const name_key &key)
{
    return s.hash == static_cast<uint32_t>(key.hash) && memcmp(s.name, key.name, key.len) == 0 &&
           s.name[key.len] == '\0';
}

bool has_room(const name_index &idx)
{
    return (idx.count + 1) * 3 <= idx.slots.size() * 2;
}

} // namespace

name_key name_key_of(const char *name)
{
    size_t len = name ? strlen(name) : 0;
    return {name, len, name ? hash_bytes(name, len) : 0};
}

void name_index_reset(name_index *idx, size_t names)
{
    size_t size = 8;
    while (size * 2 < names * 3)
        size *= 2;
    idx->slots.assign(size, name_index::slot{nullptr, 0, 0});
    idx->count = 0;
}

bool name_index_add(name_index *idx, const char *name, uint32_t value)
{
    if (!name || !has_room(*idx))
        return false;
    name_key key = name_key_of(name);
    size_t mask = idx->slots.size() - 1;
    for (size_t i = key.hash & mask;; i = (i + 1) & mask) {
        name_index::slot &s = idx->slots[i];
        if (!s.name) {
            s = {name, static_cast<uint32_t>(key.hash), value};
            idx->count++;
            return true;
        }
        if (same(s, key))
            return true;
    }
}

bool name_index_find_key(const name_index &idx, const name_key &key, uint32_t *value)
{
    if (!key.name || idx.slots.empty())
        return false;
    size_t mask = idx.slots.size() - 1;
    for (size_t i = key.hash & mask;; i = (i + 1) & mask) {
        const name_index::slot &s = idx.slots[i];
        if (!s.name)
            return false;
        if (same(s, key)) {
            *value = s.value;
            return true;
        }
    }
}

bool name_index_find(const name_index &idx, const char *name, uint32_t *value)
{
    return name_index_find_key(idx, name_key_of(name), value);
}
