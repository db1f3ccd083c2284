// The pipeline of the changing methods (set, add, delete): diff the request
// against uci down to the real changes, check every changed option, run the
// before-save callbacks, stage, commit, then run the service callbacks.
// Each step branches on the method code; this file holds the frame and the
// set branches. Runs on the worker thread that owns the request context and
// uses only that context's uci context, through one store transaction:
// a failure before a package's commit leaves that package as it was.
#include <json-c/json.h>

#include <cstring>
#include <vector>
#include <string>

#include "core/context.h"
#include "model/change_events.h"
#include "model/methods.h"
#include "model/model_raii.h"
#include "model/section_lookup.h"
#include "model/set_pipeline.h"
#include "platform/jso.h"
#include "store/store.h"
#include "platform/trace.h"

static int unsupported_method(ds_context *ctx)
{
    DS_ERR("Unsupported signal method: %d.", ctx->method);
    ctx->error_code = -40105;
    return -1;
}

static bool request_empty(ds_context *ctx)
{
    return !json_object_is_type(ctx->req_obj, json_type_object) ||
           json_object_object_length(ctx->req_obj) == 0;
}

const ds_module *pipeline_module(ds_context *ctx, const char *name, int32_t err)
{
    ds_model_root *root = get_model_root();
    if (!root) {
        DS_ERR("Get model root node failed.");
        ctx->error_code = -40101;
        return nullptr;
    }
    const ds_module *mod = get_module_node(root, name);
    if (!mod) {
        DS_ERR("Module %s not support.", name);
        ctx->error_code = err;
    }
    return mod;
}

// JSON text of a value in the compact form used by the list comparison.
static const char *plain_text(json_object *v)
{
    return json_object_to_json_string_ext(v, JSON_C_TO_STRING_PLAIN);
}

// Every element of `list` must appear (by JSON text) inside `whole`.
static bool elements_within(json_object *list, const char *whole)
{
    size_t n = json_object_array_length(list);
    for (size_t i = 0; i < n; ++i) {
        if (!strstr(whole, plain_text(json_object_array_get_idx(list, i))))
            return false;
    }
    return true;
}

// Compares a requested list with the stored value, ignoring order and
// repetition. 0 with *changed set, or -1 for an empty or holed request.
static int compare_list_option(json_object *req, json_object *stored, int *changed)
{
    size_t n = json_object_array_length(req);
    if (n == 0) {
        DS_ERR("request json array is empty");
        return -1;
    }
    for (size_t i = 0; i < n; ++i) {
        if (!json_object_array_get_idx(req, i)) {
            DS_ERR("get json array element failed");
            return -1;
        }
    }
    if (!stored) {
        *changed = 1;
        return 0;
    }
    std::string stored_text = plain_text(stored);
    std::string req_text = plain_text(req);
    bool same = elements_within(req, stored_text.c_str());
    if (same && json_object_is_type(stored, json_type_array))
        same = elements_within(stored, req_text.c_str());
    *changed = same ? 0 : 1;
    return 0;
}

// Whether one requested option differs from uci; -1 for a bad value.
static int diff_option(const char *name, json_object *req, json_object *stored, int *changed)
{
    if (json_object_is_type(req, json_type_array)) {
        if (compare_list_option(req, stored, changed) != 0) {
            DS_ERR("diff list option [%s] failed.", name);
            return -1;
        }
        return 0;
    }
    if (!json_object_is_type(req, json_type_string)) {
        DS_ERR("diff option [%s] failed.", name);
        return -1;
    }
    const char *text = json_object_get_string(req);
    if (!stored)
        *changed = text[0] != '\0';
    else
        *changed = !json_object_is_type(stored, json_type_string) ||
                   strcmp(text, json_object_get_string(stored)) != 0;
    return 0;
}

