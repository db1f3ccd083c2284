// Before-save and service callbacks of the sections a changing request
// touches. Callbacks run one after another on the request's worker thread,
// in request order, and read the (already reduced) request object.
#include <json-c/json.h>

#include <cstring>

#include "core/context.h"
#include "model/section_lookup.h"
#include "model/set_pipeline.h"
#include "platform/jso.h"
#include "platform/trace.h"

// The row do_sec_cb works on; traces and sets -40106 on a miss.
static const ds_sec *callback_section(ds_context *ctx, const ds_module *mod, const char *name,
                                      int by_name)
{
    if (!by_name) {
        const auto *sec = static_cast<const ds_sec *>(get_ds_node(mod, name, DS_NODE_SEC_TYPE));
        if (!sec) {
            DS_TRACE_AS("do_sec_cb", TRACE_INFO, "Section type %s not found.", name);
            ctx->error_code = -40106;
        }
        return sec;
    }
    const ds_sec *sec = find_section(mod, name, 1);
    if (!sec) {
        DS_TRACE_AS("do_sec_cb", TRACE_INFO, "Section name or type %s not found.", name);
        ctx->error_code = -40106;
    }
    return sec;
}

int do_sec_cb(ds_context *ctx, const ds_module *mod, const char *name, int by_name, int cb_type)
{
    if (!ctx || !mod || !name) {
        DS_ERR("Invalid params.");
        return -1;
    }
    const ds_sec *sec = callback_section(ctx, mod, name, by_name);
    if (!sec)
        return -1;
    ds_sec_cb_fn cb;
    const char *what;
    if (cb_type == DS_CB_BEFORE_SAVE) {
        cb = sec->beforesavecb;
        what = "Run beforesavecb in %s failed.";
    } else if (cb_type == DS_CB_SERVICE) {
        cb = sec->srvcb;
        what = "Run srvcb in %s failed.";
    } else {
        DS_INFO("Unsupport cb_type.");
        ctx->error_code = -70105;
        return -1;
    }
    if (!cb)
        return 0;
    int ret = cb(ctx);
    if (ret != 0) {
        DS_INFO(what, name);
        ctx->error_code = ret;
        return -1;
    }
    return 0;
}

// Set: every section member (by name) of every module object.
int do_callback_set(ds_context *ctx, int cb_type)
{
    json_object_object_foreach(ctx->req_obj, mod_name, req_mod) {
        if (!json_object_is_type(req_mod, json_type_object))
            continue;
        const ds_module *mod = pipeline_module(ctx, mod_name, -40106);
        if (!mod)
            return -1;
        json_object_object_foreach(req_mod, sec, params) {
            if (!json_object_is_type(params, json_type_object))
                continue;
            if (do_sec_cb(ctx, mod, sec, 1, cb_type) != 0) {
                DS_ERR("Run do_sec_cb [%s]-%s failed", mod_name, sec);
                return -1;
            }
        }
    }
    return 0;
}

// Add: the "table" type of each module object.
int do_callback_add(ds_context *ctx, int cb_type)
{
    json_object_object_foreach(ctx->req_obj, mod_name, req_mod) {
        if (!json_object_is_type(req_mod, json_type_object))
            continue;
        const ds_module *mod = pipeline_module(ctx, mod_name, -40106);
        if (!mod)
            return -1;
        const char *table = jso_obj_get_string_origin(req_mod, "table");
        if (do_sec_cb(ctx, mod, table, 0, cb_type) != 0) {
            DS_ERR("Run do_sec_cb [%s]-%s failed", mod_name, table ? table : "");
            return -1;
        }
    }
    return 0;
}

// Delete, one key: each type ("table") or name ("name") it lists.
static int do_callback_parse_del(ds_context *ctx, const ds_module *mod, const char *key,
                                 json_object *val, int cb_type)
{
    int by_name = strcmp(key, "table") == 0 ? 0 : 1;
    return for_each_text(val, [&](const char *text) {
        if (do_sec_cb(ctx, mod, text, by_name, cb_type) != 0) {
            DS_ERR("Run do_sec_cb [%s]-%s failed", mod->name, text);
            return -1;
        }
        return 0;
    }) == 0 ? 0 : -1;
}

// Delete: every type and name of every module object.
int do_callback_del(ds_context *ctx, int cb_type)
{
    json_object_object_foreach(ctx->req_obj, mod_name, req_mod) {
        if (!json_object_is_type(req_mod, json_type_object))
            continue;
        const ds_module *mod = pipeline_module(ctx, mod_name, -40106);
        if (!mod)
            return -1;
        json_object_object_foreach(req_mod, key, val) {
            if (do_callback_parse_del(ctx, mod, key, val, cb_type) != 0) {
                DS_ERR("Run do_callback_parse_del [%s]-%s failed", mod_name, key);
                return -1;
            }
        }
    }
    return 0;
}
