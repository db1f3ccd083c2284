#include "store/uci_access.h"

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

#include "platform/paths.h"
#include "store/pkg_lock.h"
#include "platform/safe_file.h"
#include "platform/trace.h"
#include "store/uci_cache.h"
#include "store/uci_files.h"
#include "store/uci_flush.h"
#include "store/uci_txn.h"
#include "store/uci_watch.h"

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

// Cuts a torn last line (a save cut short) from the change log open as
// `fd` whose size is *size, reading back only from the end until a line
// break: the next change must not be glued to the torn one and skipped by
// every load. *size is updated. False when the cut failed.
bool cut_torn_tail(int fd, off_t *size)
{
    char buf[512];
    off_t end = *size;
    bool last = true;
    while (end > 0) {
        off_t from = end > static_cast<off_t>(sizeof buf) ? end - static_cast<off_t>(sizeof buf) : 0;
        ssize_t n = pread(fd, buf, static_cast<size_t>(end - from), from);
        if (n != end - from)
            return false;
        for (ssize_t i = n; i > 0; i--) {
            if (buf[i - 1] == '\n') {
                if (last)
                    return true; // the log ends with a complete line
                *size = from + i;
                return ftruncate(fd, *size) == 0;
            }
            last = false;
        }
        end = from;
    }
    *size = 0;
    return ftruncate(fd, 0) == 0;
}

// The change lines uci_save appends for the package's pending changes, in
// the library's own form (prefix, pkg.section[.option], ='value').
std::string pending_text(const uci_package *p)
{
    static const char prefix[] = {'+', '-', 0, '@', '^', '|', '~'};
    std::string out;
    uci_element *e;
    uci_foreach_element(&p->delta, e) {
        const uci_delta *h = uci_to_delta(e);
        size_t cmd = static_cast<size_t>(h->cmd);
        if (cmd < sizeof prefix && prefix[cmd])
            out.push_back(prefix[cmd]);
        out.append(p->e.name).append(".").append(h->section ? h->section : "");
        if (e->name)
            out.append(".").append(e->name);
        if (h->cmd == UCI_CMD_REMOVE && !h->value) {
            out.push_back('\n');
            continue;
        }
        out.push_back('=');
        uci_append_quoted(&out, h->value ? h->value : "");
        out.push_back('\n');
    }
    return out;
}

