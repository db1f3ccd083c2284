#include "model/change_events.h"

#include <json-c/json.h>

#include <cstring>
#include <string>

#include "model/request.h"
#include "model/registry.h"
#include "platform/config_events.h"

namespace {

const char *method_name(int method)
{
    switch (method) {
    case DS_METHOD_ADD: return "add";
    case DS_METHOD_DELETE: return "delete";
    case DS_METHOD_SET: return "set";
    case DS_METHOD_DO: return "do";
    default: return "other";
    }
}

// {"module", "package", "method", "user", "sections": []}; null when events
// are off.
json_object *event_base(const ds_context *ctx, const char *module, const char *package)
{
    if (!config_events_enabled())
        return nullptr;
    json_object *ev = json_object_new_object();
    json_object_object_add(ev, "module", json_object_new_string(module));
    json_object_object_add(ev, "package", json_object_new_string(package));
    json_object_object_add(ev, "method", json_object_new_string(method_name(ctx->method)));
    json_object_object_add(ev, "user", json_object_new_string(ctx->user ? ctx->user : ""));
    json_object_object_add(ev, "sections", json_object_new_array());
    return ev;
}

// Appends the text, or each text of an array, to the array `to`.
void append_texts(json_object *to, json_object *val)
{
    if (json_object_is_type(val, json_type_string)) {
        json_object_array_add(to, json_object_get(val));
        return;
    }
    for (size_t i = 0; json_object_is_type(val, json_type_array) && i < json_object_array_length(val); ++i) {
        json_object *el = json_object_array_get_idx(val, i);
        if (json_object_is_type(el, json_type_string))
            append_texts(to, el);
    }
}

// The array member `key` of ev, made when absent (borrowed).
json_object *array_member(json_object *ev, const char *key)
{
    json_object *arr = nullptr;
    if (!json_object_object_get_ex(ev, key, &arr)) {
        arr = json_object_new_array();
        json_object_object_add(ev, key, arr);
    }
    return arr;
}

// set: {section: {option: value}} -> sections and {"options": {section: [names]}}.
void describe_set(json_object *ev, json_object *req_mod)
{
    json_object *sections = array_member(ev, "sections");
    json_object *options = json_object_new_object();
    json_object_object_foreach(req_mod, sec, opts) {
        if (!json_object_is_type(opts, json_type_object))
            continue;
        json_object_array_add(sections, json_object_new_string(sec));
        json_object *names = json_object_new_array();
        json_object_object_foreach(opts, opt, val) {
            (void)val;
            json_object_array_add(names, json_object_new_string(opt));
        }
        json_object_object_add(options, sec, names);
    }
    json_object_object_add(ev, "options", options);
}

// add {"table", "name", "para"} and delete {"name" | "table": text or array}:
// the named sections, and the types under "types".
void describe_add_delete(json_object *ev, json_object *req_mod)
{
    json_object *val = nullptr;
    if (json_object_object_get_ex(req_mod, "name", &val))
        append_texts(array_member(ev, "sections"), val);
    if (json_object_object_get_ex(req_mod, "table", &val))
        append_texts(array_member(ev, "types"), val);
}

} // namespace

void change_event_commit(const ds_context *ctx, const ds_module *mod, json_object *req_mod)
{
    if (!ctx || !mod || !mod->package || !json_object_is_type(req_mod, json_type_object))
        return;
    json_object *ev = event_base(ctx, mod->name, mod->package);
    if (!ev)
        return;
    if (ctx->method == DS_METHOD_SET)
        describe_set(ev, req_mod);
    else
        describe_add_delete(ev, req_mod);
    config_event_post(mod->package, ev);
}

void change_event_action_start(void)
{
    config_commits_take();
}

void change_event_action(const ds_context *ctx, const ds_module *mod, const char *keyword)
{
    if (!ctx || !mod || !keyword)
        return;
    for (const std::string &package : config_commits_take()) {
        json_object *ev = event_base(ctx, mod->name, package.c_str());
        if (!ev)
            return;
        json_object_object_add(ev, "keyword", json_object_new_string(keyword));
        config_event_post(package.c_str(), ev);
    }
}