// Drops the unchanged options of one requested section.
static int diff_single_section(const char *name, json_object *req_sec, json_object *uci_pkg,
                               int *sec_changed)
{
    DS_INFO("get section [%s]", name);
    json_object *uci_sec = jso_obj_get(uci_pkg, name);
    if (!uci_sec) {
        DS_ERR("section [%s] does not exist in uci file.", name);
        return -1;
    }
    if (jso_foreach_modify_int_to_string(req_sec) != 0) {
        DS_ERR("failed to convert int to string.");
        return -1;
    }
    json_object_object_foreach(req_sec, opt, val) {
        DS_INFO("get option [%s]", opt);
        int changed = 0;
        if (diff_option(opt, val, jso_obj_get(uci_sec, opt), &changed) != 0)
            return -1;
        if (!changed) {
            DS_INFO("option [%s] is not changed.", opt);
            json_object_object_del(req_sec, opt);
        }
        *sec_changed |= changed;
        DS_INFO("option changed: %d", *sec_changed);
    }
    return 0;
}

// Drops the unchanged sections of one requested module.
static int diff_single_package(ds_context *ctx, const ds_module *mod, json_object *req_mod,
                               int *pkg_changed)
{
    if (json_object_object_length(req_mod) == 0) {
        DS_ERR("new package is empty.");
        return -1;
    }
    jso_ptr pkg(uci_cache_package_part(ctx->uci_ctx, mod->package, req_mod));
    if (!pkg) {
        DS_ERR("parameter error.");
        return -1;
    }
    json_object_object_foreach(req_mod, sec, val) {
        if (!json_object_is_type(val, json_type_object))
            continue;
        int changed = 0;
        if (diff_single_section(sec, val, pkg.get(), &changed) != 0) {
            DS_ERR("diff section [%s] failed.", sec);
            return -1;
        }
        if (!changed) {
            DS_INFO("section [%s] is not changed.", sec);
            json_object_object_del(req_mod, sec);
        }
        *pkg_changed |= changed;
        DS_INFO("section changed: %d", *pkg_changed);
    }
    return 0;
}

// Cuts the set request down to what differs from uci. A bad value or a
// section missing from uci fails without touching the error code.
static int diff_data_set(ds_context *ctx, int *changed)
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
        const ds_module *mod = pipeline_module(ctx, mod_name, -40101);
        if (!mod)
            return -1;
        int pkg_changed = 0;
        if (diff_single_package(ctx, mod, req_mod, &pkg_changed) != 0) {
            DS_ERR("diff_single_package [%s] failed.", mod_name);
            return -1;
        }
        if (!pkg_changed) {
            DS_INFO("package [%s] is not changed.", mod_name);
            json_object_object_del(ctx->req_obj, mod_name);
        }
        *changed |= pkg_changed;
        DS_INFO("package changed: %d", *changed);
    }
    return 0;
}

// A text fit for one line of a configuration file: no control character,
// except line breaks and tabs where the row takes multi-line text.
static bool text_is_one_line(const char *text, uint8_t flags)
{
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(text); *p; p++) {
        bool allowed = (flags & DS_OPT_MULTILINE) && (*p == '\n' || *p == '\r' || *p == '\t');
        if ((*p < 0x20 || *p == 0x7f) && !allowed)
            return false;
    }
    return true;
}

// The strings of a value (the value itself or the items of a list) are all
// fit for one line. Other JSON types are the row checker's business.
static bool value_is_one_line(json_object *val, uint8_t flags)
{
    if (json_object_is_type(val, json_type_string))
        return text_is_one_line(json_object_get_string(val), flags) &&
               strlen(json_object_get_string(val)) == static_cast<size_t>(json_object_get_string_len(val));
    if (!json_object_is_type(val, json_type_array))
        return true;
    for (size_t i = 0; i < json_object_array_length(val); i++) {
        if (!value_is_one_line(json_object_array_get_idx(val, i), flags))
            return false;
    }
    return true;
}

// The code of a value refused for its control characters: the row's own
// code when it has one, like any other refusal of the row, else the string
// check's code for text it cannot take.
static int32_t one_line_refusal(const char *opt, const ds_opt *row)
{
    DS_ERR("Option %s holds a control character.", opt);
    return row->err_code != 0 ? row->err_code : -70231;
}

