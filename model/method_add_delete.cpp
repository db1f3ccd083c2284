// The add and delete branches of the changing-methods pipeline. Add creates
// one named section per module ({"table", "name", "para"}); delete removes
// sections by type and/or by name ({"table"|"name": text or array}). Worker
// thread of the request context; only its uci context is used.
#include <json-c/json.h>

#include <cstdio>
#include <cstring>

#include "core/context.h"
#include "model/set_pipeline.h"
#include "platform/jso.h"
#include "platform/trace.h"
#include "store/store.h"

namespace {

struct add_request {
    const char *table;
    const char *name;
    json_object *para;
};

// The three members of one module's add request; false when one is missing
// or "table"/"name" is not a string.
bool read_add_request(json_object *req_mod, add_request *out)
{
    out->table = jso_obj_get_string_origin(req_mod, "table");
    out->name = jso_obj_get_string_origin(req_mod, "name");
    out->para = jso_obj_get(req_mod, "para");
    return out->table && out->name && out->para;
}

int illegal_add_request(ds_context *ctx)
{
    DS_ERR("Request signal is illegal.");
    ctx->error_code = -40210;
    return -1;
}

bool request_empty(ds_context *ctx)
{
    return !json_object_is_type(ctx->req_obj, json_type_object) ||
           json_object_object_length(ctx->req_obj) == 0;
}

// A new section's name is its type, "_" and a number, nothing after it.
bool add_name_ok(const char *type, const char *name)
{
    size_t tlen = strlen(type);
    if (strncmp(name, type, tlen) != 0)
        return false;
    int n = 0;
    char tail = 0;
    // uci_set stages a name uci refuses on load ("T_-5", "T_ 7" pass the
    // scan) and every later load skips it: such names are refused here.
    return sscanf(name + tlen, "_%d%c", &n, &tail) == 1 && uci_section_name_ok(name);
}

// Type registered, room left, name well formed.
int check_sec_add(ds_context *ctx, const ds_module *mod, const add_request &req)
{
    const auto *sec = static_cast<const ds_sec *>(get_ds_node(mod, req.table, DS_NODE_SEC_TYPE));
    if (!sec) {
        DS_ERR("Section type %s not support.", req.table);
        ctx->error_code = -40106;
        return -1;
    }
    int count = get_sec_type_num(ctx->uci_ctx, mod->package, req.table);
    if (count < 0) {
        DS_ERR("Get section %s num failed.", req.table);
        ctx->error_code = -40101;
        return -1;
    }
    if (count >= sec->max_sec) {
        DS_ERR("Section %s is full.", req.table);
        ctx->error_code = -40207;
        return -1;
    }
    if (!add_name_ok(req.table, req.name)) {
        DS_ERR("Section name %s is illegal.", req.name);
        ctx->error_code = -70204;
        return -1;
    }
    return 0;
}

bool is_table_key(const char *key)
{
    return strcmp(key, "table") == 0;
}

// One type (by_name 0) or name (1) named for deletion must exist in uci.
int check_del_target(ds_context *ctx, const ds_module *mod, const char *text, int by_name)
{
    if (by_name) {
        if (section_exist(ctx->uci_ctx, mod->package, text) != 1) {
            DS_ERR("Section %s do not exit.", text);
            ctx->error_code = -40205;
            return -1;
        }
        return 0;
    }
    int count = get_sec_type_num(ctx->uci_ctx, mod->package, text);
    if (count < 0) {
        DS_ERR("Get section %s num failed.", text);
        ctx->error_code = -40101;
        return -1;
    }
    if (count == 0) {
        DS_ERR("Section %s do not exit.", text);
        ctx->error_code = -40205;
        return -1;
    }
    return 0;
}

// One key of a module's delete request: shape first, then every target.
int diff_data_parse_del(ds_context *ctx, const ds_module *mod, const char *key, json_object *val)
{
    if (!key || !val) {
        DS_ERR("Invalid params.");
        return -1;
    }
    if ((!is_table_key(key) && strcmp(key, "name") != 0) ||
        for_each_text(val, [](const char *) { return 0; }) != 0) {
        DS_ERR("Invalid get request.");
        ctx->error_code = -40210;
        return -1;
    }
    int by_name = is_table_key(key) ? 0 : 1;
    return for_each_text(val, [&](const char *text) {
        return check_del_target(ctx, mod, text, by_name);
    }) == 0 ? 0 : -1;
}

} // namespace

