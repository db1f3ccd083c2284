// Module "user_management": the accounts (one section per account; the
// section's name carries its group), the web login check with its lock, and
// the account keywords.
#include <json-c/json.h>

#include <cstring>
#include <string>

#include "model/request.h"
#include "model/checkers.h"
#include "modules/modules.h"
#include "modules/system/login.h"
#include "platform/jso.h"
#include "platform/trace.h"
#include "store/store.h"

namespace {

const char kPackage[] = "user_management";
constexpr ds_len_range kTextLen{0, 64};
constexpr ds_int_range kBasicRange{0, 1};
const char *const kAuthorities[] = {"0", "1", "2", "3", nullptr};

constexpr ds_opt account_opts[] = {
    {.name = "username", .checker = check_string_type, .arg = &kTextLen, .err_code = -70301},
    {.name = "passwd", .checker = check_string_type, .arg = &kTextLen, .err_code = -70303},
    {.name = "gesture_passwd", .checker = check_string_type, .arg = &kTextLen, .err_code = -70304},
    {.name = "comment", .checker = check_string_type, .arg = &kTextLen, .err_code = -70305},
    {.name = "authority", .checker = check_mixed_enum_type, .arg = kAuthorities, .err_code = -70306},
    {.name = nullptr, .checker = nullptr, .arg = nullptr, .err_code = 0},
};
constexpr ds_opt auth_opts[] = {
    {.name = "basic_enabled", .checker = check_int_type, .arg = &kBasicRange, .err_code = -70307},
    {.name = nullptr, .checker = nullptr, .arg = nullptr, .err_code = 0},
};

json_object *response(ds_context *ctx)
{
    if (!ctx->res_obj)
        ctx->res_obj = jso_new_obj();
    return ctx->res_obj;
}

// The section holding an account, or "" when no account has that name.
std::string account_section(ds_context *ctx, const char *user)
{
    std::string found;
    json_object *pkg = get_uci_package(ctx->uci_ctx, kPackage);
    json_object_object_foreach(pkg, name, sec) {
        const char *u = jso_obj_get_string_origin(sec, "username");
        if (found.empty() && user && u && !strcmp(u, user))
            found = name;
    }
    json_object_put(pkg);
    return found;
}

// A new secret: 1..64 bytes on one line (it is stored as a uci value).
bool secret_ok(const char *text)
{
    if (!strlen_in_range(text, 1, 64))
        return false;
    for (const char *p = text; *p; p++) {
        if (static_cast<unsigned char>(*p) < 0x20 || *p == 0x7f)
            return false;
    }
    return true;
}

// {"username", "passwd", "new_passwd"}: the old password must match. The
// check counts toward the login lock like check_user, so this keyword is no
// way around it; a changed password ends the open web sessions (a session
// file does not say whose it is, so all of them).
int change_user_info(ds_context *ctx, json_object *arg)
{
    if (!ctx || !arg || !jso_is_obj(arg))
        return -40209;
    const char *user = jso_obj_get_string_origin(arg, "username");
    const char *old = jso_obj_get_string_origin(arg, "passwd");
    const char *fresh = jso_obj_get_string_origin(arg, "new_passwd");
    if (!user || !old || !fresh || !secret_ok(fresh))
        return -40209;
    std::string sec = account_section(ctx, user);
    if (sec.empty())
        return -70302;
    store_opt stored_opt = store_read_opt(ctx->uci_ctx, kPackage, sec.c_str(), "passwd");
    const char *stored = stored_opt.text;
    int verdict = login_password_verdict(ctx, user, stored && !strcmp(stored, old));
    if (verdict != 0)
        return verdict;
    store_txn txn(ctx->uci_ctx);
    if (set_opt_value(&txn, kPackage, sec.c_str(), "passwd", fresh) != 0 ||
        store_txn_commit(&txn, kPackage, false) != 0)
        return -40101;
    if (login_end_sessions() != 0)
        DS_ERR("rm SESSION_PATH fail.");
    return 0;
}

int get_encrypt_info(ds_context *ctx, json_object *)
{
    if (!ctx)
        return -40101;
    store_opt type_opt = store_read_opt(ctx->uci_ctx, kPackage, "authentication", "encrypt_type");
    const char *type = type_opt.text;
    jso_obj_add_string(response(ctx), "encrypt_type", type ? type : "");
    return 0;
}

// The accounts without their secrets.
int check_user_info(ds_context *ctx, json_object *)
{
    if (!ctx)
        return -40101;
    json_object *pkg = get_uci_package(ctx->uci_ctx, kPackage);
    if (!pkg)
        return -40101;
    json_object *list = jso_new_array();
    json_object_object_foreach(pkg, name, sec) {
        const char *u = jso_obj_get_string_origin(sec, "username");
        if (!u)
            continue;
        json_object *item = jso_new_obj();
        jso_obj_add_string(item, "username", u);
        jso_obj_add_string(item, "section", name);
        const char *a = jso_obj_get_string_origin(sec, "authority");
        jso_obj_add_string(item, "authority", a ? a : "");
        json_object_array_add(list, item);
    }
    json_object_put(pkg);
    jso_obj_add(response(ctx), "user_list", list);
    return 0;
}

// The gesture password is a password like any other: a wrong one counts
// toward the login lock, and a locked user is refused whatever is offered.
// An account without a gesture password matches no gesture.
int check_gesture_passwd(ds_context *ctx, json_object *arg)
{
    if (!ctx || !arg || !jso_is_obj(arg))
        return -40209;
    const char *user = jso_obj_get_string_origin(arg, "username");
    const char *gesture = jso_obj_get_string_origin(arg, "gesture_passwd");
    std::string sec = account_section(ctx, user);
    int code = -70302;
    if (!sec.empty()) {
        store_opt stored_opt = store_read_opt(ctx->uci_ctx, kPackage, sec.c_str(), "gesture_passwd");
        const char *stored = stored_opt.text;
        code = login_password_verdict(ctx, user, gesture && stored && *stored && !strcmp(gesture, stored));
    }
    jso_obj_add_int(response(ctx), "real_error_code", code);
    return 0;
}

// True when the request changes an account's name or one of its secrets
// (the set pipeline has cut it down to the options that really change), or
// adds or deletes an account.
bool credentials_changed(ds_context *ctx)
{
    json_object *mod = nullptr;
    if (ctx->method != DS_METHOD_SET)
        return true;
    if (!ctx->req_obj || !json_object_object_get_ex(ctx->req_obj, kPackage, &mod) ||
        !json_object_is_type(mod, json_type_object))
        return false;
    json_object_object_foreach(mod, name, sec) {
        (void)name;
        for (const char *key : {"passwd", "username", "gesture_passwd"}) {
            if (json_object_is_type(sec, json_type_object) && json_object_object_get_ex(sec, key, nullptr))
                return true;
        }
    }
    return false;
}

// Service callback of every account: once a name or secret changed, the
// web sessions (opened with the old credentials) end. Session files do not
// say whose they are, so all of them end.
int set_root(ds_context *ctx)
{
    if (!ctx)
        return -40101;
    if (credentials_changed(ctx) && login_end_sessions() != 0)
        DS_ERR("rm SESSION_PATH fail.");
    return 0;
}

// The failure record of the account held by a section, if any.
void forget_section_user(ds_context *ctx, const char *section)
{
    store_opt user_opt = store_read_opt(ctx->uci_ctx, kPackage, section, "username");
    const char *user = user_opt.text;
    if (user && *user)
        login_forget_failures(user);
}

// Each string of a "name"/"table" value (a string or an array of strings).
void each_string(json_object *v, void (*fn)(ds_context *, const char *), ds_context *ctx)
{
    if (json_object_is_type(v, json_type_string))
        fn(ctx, json_object_get_string(v));
    for (size_t i = 0; json_object_is_type(v, json_type_array) && i < json_object_array_length(v); i++) {
        json_object *item = json_object_array_get_idx(v, i);
        if (json_object_is_type(item, json_type_string))
            fn(ctx, json_object_get_string(item));
    }
}

void forget_type_users(ds_context *ctx, const char *type)
{
    json_object *names = get_sec_names_by_type(ctx->uci_ctx, kPackage, type);
    each_string(names, forget_section_user, ctx);
    json_object_put(names);
}

// Every section a delete request names, by name or by type.
void forget_deleted(ds_context *ctx, json_object *del)
{
    json_object *v = nullptr;
    if (json_object_object_get_ex(del, "name", &v))
        each_string(v, forget_section_user, ctx);
    if (json_object_object_get_ex(del, "table", &v))
        each_string(v, forget_type_users, ctx);
}

// Before-save callback of the admin and guest accounts: a deleted account
// leaves no failure record behind, so a new account of the same name does
// not inherit a lock. Runs before the save, while the sections still exist.
int del_user_service(ds_context *ctx)
{
    json_object *mod = nullptr;
    if (!ctx)
        return -40101;
    if (ctx->method == DS_METHOD_DELETE && ctx->req_obj &&
        json_object_object_get_ex(ctx->req_obj, kPackage, &mod) && json_object_is_type(mod, json_type_object))
        forget_deleted(ctx, mod);
    return 0;
}

const ds_action actions[] = {
    {.keyword = "change_user_info", .fn = change_user_info},
    {.keyword = "get_encrypt_info", .fn = get_encrypt_info},
    {.keyword = "check_user_info", .fn = check_user_info},
    {.keyword = "check_user", .fn = check_username_passwd},
    {.keyword = "check_gesture_pswd", .fn = check_gesture_passwd},
    {.keyword = "rm_pwd_err", .fn = rm_pwd_err_file},
    {.keyword = nullptr, .fn = nullptr},
};

ds_sec uci_row(const char *name, const ds_opt *opts, ds_sec_cb_fn before = nullptr, ds_sec_cb_fn srv = nullptr)
{
    return ds_sec{.name = name, .data_kind = DS_DATA_UCI, .max_sec = 16, .options = opts,
                  .beforesavecb = before, .srvcb = srv, .dynamic = nullptr};
}

// The logged-in user as the request's info record names them.
json_object *current_user_info(ds_context *ctx, const ds_sec *)
{
    json_object *obj = jso_new_obj();
    jso_obj_add_string(obj, "username", ctx && ctx->user ? ctx->user : "");
    jso_obj_add_int(obj, "group", ctx ? ctx->group : 0);
    return obj;
}

ds_sec sections[] = {
    uci_row("root", account_opts, nullptr, set_root),
    uci_row("authentication", auth_opts),
    ds_sec{.name = "current_user_info", .data_kind = DS_DATA_DYNAMIC, .max_sec = 0, .options = nullptr,
           .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = current_user_info},
    ds_sec{},
};

const ds_sec types[] = {
    uci_row("root", account_opts, nullptr, set_root),
    uci_row("admin", account_opts, del_user_service, set_root),
    uci_row("guest", account_opts, del_user_service, set_root),
    ds_sec{},
};

ds_module user_management_module = {
    .name = "user_management",
    .package = "user_management",
    .sections = sections,
    .sec_types = types,
    .actions = actions,
    .ch = 0,
    .lock_actions = 1,
};

} // namespace

int user_management_module_init(void)
{
    return add_module_node(&user_management_module);
}
