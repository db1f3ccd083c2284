// The get method: reads the requested sections of any number of modules,
// from uci or from a section's dynamic data operation, into one response.
// Runs on the worker thread that owns the request context.
#include <json-c/json.h>

#include <cstring>
#include <string>
#include <vector>

#include "model/request.h"
#include "model/methods.h"
#include "model/model_raii.h"
#include "model/registry.h"
#include "model/section_lookup.h"
#include "platform/error_codes.h"
#include "platform/jso.h"
#include "platform/trace.h"
#include "store/store.h"

namespace {

// The package snapshot that one module's reads share, taken at the first
// read from uci, so a request sees one state of the package throughout.
struct package_reads {
    uci_snapshot_ref snap;
    bool opened = false;
};

} // namespace

// The snapshot the module's reads share, opened at the first of them.
static const uci_snapshot *package_snapshot(const ds_module *mod, package_reads *reads)
{
    if (!reads->opened) {
        reads->snap = uci_cache_open(mod->package);
        reads->opened = true;
    }
    return reads->snap.get();
}

// One section (by_name 1) or a type's sections from uci: from the shared
// read cache, or through the request's own uci context when the cache
// cannot serve (it then also traces why the package cannot be read).
static json_object *read_uci(ds_context *ctx, const ds_module *mod, const char *name, int by_name,
                             package_reads *reads)
{
    package_snapshot(mod, reads);
    // Clients 1 and 2 get their responses URL-encoded, which walks the tree:
    // they need real section objects, the others take the stored text.
    bool url_coded = ctx->client == 1 || ctx->client == 2;
    if (reads->snap && by_name)
        return url_coded ? uci_snapshot_section(*reads->snap, name)
                         : uci_snapshot_section_text(*reads->snap, name);
    if (reads->snap)
        return uci_snapshot_section_type(*reads->snap, name);
    if (by_name)
        return get_uci_section(ctx->uci_ctx, mod->package, name);
    return get_uci_section_type(ctx->uci_ctx, mod->package, name);
}

// Reads one section (by_name 1) or every section of one type (by_name 0) of
// `mod` into *out (new reference). 0 or the error code.
static int32_t get_section_obj(ds_context *ctx, const ds_module *mod, const char *name, int by_name,
                           json_object **out, package_reads *reads)
{
    if (!ctx || !mod || !name || !out) {
        DS_ERR("Invalid params.");
        return DS_ERR_REQUEST;
    }
    const ds_sec *sec = find_section(mod, name, by_name);
    if (!sec) {
        if (by_name)
            DS_ERR("Section name %s not support.", name);
        else
            DS_ERR("Section type %s not support.", name);
        return DS_ERR_UNSUPPORTED;
    }
    json_object *data = nullptr;
    if (sec->data_kind == DS_DATA_UCI) {
        if (sec->dynamic)
            data = sec->dynamic(ctx, sec);
        else
            data = read_uci(ctx, mod, name, by_name, reads);
    } else if (sec->data_kind == DS_DATA_DYNAMIC) {
        if (!sec->dynamic) {
            DS_ERR("Dynamic data operation is NULL.");
            return DS_ERR_REQUEST;
        }
        data = sec->dynamic(ctx, sec);
    } else {
        return DS_ERR_REQUEST;
    }
    if (!data) {
        DS_ERR("Get section data failed.");
        return DS_ERR_REQUEST;
    }
    *out = data;
    return DS_OK;
}

// Reads one requested string into the module's response object. 0 or the
// error code.
static int32_t get_one(ds_context *ctx, const ds_module *mod, const char *name, int by_name,
                       json_object *mod_res, package_reads *reads)
{
    json_object *data = nullptr;
    if (int32_t rc = get_section_obj(ctx, mod, name, by_name, &data, reads)) {
        if (by_name)
            DS_ERR("Get section name %s data failed.", name);
        else
            DS_ERR("Get section type %s data failed.", name);
        return rc;
    }
    json_object_object_add(mod_res, name, data);
    return DS_OK;
}

