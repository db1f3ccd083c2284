// What a committed change announces on the bus (platform/config_events):
// the module and package, the changed sections (and for a set the changed
// option names), the method, the user. Values are never sent, so no secret
// can leave this way.
#pragma once

struct ds_context;
struct ds_module;
struct json_object;

// After the set, add or delete pipeline committed `mod`'s package:
// `req_mod` is the module's request cut down to what changed. Worker
// thread of ctx; never fails the request.
void change_event_commit(const ds_context *ctx, const ds_module *mod, json_object *req_mod);

// Before a do action runs: forgets commits noted earlier on this thread.
void change_event_action_start(void);
// After a do action of `mod` succeeded: one event per package the action
// committed (or replaced by a restore). Worker thread of ctx.
void change_event_action(const ds_context *ctx, const ds_module *mod, const char *keyword);
