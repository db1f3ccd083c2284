// What a committed change announces on the bus (platform/config_events):
// the module and package, the changed sections (and for a set the changed
// option names), the method, the user. Values are never sent, so no secret
// can leave this way.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct ds_context;
struct ds_module;
struct json_object;

// What one set, add or delete request has announced, so that each package
// is announced once however often it was committed (a before-save callback
// may commit the module's own package ahead of the request's commit). Made
// on the worker thread before the request's first callback: it forgets
// commits noted earlier on that thread. Its end announces what callbacks
// committed and nobody announced yet, on every path, so a change a callback
// made final is announced even when a later step refuses the request.
struct change_told {
    const ds_context *ctx;
    std::vector<std::string> told;
    std::vector<std::pair<std::string, const ds_module *>> pending;
    explicit change_told(const ds_context *c);
    ~change_told();
    change_told(const change_told &) = delete;
    change_told &operator=(const change_told &) = delete;
};

// After the set, add or delete pipeline committed `mod`'s package:
// `req_mod` is the module's request cut down to what changed. Worker
// thread of ctx; never fails the request.
void change_event_commit(change_told *t, const ds_module *mod, json_object *req_mod);

// After a callback or after-commit hook of `mod` returned: the packages it
// committed (noted by the store on this thread) that are not announced yet
// are announced now with `mod` as the module (`now`), or, for a before-save
// callback, once the request's own commits are (`now` false).
void change_event_noted(change_told *t, const ds_module *mod, bool now);

// Before a do action runs: forgets commits noted earlier on this thread.
void change_event_action_start(void);
// After a do action of `mod` succeeded: one event per package the action
// committed (or replaced by a restore). Worker thread of ctx.
void change_event_action(const ds_context *ctx, const ds_module *mod, const char *keyword);
