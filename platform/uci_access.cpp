#include "platform/uci_access.h"

#include <json-c/json.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <uci.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "platform/config_events.h"
#include "platform/paths.h"
#include "platform/pkg_lock.h"
#include "platform/safe_file.h"
#include "platform/trace.h"
#include "platform/uci_cache.h"
#include "platform/uci_dummy.h"
#include "platform/uci_files.h"
#include "platform/uci_flush.h"
#include "platform/uci_watch.h"

namespace {

// Every call starts from a zeroed pointer: a stale handle from an earlier
// lookup must never leak into the next one.
int lookup(uci_context *ctx, uci_ptr *ptr, const char *package, const char *section,
           const char *option, const char *value)
{
    memset(ptr, 0, sizeof *ptr);
    ptr->package = package;
    ptr->section = section;
    ptr->option = option;
    ptr->value = value;
    return uci_lookup_ptr(ctx, ptr, nullptr, true);
}

bool complete(const uci_ptr &ptr)
{
    return (ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) != 0;
}

json_object *option_json(const uci_option *o)
{
    if (o->type == UCI_TYPE_STRING)
        return json_object_new_string(o->v.string ? o->v.string : "");
    json_object *arr = json_object_new_array();
    uci_element *e;
    uci_foreach_element(&o->v.list, e) {
        json_object_array_add(arr, json_object_new_string(e->name));
    }
    return arr;
}

// Looks a package up for the whole-package readers; null with the trace on failure.
uci_package *lookup_package(uci_context *ctx, uci_ptr *ptr, const char *package)
{
    if (lookup(ctx, ptr, package, nullptr, nullptr, nullptr) != UCI_OK) {
        DS_ERR("uci_lookup_ptr error.");
        return nullptr;
    }
    if (!complete(*ptr) || !ptr->p) {
        DS_ERR("uci cannot found.\n");
        return nullptr;
    }
    return ptr->p;
}

// A JSON string or integer as the text uci stores; false for anything else.
bool value_text(json_object *v, char *buf, size_t size, const char **text)
{
    if (json_object_is_type(v, json_type_string)) {
        *text = json_object_get_string(v);
        return true;
    }
    if (json_object_is_type(v, json_type_int)) {
        snprintf(buf, size, "%d", json_object_get_int(v));
        *text = buf;
        return true;
    }
    return false;
}

void write_list(uci_context *ctx, const char *package, const char *section, const char *key,
                json_object *arr)
{
    uci_ptr ptr;
    lookup(ctx, &ptr, package, section, key, nullptr);
    uci_delete(ctx, &ptr); // a list is replaced whole; a missing one is fine
    size_t n = json_object_array_length(arr);
    for (size_t i = 0; i < n; i++) {
        json_object *ele = json_object_array_get_idx(arr, i);
        char buf[32];
        const char *text = nullptr;
        if (!ele) {
            DS_ERR("get json array element failed");
            continue;
        }
        if (!value_text(ele, buf, sizeof buf, &text)) {
            DS_ERR("array_ele is not string or int");
            continue;
        }
        lookup(ctx, &ptr, package, section, key, text);
        uci_add_list(ctx, &ptr);
    }
}

void write_member(uci_context *ctx, const char *package, const char *section, const char *key,
                  json_object *val)
{
    if (json_object_is_type(val, json_type_array)) {
        write_list(ctx, package, section, key, val);
        return;
    }
    char buf[32];
    const char *text = nullptr;
    if (!value_text(val, buf, sizeof buf, &text)) {
        DS_ERR("obj is not string or int");
        return;
    }
    uci_ptr ptr;
    lookup(ctx, &ptr, package, section, key, text);
    uci_set(ctx, &ptr);
}

// "+12" -> 12, "" -> 0; a sign other than '+' on a non-zero value, any
// non-digit, or a value past INT_MAX gives -1.
int parse_non_negative(const char *s)
{
    const char *p = s;
    bool negative = false;
    if (*p == '+' || *p == '-')
        negative = *p++ == '-';
    long long v = 0;
    for (; *p; p++) {
        if (*p < '0' || *p > '9')
            return -1;
        v = v * 10 + (*p - '0');
        if (v > INT_MAX)
            return -1;
    }
    if (negative && v != 0)
        return -1;
    return static_cast<int>(v);
}

// Cuts a torn last line (a save cut short) from a change log, so the next
// appended change is not glued to it and skipped by every load.
void cut_torn_tail(const std::string &path)
{
    std::string text;
    if (!read_file(path, &text) || text.empty() || text.back() == '\n')
        return;
    if (truncate(path.c_str(), static_cast<off_t>(text.rfind('\n') + 1)) != 0)
        DS_ERR("cut torn change in %s failed", path.c_str());
}

// Every directory on the delta search path other than the save directory is
// pointed at one that never holds change files: the library keeps its
// default save directory there even after uci_set_savedir.
bool replace_delta_path(uci_context *ctx)
{
    std::string none = std::string(ctx->savedir) + "/.dsd-none";
    uci_element *e;
    uci_foreach_element(&ctx->delta_path, e) {
        if (e->name && !strcmp(e->name, ctx->savedir))
            continue;
        char *copy = strdup(none.c_str());
        if (!copy)
            return false;
        free(e->name);
        e->name = copy;
    }
    return true;
}

// One change through the library's editing call, then a save of the package.
// Traced under the caller's name; the save's result counts only where the
// caller reports it.
struct edit_call {
    int (*edit)(uci_context *, uci_ptr *);
    const char *func;
    int level;
    const char *fail_text;
    bool save_counts;
};

int edit_one(uci_context *ctx, const edit_call &call, const char *package, const char *section,
             const char *option, const char *value)
{
    pkg_lock_scope scope; // released here unless the caller held it already
    if (pkg_lock(package) != 0)
        return -1;
    uci_cache_drop_guard drop{package};
    uci_ptr ptr;
    lookup(ctx, &ptr, package, section, option, value);
    if (call.edit(ctx, &ptr) != UCI_OK) {
        DS_TRACE_AS(call.func, call.level, "%s", call.fail_text);
        return -1;
    }
    if (dsd_uci_save(ctx, ptr.p) != 0 && call.save_counts) {
        DS_TRACE_AS(call.func, TRACE_ERROR, "uci save error");
        return -1;
    }
    return 0;
}

} // namespace