static int32_t invalid_get_request(void)
{
    DS_TRACE_AS("get_data_obj", TRACE_ERROR, "Invalid get request.");
    return DS_ERR_BAD_REQUEST;
}

// One member of a module's request: "table" or "name" with a string or an
// array of strings.
static int32_t get_data_member(ds_context *ctx, const ds_module *mod, const char *key,
                           json_object *val, json_object *mod_res, package_reads *reads)
{
    if (!key || !val) {
        DS_TRACE_AS("get_data_obj", TRACE_ERROR, "Invalid params.");
        return DS_ERR_REQUEST;
    }
    int by_name;
    if (strcmp(key, "table") == 0)
        by_name = 0;
    else if (strcmp(key, "name") == 0)
        by_name = 1;
    else
        return invalid_get_request();
    if (json_object_is_type(val, json_type_string))
        return get_one(ctx, mod, json_object_get_string(val), by_name, mod_res, reads);
    if (!json_object_is_type(val, json_type_array))
        return invalid_get_request();
    size_t n = json_object_array_length(val);
    for (size_t i = 0; i < n; ++i) {
        json_object *el = json_object_array_get_idx(val, i);
        if (!el || !json_object_is_type(el, json_type_string))
            return invalid_get_request();
        if (int32_t rc = get_one(ctx, mod, json_object_get_string(el), by_name, mod_res, reads))
            return rc;
    }
    return DS_OK;
}

// The loop over one module's request object; 0, or the code of the failed
// key (traced by name).
static int32_t get_data_obj(ds_context *ctx, const ds_module *mod, json_object *mod_req,
                            json_object *mod_res, package_reads *reads)
{
    json_object_object_foreach(mod_req, key, val) {
        if (int32_t rc = get_data_member(ctx, mod, key, val, mod_res, reads)) {
            DS_ERR("Get module [%s]-%s data failed", mod->name, key ? key : "");
            return rc;
        }
    }
    return DS_OK;
}

// Each requested name of {"name": text or array of texts}, hashed once for
// its two look-ups (model row, cached section).
static bool name_keys(json_object *mod_req, std::vector<name_key> *keys)
{
    if (json_object_object_length(mod_req) != 1)
        return false;
    json_object *val = nullptr;
    if (!json_object_object_get_ex(mod_req, "name", &val))
        return false;
    bool many = json_object_is_type(val, json_type_array);
    size_t n = many ? json_object_array_length(val) : 1;
    keys->reserve(n);
    for (size_t i = 0; i < n; ++i) {
        json_object *el = many ? json_object_array_get_idx(val, i) : val;
        if (!json_object_is_type(el, json_type_string) || !uci_section_name_ok(json_object_get_string(el)))
            return false;
        keys->push_back(name_key_of(json_object_get_string(el)));
    }
    return true;
}

// Whether every name is a plain section of `mod` read from uci.
static bool uci_rows_only(const ds_module *mod, const std::vector<name_key> &keys)
{
    for (const name_key &key : keys) {
        const ds_sec *sec = get_section_node_by_key(mod, key);
        if (!sec || sec->data_kind != DS_DATA_UCI || sec->dynamic)
            return false;
    }
    return true;
}

// Appends each named section's stored text as json-c's spaced form writes
// an object member; a repeated name keeps its first place, as a replaced
// member does. False when the snapshot lacks a name.
static bool append_texts(const uci_snapshot &snap, const std::vector<name_key> &keys,
                         std::string *out)
{
    std::vector<bool> seen(uci_snapshot_section_count(snap));
    out->reserve(keys.size() * 128);
    out->append("{");
    for (const name_key &key : keys) {
        uci_section_text t{};
        if (!uci_snapshot_find_text(snap, key, &t))
            return false;
        if (seen[t.index])
            continue;
        seen[t.index] = true;
        out->append(out->size() > 1 ? ", \"" : " \"").append(key.name, key.len).append("\": ");
        out->append(t.text, t.len);
    }
    out->append(" }");
    return true;
}

