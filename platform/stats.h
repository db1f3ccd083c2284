// Live counters of the daemon: requests by method and answer code, latency
// per method, queue refusals, deadline cuts, read cache, light-commit
// flushes, bus calls and change events.
//
// Counting takes no lock: every thread that counts gets a slot of its own
// the first time (registered once, never given back), written only by that
// thread with relaxed atomics; a read sums all slots. DSD_STATS=0 in the
// environment turns counting off (every call returns at once), so the
// benchmark can compare the cost.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

enum stats_counter : uint8_t {
    STATS_QUEUE_REFUSED, // connections answered -40109 (queue full)
    STATS_DEADLINE_CUT,  // connections cut by the read deadline
    STATS_CACHE_HIT,
    STATS_CACHE_MISS,
    STATS_CACHE_EVICT,
    STATS_FLUSHES,       // change logs merged into their files
    STATS_BUS_CALLS,
    STATS_BUS_FAILURES,  // calls that did not succeed, time-outs included
    STATS_BUS_TIMEOUTS,
    STATS_EVENTS_SENT,
    STATS_EVENTS_DROPPED, // queue full, or events off
    STATS_EVENTS_FAILED,  // the bus refused or was gone
    STATS_COUNTER_COUNT,
};

// Values that are set, not summed (last writer wins).
enum stats_gauge : uint8_t {
    STATS_CACHE_BYTES,        // bytes the read cache holds
    STATS_FLUSH_LAST_NS,      // duration of the last flush
    STATS_FLUSH_PENDING,      // light commits not yet flushed
    STATS_FLUSH_OLDEST_NS,    // monotonic time of the oldest of them (0: none)
    STATS_GAUGE_COUNT,
};

enum {
    STATS_METHODS = 8,   // method codes 0..7 (0: no method parsed)
    STATS_BUCKETS = 140, // latency buckets, four per power of two microseconds
    STATS_CODES = 32,    // distinct answer codes kept per slot
};

// Whether counting is on (DSD_STATS is not "0"). Any thread.
bool stats_enabled(void);

// Monotonic clock in nanoseconds. Any thread.
int64_t stats_now_ns(void);

// Adds one to counter c. Any thread, no lock.
void stats_count(stats_counter c);

// Sets gauge g to v, or adds v to it. Any thread.
void stats_gauge_set(stats_gauge g, int64_t v);
void stats_gauge_add(stats_gauge g, int64_t v);

// One answered request: method code (out of range counts as 0), the answer's
// error code and how long the request took from its start. Any thread.
void stats_request(int method, int32_t code, int64_t elapsed_ns);

// The latency bucket of a duration, and the largest duration (microseconds)
// a bucket holds. Pure.
int stats_bucket_of(int64_t elapsed_ns);
int64_t stats_bucket_upper_us(int bucket);

// The bucket's upper bound where q (0..1) of the counted requests lie at
// or below; 0 when none were counted. Pure.
int64_t stats_percentile_us(const uint64_t *buckets, double q);

struct stats_totals {
    int64_t started_ns = 0; // monotonic time the process started counting
    uint64_t counters[STATS_COUNTER_COUNT] = {};
    int64_t gauges[STATS_GAUGE_COUNT] = {};
    uint64_t requests[STATS_METHODS] = {};
    uint64_t latency[STATS_METHODS][STATS_BUCKETS] = {};
    std::vector<std::pair<int32_t, uint64_t>> codes; // by code, ascending
    uint64_t codes_other = 0; // answers whose code found no free place
};

// Sums every slot into *out. Any thread; counts racing with the read land
// in this read or the next.
void stats_read(stats_totals *out);

// Resident memory of the process in bytes (0 when unknown). Any thread.
int64_t stats_resident_bytes(void);