// uci writes its pending changes into /tmp/.uci, a name anyone can create
// first: a link there would carry every delta into the link's target. The
// directory must be a real one of ours, not writable by others; anything
// else at the name is replaced before a context may use it.
// Every request allocates a context, so the usual case (our own directory
// there) is one lstat without a lock, or none while no change notice came
// since it was last found ours (renaming, removing, chmod or chown of the
// directory raise one, and the watch never follows a link); one repair at a
// time otherwise.
static std::mutex g_savedir_lock;
static std::atomic<uint64_t> g_savedir_ok_epoch{0};

static bool savedir_ours(const struct stat &st)
{
    return S_ISDIR(st.st_mode) && st.st_uid == geteuid() && !(st.st_mode & 022);
}

static bool savedir_safe(void)
{
    uint64_t epoch = uci_watch_epoch();
    if (epoch == g_savedir_ok_epoch.load(std::memory_order_acquire))
        return true;
    std::string path = dsd_path("/tmp/.uci"); // DSD_ROOT may differ between tests
    struct stat st;
    if (lstat(path.c_str(), &st) == 0 && savedir_ours(st)) {
        g_savedir_ok_epoch.store(epoch, std::memory_order_release);
        return true;
    }
    std::string dir, name;
    if (!sf_split(path, &dir, &name))
        return false;
    std::lock_guard<std::mutex> hold(g_savedir_lock);
    sf_fd parent(sf_open_dir(dir.c_str()));
    if (!parent.ok())
        return parent.fd == -ENOENT; // no /tmp: uci saves nothing there either
    sf_fd d(openat(parent.fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (d.ok() && fstat(d.fd, &st) == 0 && savedir_ours(st))
        return true;
    sf_fd fresh(sf_fresh_dir(parent.fd, name.c_str(), 0700));
    return fresh.ok();
}

uci_context *dsd_uci_alloc_at(const char *confdir, const char *savedir)
{
    if (!confdir || !savedir)
        return nullptr;
    uci_context *ctx = uci_alloc_context();
    if (!ctx)
        return nullptr;
    if (uci_set_confdir(ctx, confdir) != UCI_OK ||
        uci_set_savedir(ctx, savedir) != UCI_OK || !replace_delta_path(ctx)) {
        uci_free_context(ctx);
        return nullptr;
    }
    return ctx;
}

uci_context *dsd_uci_alloc(void)
{
    if (!savedir_safe()) {
        DS_ERR("Uci save directory is not safe.");
        return nullptr;
    }
    if (dsd_root().empty())
        return uci_alloc_context();
    return dsd_uci_alloc_at(dsd_path("/etc/config").c_str(), dsd_path("/tmp/.uci").c_str());
}

int dsd_uci_save(uci_context *ctx, uci_package *p)
{
    if (!ctx || !p)
        return -1;
    std::string path = std::string(ctx->savedir) + "/" + p->e.name;
    cut_torn_tail(path);
    struct stat st;
    bool existed = lstat(path.c_str(), &st) == 0;
    if (uci_save(ctx, p) == UCI_OK)
        return 0;
    DS_ERR("uci save error");
    // A failed append (a full /tmp) may leave part of a line: back to what was there.
    if (existed ? truncate(path.c_str(), st.st_size) != 0 : unlink(path.c_str()) != 0)
        DS_ERR("restore change log %s failed", path.c_str());
    return -1;
}

void dsd_uci_unload(uci_context *ctx, const char *package)
{
    if (!ctx || !package)
        return;
    uci_element *e;
    uci_foreach_element(&ctx->root, e) {
        if (!strcmp(e->name, package)) {
            uci_unload(ctx, uci_to_package(e));
            return;
        }
    }
}

json_object *single_section(uci_section *s)
{
    if (!s)
        return nullptr;
    json_object *obj = json_object_new_object();
    json_object_object_add(obj, ".name", json_object_new_string(s->e.name ? s->e.name : ""));
    json_object_object_add(obj, ".type", json_object_new_string(s->type ? s->type : ""));
    uci_element *e;
    uci_foreach_element(&s->options, e) {
        uci_option *o = uci_to_option(e);
        if (o->type == UCI_TYPE_STRING || o->type == UCI_TYPE_LIST)
            json_object_object_add(obj, e->name, option_json(o));
    }
    return obj;
}

json_object *get_uci_section(uci_context *ctx, const char *package, const char *section)
{
    if (!ctx || !package || !section)
        return nullptr;
    uci_ptr ptr;
    if (lookup(ctx, &ptr, package, section, nullptr, nullptr) != UCI_OK) {
        DS_ERR("uci_lookup_ptr error.");
        return nullptr;
    }
    if (!complete(ptr) || !ptr.s) {
        DS_ERR("uci cannot found.\n");
        return nullptr;
    }
    json_object *obj = single_section(ptr.s);
    if (!obj)
        DS_INFO("single_section error.");
    return obj;
}

json_object *get_uci_section_type(uci_context *ctx, const char *package, const char *type)
{
    if (!ctx || !package || !type)
        return nullptr;
    uci_ptr ptr;
    uci_package *p = lookup_package(ctx, &ptr, package);
    if (!p)
        return nullptr;
    json_object *arr = json_object_new_array();
    uci_element *e;
    uci_foreach_element(&p->sections, e) {
        uci_section *s = uci_to_section(e);
        if (strcmp(s->type, type) != 0)
            continue;
        json_object *item = json_object_new_object();
        json_object_object_add(item, e->name, single_section(s));
        json_object_array_add(arr, item);
    }
    return arr;
}

json_object *get_uci_package(uci_context *ctx, const char *package)
{
    if (!ctx || !package)
        return nullptr;
    uci_ptr ptr;
    uci_package *p = lookup_package(ctx, &ptr, package);
    if (!p)
        return nullptr;
    json_object *obj = json_object_new_object();
    uci_element *e;
    uci_foreach_element(&p->sections, e) {
        json_object_object_add(obj, e->name, single_section(uci_to_section(e)));
    }
    return obj;
}

json_object *get_sec_names_by_type(uci_context *ctx, const char *package, const char *type)
{
    if (!ctx || !package || !type)
        return nullptr;
    uci_ptr ptr;
    if (lookup(ctx, &ptr, package, nullptr, nullptr, nullptr) != UCI_OK || !ptr.p)
        return nullptr;
    json_object *arr = json_object_new_array();
    uci_element *e;
    uci_foreach_element(&ptr.p->sections, e) {
        if (!strcmp(uci_to_section(e)->type, type))
            json_object_array_add(arr, json_object_new_string(e->name));
    }
    return arr;
}

json_object *get_uci_option(uci_context *ctx, const char *package, const char *section,
                            const char *option)
{
    if (!ctx || !package || !section || !option)
        return nullptr;
    json_object *sec = get_uci_section(ctx, package, section);
    if (!sec)
        return nullptr;
    json_object *val = nullptr;
    if (json_object_object_get_ex(sec, option, &val))
        json_object_get(val);
    else
        val = nullptr;
    json_object_put(sec);
    return val;
}

// Whether `ctx` holds `package` already (loaded, imported or staged into).
static bool package_loaded(uci_context *ctx, const char *package)
{
    uci_element *e;
    uci_foreach_element(&ctx->root, e) {
        if (!strcmp(e->name, package))
            return true;
    }
    return false;
}

// A requested value written and logged on one line: a string, an integer or
// a list of them, without line breaks.
static bool plain_value(json_object *v)
{
    if (json_object_is_type(v, json_type_int))
        return true;
    if (json_object_is_type(v, json_type_string))
        return !strpbrk(json_object_get_string(v), "\n\r");
    if (!json_object_is_type(v, json_type_array) || json_object_array_length(v) == 0)
        return false;
    for (size_t i = 0; i < json_object_array_length(v); i++) {
        json_object *ele = json_object_array_get_idx(v, i);
        if (!ele || json_object_is_type(ele, json_type_array) || !plain_value(ele))
            return false;
    }
    return true;
}

static bool plain_request(const char *section, json_object *obj)
{
    if (!uci_section_name_ok(section))
        return false;
    json_object_object_foreach(obj, key, val) {
        if (!uci_section_name_ok(key) || !plain_value(val))
            return false;
    }
    return true;
}

static void change_line(std::string *out, char prefix, const std::string &where, const char *value)
{
    if (prefix)
        out->push_back(prefix);
    out->append(where);
    if (value) {
        out->push_back('=');
        uci_append_quoted(out, value);
    }
    out->push_back('\n');
}

// The change lines write_member's edits of `obj` append for section `s`
// (as imported, before the edits): a changed string, an emptied option's
// removal, a list's removal and one append per item.
static std::string expected_changes(const uci_section *s, const char *package, json_object *obj)
{
    std::map<std::string, std::string> strings;
    std::set<std::string> present;
    uci_element *e;
    uci_foreach_element(&s->options, e) {
        present.insert(e->name);
        if (uci_to_option(e)->type == UCI_TYPE_STRING)
            strings[e->name] = uci_to_option(e)->v.string;
    }
    std::string out, base = std::string(package) + "." + s->e.name + ".";
    json_object_object_foreach(obj, key, val) {
        std::string where = base + key;
        char buf[32];
        const char *text = nullptr;
        bool list = json_object_is_type(val, json_type_array);
        if (!list && !value_text(val, buf, sizeof buf, &text))
            continue;
        auto same = strings.find(key);
        if (!list && *text && same != strings.end() && same->second == text)
            continue;
        if ((list || !*text) && present.erase(key))
            change_line(&out, '-', where, nullptr);
        strings.erase(key);
        if (!list && *text) {
            change_line(&out, 0, where, text);
            strings[key] = text;
            present.insert(key);
        }
        for (size_t i = 0; list && i < json_object_array_length(val); i++) {
            if (value_text(json_object_array_get_idx(val, i), buf, sizeof buf, &text)) {
                change_line(&out, '|', where, text);
                present.insert(key);
            }
        }
    }
    return out;
}

struct memstream_close {
    void operator()(FILE *f) const { fclose(f); }
};

// Imports the one config block `text` into `ctx` as `package`; its changes
// are then appended to the change log on save, never committed.
static uci_package *import_alone(uci_context *ctx, const char *package, std::string &text)
{
    std::unique_ptr<FILE, memstream_close> in(fmemopen(text.data(), text.size(), "r"));
    uci_package *p = nullptr;
    if (!in || uci_import(ctx, in.get(), package, &p, true) != UCI_OK || !p) {
        dsd_uci_unload(ctx, package);
        return nullptr;
    }
    p->has_delta = true;
    return p;
}

// A set of one named section staged without loading the whole package: the
// section alone is imported from the read cache, edited and saved, the
// cache patched with the result, and the partial package unloaded before
// anything else can read it through `ctx`. 1 when this cannot serve (the
// caller takes the usual path), else the usual result. Caller holds the
// package's lock.
static int set_section_alone(uci_context *ctx, const char *package, const char *section,
                             json_object *obj)
{
    uci_cache_ticket ticket{};
    std::string text;
    if (!plain_request(section, obj) || !uci_cache_ticket_take(package, &ticket) ||
        !uci_snapshot_section_config(*ticket.snap, section, &text))
        return 1;
    if (json_object_object_length(obj) == 0)
        return 0; // the section is there and nothing is to be written
    uci_package *p = import_alone(ctx, package, text);
    uci_ptr ptr;
    if (!p || lookup(ctx, &ptr, package, section, nullptr, nullptr) != UCI_OK || !ptr.s) {
        dsd_uci_unload(ctx, package);
        return 1;
    }
    std::string tail = expected_changes(ptr.s, package, obj);
    json_object_object_foreach(obj, key, val) {
        write_member(ctx, package, section, key, val);
    }
    int rc = dsd_uci_save(ctx, p);
    if (rc == 0 && lookup(ctx, &ptr, package, section, nullptr, nullptr) == UCI_OK && ptr.s)
        uci_cache_patch(ticket, package, ptr.s, tail);
    else
        uci_cache_drop(package);
    dsd_uci_unload(ctx, package);
    return rc == 0 ? 0 : -1;
}

int set_uci_section(uci_context *ctx, const char *package, const char *section, json_object *obj)
{
    if (!ctx || !package || !section || !obj)
        return -1;
    if (!json_object_is_type(obj, json_type_object)) {
        DS_ERR("json type error.");
        return -1;
    }
    if (!package_loaded(ctx, package)) {
        pkg_lock_scope scope; // released here unless the caller held it already
        if (pkg_lock(package) != 0)
            return -1;
        int rc = set_section_alone(ctx, package, section, obj);
        if (rc != 1)
            return rc;
    }
    uci_ptr ptr;
    int rc = lookup(ctx, &ptr, package, section, nullptr, nullptr);
    if (rc != UCI_OK) {
        DS_ERR("uci lookup ptr error.");
        return rc;
    }
    if (!complete(ptr)) {
        DS_ERR("uci cannot found.");
        return 0;
    }
    pkg_lock_scope scope; // released here unless the caller held it already
    if (pkg_lock(package) != 0)
        return -1;
    uci_cache_drop_guard drop{package};
    json_object_object_foreach(obj, key, val) {
        write_member(ctx, package, section, key, val);
    }
    if (ptr.p && dsd_uci_save(ctx, ptr.p) != 0)
        return -1;
    return 0;
}

int do_delete_single_section(uci_context *ctx, const char *package, const char *section)
{
    if (!ctx || !package || !section)
        return -1;
    return edit_one(ctx, {uci_delete, __func__, TRACE_ERROR, "uci delete error", false}, package,
                    section, nullptr, nullptr);
}

int delete_section(uci_context *ctx, const char *package, const char *section)
{
    if (!ctx || !package || !section)
        return -1;
    return do_delete_single_section(ctx, package, section);
}

int delete_section_type(uci_context *ctx, const char *package, const char *type)
{
    if (!ctx || !package || !type)
        return -1;
    json_object *names = get_sec_names_by_type(ctx, package, type);
    if (!names || !json_object_is_type(names, json_type_array)) {
        DS_ERR("failed to get section type %s.%s", package, type);
        json_object_put(names);
        return -1;
    }
    size_t n = json_object_array_length(names);
    for (size_t i = 0; i < n; i++) {
        const char *name = json_object_get_string(json_object_array_get_idx(names, i));
        if (name)
            do_delete_single_section(ctx, package, name);
    }
    json_object_put(names);
    return 0;
}

int add_new_section(uci_context *ctx, const char *package, const char *type, const char *name)
{
    if (!ctx || !package || !type || !name)
        return -1;
    if (!uci_section_name_ok(name)) {
        DS_ERR("Section name %s is illegal.", name);
        return -1;
    }
    pkg_lock_scope scope; // released here unless the caller held it already
    if (pkg_lock(package) != 0)
        return -1;
    uci_cache_drop_guard drop{package};
    uci_ptr ptr;
    if (lookup(ctx, &ptr, package, name, nullptr, type) != UCI_OK) {
        DS_ERR("uci_lookup_ptr error.");
        return -1;
    }
    if (uci_set(ctx, &ptr) != UCI_OK) {
        DS_ERR("uci set error");
        return -1;
    }
    return dsd_uci_save(ctx, ptr.p);
}

int rename_section(uci_context *ctx, const char *package, const char *section, const char *new_name)
{
    if (!ctx || !package || !section || !new_name)
        return -1;
    // uci answers 0 for a rename onto an existing name, and stages names it
    // cannot load: both are refused here.
    pkg_lock_scope scope;
    if (!uci_section_name_ok(new_name) || pkg_lock(package) != 0)
        return -1;
    if (strcmp(section, new_name) != 0 && section_exist(ctx, package, new_name)) {
        DS_ERR("Section %s exit.", new_name);
        return -1;
    }
    return edit_one(ctx, {uci_rename, __func__, TRACE_ERROR, "uci rename error", false}, package,
                    section, nullptr, new_name);
}

int section_exist(uci_context *ctx, const char *package, const char *section)
{
    if (!ctx || !package || !section)
        return 0;
    uci_ptr ptr;
    if (lookup(ctx, &ptr, package, section, nullptr, nullptr) != UCI_OK) {
        DS_ERR("uci_lookup_ptr error.");
        return 0;
    }
    if (!complete(ptr)) {
        DS_INFO("uci cannot found.");
        return 0;
    }
    return 1;
}

int get_sec_type_num(uci_context *ctx, const char *package, const char *type)
{
    if (!ctx || !package || !type)
        return -1;
    uci_ptr ptr;
    if (lookup(ctx, &ptr, package, nullptr, nullptr, nullptr) != UCI_OK || !ptr.p) {
        DS_ERR("uci_lookup_ptr error.");
        return -1;
    }
    int count = 0;
    uci_element *e;
    uci_foreach_element(&ptr.p->sections, e) {
        count += strcmp(uci_to_section(e)->type, type) == 0;
    }
    return count;
}

static bool name_taken(json_object *arr, const char *name, bool *bad)
{
    size_t n = json_object_array_length(arr);
    for (size_t i = 0; i < n; i++) {
        json_object *item = json_object_array_get_idx(arr, i);
        if (!item) {
            *bad = true;
            return false;
        }
        if (json_object_object_get_ex(item, name, nullptr))
            return true;
    }
    return false;
}

int get_free_section_index(uci_context *ctx, const char *package, const char *type)
{
    if (!ctx || !package || !type)
        return -1;
    json_object *arr = get_uci_section_type(ctx, package, type);
    if (!arr)
        return -1;
    for (int n = 1; n < INT_MAX; n++) {
        char name[32];
        snprintf(name, sizeof name, "%s_%d", type, n);
        bool bad = false;
        bool taken = name_taken(arr, name, &bad);
        if (bad || !taken) {
            json_object_put(arr);
            return bad ? -1 : n;
        }
    }
    json_object_put(arr);
    return -1;
}

const char *get_opt_value(uci_context *ctx, const char *package, const char *section,
                          const char *option)
{
    if (!ctx || !package || !section || !option)
        return nullptr;
    uci_ptr ptr;
    if (lookup(ctx, &ptr, package, section, option, nullptr) != UCI_OK) {
        DS_ERR("uci_lookup_ptr error.");
        return nullptr;
    }
    if (!complete(ptr) || !ptr.o || ptr.o->type != UCI_TYPE_STRING)
        return nullptr;
    return ptr.o->v.string;
}

int get_opt_int_value(uci_context *ctx, const char *package, const char *section,
                      const char *option)
{
    const char *v = get_opt_value(ctx, package, section, option);
    return v ? parse_non_negative(v) : -1;
}

char *get_opt_value_dup(const char *package, const char *section, const char *option)
{
    if (!package || !section || !option)
        return nullptr;
    uci_context *ctx = dsd_uci_alloc();
    if (!ctx)
        return nullptr;
    const char *v = get_opt_value(ctx, package, section, option);
    char *copy = v ? strdup(v) : nullptr;
    uci_free_context(ctx);
    return copy;
}

int set_opt_value(uci_context *ctx, const char *package, const char *section,
                  const char *option, const char *value)
{
    if (!ctx || !package || !section || !option || !value)
        return -1;
    return edit_one(ctx, {uci_set, __func__, TRACE_INFO, "uci set error", true}, package, section,
                    option, value);
}

int delete_opt_value(uci_context *ctx, const char *package, const char *section,
                     const char *option, const char *value)
{
    if (!ctx || !package || !section || !option)
        return -1;
    return edit_one(ctx, {uci_delete, __func__, TRACE_INFO, "uci delete error", true}, package,
                    section, option, value);
}

static bool config_present(uci_context *ctx, const char *package)
{
    struct stat st;
    std::string path = std::string(ctx->confdir) + "/" + package;
    return lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// Stages the context's changes of `package` under its lock; the package
// handle through *p.
static int stage_locked(uci_context *ctx, const char *package, uci_package **p)
{
    if (pkg_lock(package) != 0)
        return -1;
    // A context without the package holds no change of it (a set staged
    // alone saved and unloaded its section): nothing to write, nor to drop.
    *p = nullptr;
    if (!package_loaded(ctx, package) && config_present(ctx, package))
        return 0;
    uci_cache_drop_guard drop{package};
    uci_ptr ptr;
    if (lookup(ctx, &ptr, package, nullptr, nullptr, nullptr) != UCI_OK || !ptr.p) {
        DS_ERR("uci lookup ptr error.");
        return -1;
    }
    *p = ptr.p;
    return dsd_uci_save(ctx, ptr.p);
}

int commit_package(uci_context *ctx, const char *package)
{
    if (!ctx || !package)
        return -1;
    pkg_lock_scope scope;
    uci_package *p = nullptr;
    if (stage_locked(ctx, package, &p) != 0 ||
        uci_flush_package_at(uci_store_of(ctx), package) != 0) {
        DS_ERR("uci_commit error");
        return -1;
    }
    config_note_commit(package); // announced by the action that committed
    return 0;
}

int dummy_commit_package(uci_context *ctx, const char *package)
{
    if (!ctx || !package)
        return -1;
    pkg_lock_scope scope;
    uci_package *p = nullptr;
    if (stage_locked(ctx, package, &p) != 0) {
        DS_ERR("uci_save error");
        return -1;
    }
    if (p && uci_dummy_commit(ctx, &p, false) != UCI_OK) {
        DS_ERR("uci_dummy_commit error");
        return -1;
    }
    uci_flush_mark(package);
    config_note_commit(package);
    return 0;
}

void uci_append_quoted(std::string *out, const char *value)
{
    out->push_back('\'');
    for (const char *c = value; *c; c++) {
        if (*c == '\'')
            out->append("'\\''");
        else
            out->push_back(*c);
    }
    out->push_back('\'');
}

bool uci_section_name_ok(const char *name)
{
    if (!name || !*name)
        return false;
    for (const char *c = name; *c; c++) {
        bool ok = (*c >= 'a' && *c <= 'z') || (*c >= 'A' && *c <= 'Z') ||
                  (*c >= '0' && *c <= '9') || *c == '_';
        if (!ok)
            return false;
    }
    return true;
}