// Every add names one new section that must not exist yet; always a change.
int diff_data_add(ds_context *ctx, int *changed)
{
    if (request_empty(ctx)) {
        DS_ERR("Request signal is illegal.");
        ctx->error_code = -40209;
        return -1;
    }
    json_object_object_foreach(ctx->req_obj, mod_name, req_mod) {
        if (!json_object_is_type(req_mod, json_type_object))
            continue;
        DS_INFO("Request in module [%s]", mod_name);
        add_request req;
        if (!read_add_request(req_mod, &req))
            return illegal_add_request(ctx);
        const ds_module *mod = pipeline_module(ctx, mod_name, -40101);
        if (!mod)
            return -1;
        if (section_exist(ctx->uci_ctx, mod->package, req.name) == 1) {
            DS_ERR("Section %s exit.", req.name);
            ctx->error_code = -40203;
            return -1;
        }
    }
    *changed = 1;
    return 0;
}

// Checks room and name of each new section, then its options.
int filter_args_add(ds_context *ctx)
{
    json_object_object_foreach(ctx->req_obj, mod_name, req_mod) {
        if (!json_object_is_type(req_mod, json_type_object))
            continue;
        const ds_module *mod = pipeline_module(ctx, mod_name, -40106);
        if (!mod)
            return -1;
        add_request req;
        if (!read_add_request(req_mod, &req))
            return illegal_add_request(ctx);
        if (check_sec_add(ctx, mod, req) != 0) {
            DS_ERR("[%s]-%s check_sec_add failed", mod_name, req.table);
            return -1;
        }
        if (filter_opt_args(ctx, mod, req.table, 0, req.para) != 0) {
            DS_ERR("Filter module [%s]-%s data failed", mod_name, req.table);
            return -1;
        }
    }
    return 0;
}

// Creates each new section and writes its options.
int save_diffdata_add(ds_context *ctx, store_txn *txn)
{
    json_object_object_foreach(ctx->req_obj, mod_name, req_mod) {
        if (!json_object_is_type(req_mod, json_type_object))
            continue;
        const ds_module *mod = pipeline_module(ctx, mod_name, -40106);
        if (!mod)
            return -1;
        add_request req;
        if (!read_add_request(req_mod, &req))
            return illegal_add_request(ctx);
        if (add_new_section(txn, mod->package, req.table, req.name) != 0 ||
            set_uci_section(txn, mod->package, req.name, req.para) != 0) {
            DS_ERR("Run add_new_section or set_uci_section [%s]-%s failed", mod_name, req.name);
            ctx->error_code = -40101;
            return -1;
        }
    }
    return 0;
}

// Every named type must hold a section and every named section must exist;
// always a change.
int diff_data_del(ds_context *ctx, int *changed)
{
    if (request_empty(ctx)) {
        DS_ERR("Request signal is illegal.");
        ctx->error_code = -40209;
        return -1;
    }
    json_object_object_foreach(ctx->req_obj, mod_name, req_mod) {
        if (!json_object_is_type(req_mod, json_type_object))
            continue;
        const ds_module *mod = pipeline_module(ctx, mod_name, -40101);
        if (!mod)
            return -1;
        json_object_object_foreach(req_mod, key, val) {
            if (diff_data_parse_del(ctx, mod, key, val) != 0) {
                DS_ERR("Delete module [%s]-%s data failed", mod_name, key ? key : "");
                return -1;
            }
        }
    }
    *changed = 1;
    return 0;
}

// Stages the deletions: whole types for "table", single sections for "name".
int save_diffdata_del(ds_context *ctx, store_txn *txn)
{
    json_object_object_foreach(ctx->req_obj, mod_name, req_mod) {
        if (!json_object_is_type(req_mod, json_type_object))
            continue;
        const ds_module *mod = pipeline_module(ctx, mod_name, -40106);
        if (!mod)
            return -1;
        json_object_object_foreach(req_mod, key, val) {
            bool by_type = is_table_key(key);
            int rc = for_each_text(val, [&](const char *text) {
                int r = by_type ? delete_section_type(txn, mod->package, text)
                                : delete_section(txn, mod->package, text);
                if (r != 0) {
                    if (by_type)
                        DS_TRACE_AS("del_sec_data", TRACE_ERROR,
                                    "Delete section type %s data failed.", text);
                    else
                        DS_TRACE_AS("del_sec_data", TRACE_ERROR,
                                    "Delete section name %s data failed.", text);
                }
                return r;
            });
            if (rc != 0) {
                DS_ERR("Run del_sec_data [%s]-%s failed", mod_name, key);
                ctx->error_code = -40101;
                return -1;
            }
        }
    }
    return 0;
}
