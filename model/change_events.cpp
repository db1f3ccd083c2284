#include "model/change_events.h"

#include <json-c/json.h>

#include <algorithm>
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

bool told_already(const change_told *t, const std::string &package)
{
    return std::find(t->told.begin(), t->told.end(), package) != t->told.end();
}

// One event for a package a callback of `mod` committed: no sections are
// known, only the package.
void announce_noted(change_told *t, const ds_module *mod, const std::string &package)
{
    if (told_already(t, package))
        return;
    t->told.push_back(package);
    if (json_object *ev = event_base(t->ctx, mod->name, package.c_str()))
        config_event_post(package.c_str(), ev);
}

} // namespace

change_told::change_told(const ds_context *c) : ctx(c)
{
    config_commits_take();
}

change_told::~change_told()
{
    for (const auto &[package, mod] : pending)
        announce_noted(this, mod, package);
}

void change_event_noted(change_told *t, const ds_module *mod, bool now)
{
    if (!t || !t->ctx || !mod)
        return;
    for (std::string &package : config_commits_take()) {
        if (now)
            announce_noted(t, mod, package);
        else
            t->pending.emplace_back(std::move(package), mod);
    }
}

void change_event_commit(change_told *t, const ds_module *mod, json_object *req_mod)
{
    if (!t || !t->ctx || !mod || !mod->package || !json_object_is_type(req_mod, json_type_object))
        return;
    // The request's own commit of the package is noted too; its event is this one.
    config_commits_take();
    if (told_already(t, mod->package))
        return;
    t->told.emplace_back(mod->package);
    const ds_context *ctx = t->ctx;
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
