// Module "statistics": the daemon's own live figures, read with the do
// keyword "get_stats" (no configuration of its own). The counters are kept
// by platform/stats; this module only sums and names them.
#include <json-c/json.h>

#include <string>

#include "model/request.h"
#include "model/registry.h"
#include "modules/modules.h"
#include "platform/stats.h"

namespace {

// Names of the method codes, as requests spell them; 0 is a request whose
// method was never parsed.
const char *const kMethodNames[STATS_METHODS] = {
    "none", "get", "add", "delete", "set", "do", "forward", "other",
};

struct counter_name {
    const char *group, *name;
    stats_counter counter;
};

const counter_name kCounters[] = {
    {.group = "connections", .name = "queue_refused", .counter = STATS_QUEUE_REFUSED},
    {.group = "connections", .name = "deadline_cut", .counter = STATS_DEADLINE_CUT},
    {.group = "cache", .name = "hits", .counter = STATS_CACHE_HIT},
    {.group = "cache", .name = "misses", .counter = STATS_CACHE_MISS},
    {.group = "cache", .name = "evictions", .counter = STATS_CACHE_EVICT},
    {.group = "flush", .name = "count", .counter = STATS_FLUSHES},
    {.group = "bus", .name = "calls", .counter = STATS_BUS_CALLS},
    {.group = "bus", .name = "failures", .counter = STATS_BUS_FAILURES},
    {.group = "bus", .name = "timeouts", .counter = STATS_BUS_TIMEOUTS},
    {.group = "events", .name = "sent", .counter = STATS_EVENTS_SENT},
    {.group = "events", .name = "dropped", .counter = STATS_EVENTS_DROPPED},
    {.group = "events", .name = "failed", .counter = STATS_EVENTS_FAILED},
    {.group = nullptr, .name = nullptr, .counter = STATS_COUNTER_COUNT},
};

// The member `name` of obj, made as an empty object when absent (borrowed).
json_object *group_of(json_object *obj, const char *name)
{
    json_object *g = nullptr;
    if (!json_object_object_get_ex(obj, name, &g)) {
        g = json_object_new_object();
        json_object_object_add(obj, name, g);
    }
    return g;
}

void put_int(json_object *obj, const char *key, int64_t v)
{
    json_object_object_add(obj, key, json_object_new_int64(v));
}

// "requests": {"total", "by_method": {m: n}, "by_code": {"c": n}};
// "latency_us": {m: {"count", "p50", "p99"}} for the methods seen.
void add_requests(json_object *out, const stats_totals &t)
{
    json_object *req = group_of(out, "requests");
    json_object *by_method = group_of(req, "by_method");
    json_object *lat = group_of(out, "latency_us");
    uint64_t total = 0;
    for (int m = 0; m < STATS_METHODS; ++m) {
        total += t.requests[m];
        if (t.requests[m] == 0)
            continue;
        put_int(by_method, kMethodNames[m], static_cast<int64_t>(t.requests[m]));
        json_object *one = group_of(lat, kMethodNames[m]);
        put_int(one, "count", static_cast<int64_t>(t.requests[m]));
        put_int(one, "p50", stats_percentile_us(t.latency[m], 0.50));
        put_int(one, "p99", stats_percentile_us(t.latency[m], 0.99));
    }
    put_int(req, "total", static_cast<int64_t>(total));
    json_object *by_code = group_of(req, "by_code");
    for (const auto &[code, n] : t.codes)
        put_int(by_code, std::to_string(code).c_str(), static_cast<int64_t>(n));
    if (t.codes_other)
        put_int(by_code, "other", static_cast<int64_t>(t.codes_other));
}

void add_gauges(json_object *out, const stats_totals &t, int64_t now_ns)
{
    put_int(group_of(out, "cache"), "bytes", t.gauges[STATS_CACHE_BYTES]);
    json_object *flush = group_of(out, "flush");
    put_int(flush, "last_us", t.gauges[STATS_FLUSH_LAST_NS] / 1000);
    put_int(flush, "pending", t.gauges[STATS_FLUSH_PENDING]);
    int64_t oldest = t.gauges[STATS_FLUSH_OLDEST_NS];
    put_int(flush, "oldest_pending_ms", oldest ? (now_ns - oldest) / 1000000 : 0);
}

// {"statistics": {...}} into the response: see docs/modules.md.
int get_stats(ds_context *ctx, json_object *arg)
{
    (void)arg;
    stats_totals t;
    stats_read(&t);
    int64_t now = stats_now_ns();
    json_object *out = json_object_new_object();
    json_object_object_add(out, "enabled", json_object_new_boolean(stats_enabled()));
    put_int(out, "uptime_s", (now - t.started_ns) / 1000000000);
    put_int(out, "resident_bytes", stats_resident_bytes());
    add_requests(out, t);
    for (const counter_name *c = kCounters; c->group; ++c)
        put_int(group_of(out, c->group), c->name, static_cast<int64_t>(t.counters[c->counter]));
    add_gauges(out, t, now);
    json_object_object_add(ctx->res_obj, "statistics", out);
    return 0;
}

const ds_action actions[] = {
    {.keyword = "get_stats", .fn = get_stats},
    {.keyword = nullptr, .fn = nullptr},
};

ds_module statistics_module = {
    .name = "statistics",
    .package = nullptr,
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = actions,
    .ch = 0,
    .lock_actions = 0,
};

} // namespace

int statistics_module_init(void)
{
    return add_module_node(&statistics_module);
}
