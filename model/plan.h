// A changing request (set, add, delete) bound once to the registry: the
// modules it names with their descriptors, and each section it touches with
// its row and parameters, in request order. The steps of the method read
// the plan instead of walking the request again (model-internal).
#pragma once

#include <json-c/json.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model/registry.h"

struct ds_context;

struct plan_section {
    const char *name;     // set: the section; add: the new section; delete: a type or name
    const char *type;     // add: the new section's type (the row and callbacks go by it)
    int by_name;          // 1: a named section, 0: looked up as a section type
    json_object *params;  // set: its options, add: "para" (both edited in place); delete: null
    const ds_sec *row;    // bound by the check (set, add) or before-save (delete) step
    int32_t bad;          // non-zero: the request is malformed here, with this code
};

struct plan_module {
    const char *name;     // as the request names it
    const ds_module *mod; // null when the registry has none
    json_object *req;     // the module's member of the request
    std::vector<plan_section> sections;
    int32_t bad;          // non-zero: the module's request is malformed, with this code
    bool hook_due;        // a DS_SEC_AFTER_COMMIT section of it was changed
};

struct ds_plan {
    std::vector<plan_module> modules;
};

// Binds ctx->req_obj for `method` (DS_METHOD_SET, _ADD or _DELETE): one
// plan_module per object member, looked up once. Never fails: what cannot
// be bound is marked (mod null, bad set) for the step that reports it, so
// every error keeps the step and code it always had. Worker thread of ctx.
ds_plan plan_bind(ds_context *ctx, int method);

// The packages of the plan's known modules, for the store's lock.
std::vector<std::string> plan_packages(const ds_plan &plan);