int filter_opt_args(ds_context *ctx, const ds_module *mod, const char *section, int by_name,
                    json_object *params)
{
    const ds_sec *sec = find_section(mod, section, by_name);
    if (!sec) {
        DS_ERR("Section %s not support.", section);
        ctx->error_code = -40106;
        return -1;
    }
    if (sec->data_kind != DS_DATA_UCI) {
        DS_ERR("Only uci config data is supported to set.");
        ctx->error_code = -40106;
        return -1;
    }
    if (!json_object_is_type(params, json_type_object)) {
        DS_ERR("Request signal is illegal.");
        ctx->error_code = -40210;
        return -1;
    }
    json_object_object_foreach(params, opt, val) {
        const ds_opt *row = get_filter_node(sec, opt);
        if (!row || !row->checker) {
            // Unknown options are dropped, never written: clients send whole
            // sections back, read-only members included.
            DS_INFO("Option %s's filter function not found. Ignore.", opt);
            json_object_object_del(params, opt);
            continue;
        }
        int32_t ret = value_is_one_line(val, row->flags) ? 0 : one_line_refusal(opt, row);
        if (ret == 0)
            ret = row->checker(ctx, val, params, row->arg, row->err_code);
        if (ret != 0) {
            DS_ERR("Option %s param illegal.", opt);
            ctx->error_code = ret;
            return -1;
        }
    }
    return 0;
}

static int filter_args_set(ds_context *ctx)
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
            if (filter_opt_args(ctx, mod, sec, 1, params) != 0) {
                DS_ERR("Filter module [%s]-%s data failed", mod_name, sec);
                return -1;
            }
        }
    }
    return 0;
}

static int save_diffdata_set(ds_context *ctx, store_txn *txn)
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
            if (set_uci_section(txn, mod->package, sec, params) != 0) {
                DS_ERR("Run set_uci_section [%s]-%s failed", mod_name, sec);
                ctx->error_code = -40101;
                return -1;
            }
        }
    }
    return 0;
}

static int diff_data(ds_context *ctx, int *changed)
{
    *changed = 0;
    switch (ctx->method) {
    case DS_METHOD_SET: return diff_data_set(ctx, changed);
    case DS_METHOD_ADD: return diff_data_add(ctx, changed);
    case DS_METHOD_DELETE: return diff_data_del(ctx, changed);
    default: return unsupported_method(ctx);
    }
}

static int filter_args(ds_context *ctx)
{
    switch (ctx->method) {
    case DS_METHOD_SET: return filter_args_set(ctx);
    case DS_METHOD_ADD: return filter_args_add(ctx);
    case DS_METHOD_DELETE: return 0;
    default: return unsupported_method(ctx);
    }
}

static int run_callbacks(ds_context *ctx, int cb_type)
{
    switch (ctx->method) {
    case DS_METHOD_SET: return do_callback_set(ctx, cb_type);
    case DS_METHOD_ADD: return do_callback_add(ctx, cb_type);
    case DS_METHOD_DELETE: return do_callback_del(ctx, cb_type);
    default: return unsupported_method(ctx);
    }
}

static int do_beforesavecb(ds_context *ctx)
{
    return run_callbacks(ctx, DS_CB_BEFORE_SAVE);
}

static int do_srvcb(ds_context *ctx)
{
    return run_callbacks(ctx, DS_CB_SERVICE);
}

static int save_diffdata(ds_context *ctx, store_txn *txn)
{
    switch (ctx->method) {
    case DS_METHOD_SET: return save_diffdata_set(ctx, txn);
    case DS_METHOD_ADD: return save_diffdata_add(ctx, txn);
    case DS_METHOD_DELETE: return save_diffdata_del(ctx, txn);
    default: return unsupported_method(ctx);
    }
}

