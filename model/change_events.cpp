#include "model/change_events.h"

#include <json-c/json.h>

#include <algorithm>
#include <cstdio>
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

// The event is written as JSON text directly: building json-c objects and
// serialising them cost more than the rest of a set's commit path.

// `text` as a JSON string: quoted, with quotes, backslashes and control
// characters escaped.
void put_text(std::string *out, const char *text)
{
    out->push_back('"');
    const char *run = text;
    for (const char *c = text; *c; ++c) {
        unsigned char u = static_cast<unsigned char>(*c);
        if (u != '"' && u != '\\' && u >= 0x20)
            continue;
        out->append(run, static_cast<size_t>(c - run));
        char esc[8];
        snprintf(esc, sizeof esc, u < 0x20 ? "\\u%04x" : "\\%c", u);
        out->append(esc);
        run = c + 1;
    }
    out->append(run).push_back('"');
}

// ,"key":
void put_key(std::string *out, const char *key)
{
    out->push_back(',');
    put_text(out, key);
    out->push_back(':');
}

// {"module","package","method","user" (no closing brace: the rest follows
// and config_event_post closes it); empty when events are off.
std::string event_head(const ds_context *ctx, const char *module, const char *package)
{
    std::string ev;
    if (!config_events_enabled())
        return ev;
    ev.reserve(192);
    ev.append("{\"module\":");
    put_text(&ev, module);
    put_key(&ev, "package");
    put_text(&ev, package);
    put_key(&ev, "method");
    put_text(&ev, method_name(ctx->method));
    put_key(&ev, "user");
    put_text(&ev, ctx->user ? ctx->user : "");
    return ev;
}

// The text, or each text of an array, as elements of a JSON array.
void put_texts(std::string *out, json_object *val, bool *first)
{
    if (json_object_is_type(val, json_type_string)) {
        if (!*first)
            out->push_back(',');
        *first = false;
        put_text(out, json_object_get_string(val));
        return;
    }
    for (size_t i = 0; json_object_is_type(val, json_type_array) && i < json_object_array_length(val); ++i) {
        json_object *el = json_object_array_get_idx(val, i);
        if (json_object_is_type(el, json_type_string))
            put_texts(out, el, first);
    }
}

// set: {section: {option: value}} -> "sections" and {"options": {section: [names]}}.
void describe_set(std::string *ev, json_object *req_mod)
{
    std::string options = "{";
    put_key(ev, "sections");
    ev->push_back('[');
    bool first = true;
    json_object_object_foreach(req_mod, sec, opts) {
        if (!json_object_is_type(opts, json_type_object))
            continue;
        if (!first) {
            ev->push_back(',');
            options.push_back(',');
        }
        first = false;
        put_text(ev, sec);
        put_text(&options, sec);
        options.append(":[");
        bool first_opt = true;
        json_object_object_foreach(opts, opt, val) {
            (void)val;
            if (!first_opt)
                options.push_back(',');
            first_opt = false;
            put_text(&options, opt);
        }
        options.push_back(']');
    }
    ev->push_back(']');
    put_key(ev, "options");
    ev->append(options).push_back('}');
}

// add {"table", "name", "para"} and delete {"name" | "table": text or array}:
// the named sections, and the types under "types".
void describe_add_delete(std::string *ev, json_object *req_mod)
{
    json_object *val = nullptr;
    bool first = true;
    put_key(ev, "sections");
    ev->push_back('[');
    if (json_object_object_get_ex(req_mod, "name", &val))
        put_texts(ev, val, &first);
    ev->push_back(']');
    if (json_object_object_get_ex(req_mod, "table", &val)) {
        first = true;
        put_key(ev, "types");
        ev->push_back('[');
        put_texts(ev, val, &first);
        ev->push_back(']');
    }
}

// An event with an empty "sections": a package committed by an action or a
// callback, where only the package is known.
std::string event_of_package(const ds_context *ctx, const char *module, const char *package)
{
    std::string ev = event_head(ctx, module, package);
    if (!ev.empty())
        ev.append(",\"sections\":[]");
    return ev;
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
    std::string ev = event_of_package(t->ctx, mod->name, package.c_str());
    if (!ev.empty())
        config_event_post(package.c_str(), std::move(ev));
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
    std::string ev = event_head(t->ctx, mod->name, mod->package);
    if (ev.empty())
        return;
    if (t->ctx->method == DS_METHOD_SET)
        describe_set(&ev, req_mod);
    else
        describe_add_delete(&ev, req_mod);
    config_event_post(mod->package, std::move(ev));
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
        std::string ev = event_of_package(ctx, mod->name, package.c_str());
        if (ev.empty())
            return;
        put_key(&ev, "keyword");
        put_text(&ev, keyword);
        config_event_post(package.c_str(), std::move(ev));
    }
}
