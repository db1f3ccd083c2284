// The ds model: a registry of module descriptors built once at start-up and
// read without locks afterwards.
//
// Adding a module:
//   1. Write modules/<family>/<module>.cpp with static section, type, option
//      and action tables (designated initialisers, a row with a null name last).
//   2. Export only its constructor `int <module>_module_init(void)`, declared
//      in modules/modules.h; it fills any run-time section rows
//      (model_fill_channel_rows) and calls add_module_node.
//   3. Add the constructor to the table in modules/module_table.cpp at its
//      place in the registration order.
//   4. Teach tools/mkconfig the package's default sections so a fresh host
//      root serves it.
//   5. Set `lock_actions` when its actions read, check and commit the
//      module's own package without long waits on cameras or peers.
#pragma once

#include "store/store.h"

#include <cstddef>
#include <cstdint>

struct ds_context;
struct json_object;

// (context, value, request section object, argument, row error code) -> 0 or code.
using ds_checker_fn = int32_t (*)(ds_context *ctx, json_object *value,
                                  json_object *sec_obj, const void *arg,
                                  int32_t err_code);
using ds_sec_cb_fn = int (*)(ds_context *ctx);
struct ds_sec;
using ds_dynamic_fn = json_object *(*)(ds_context *ctx, const ds_sec *sec);
using ds_action_fn = int (*)(ds_context *ctx, json_object *arg);

// Option row flags.
enum : uint8_t {
    // The value may hold line breaks and tabs (multi-line text). Without it
    // set and add refuse every control character before the row's checker
    // runs: a value is one line of the files the daemon writes (uci, backup
    // bundles), and a line break in it would start a line of its own there.
    DS_OPT_MULTILINE = 0x01,
};

struct ds_opt {
    const char *name;
    ds_checker_fn checker;
    const void *arg;
    int32_t err_code;
    uint8_t flags = 0; // DS_OPT_*; 0 for nearly every row
};

enum { DS_DATA_UCI = 0, DS_DATA_DYNAMIC = 1 };

// Section row flags.
enum : uint8_t {
    // A change of the section needs the module's after-commit hook, which
    // runs once per request however many such sections the request touched.
    DS_SEC_AFTER_COMMIT = 0x01,
};

struct ds_sec {
    const char *name;          // section name, or type in sec_types
    uint8_t data_kind;         // DS_DATA_UCI or DS_DATA_DYNAMIC
    uint8_t max_sec;           // most sections "add" may create of this type
    const ds_opt *options;
    ds_sec_cb_fn beforesavecb;
    ds_sec_cb_fn srvcb;
    ds_dynamic_fn dynamic;
    uint8_t flags = 0;         // DS_SEC_*
};

struct ds_action {
    const char *keyword;
    ds_action_fn fn;
};

struct ds_module {
    const char *name;
    const char *package;       // null for modules without configuration
    ds_sec *sections;          // by fixed name; rows may be filled at start-up
    const ds_sec *sec_types;   // by uci section type
    const ds_action *actions;
    uint32_t ch;               // 1: commit with the dummy commit
    // 1: its actions read, check and commit the module's own package, so the
    // do method holds that package for each action. Left 0 for modules whose
    // actions wait on cameras or peers for long and commit other packages.
    uint32_t lock_actions;
    // Runs once per changing request, after the commit and the service
    // callbacks, when the request touched a DS_SEC_AFTER_COMMIT section of
    // the module: what must happen once however many sections changed
    // (a reload, a whole-package apply). Returns 0 or an error code.
    ds_sec_cb_fn after_commit = nullptr;
};

// The registered modules, twice: in registration order (the listings walk
// it) and sorted by name (the look-ups search it). Both arrays hold `count`
// borrowed descriptors.
struct ds_model_root {
    uint32_t count;
    ds_module **in_order;
    ds_module **by_name;       // by strcmp of the name
};

enum { DS_NODE_SECTION = 0, DS_NODE_SEC_TYPE = 1, DS_NODE_ACTION = 2 };

ds_model_root *model_init(void);
int model_add(ds_model_root *root, ds_module *mod);
int model_destory(ds_model_root *root);
// The root kept in the process state; null before model_init.
ds_model_root *get_model_root(void);
int add_module_node(ds_module *mod);

ds_module *get_module_node(ds_model_root *root, const char *name);
// kind DS_NODE_SECTION / DS_NODE_SEC_TYPE -> const ds_sec*, DS_NODE_ACTION -> const ds_action*.
const void *get_ds_node(const ds_module *mod, const char *name, int kind);
const ds_sec *get_sec_type(const ds_module *mod, const char *section_name);
// The named-section row of `mod` for a name hashed once by the caller (who
// also looks it up elsewhere): what get_ds_node(mod, key.name,
// DS_NODE_SECTION) returns, or null. Any thread after start-up.
const ds_sec *get_section_node_by_key(const ds_module *mod, const name_key &key);
const ds_opt *get_filter_node(const ds_sec *sec, const char *option);

// Device facts used by the per-channel constructors.
int model_channel_amount(void);   // "basic_info" "chan_amount", 1..128
enum { DS_MAX_CHANNELS = 128, DS_ALARM_PORTS = 16 };

// Fills rows of `table` (capacity `cap`, including room for the sentinel)
// starting at *pos: for n in 1..count, one row per pattern, name made with
// snprintf(pattern, n) into a zeroed 32-byte allocation, data kind 0,
// max sections 255, options[i] of pattern i. Returns 0, or -1 when the table
// is too small or allocation fails. Start-up only.
int model_fill_channel_rows(ds_sec *table, size_t cap, size_t *pos,
                            const char *const *patterns,
                            const ds_opt *const *options, size_t npatterns,
                            int count);
