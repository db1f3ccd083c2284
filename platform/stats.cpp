#include "platform/stats.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

namespace {

using counter = std::atomic<uint64_t>;

struct code_place {
    std::atomic<uint32_t> used;
    std::atomic<int32_t> code;
    counter n;
};

// One thread's counts. Only the owner writes a private slot, so it adds with
// a plain load and store; the shared overflow slot adds atomically.
struct stats_slot {
    counter counters[STATS_COUNTER_COUNT];
    counter requests[STATS_METHODS];
    counter latency[STATS_METHODS][STATS_BUCKETS];
    code_place codes[STATS_CODES];
    counter codes_other;
};

enum { MAX_SLOTS = 48 };

bool read_enabled(void)
{
    const char *v = getenv("DSD_STATS");
    return !(v && strcmp(v, "0") == 0);
}

int64_t monotonic_ns(void)
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

const bool g_enabled = read_enabled();
const int64_t g_started_ns = monotonic_ns();
std::atomic<stats_slot *> g_slots[MAX_SLOTS];
std::atomic<uint32_t> g_slot_count{0};
stats_slot g_overflow;
std::atomic<int64_t> g_gauges[STATS_GAUGE_COUNT];

thread_local stats_slot *t_slot;

// This thread's slot, made and registered at its first count. Threads past
// MAX_SLOTS share the overflow slot.
stats_slot *my_slot(void)
{
    if (t_slot)
        return t_slot;
    uint32_t i = g_slot_count.fetch_add(1, std::memory_order_relaxed);
    if (i >= MAX_SLOTS) {
        t_slot = &g_overflow;
        return t_slot;
    }
    auto *s = new stats_slot{};
    g_slots[i].store(s, std::memory_order_release);
    t_slot = s;
    return s;
}

bool shared(const stats_slot *s)
{
    return s == &g_overflow;
}

void bump(const stats_slot *s, counter &c, uint64_t by = 1)
{
    if (shared(s))
        c.fetch_add(by, std::memory_order_relaxed);
    else
        c.store(c.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
}

// The place of `code` in the slot's table, claimed when new; null when full.
code_place *place_of(stats_slot *s, int32_t code)
{
    for (code_place &p : s->codes) {
        if (p.used.load(std::memory_order_acquire)) {
            if (p.code.load(std::memory_order_relaxed) == code)
                return &p;
            continue;
        }
        // Claimed with the code written first, so a reader that sees `used`
        // sees the code. Only the overflow slot has concurrent claimers.
        uint32_t expected = 0;
        if (!shared(s)) {
            p.code.store(code, std::memory_order_relaxed);
            p.used.store(1, std::memory_order_release);
            return &p;
        }
        if (p.used.compare_exchange_strong(expected, 2, std::memory_order_acq_rel)) {
            p.code.store(code, std::memory_order_relaxed);
            p.used.store(1, std::memory_order_release);
            return &p;
        }
        while (p.used.load(std::memory_order_acquire) == 2) {
        }
        if (p.code.load(std::memory_order_relaxed) == code)
            return &p;
    }
    return nullptr;
}

void add_slot(const stats_slot &s, stats_totals *out, std::map<int32_t, uint64_t> *codes)
{
    for (int c = 0; c < STATS_COUNTER_COUNT; ++c)
        out->counters[c] += s.counters[c].load(std::memory_order_relaxed);
    for (int m = 0; m < STATS_METHODS; ++m) {
        out->requests[m] += s.requests[m].load(std::memory_order_relaxed);
        for (int b = 0; b < STATS_BUCKETS; ++b)
            out->latency[m][b] += s.latency[m][b].load(std::memory_order_relaxed);
    }
    for (const code_place &p : s.codes) {
        if (p.used.load(std::memory_order_acquire) == 1)
            (*codes)[p.code.load(std::memory_order_relaxed)] += p.n.load(std::memory_order_relaxed);
    }
    out->codes_other += s.codes_other.load(std::memory_order_relaxed);
}

} // namespace

bool stats_enabled(void)
{
    return g_enabled;
}

int64_t stats_now_ns(void)
{
    return monotonic_ns();
}

void stats_count(stats_counter c)
{
    if (!g_enabled || c >= STATS_COUNTER_COUNT)
        return;
    stats_slot *s = my_slot();
    bump(s, s->counters[c]);
}

void stats_gauge_set(stats_gauge g, int64_t v)
{
    if (g_enabled && g < STATS_GAUGE_COUNT)
        g_gauges[g].store(v, std::memory_order_relaxed);
}

void stats_gauge_add(stats_gauge g, int64_t v)
{
    if (g_enabled && g < STATS_GAUGE_COUNT)
        g_gauges[g].fetch_add(v, std::memory_order_relaxed);
}

int stats_bucket_of(int64_t elapsed_ns)
{
    uint64_t us = elapsed_ns > 0 ? static_cast<uint64_t>(elapsed_ns) / 1000 : 0;
    if (us < 4)
        return static_cast<int>(us);
    int e = 63 - __builtin_clzll(us);
    int b = (e - 1) * 4 + static_cast<int>((us >> (e - 2)) & 3);
    return std::min(b, STATS_BUCKETS - 1);
}

int64_t stats_bucket_upper_us(int bucket)
{
    if (bucket < 4)
        return bucket;
    int e = bucket / 4 + 1, sub = bucket % 4;
    return ((static_cast<int64_t>(5 + sub)) << (e - 2)) - 1;
}

int64_t stats_percentile_us(const uint64_t *buckets, double q)
{
    uint64_t total = 0;
    for (int b = 0; b < STATS_BUCKETS; ++b)
        total += buckets[b];
    if (total == 0)
        return 0;
    // The rank of the q-quantile, counted from 1.
    uint64_t rank = static_cast<uint64_t>(q * static_cast<double>(total) + 0.999999);
    rank = std::clamp<uint64_t>(rank, 1, total);
    uint64_t seen = 0;
    for (int b = 0; b < STATS_BUCKETS; ++b) {
        seen += buckets[b];
        if (seen >= rank)
            return stats_bucket_upper_us(b);
    }
    return stats_bucket_upper_us(STATS_BUCKETS - 1);
}

void stats_request(int method, int32_t code, int64_t elapsed_ns)
{
    if (!g_enabled)
        return;
    stats_slot *s = my_slot();
    int m = method > 0 && method < STATS_METHODS ? method : 0;
    bump(s, s->requests[m]);
    bump(s, s->latency[m][stats_bucket_of(elapsed_ns)]);
    if (code_place *p = place_of(s, code))
        bump(s, p->n);
    else
        bump(s, s->codes_other);
}

void stats_read(stats_totals *out)
{
    *out = stats_totals{};
    out->started_ns = g_started_ns;
    std::map<int32_t, uint64_t> codes;
    uint32_t n = std::min<uint32_t>(g_slot_count.load(std::memory_order_relaxed), MAX_SLOTS);
    for (uint32_t i = 0; i < n; ++i) {
        // A slot counted but not yet published is read next time.
        if (const stats_slot *s = g_slots[i].load(std::memory_order_acquire))
            add_slot(*s, out, &codes);
    }
    add_slot(g_overflow, out, &codes);
    for (int g = 0; g < STATS_GAUGE_COUNT; ++g)
        out->gauges[g] = g_gauges[g].load(std::memory_order_relaxed);
    out->codes.assign(codes.begin(), codes.end());
}

int64_t stats_resident_bytes(void)
{
    FILE *f = fopen("/proc/self/statm", "re");
    if (!f)
        return 0;
    long size = 0, resident = 0;
    int got = fscanf(f, "%ld %ld", &size, &resident);
    fclose(f);
    return got == 2 ? static_cast<int64_t>(resident) * sysconf(_SC_PAGESIZE) : 0;
}
