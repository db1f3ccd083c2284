// `dsdc schema`: the ds model of this build as data. It registers the same
// module tables dsd runs on (model_init / model_register from dsd_lib) and
// describes them, so the description cannot drift from the daemon.
//
// Per-channel rows are folded into one entry per name pattern: digit runs
// become "%d" and "count" says how many rows the registry holds, which
// follows "basic_info" "chan_amount" under DSD_ROOT (128 when absent).
#include <cstdio>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "modules/checker_names.h"
#include "modules/module_table.h"
#include "model/checkers.h"
#include "modules/event/plan_checkers.h"
#include "platform/trace.h"
#include "tools/dsdc/dsdc.h"

namespace {

json_object *int_pair(int64_t a, int64_t b)
{
    json_object *arr = json_object_new_array();
    json_object_array_add(arr, json_object_new_int64(a));
    json_object_array_add(arr, json_object_new_int64(b));
    return arr;
}

// Adds the checker's argument to the option object under a key per kind.
void add_argument(json_object *o, int kind, const void *arg)
{
    if (!arg)
        return;
    if (kind == DS_ARG_ENUM) {
        json_object *list = json_object_new_array();
        for (auto *e = static_cast<const char *const *>(arg); *e; ++e)
            json_object_array_add(list, json_object_new_string(*e));
        json_object_object_add(o, "enum", list);
    } else if (kind == DS_ARG_INT_RANGE) {
        auto *r = static_cast<const ds_int_range *>(arg);
        json_object_object_add(o, "range", int_pair(r->min, r->max));
    } else if (kind == DS_ARG_DOUBLE_RANGE) {
        auto *r = static_cast<const ds_double_range *>(arg);
        json_object *arr = json_object_new_array();
        json_object_array_add(arr, json_object_new_double(r->min));
        json_object_array_add(arr, json_object_new_double(r->max));
        json_object_object_add(o, "range", arr);
    } else if (kind == DS_ARG_LEN_RANGE) {
        auto *r = static_cast<const ds_len_range *>(arg);
        json_object_object_add(o, "length", int_pair(r->min, r->max));
    } else if (kind == DS_ARG_PLAN_FORM) {
        auto *f = static_cast<const plan_form *>(arg);
        json_object *p = json_object_new_object();
        json_object_object_add(p, "max_periods", json_object_new_int(f->max_periods));
        json_object_object_add(p, "typed", json_object_new_boolean(f->typed));
        json_object_object_add(o, "plan", p);
    }
}

json_object *describe_options(const ds_opt *options)
{
    json_object *list = json_object_new_array();
    for (const ds_opt *o = options; o && o->name; ++o) {
        json_object *row = json_object_new_object();
        const ds_checker_name *c = ds_checker_lookup(o->checker);
        json_object_object_add(row, "name", json_object_new_string(o->name));
        json_object_object_add(row, "checker", !o->checker ? nullptr
                                               : json_object_new_string(c ? c->name : "unknown"));
        if (c)
            add_argument(row, c->arg_kind, o->arg);
        json_object_object_add(row, "code", json_object_new_int(o->err_code));
        json_object_array_add(list, row);
    }
    return list;
}

// "chn12_main" -> "chn%d_main".
std::string name_pattern(const char *name)
{
    std::string out;
    for (const char *p = name; *p;) {
        if (*p >= '0' && *p <= '9') {
            out += "%d";
            while (*p >= '0' && *p <= '9')
                ++p;
        } else {
            out += *p++;
        }
    }
    return out;
}

struct sec_group {
    const ds_sec *first;
    std::string pattern;
    int count;
};

// Rows sharing a pattern, options, data kind and callbacks fold into one.
std::vector<sec_group> group_sections(const ds_sec *table)
{
    std::vector<sec_group> groups;
    std::map<std::tuple<std::string, const ds_opt *, int, ds_sec_cb_fn, ds_sec_cb_fn>, size_t> at;
    for (const ds_sec *s = table; s && s->name; ++s) {
        std::string pat = name_pattern(s->name);
        auto key = std::make_tuple(pat, s->options, (int)s->data_kind, s->beforesavecb, s->srvcb);
        auto it = at.find(key);
        if (it != at.end()) {
            groups[it->second].count++;
            continue;
        }
        at.emplace(key, groups.size());
        groups.push_back(sec_group{.first = s, .pattern = pat, .count = 1});
    }
    return groups;
}

json_object *describe_sections(const ds_sec *table, bool types)
{
    json_object *list = json_object_new_array();
    for (const sec_group &g : group_sections(table)) {
        json_object *row = json_object_new_object();
        bool folded = g.count > 1;
        json_object_object_add(row, "name",
                               json_object_new_string(folded ? g.pattern.c_str() : g.first->name));
        if (folded)
            json_object_object_add(row, "count", json_object_new_int(g.count));
        json_object_object_add(row, "data", json_object_new_string(
                                   g.first->data_kind == DS_DATA_DYNAMIC ? "dynamic" : "uci"));
        if (types)
            json_object_object_add(row, "max_sec", json_object_new_int(g.first->max_sec));
        json_object_object_add(row, "options", describe_options(g.first->options));
        json_object_array_add(list, row);
    }
    return list;
}

json_object *describe_module(const ds_module *m)
{
    json_object *o = json_object_new_object();
    json_object_object_add(o, "name", json_object_new_string(m->name));
    json_object_object_add(o, "package", m->package ? json_object_new_string(m->package) : nullptr);
    json_object_object_add(o, "ch", json_object_new_int((int32_t)m->ch));
    json_object_object_add(o, "sections", describe_sections(m->sections, false));
    json_object_object_add(o, "types", describe_sections(m->sec_types, true));
    json_object *actions = json_object_new_array();
    for (const ds_action *a = m->actions; a && a->keyword; ++a)
        json_object_array_add(actions, json_object_new_string(a->keyword));
    json_object_object_add(o, "actions", actions);
    return o;
}

// The registered model: every module, or only `module`; null with a message
// when the model does not register or the module is unknown.
dsdc_json describe_model(const char *module)
{
    set_trace_level(3); // constructors trace on stdout; keep it JSON only
    ds_model_root *root = model_init();
    if (!root || model_register(root) != 0) {
        fprintf(stderr, "dsdc: the model did not register\n");
        return nullptr;
    }
    dsdc_json out(json_object_new_object());
    json_object_object_add(out.get(), "channels", json_object_new_int(model_channel_amount()));
    json_object *mods = json_object_new_array();
    json_object_object_add(out.get(), "modules", mods);
    for (uint32_t i = 0; i < root->count; ++i) {
        const ds_module *m = root->in_order[i];
        if (!module || (m->name && std::string(m->name) == module))
            json_object_array_add(mods, describe_module(m));
    }
    if (module && json_object_array_length(mods) == 0) {
        fprintf(stderr, "dsdc: no module %s\n", module);
        return nullptr;
    }
    return out;
}

} // namespace

int dsdc_schema(const char *module, bool markdown, bool pretty)
{
    dsdc_json model = describe_model(module);
    if (!model)
        return DSDC_USAGE;
    if (markdown)
        dsdc_markdown_model(model.get());
    else
        dsdc_print(model.get(), pretty);
    return DSDC_OK;
}