// A module's whole answer as one stored text when it only names sections
// the read cache holds: a whole-package get names some 1,100 sections, and
// a json-c member built and serialised for each was most of its cost.
// Null, with nothing traced, when the general path must answer instead.
static json_object *module_from_texts(ds_context *ctx, const ds_module *mod, json_object *mod_req,
                                      package_reads *reads)
{
    std::vector<name_key> keys;
    if (ctx->client == 1 || ctx->client == 2 || !name_keys(mod_req, &keys) || !uci_rows_only(mod, keys))
        return nullptr;
    const uci_snapshot *snap = package_snapshot(mod, reads);
    std::string text;
    if (!snap || !append_texts(*snap, keys, &text))
        return nullptr;
    return jso_new_raw(text.data(), text.size());
}

// Reads one module's request into a new member of `res`. 0, or the error
// code with *keep telling what becomes of the answer: a module that cannot
// be served at all keeps what earlier modules read (*keep true); a bad
// section request discards the whole response.
static int32_t get_module(ds_context *ctx, ds_model_root *root, const char *mod_name,
                          json_object *mod_req, json_object *res, bool *keep)
{
    DS_TRACE_AS("ds_handle_method_get", TRACE_INFO, "Request in module [%s]", mod_name);
    *keep = true;
    json_object *mod_res = json_object_new_object();
    if (!mod_res) {
        DS_TRACE_AS("ds_handle_method_get", TRACE_ERROR, "Create new json object failed.");
        return DS_ERR_REQUEST;
    }
    json_object_object_add(res, mod_name, mod_res);
    const ds_module *mod = get_module_node(root, mod_name);
    if (!mod) {
        DS_TRACE_AS("ds_handle_method_get", TRACE_ERROR, "Module %s not support.", mod_name);
        return DS_ERR_UNSUPPORTED;
    }
    package_reads reads;
    if (json_object *text = module_from_texts(ctx, mod, mod_req, &reads)) {
        json_object_object_add(res, mod_name, text);
        return DS_OK;
    }
    *keep = false;
    return get_data_obj(ctx, mod, mod_req, mod_res, &reads);
}

static void set_response(ds_context *ctx, json_object *res)
{
    if (ctx->res_obj)
        json_object_put(ctx->res_obj);
    ctx->res_obj = res;
}

// get: {module: {"table"|"name": text or array}}; members that are not
// objects are skipped. On success res_obj holds {module: {requested string:
// data}}. A failure in a module's sections answers no data (res_obj null);
// an unknown module keeps what was read before it. 0 or the error code.
// Worker thread of `ctx`.
int32_t ds_get(ds_context *ctx)
{
    if (!ctx || !ctx->req_obj) {
        DS_ERR("Invalid params.");
        return DS_ERR_REQUEST;
    }
    if (!json_object_is_type(ctx->req_obj, json_type_object) ||
        json_object_object_length(ctx->req_obj) == 0) {
        DS_ERR("Request signal is illegal.");
        return DS_ERR_ILLEGAL;
    }
    jso_ptr res(json_object_new_object());
    ds_model_root *root = get_model_root();
    if (!res || !root) {
        DS_ERR(!res ? "Create new json object failed." : "Get model root node failed.");
        return DS_ERR_REQUEST;
    }
    json_object_object_foreach(ctx->req_obj, mod_name, mod_req) {
        if (!json_object_is_type(mod_req, json_type_object))
            continue;
        bool keep = true;
        if (int32_t rc = get_module(ctx, root, mod_name, mod_req, res.get(), &keep)) {
            set_response(ctx, keep ? res.release() : nullptr);
            return rc;
        }
    }
    set_response(ctx, res.release());
    // A request that named no section still succeeded.
    return DS_OK;
}