// Whether the log open as `fd` got `text`, as whole lines, somewhere past
// `size` (another uci client may append at the same moment). Reads back
// only what was appended.
bool appended(int fd, off_t size, const std::string &text)
{
    struct stat st;
    if (fstat(fd, &st) != 0 || st.st_size < size + static_cast<off_t>(text.size()))
        return false;
    std::string back(static_cast<size_t>(st.st_size - size), '\0');
    if (pread(fd, back.data(), back.size(), size) != static_cast<ssize_t>(back.size()))
        return false;
    for (size_t at = back.find(text); at != std::string::npos; at = back.find(text, at + 1)) {
        if (at == 0 || back[at - 1] == '\n')
            return true;
    }
    return false;
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

// One change through the library's editing call, then a checked save of the
// package. Traced under the caller's name.
struct edit_call {
    int (*edit)(uci_context *, uci_ptr *);
    const char *func;
    int level;
    const char *fail_text;
};

int edit_one(store_txn *t, const edit_call &call, const char *package, const char *section,
             const char *option, const char *value)
{
    if (store_txn_take(t, package) != 0)
        return -1;
    uci_context *ctx = t->ctx;
    uci_cache_drop_guard drop{package};
    uci_ptr ptr;
    lookup(ctx, &ptr, package, section, option, value);
    if (call.edit(ctx, &ptr) != UCI_OK) {
        DS_TRACE_AS(call.func, call.level, "%s", call.fail_text);
        return -1;
    }
    if (dsd_uci_save(ctx, ptr.p) != 0) {
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
    std::string text = pending_text(p);
    if (!p->has_delta || text.empty())
        return uci_save(ctx, p) == UCI_OK ? 0 : -1;
    std::string path = std::string(ctx->savedir) + "/" + p->e.name;
    fd_holder log{open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW)};
    struct stat st;
    off_t size = 0;
    if (log.fd >= 0 && (fstat(log.fd, &st) != 0 || !S_ISREG(st.st_mode))) {
        DS_ERR("change log %s is not a file", path.c_str());
        return -1;
    }
    bool existed = log.fd >= 0;
    if (existed)
        size = st.st_size;
    if (log.fd >= 0 && !cut_torn_tail(log.fd, &size))
        DS_ERR("cut torn change in %s failed", path.c_str());
    int rc = uci_save(ctx, p);
    if (log.fd < 0)
        log.fd = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (rc == UCI_OK && log.fd >= 0 && appended(log.fd, size, text))
        return 0;
    // Whatever the library answered, the changes are not in the log whole:
    // a full /tmp or a short write. Back to what was there.
    DS_ERR("uci save error");
    if (log.fd >= 0 && (existed ? ftruncate(log.fd, size) : unlink(path.c_str())) != 0)
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

void dsd_uci_forget(uci_context *ctx, const char *package)
{
    if (!ctx || !package)
        return;
    uci_element *e;
    uci_foreach_element(&ctx->root, e) {
        if (!strcmp(e->name, package)) {
            if (uci_list_empty(&uci_to_package(e)->delta))
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

// The readers below answer from the cached snapshot when `ctx` is on the
// daemon's store and the cache serves; otherwise from the package as `ctx`
// loads it (parsed once per request into the request's own context, as
// every read was before the cache), so DSD_UCI_CACHE=0 costs one parse per
// request, not one per read.
static uci_snapshot_ref cached_view(uci_context *ctx, const char *package)
{
    uci_store_dirs mine = uci_store_default();
    if (mine.conf != ctx->confdir || mine.save != ctx->savedir)
        return nullptr;
    return uci_cache_open(package);
}

// The package as `ctx` holds it; null with the trace when it cannot load.
static uci_package *context_package(uci_context *ctx, const char *package)
{
    uci_ptr ptr;
    if (lookup(ctx, &ptr, package, nullptr, nullptr, nullptr) != UCI_OK || !complete(ptr) || !ptr.p) {
        DS_ERR("uci cannot found.\n");
        return nullptr;
    }
    return ptr.p;
}

// The section of `ctx`'s copy, or null (traced unless `quiet`).
static uci_section *context_section(uci_context *ctx, const char *package, const char *section,
                                    bool quiet)
{
    uci_ptr ptr;
    if (lookup(ctx, &ptr, package, section, nullptr, nullptr) != UCI_OK || !complete(ptr) || !ptr.s) {
        if (!quiet)
            DS_ERR("uci cannot found.\n");
        return nullptr;
    }
    return ptr.s;
}

json_object *get_uci_section(uci_context *ctx, const char *package, const char *section)
{
    if (!ctx || !package || !section)
        return nullptr;
    if (uci_snapshot_ref v = cached_view(ctx, package))
        return uci_snapshot_section(*v, section);
    return single_section(context_section(ctx, package, section, false));
}

json_object *get_uci_section_type(uci_context *ctx, const char *package, const char *type)
{
    if (!ctx || !package || !type)
        return nullptr;
    if (uci_snapshot_ref v = cached_view(ctx, package))
        return uci_snapshot_section_type(*v, type);
    uci_package *p = context_package(ctx, package);
    if (!p)
        return nullptr;
    json_object *arr = json_object_new_array();
    uci_element *e;
    uci_foreach_element(&p->sections, e) {
        if (strcmp(uci_to_section(e)->type, type) != 0)
            continue;
        json_object *item = json_object_new_object();
        json_object_object_add(item, e->name, single_section(uci_to_section(e)));
        json_object_array_add(arr, item);
    }
    return arr;
}

json_object *get_uci_package(uci_context *ctx, const char *package)
{
    if (!ctx || !package)
        return nullptr;
    if (uci_snapshot_ref v = cached_view(ctx, package))
        return store_view_package(*v);
    uci_package *p = context_package(ctx, package);
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
    if (uci_snapshot_ref v = cached_view(ctx, package))
        return store_view_type_names(*v, type);
    uci_package *p = context_package(ctx, package);
    if (!p)
        return nullptr;
    json_object *arr = json_object_new_array();
    uci_element *e;
    uci_foreach_element(&p->sections, e) {
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

int section_exist(uci_context *ctx, const char *package, const char *section)
{
    if (!ctx || !package || !section)
        return 0;
    if (uci_snapshot_ref v = cached_view(ctx, package))
        return store_view_has(*v, section) ? 1 : 0;
    return context_section(ctx, package, section, true) ? 1 : 0;
}

int get_sec_type_num(uci_context *ctx, const char *package, const char *type)
{
    json_object *names = get_sec_names_by_type(ctx, package, type);
    if (!names) {
        DS_ERR("uci_lookup_ptr error.");
        return -1;
    }
    int count = static_cast<int>(json_object_array_length(names));
    json_object_put(names);
    return count;
}

// Whether `name` is among the strings of `arr`.
static bool name_taken(json_object *arr, const char *name)
{
    for (size_t i = 0; i < json_object_array_length(arr); i++) {
        if (!strcmp(json_object_get_string(json_object_array_get_idx(arr, i)), name))
            return true;
    }
    return false;
}

int get_free_section_index(uci_context *ctx, const char *package, const char *type)
{
    // Only sections of `type` count: a name held by another type is free.
    json_object *names = get_sec_names_by_type(ctx, package, type);
    if (!names)
        return -1;
    int found = -1;
    for (int n = 1; n < INT_MAX && found < 0; n++) {
        char name[32];
        snprintf(name, sizeof name, "%s_%d", type, n);
        if (!name_taken(names, name))
            found = n;
    }
    json_object_put(names);
    return found;
}

bool get_opt_text(uci_context *ctx, const char *package, const char *section, const char *option,
                  std::string *out)
{
    if (!ctx || !package || !section || !option || !out)
        return false;
    const char *text = nullptr;
    uci_snapshot_ref v = cached_view(ctx, package);
    if (v) {
        text = store_view_option(*v, section, option);
    } else {
        uci_ptr ptr;
        if (lookup(ctx, &ptr, package, section, option, nullptr) == UCI_OK && complete(ptr) && ptr.o &&
            ptr.o->type == UCI_TYPE_STRING)
            text = ptr.o->v.string;
    }
    if (text)
        *out = text;
    return text != nullptr;
}

store_opt store_read_opt(uci_context *ctx, const char *package, const char *section,
                         const char *option)
{
    store_opt out;
    if (!package || !section || !option)
        return out;
    out.view = store_view(ctx, package);
    out.text = out.view ? store_view_option(*out.view, section, option) : nullptr;
    return out;
}

int get_opt_int_value(uci_context *ctx, const char *package, const char *section,
                      const char *option)
{
    std::string v;
    return get_opt_text(ctx, package, section, option, &v) ? parse_non_negative(v.c_str()) : -1;
}

char *get_opt_value_dup(const char *package, const char *section, const char *option)
{
    if (!package || !section || !option)
        return nullptr;
    uci_snapshot_ref v = store_view(nullptr, package);
    const char *text = v ? store_view_option(*v, section, option) : nullptr;
    return text ? strdup(text) : nullptr;
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

int set_uci_section(store_txn *t, const char *package, const char *section, json_object *obj)
{
    if (!t || !t->ctx || !package || !section || !obj)
        return -1;
    if (!json_object_is_type(obj, json_type_object)) {
        DS_ERR("json type error.");
        return -1;
    }
    if (store_txn_take(t, package) != 0)
        return -1;
    uci_context *ctx = t->ctx;
    if (!package_loaded(ctx, package)) {
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
    uci_cache_drop_guard drop{package};
    json_object_object_foreach(obj, key, val) {
        write_member(ctx, package, section, key, val);
    }
    if (ptr.p && dsd_uci_save(ctx, ptr.p) != 0)
        return -1;
    return 0;
}

int delete_section(store_txn *t, const char *package, const char *section)
{
    if (!t || !t->ctx || !package || !section)
        return -1;
    return edit_one(t, {uci_delete, "do_delete_single_section", TRACE_ERROR, "uci delete error"}, package,
                    section, nullptr, nullptr);
}

int delete_section_type(store_txn *t, const char *package, const char *type)
{
    if (!t || !t->ctx || !package || !type)
        return -1;
    json_object *names = get_sec_names_by_type(t->ctx, package, type);
    if (!names || !json_object_is_type(names, json_type_array)) {
        DS_ERR("failed to get section type %s.%s", package, type);
        json_object_put(names);
        return -1;
    }
    int rc = 0;
    size_t n = json_object_array_length(names);
    for (size_t i = 0; i < n && rc == 0; i++) {
        const char *name = json_object_get_string(json_object_array_get_idx(names, i));
        if (name)
            rc = delete_section(t, package, name);
    }
    json_object_put(names);
    return rc;
}

int add_new_section(store_txn *t, const char *package, const char *type, const char *name)
{
    if (!t || !t->ctx || !package || !type || !name)
        return -1;
    if (!uci_section_name_ok(name)) {
        DS_ERR("Section name %s is illegal.", name);
        return -1;
    }
    if (store_txn_take(t, package) != 0)
        return -1;
    uci_context *ctx = t->ctx;
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

int rename_section(store_txn *t, const char *package, const char *section, const char *new_name)
{
    if (!t || !t->ctx || !package || !section || !new_name)
        return -1;
    // uci answers 0 for a rename onto an existing name, and stages names it
    // cannot load: both are refused here.
    if (!uci_section_name_ok(new_name) || store_txn_take(t, package) != 0)
        return -1;
    if (strcmp(section, new_name) != 0 && section_exist(t->ctx, package, new_name)) {
        DS_ERR("Section %s exit.", new_name);
        return -1;
    }
    return edit_one(t, {uci_rename, __func__, TRACE_ERROR, "uci rename error"}, package, section,
                    nullptr, new_name);
}

int set_opt_value(store_txn *t, const char *package, const char *section, const char *option,
                  const char *value)
{
    if (!t || !t->ctx || !package || !section || !option || !value)
        return -1;
    return edit_one(t, {uci_set, __func__, TRACE_INFO, "uci set error"}, package, section, option,
                    value);
}

int delete_opt_value(store_txn *t, const char *package, const char *section, const char *option,
                     const char *value)
{
    if (!t || !t->ctx || !package || !section || !option)
        return -1;
    return edit_one(t, {uci_delete, __func__, TRACE_INFO, "uci delete error"}, package, section,
                    option, value);
}

static bool config_present(uci_context *ctx, const char *package)
{
    struct stat st;
    std::string path = std::string(ctx->confdir) + "/" + package;
    return lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

int dsd_uci_stage(uci_context *ctx, const char *package)
{
    // A context without the package holds no change of it (a set staged
    // alone saved and unloaded its section): nothing to write, nor to drop.
    if (!package_loaded(ctx, package) && config_present(ctx, package))
        return 0;
    uci_cache_drop_guard drop{package};
    uci_ptr ptr;
    if (lookup(ctx, &ptr, package, nullptr, nullptr, nullptr) != UCI_OK || !ptr.p) {
        DS_ERR("uci lookup ptr error.");
        return -1;
    }
    return dsd_uci_save(ctx, ptr.p);
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
