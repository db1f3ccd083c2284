// Internals shared by the host libuci's files: element allocation, the
// package's private index and change log, the parser and the file layer.
#pragma once

#include <uci.h>

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// One staged change, in the order it was made. The save file holds the same
// records as text lines ("+pkg.sec=type", "pkg.sec.opt='v'", ...).
enum uci_command_host {
    CMD_ADD,
    CMD_REMOVE,
    CMD_CHANGE,
    CMD_RENAME,
    CMD_REORDER,
    CMD_LIST_ADD,
    CMD_LIST_DEL,
};

struct uci_change {
    int cmd;
    std::string section;
    std::string option; // empty: the change is about the section
    std::string value;
    bool has_value;
};

// package->priv: a name index so lookups and the parser stay linear in the
// file size (the real parser's rescans make big packages slow to load).
struct uci_pkg_priv {
    std::unordered_map<std::string, uci_section *> by_name;
    std::vector<uci_change> pending;
};

inline uci_pkg_priv *pkg_priv(uci_package *p) { return static_cast<uci_pkg_priv *>(p->priv); }

int uci_set_error(uci_context *ctx, int err, const char *func);

// Stages a change: kept in `pending` and, as the device's library keeps it,
// as a uci_delta in p->delta. pending_clear empties both.
void pending_push(uci_package *p, uci_change change);
void pending_clear(uci_package *p);

// Tree building (tree.cpp). Each returns null only when out of memory.
uci_package *uci_pkg_new(uci_context *ctx, const char *name);
void uci_pkg_free(uci_package *p);
void uci_pkg_clear(uci_package *p);
uci_section *uci_sec_new(uci_package *p, const char *type, const char *name);
void uci_sec_free(uci_section *s);
void uci_sec_name_anonymous(uci_section *s);
uci_section *uci_sec_find(uci_package *p, const char *name);
uci_option *uci_opt_find(uci_section *s, const char *name);
uci_option *uci_opt_set(uci_section *s, const char *name, const char *value);
uci_option *uci_opt_add_list(uci_section *s, const char *name, const char *value);
void uci_opt_free(uci_option *o);
int uci_opt_del_index(uci_option *o, const char *index);
void uci_opt_del_value(uci_option *o, const char *value);
int uci_sec_rename(uci_section *s, const char *name);
void uci_sec_move(uci_section *s, int pos);
bool uci_name_valid(const char *s, bool package);
bool uci_type_valid(const char *s);

// Applying one change to a package, as the editing calls and the save-file
// replay both do. UCI_OK or an error code; nothing is recorded.
int uci_apply_change(uci_package *p, const uci_change &c);

// Parsing (parse.cpp). Fills p from the text of a config file; UCI_OK or
// UCI_ERR_PARSE (line in *err_line). Appends the save file's records for
// package `name` to out.
int uci_parse_config(uci_package *p, std::string_view text, int *err_line);
void uci_parse_changes(std::string_view text, const char *name, std::vector<uci_change> &out);
std::string uci_format_change(const char *pkg, const uci_change &c);
std::string uci_export_text(uci_package *p, bool header);

// List helpers over the intrusive uci_list.
void uci_list_init_(uci_list *l);
void uci_list_add_(uci_list *head, uci_list *item);
void uci_list_del_(uci_list *item);
