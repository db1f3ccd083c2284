// Steps of the changing methods (set, add, delete) shared between the
// pipeline frame and the add/delete branches (model-internal). Every step
// takes the request context, runs on its worker thread, and returns 0, or
// -1 with the context's error code set by the failing step.
#pragma once

#include <json-c/json.h>

#include "model/registry.h"

struct ds_context;

enum { DS_CB_BEFORE_SAVE = 1, DS_CB_SERVICE = 2 };

// The module called `name`, tracing "Module %s not support." and setting
// `err` in the context when it is unknown or the model has no root.
const ds_module *pipeline_module(ds_context *ctx, const char *name, int32_t err);

// Checks the options of one section's parameter object (edited in place:
// options without a checker are dropped). by_name 0: `section` is a type.
int filter_opt_args(ds_context *ctx, const ds_module *mod, const char *section, int by_name,
                    json_object *params);

// Runs the before-save (DS_CB_BEFORE_SAVE) or service (DS_CB_SERVICE)
// callback of one section; a section without one passes.
int do_sec_cb(ds_context *ctx, const ds_module *mod, const char *name, int by_name, int cb_type);

int do_callback_set(ds_context *ctx, int cb_type);
int do_callback_add(ds_context *ctx, int cb_type);
int do_callback_del(ds_context *ctx, int cb_type);

// Add and delete branches; *changed is set to 1 on success.
int diff_data_add(ds_context *ctx, int *changed);
int diff_data_del(ds_context *ctx, int *changed);
int filter_args_add(ds_context *ctx);
int save_diffdata_add(ds_context *ctx, store_txn *txn);
int save_diffdata_del(ds_context *ctx, store_txn *txn);

// Calls fn(text) for a string value, or for each element of an array of
// strings, stopping at the first non-zero result (-1). A value of any other
// shape, or a non-string element met on the way, gives -2.
template <typename Fn>
int for_each_text(json_object *val, Fn fn)
{
    if (json_object_is_type(val, json_type_string))
        return fn(json_object_get_string(val)) != 0 ? -1 : 0;
    if (!json_object_is_type(val, json_type_array))
        return -2;
    size_t n = json_object_array_length(val);
    for (size_t i = 0; i < n; ++i) {
        json_object *el = json_object_array_get_idx(val, i);
        if (!el || !json_object_is_type(el, json_type_string))
            return -2;
        if (fn(json_object_get_string(el)) != 0)
            return -1;
    }
    return 0;
}
