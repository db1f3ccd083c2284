// Binding a changing request to the registry once (see model/plan.h).
#include "model/plan.h"

#include <cstring>

#include "model/request.h"
#include "platform/error_codes.h"
#include "platform/jso.h"

namespace {

// set: every object member of the module is a section by name.
void bind_set(plan_module *pm)
{
    json_object_object_foreach(pm->req, sec, params) {
        if (json_object_is_type(params, json_type_object))
            pm->sections.push_back({.name = sec, .type = nullptr, .by_name = 1, .params = params, .row = nullptr, .bad = 0});
    }
}

// add: {"table": type, "name": new section, "para": its options}.
void bind_add(plan_module *pm)
{
    const char *table = jso_obj_get_string_origin(pm->req, "table");
    const char *name = jso_obj_get_string_origin(pm->req, "name");
    json_object *para = jso_obj_get(pm->req, "para");
    if (!table || !name || !para) {
        pm->bad = DS_ERR_BAD_REQUEST;
        return;
    }
    pm->sections.push_back({.name = name, .type = table, .by_name = 0, .params = para, .row = nullptr, .bad = 0});
}

// delete: {"table"|"name": text or array of texts}, each text one target.
// A malformed member becomes a bad entry at its place in the order.
void bind_delete(plan_module *pm)
{
    json_object_object_foreach(pm->req, key, val) {
        bool by_type = strcmp(key, "table") == 0;
        bool shape_ok = (by_type || strcmp(key, "name") == 0) &&
                        (json_object_is_type(val, json_type_string) ||
                         json_object_is_type(val, json_type_array));
        size_t n = json_object_is_type(val, json_type_array) ? json_object_array_length(val) : 1;
        for (size_t i = 0; shape_ok && i < n; ++i) {
            json_object *el = json_object_is_type(val, json_type_array) ? json_object_array_get_idx(val, i) : val;
            if (!el || !json_object_is_type(el, json_type_string))
                shape_ok = false;
        }
        if (!shape_ok) {
            pm->sections.push_back({.name = key, .type = nullptr, .by_name = 0, .params = nullptr, .row = nullptr,
                                    .bad = DS_ERR_BAD_REQUEST});
            continue;
        }
        for (size_t i = 0; i < n; ++i) {
            json_object *el = json_object_is_type(val, json_type_array) ? json_object_array_get_idx(val, i) : val;
            pm->sections.push_back({.name = json_object_get_string(el), .type = nullptr, .by_name = by_type ? 0 : 1,
                                    .params = nullptr, .row = nullptr, .bad = 0});
        }
    }
}

} // namespace

ds_plan plan_bind(ds_context *ctx, int method)
{
    ds_plan plan;
    if (!ctx || !json_object_is_type(ctx->req_obj, json_type_object))
        return plan;
    ds_model_root *root = get_model_root();
    json_object_object_foreach(ctx->req_obj, mod_name, req_mod) {
        if (!json_object_is_type(req_mod, json_type_object))
            continue;
        plan_module pm{.name = mod_name, .mod = root ? get_module_node(root, mod_name) : nullptr,
                       .req = req_mod, .sections = {}, .bad = 0, .hook_due = false};
        if (method == DS_METHOD_SET)
            bind_set(&pm);
        else if (method == DS_METHOD_ADD)
            bind_add(&pm);
        else
            bind_delete(&pm);
        plan.modules.push_back(std::move(pm));
    }
    return plan;
}

std::vector<std::string> plan_packages(const ds_plan &plan)
{
    std::vector<std::string> packages;
    for (const plan_module &pm : plan.modules) {
        if (pm.mod && pm.mod->package)
            packages.push_back(pm.mod->package);
    }
    return packages;
}