// Commits every touched package; the camera-channel modules use the light
// commit because they change far more often than the flash should be written.
static int commit_uci(ds_context *ctx, store_txn *txn)
{
    if (request_empty(ctx)) {
        DS_ERR("Request signal is illegal.");
        ctx->error_code = -40209;
        return -1;
    }
    json_object_object_foreach(ctx->req_obj, mod_name, req_mod) {
        if (!json_object_is_type(req_mod, json_type_object))
            continue;
        DS_INFO("Run commit_uci in module [%s]", mod_name);
        const ds_module *mod = pipeline_module(ctx, mod_name, -40106);
        if (!mod)
            return -1;
        if (store_txn_commit(txn, mod->package, mod->ch != 0) != 0) {
            DS_ERR(mod->ch ? "dummy commit %s uci failed" : "commit %s uci failed",
                   mod->package ? mod->package : "");
            ctx->error_code = -40101;
            return -1;
        }
        change_event_commit(ctx, mod, req_mod); // tell the bus
    }
    return 0;
}

// Takes the package of every module the request names into the
// transaction, in name order, and drops any copy the context loaded before:
// the diff and the checks must read what the commit will merge into.
// Unknown modules are left to the steps.
static int lock_request_packages(ds_context *ctx, store_txn *txn)
{
    ds_model_root *root = get_model_root();
    std::vector<std::string> packages;
    if (root && json_object_is_type(ctx->req_obj, json_type_object)) {
        json_object_object_foreach(ctx->req_obj, mod_name, req_mod) {
            const ds_module *mod = get_module_node(root, mod_name);
            if (mod && mod->package && json_object_is_type(req_mod, json_type_object))
                packages.push_back(mod->package);
        }
    }
    if (store_txn_lock(txn, packages) != 0) {
        ctx->error_code = -40101;
        return -1;
    }
    return 0;
}

// Diff to commit in one transaction over the request's packages; 1 when
// nothing changed. A failure at any step leaves every package that was not
// committed as it was: nothing of the request is staged or visible.
static int run_locked_steps(ds_context *ctx)
{
    store_txn txn(ctx->uci_ctx);
    // The before-save callbacks stage into the same transaction.
    struct txn_slot {
        ds_context *ctx;
        ~txn_slot() { ctx->txn = nullptr; }
    } slot{ctx};
    ctx->txn = &txn;
    if (lock_request_packages(ctx, &txn) != 0)
        return -1;
    int changed = 0;
    if (diff_data(ctx, &changed) != 0) {
        DS_ERR("Get diff data failed.");
        return -1;
    }
    if (!changed) {
        DS_INFO("Data unchanged.");
        return 1;
    }
    if (filter_args(ctx) != 0) {
        DS_ERR("Filter args failed.");
        return -1;
    }
    if (do_beforesavecb(ctx) != 0) {
        DS_ERR("Run do_beforesavecb failed.");
        return -1;
    }
    if (save_diffdata(ctx, &txn) != 0) {
        DS_ERR("Run save_diffdata failed.");
        return -1;
    }
    if (commit_uci(ctx, &txn) != 0) {
        DS_ERR("Run commit_uci failed.");
        return -1;
    }
    return 0;
}

// The service callbacks run after the packages are released: they apply
// what is committed and may commit other packages themselves.
static int run_pipeline(ds_context *ctx, bool with_srvcb)
{
    if (!ctx || ctx->fd < 0 || !ctx->req_obj) {
        DS_ERR("Invalid params.");
        return -1;
    }
    int rc = run_locked_steps(ctx);
    if (rc < 0)
        return -1;
    if (rc == 0 && with_srvcb && do_srvcb(ctx) != 0) {
        DS_ERR("Run do_srvcb failed.");
        return -1;
    }
    ctx->error_code = 0;
    return 0;
}

// Handler of method codes 2 (add), 3 (delete) and 4 (set). The request
// object is edited in place down to the real changes, so callbacks see only
// those. 0 on success (also when nothing changed: "Data unchanged."), -1
// with the error code of the failing step. Worker thread of `ctx`.
int ds_handle_method_set(ds_context *ctx)
{
    return run_pipeline(ctx, true);
}
