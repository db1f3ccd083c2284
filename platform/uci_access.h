// uci access layer: one lookup and one change per call, staged with uci_save
// until commit_package / dummy_commit_package.
//
// The layer keeps no state; the caller passes a uci context that only its
// thread uses (a request's own, or a private one). JSON results are new
// references the caller releases. A section's JSON form is an object with
// ".name", ".type", then one member per option in uci's order (string, or
// array of strings for a list).
#pragma once

struct uci_context;
struct uci_section;
struct json_object;

// A uci context with the configuration and save directories of this process
// (the system's, or under DSD_ROOT on a host). Null on failure; free with
// uci_free_context.
uci_context *dsd_uci_alloc(void);

json_object *get_uci_section(uci_context *ctx, const char *package, const char *section);
json_object *single_section(uci_section *s);
json_object *get_uci_section_type(uci_context *ctx, const char *package, const char *type);
json_object *get_uci_package(uci_context *ctx, const char *package);
json_object *get_sec_names_by_type(uci_context *ctx, const char *package, const char *type);
json_object *get_uci_option(uci_context *ctx, const char *package, const char *section,
                            const char *option);
int set_uci_section(uci_context *ctx, const char *package, const char *section, json_object *obj);
int do_delete_single_section(uci_context *ctx, const char *package, const char *section);
int delete_section(uci_context *ctx, const char *package, const char *section);
int delete_section_type(uci_context *ctx, const char *package, const char *type);
int add_new_section(uci_context *ctx, const char *package, const char *type, const char *name);
int rename_section(uci_context *ctx, const char *package, const char *section, const char *new_name);
int section_exist(uci_context *ctx, const char *package, const char *section);
int get_sec_type_num(uci_context *ctx, const char *package, const char *type);
int get_free_section_index(uci_context *ctx, const char *package, const char *type);
// Borrowed from uci: valid until the context changes the package.
const char *get_opt_value(uci_context *ctx, const char *package, const char *section,
                          const char *option);
int get_opt_int_value(uci_context *ctx, const char *package, const char *section,
                      const char *option);
// Uses a private context; the caller frees the copy. Any thread.
char *get_opt_value_dup(const char *package, const char *section, const char *option);
int set_opt_value(uci_context *ctx, const char *package, const char *section,
                  const char *option, const char *value);
int delete_opt_value(uci_context *ctx, const char *package, const char *section,
                     const char *option, const char *value);
int commit_package(uci_context *ctx, const char *package);
int dummy_commit_package(uci_context *ctx, const char *package);
