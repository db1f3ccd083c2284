// The changing methods: set, add and delete. Each is one function over the
// request's plan (model/plan.h), in the same step order: lock the packages,
// diff against uci, check, before-save callbacks, stage, commit, unlock,
// service callbacks and the modules' after-commit hooks. Every step returns
// 0 or the response's error code. Runs on the worker thread that owns the
// request context, through one store transaction: a failure before a
// package's commit leaves that package as it was.
#include <json-c/json.h>

#include <cstring>
#include <string>

#include "model/request.h"
#include "model/methods.h"
#include "model/model_raii.h"
#include "model/change_events.h"
#include "model/plan.h"
#include "model/section_lookup.h"
#include "platform/error_codes.h"
#include "platform/jso.h"
#include "platform/trace.h"
#include "store/store.h"

namespace {

bool request_empty(const ds_context *ctx)
{
    return !json_object_is_type(ctx->req_obj, json_type_object) ||
           json_object_object_length(ctx->req_obj) == 0;
}

int32_t illegal_request(void)
{
    DS_ERR("Request signal is illegal.");
    return DS_ERR_ILLEGAL;
}

int32_t unknown_module(const plan_module &pm)
{
    DS_ERR("Module %s not support.", pm.name);
    return DS_ERR_REQUEST;
}

// JSON text of a value in the compact form used by the list comparison.
const char *plain_text(json_object *v)
{
    return json_object_to_json_string_ext(v, JSON_C_TO_STRING_PLAIN);
}

// Every element of `list` must appear (by JSON text) inside `whole`.
bool elements_within(json_object *list, const char *whole)
{
    size_t n = json_object_array_length(list);
    for (size_t i = 0; i < n; ++i) {
        if (!strstr(whole, plain_text(json_object_array_get_idx(list, i))))
            return false;
    }
    return true;
}

// Whether one requested option differs from uci, ignoring the order and
// repetition of list items; -1 for a bad value (an empty or holed list, a
// value neither text nor list).
int diff_option(const char *name, json_object *req, json_object *stored, int *changed)
{
    if (json_object_is_type(req, json_type_array)) {
        size_t n = json_object_array_length(req);
        for (size_t i = 0; i < n; ++i) {
            if (!json_object_array_get_idx(req, i))
                n = 0;
        }
        if (n == 0) {
            DS_ERR("diff list option [%s] failed.", name);
            return -1;
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
    if (!json_object_is_type(req, json_type_string)) {
        DS_ERR("diff option [%s] failed.", name);
        return -1;
    }
    const char *text = json_object_get_string(req);
    *changed = !stored ? text[0] != '\0'
                       : !json_object_is_type(stored, json_type_string) ||
                             strcmp(text, json_object_get_string(stored)) != 0;
    return 0;
}

// Drops the unchanged options of one requested section; *changed tells
// whether any is left. -1 when the section is not in uci or a value is bad.
int diff_section(const plan_section &ps, json_object *uci_pkg, int *changed)
{
    DS_INFO("get section [%s]", ps.name);
    json_object *uci_sec = jso_obj_get(uci_pkg, ps.name);
    if (!uci_sec) {
        DS_ERR("section [%s] does not exist in uci file.", ps.name);
        return -1;
    }
    if (jso_foreach_modify_int_to_string(ps.params) != 0) {
        DS_ERR("failed to convert int to string.");
        return -1;
    }
    json_object_object_foreach(ps.params, opt, val) {
        DS_INFO("get option [%s]", opt);
        int opt_changed = 0;
        if (diff_option(opt, val, jso_obj_get(uci_sec, opt), &opt_changed) != 0)
            return -1;
        if (!opt_changed) {
            DS_INFO("option [%s] is not changed.", opt);
            json_object_object_del(ps.params, opt);
        }
        *changed |= opt_changed;
    }
    return 0;
}

// Cuts one module of a set down to what differs from uci, in the request
// (callbacks read it) and in the plan. *changed tells whether anything is
// left. 0 or the error code.
int32_t diff_set_module(ds_context *ctx, plan_module *pm, int *changed)
{
    DS_INFO("Request in module [%s]", pm->name);
    if (!pm->mod)
        return unknown_module(*pm);
    jso_ptr pkg(json_object_object_length(pm->req) == 0
                    ? nullptr
                    : uci_cache_package_part(ctx->uci_ctx, pm->mod->package, pm->req));
    if (!pkg) {
        DS_ERR("diff_single_package [%s] failed.", pm->name);
        return DS_ERR_REQUEST;
    }
    std::vector<plan_section> kept;
    for (plan_section &ps : pm->sections) {
        int sec_changed = 0;
        if (diff_section(ps, pkg.get(), &sec_changed) != 0) {
            DS_ERR("diff section [%s] failed.", ps.name);
            return DS_ERR_REQUEST;
        }
        if (!sec_changed) {
            DS_INFO("section [%s] is not changed.", ps.name);
            json_object_object_del(pm->req, ps.name);
        } else {
            kept.push_back(ps);
        }
    }
    pm->sections.swap(kept);
    *changed = !pm->sections.empty();
    return 0;
}

// A text fit for one line of a configuration file: no control character,
// except line breaks and tabs where the row takes multi-line text.
bool text_is_one_line(const char *text, uint8_t flags)
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
bool value_is_one_line(json_object *val, uint8_t flags)
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

// Binds the section's row and checks its options in place: options without
// a checker are dropped silently (clients send whole sections back,
// read-only members included); the first refused value gives its code.
int32_t check_section(ds_context *ctx, const ds_module *mod, plan_section *ps)
{
    const char *lookup = ps->type ? ps->type : ps->name;
    ps->row = find_section(mod, lookup, ps->by_name);
    if (!ps->row || ps->row->data_kind != DS_DATA_UCI) {
        DS_ERR(ps->row ? "Only uci config data is supported to set." : "Section %s not support.", lookup);
        return DS_ERR_UNSUPPORTED;
    }
    if (!json_object_is_type(ps->params, json_type_object)) {
        DS_ERR("Request signal is illegal.");
        return DS_ERR_BAD_REQUEST;
    }
    json_object_object_foreach(ps->params, opt, val) {
        const ds_opt *row = get_filter_node(ps->row, opt);
        if (!row || !row->checker) {
            DS_INFO("Option %s's filter function not found. Ignore.", opt);
            json_object_object_del(ps->params, opt);
            continue;
        }
        int32_t ret = 0;
        if (!value_is_one_line(val, row->flags)) {
            DS_ERR("Option %s holds a control character.", opt);
            ret = row->err_code != 0 ? row->err_code : -70231;
        }
        if (ret == 0)
            ret = row->checker(ctx, val, ps->params, row->arg, row->err_code);
        if (ret != 0) {
            DS_ERR("Option %s param illegal.", opt);
            return ret;
        }
    }
    return 0;
}

// The row of a delete target, bound at its before-save callback (the
// section still exists then) and kept for the service callback; set and add
// bound theirs in the check.
int32_t bind_target_row(const ds_module *mod, plan_section *ps)
{
    if (ps->row)
        return 0;
    ps->row = find_section(mod, ps->name, ps->by_name);
    if (!ps->row) {
        DS_TRACE_AS("do_sec_cb", TRACE_INFO, "Section name or type %s not found.", ps->name);
        return DS_ERR_UNSUPPORTED;
    }
    return 0;
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

// add: the type registered, room left for one more, the name well formed.
int32_t check_new_section(ds_context *ctx, const ds_module *mod, const plan_section &ps)
{
    const auto *row = static_cast<const ds_sec *>(get_ds_node(mod, ps.type, DS_NODE_SEC_TYPE));
    if (!row) {
        DS_ERR("Section type %s not support.", ps.type);
        return DS_ERR_UNSUPPORTED;
    }
    int count = get_sec_type_num(ctx->uci_ctx, mod->package, ps.type);
    if (count < 0) {
        DS_ERR("Get section %s num failed.", ps.type);
        return DS_ERR_REQUEST;
    }
    if (count >= row->max_sec) {
        DS_ERR("Section %s is full.", ps.type);
        return DS_ERR_SECTION_LIMIT;
    }
    if (!add_name_ok(ps.type, ps.name)) {
        DS_ERR("Section name %s is illegal.", ps.name);
        return -70204;
    }
    return 0;
}

// delete: a type (by_name 0) must hold a section, a name must exist.
int32_t check_delete_target(ds_context *ctx, const ds_module *mod, const plan_section &ps)
{
    if (ps.by_name) {
        if (section_exist(ctx->uci_ctx, mod->package, ps.name) == 1)
            return 0;
        DS_ERR("Section %s do not exit.", ps.name);
        return DS_ERR_NO_SECTION;
    }
    int count = get_sec_type_num(ctx->uci_ctx, mod->package, ps.name);
    if (count < 0) {
        DS_ERR("Get section %s num failed.", ps.name);
        return DS_ERR_REQUEST;
    }
    if (count == 0) {
        DS_ERR("Section %s do not exit.", ps.name);
        return DS_ERR_NO_SECTION;
    }
    return 0;
}

enum cb_kind { CB_BEFORE_SAVE, CB_SERVICE };

// Runs one section's before-save or service callback; a row without one
// passes. A service callback's row may also call for the module's hook.
int32_t run_section_cb(ds_context *ctx, plan_module *pm, plan_section &ps, cb_kind kind)
{
    if (int32_t rc = bind_target_row(pm->mod, &ps))
        return rc;
    ds_sec_cb_fn cb = kind == CB_BEFORE_SAVE ? ps.row->beforesavecb : ps.row->srvcb;
    if (kind == CB_SERVICE && (ps.row->flags & DS_SEC_AFTER_COMMIT))
        pm->hook_due = true;
    int32_t ret = cb ? cb(ctx) : 0;
    if (ret != 0) {
        DS_INFO(kind == CB_BEFORE_SAVE ? "Run beforesavecb in %s failed." : "Run srvcb in %s failed.",
                ps.name);
        DS_ERR("Run do_sec_cb [%s]-%s failed", pm->name, ps.name);
    }
    return ret;
}

// Every section's callback of one kind, in plan order; then, after the
// service callbacks, each module's after-commit hook once when due. What a
// callback commits itself is announced as its module's change.
int32_t run_callbacks(ds_context *ctx, ds_plan *plan, cb_kind kind, change_told *told)
{
    for (plan_module &pm : plan->modules) {
        for (plan_section &ps : pm.sections) {
            int32_t rc = run_section_cb(ctx, &pm, ps, kind);
            change_event_noted(told, pm.mod, kind == CB_SERVICE);
            if (rc)
                return rc;
        }
    }
    for (plan_module &pm : plan->modules) {
        if (kind != CB_SERVICE || !pm.hook_due || !pm.mod->after_commit)
            continue;
        int32_t rc = pm.mod->after_commit(ctx);
        change_event_noted(told, pm.mod, true);
        if (rc) {
            DS_INFO("Run after_commit of %s failed.", pm.name);
            return rc;
        }
    }
    return 0;
}

// Commits every module's package; the camera-channel modules use the light
// commit because they change far more often than the flash should be written.
int32_t commit_plan(const ds_plan &plan, store_txn *txn, change_told *told)
{
    for (const plan_module &pm : plan.modules) {
        DS_INFO("Run commit_uci in module [%s]", pm.name);
        if (store_txn_commit(txn, pm.mod->package, pm.mod->ch != 0) != 0) {
            DS_ERR(pm.mod->ch ? "dummy commit %s uci failed" : "commit %s uci failed",
                   pm.mod->package ? pm.mod->package : "");
            return DS_ERR_REQUEST;
        }
        change_event_commit(told, pm.mod, pm.req); // tell the bus
    }
    return 0;
}

// The open transaction of one changing request: its packages locked in name
// order and any copy the context loaded before dropped, so the diff and the
// checks read what the commit will merge into. The before-save callbacks
// stage into it through ctx->txn; the destructor unlocks.
struct change_txn {
    ds_context *ctx;
    store_txn txn;
    explicit change_txn(ds_context *c) : ctx(c), txn(c->uci_ctx) { ctx->txn = &txn; }
    ~change_txn() { ctx->txn = nullptr; }
    // Releases the packages once everything is committed.
    void end()
    {
        store_txn_drop(&txn);
        ctx->txn = nullptr;
    }
    change_txn(const change_txn &) = delete;
    change_txn &operator=(const change_txn &) = delete;
};

bool usable(const ds_context *ctx)
{
    if (!ctx || !ctx->req_obj) {
        DS_ERR("Invalid params.");
        return false;
    }
    return true;
}

// The first step of every changing method: the plan's packages locked in
// name order for the transaction's lifetime; an empty request is refused
// only then, as it always was.
int32_t lock_plan(ds_context *ctx, const ds_plan &plan, change_txn *open)
{
    if (store_txn_lock(&open->txn, plan_packages(plan)) != 0)
        return DS_ERR_REQUEST;
    return request_empty(ctx) ? illegal_request() : DS_OK;
}

// The steps after the plan is cut to its changes (set) or checked (add,
// delete): before-save callbacks, staging by `stage`, commit; then, with
// the packages released, the service callbacks.
template <typename Stage>
int32_t finish_change(ds_context *ctx, ds_plan *plan, change_txn *open, Stage stage)
{
    change_told told(ctx);
    if (int32_t rc = run_callbacks(ctx, plan, CB_BEFORE_SAVE, &told)) {
        DS_ERR("Run do_beforesavecb failed.");
        return rc;
    }
    for (plan_module &pm : plan->modules) {
        for (plan_section &ps : pm.sections) {
            if (stage(&open->txn, pm, ps) != 0) {
                DS_ERR("Run save_diffdata [%s]-%s failed", pm.name, ps.name);
                return DS_ERR_REQUEST;
            }
        }
    }
    if (int32_t rc = commit_plan(*plan, &open->txn, &told)) {
        DS_ERR("Run commit_uci failed.");
        return rc;
    }
    open->end();
    if (int32_t rc = run_callbacks(ctx, plan, CB_SERVICE, &told)) {
        DS_ERR("Run do_srvcb failed.");
        return rc;
    }
    return DS_OK;
}

} // namespace

// set: {module: {section: {option: value}}}. The request is cut down in
// place to the options that differ from uci, so callbacks see only those;
// nothing changed answers 0 ("Data unchanged."). 0 or the failing step's
// code. Worker thread of `ctx`.
int32_t ds_set(ds_context *ctx)
{
    if (!usable(ctx))
        return DS_ERR_REQUEST;
    ds_plan plan = plan_bind(ctx, DS_METHOD_SET);
    change_txn open(ctx);
    if (int32_t rc = lock_plan(ctx, plan, &open))
        return rc;
    int changed = 0;
    std::vector<plan_module> kept;
    for (plan_module &pm : plan.modules) {
        int pkg_changed = 0;
        if (int32_t rc = diff_set_module(ctx, &pm, &pkg_changed)) {
            DS_ERR("Get diff data failed.");
            return rc;
        }
        if (!pkg_changed) {
            DS_INFO("package [%s] is not changed.", pm.name);
            json_object_object_del(ctx->req_obj, pm.name);
            continue;
        }
        changed = 1;
        kept.push_back(std::move(pm));
    }
    plan.modules.swap(kept);
    if (!changed) {
        DS_INFO("Data unchanged.");
        return DS_OK;
    }
    for (plan_module &pm : plan.modules) {
        for (plan_section &ps : pm.sections) {
            if (int32_t rc = check_section(ctx, pm.mod, &ps)) {
                DS_ERR("Filter module [%s]-%s data failed", pm.name, ps.name);
                return rc;
            }
        }
    }
    return finish_change(ctx, &plan, &open,
                         [](store_txn *txn, const plan_module &pm, const plan_section &ps) {
                             return set_uci_section(txn, pm.mod->package, ps.name, ps.params);
                         });
}

// add: {module: {"table": type, "name": new section, "para": options}}, one
// new section per module, named after its type ("<type>_<n>"). 0 or the
// failing step's code. Worker thread of `ctx`.
int32_t ds_add(ds_context *ctx)
{
    if (!usable(ctx))
        return DS_ERR_REQUEST;
    ds_plan plan = plan_bind(ctx, DS_METHOD_ADD);
    change_txn open(ctx);
    if (int32_t rc = lock_plan(ctx, plan, &open))
        return rc;
    for (const plan_module &pm : plan.modules) {
        DS_INFO("Request in module [%s]", pm.name);
        if (pm.bad) {
            DS_ERR("Request signal is illegal.");
            return pm.bad;
        }
        if (!pm.mod)
            return unknown_module(pm);
        if (section_exist(ctx->uci_ctx, pm.mod->package, pm.sections[0].name) == 1) {
            DS_ERR("Section %s exit.", pm.sections[0].name);
            return DS_ERR_SECTION_EXISTS;
        }
    }
    for (plan_module &pm : plan.modules) {
        plan_section &ps = pm.sections[0];
        int32_t rc = check_new_section(ctx, pm.mod, ps);
        if (rc == 0)
            rc = check_section(ctx, pm.mod, &ps);
        if (rc != 0) {
            DS_ERR("Filter module [%s]-%s data failed", pm.name, ps.type);
            return rc;
        }
    }
    return finish_change(ctx, &plan, &open,
                         [](store_txn *txn, const plan_module &pm, const plan_section &ps) {
                             return add_new_section(txn, pm.mod->package, ps.type, ps.name) != 0 ||
                                            set_uci_section(txn, pm.mod->package, ps.name, ps.params) != 0
                                        ? -1 : 0;
                         });
}

// delete: {module: {"table"|"name": text or array of texts}} removes whole
// types and single sections. 0 or the failing step's code. Worker thread of
// `ctx`.
int32_t ds_delete(ds_context *ctx)
{
    if (!usable(ctx))
        return DS_ERR_REQUEST;
    ds_plan plan = plan_bind(ctx, DS_METHOD_DELETE);
    change_txn open(ctx);
    if (int32_t rc = lock_plan(ctx, plan, &open))
        return rc;
    for (const plan_module &pm : plan.modules) {
        if (!pm.mod)
            return unknown_module(pm);
        for (const plan_section &ps : pm.sections) {
            int32_t rc = ps.bad;
            if (rc != 0)
                DS_ERR("Invalid get request.");
            else
                rc = check_delete_target(ctx, pm.mod, ps);
            if (rc != 0) {
                DS_ERR("Delete module [%s]-%s data failed", pm.name, ps.name);
                return rc;
            }
        }
    }
    return finish_change(ctx, &plan, &open,
                         [](store_txn *txn, const plan_module &pm, const plan_section &ps) {
                             if ((ps.by_name ? delete_section(txn, pm.mod->package, ps.name)
                                             : delete_section_type(txn, pm.mod->package, ps.name)) == 0)
                                 return 0;
                             DS_TRACE_AS("del_sec_data", TRACE_ERROR,
                                         ps.by_name ? "Delete section name %s data failed."
                                                    : "Delete section type %s data failed.",
                                         ps.name);
                             return -1;
                         });
}
