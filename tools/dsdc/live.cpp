// The commands that look at a running daemon as a whole: `get MODULE`
// (every stored section) and `stats` (the statistics keyword as a table).
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "model/registry.h"
#include "modules/module_table.h"
#include "platform/trace.h"
#include "tools/dsdc/dsdc.h"

namespace {

json_object *strings_array(const std::vector<std::string> &list)
{
    json_object *arr = json_object_new_array();
    for (const std::string &s : list)
        json_object_array_add(arr, json_object_new_string(s.c_str()));
    return arr;
}

// {"method": "get", module: {"name": [...], "table": [...]}}, leaving out
// empty lists.
std::string get_request(const char *module, const std::vector<std::string> &names,
                        const std::vector<std::string> &types)
{
    dsdc_json req(json_object_new_object());
    json_object *body = json_object_new_object();
    json_object_object_add(req.get(), "method", json_object_new_string("get"));
    json_object_object_add(req.get(), module, body);
    if (!names.empty())
        json_object_object_add(body, "name", strings_array(names));
    if (!types.empty())
        json_object_object_add(body, "table", strings_array(types));
    return json_object_to_json_string_ext(req.get(), JSON_C_TO_STRING_PLAIN);
}

// The stored rows of `module` in this build's model: named rows kept in uci
// (dynamic views left out: they are not configuration) and section types.
// False when the model does not register or has no such module.
bool module_rows(const char *module, std::vector<std::string> *names, std::vector<std::string> *types)
{
    set_trace_level(3); // constructors trace on stdout
    ds_model_root *root = model_init();
    if (!root || model_register(root) != 0)
        return false;
    const ds_module *m = get_module_node(root, module);
    if (!m)
        return false;
    for (const ds_sec *s = m->sections; s && s->name; ++s) {
        if (s->data_kind == DS_DATA_UCI && !s->dynamic)
            names->push_back(s->name);
    }
    for (const ds_sec *s = m->sec_types; s && s->name; ++s) {
        if (s->data_kind == DS_DATA_UCI && !s->dynamic)
            types->push_back(s->name);
    }
    return true;
}

// Reads the rows one request at a time, for a module whose model names
// rows the store lacks (one missing row fails a whole get): what answers is
// merged into mod_out; the count of rows that did not answer.
int read_one_by_one(const dsdc_options &o, const char *module, const std::vector<std::string> &names,
                    const std::vector<std::string> &types, json_object *mod_out)
{
    int missing = 0;
    auto read = [&](const std::vector<std::string> &n, const std::vector<std::string> &t) {
        dsdc_json res;
        json_object *part = nullptr;
        if (dsdc_call(o, get_request(module, n, t), &res) != DSDC_OK ||
            !json_object_object_get_ex(res.get(), module, &part)) {
            ++missing;
            return;
        }
        json_object_object_foreach(part, key, val) json_object_object_add(mod_out, key, json_object_get(val));
    };
    for (const std::string &n : names)
        read({n}, {});
    for (const std::string &t : types)
        read({}, {t});
    return missing;
}

} // namespace

bool dsdc_whole_module(int argc, char **argv)
{
    int words = 0;
    for (int i = 0; i < argc; ++i) {
        if (strncmp(argv[i], "--type", 6) == 0)
            return false;
        if (strcmp(argv[i], "--json") != 0)
            ++words;
    }
    return words == 1;
}

int dsdc_get_module(const dsdc_options &o, const char *module)
{
    std::vector<std::string> names, types;
    if (!module_rows(module, &names, &types)) {
        fprintf(stderr, "dsdc: no module %s\n", module);
        return DSDC_USAGE;
    }
    if (names.empty() && types.empty()) {
        fprintf(stderr, "dsdc: module %s stores no sections\n", module);
        return DSDC_USAGE;
    }
    dsdc_json res;
    int rc = dsdc_call(o, get_request(module, names, types), &res);
    if (rc == DSDC_NO_RESPONSE)
        return rc;
    if (rc != DSDC_OK) {
        fprintf(stderr, "dsdc: reading the sections of %s one by one\n", module);
        res.reset(json_object_new_object());
        json_object *mod_out = json_object_new_object();
        json_object_object_add(res.get(), module, mod_out);
        int missing = read_one_by_one(o, module, names, types, mod_out);
        if (missing)
            fprintf(stderr, "dsdc: %d of the model's rows are not stored\n", missing);
        json_object_object_add(res.get(), "error_code", json_object_new_int(0));
        rc = json_object_object_length(mod_out) > 0 ? DSDC_OK : DSDC_ERROR_CODE;
    }
    dsdc_print(res.get(), o.pretty);
    return rc;
}

namespace {

int64_t member_int(json_object *obj, const char *group, const char *key)
{
    json_object *g = obj, *v = nullptr;
    if (group && !json_object_object_get_ex(obj, group, &g))
        return 0;
    return json_object_object_get_ex(g, key, &v) ? json_object_get_int64(v) : 0;
}

// "a 1, b 2" from the members of one group, in their order.
std::string group_line(json_object *stats, const char *group)
{
    std::string line;
    json_object *g = nullptr;
    if (!json_object_object_get_ex(stats, group, &g))
        return line;
    json_object_object_foreach(g, key, val) {
        if (!line.empty())
            line += ", ";
        line += std::string(key) + "=" + json_object_get_string(val);
    }
    return line;
}

void print_table(json_object *s)
{
    printf("%-14s %" PRId64 " s\n", "uptime", member_int(s, nullptr, "uptime_s"));
    printf("%-14s %.1f MiB\n", "resident", static_cast<double>(member_int(s, nullptr, "resident_bytes")) / 1048576);
    printf("%-14s %" PRId64 " (%s)\n", "requests", member_int(s, "requests", "total"),
           group_line(json_object_object_get(s, "requests"), "by_method").c_str());
    printf("%-14s %s\n", "answer codes", group_line(json_object_object_get(s, "requests"), "by_code").c_str());
    printf("%-14s %-8s %8s %10s %10s\n", "latency", "method", "count", "p50 us", "p99 us");
    json_object *lat = nullptr;
    if (json_object_object_get_ex(s, "latency_us", &lat)) {
        json_object_object_foreach(lat, method, one) {
            printf("%-14s %-8s %8" PRId64 " %10" PRId64 " %10" PRId64 "\n", "", method,
                   member_int(one, nullptr, "count"), member_int(one, nullptr, "p50"),
                   member_int(one, nullptr, "p99"));
        }
    }
    for (const char *group : {"connections", "cache", "flush", "bus", "events"})
        printf("%-14s %s\n", group, group_line(s, group).c_str());
}

} // namespace

int dsdc_stats(const dsdc_options &o)
{
    dsdc_json res;
    int rc = dsdc_call(o, R"({"method":"do","statistics":{"get_stats":{}}})", &res);
    if (rc != DSDC_OK)
        return rc;
    json_object *stats = nullptr;
    if (!json_object_object_get_ex(res.get(), "statistics", &stats)) {
        fprintf(stderr, "dsdc: the answer carries no statistics\n");
        return DSDC_ERROR_CODE;
    }
    if (o.json)
        dsdc_print(stats, o.pretty);
    else
        print_table(stats);
    return DSDC_OK;
}
