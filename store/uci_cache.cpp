#include "store/uci_cache.h"

#include <json-c/json.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <uci.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/jso.h"
#include "platform/paths.h"
#include "store/pkg_lock.h"
#include "platform/trace.h"
#include "store/uci_access.h"
#include "store/uci_files.h"
#include "store/uci_watch.h"

// All names and values of a package in one block of NUL-terminated texts,
// with fixed-size records pointing into it: about the size of the file.
struct uci_snapshot {
    struct section {
        uint32_t name, type, first_opt, n_opts;
    };
    struct option {
        uint32_t name;
        int32_t n_vals; // -1: a plain option whose text starts at `first`
        uint32_t first; // list: index of the first entry in `values`
    };
    std::string text;
    std::vector<section> sections;
    std::vector<option> options;
    std::vector<uint32_t> values;
    name_index by_name; // section index
    // Each section's JSON text as the response serialiser writes it
    // (JSON_C_TO_STRING_SPACED): section i ends at json_end[i].
    std::string json;
    std::vector<uint32_t> json_end;
};

namespace {

using file_id = uci_file_stamp;

// What a package's readers load: the config file and its change log.
struct package_id {
    file_id conf, log;
};

struct cache_entry {
    uci_snapshot_ref snap;
    package_id id;
    uint64_t gen;
    uint64_t used;
    size_t bytes;
    // The change-notice epoch (uci_watch_epoch) at which `id` was last found
    // on disk; 0 until then. While the epoch stays there, nothing in the
    // directories changed and the identity need not be read again.
    uint64_t seen_epoch = 0;
};

// Per package: the write generation, bumped by every drop, and the identity
// the files had right after this process last wrote them.
struct package_state {
    uint64_t gen = 0;
    bool trusted = false;
    package_id after_write{};
};

// The one piece of state the workers share: guarded by `lock`, held only
// for map look-ups and updates, never while a file is read.
struct cache_state {
    std::mutex lock;
    std::map<std::string, cache_entry, std::less<>> entries;
    std::map<std::string, package_state, std::less<>> packages;
    size_t bytes = 0;
    uint64_t clock = 0;
};

cache_state &cache(void)
{
    static cache_state state;
    return state;
}

bool cache_enabled(void)
{
    static const bool on = [] {
        const char *env = getenv("DSD_UCI_CACHE");
        return !(env && strcmp(env, "0") == 0);
    }();
    return on;
}

// Package names become file names: nothing that leaves the directory.
bool plain_package(const char *package)
{
    return package && package[0] && package[0] != '.' && !strchr(package, '/');
}

file_id stat_file(const std::string &path)
{
    struct stat st;
    if (stat(path.c_str(), &st) != 0)
        return file_id{};
    return file_id{true, st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
}

package_id stat_package(const char *package)
{
    static const std::string conf = dsd_path("/etc/config/"), log = dsd_path("/tmp/.uci/");
    return package_id{stat_file(conf + package), stat_file(log + package)};
}

bool same_time(const timespec &a, const timespec &b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool same_file(const file_id &a, const file_id &b)
{
    if (!a.present || !b.present)
        return a.present == b.present;
    return a.dev == b.dev && a.ino == b.ino && a.size == b.size && same_time(a.mtime, b.mtime) &&
           same_time(a.ctime, b.ctime);
}

bool same_package(const package_id &a, const package_id &b)
{
    return same_file(a.conf, b.conf) && same_file(a.log, b.log);
}

// File times come from the kernel's coarse clock: a second change within
// the same tick and with the same size would keep the identity, so a file
// changed that recently is not trusted to tell its versions apart.
bool file_fresh(const file_id &f, const timespec &now)
{
    if (!f.present)
        return false;
    const timespec *latest = f.ctime.tv_sec > f.mtime.tv_sec ||
                                     (f.ctime.tv_sec == f.mtime.tv_sec &&
                                      f.ctime.tv_nsec > f.mtime.tv_nsec)
                                 ? &f.ctime
                                 : &f.mtime;
    int64_t age_ms = (static_cast<int64_t>(now.tv_sec) - latest->tv_sec) * 1000 +
                     (now.tv_nsec - latest->tv_nsec) / 1000000;
    return age_ms < UCI_CACHE_FRESH_MS;
}

bool package_fresh(const package_id &id)
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return file_fresh(id.conf, now) || file_fresh(id.log, now);
}

uint32_t put_text(uci_snapshot *s, const char *str)
{
    uint32_t off = static_cast<uint32_t>(s->text.size());
    s->text.append(str ? str : "");
    s->text.push_back('\0');
    return off;
}

void put_option(uci_snapshot *s, const uci_option *o)
{
    uci_snapshot::option opt{put_text(s, o->e.name), -1, 0};
    if (o->type == UCI_TYPE_STRING) {
        opt.first = put_text(s, o->v.string);
    } else {
        opt.first = static_cast<uint32_t>(s->values.size());
        uci_element *e;
        uci_foreach_element(&o->v.list, e) {
            s->values.push_back(put_text(s, e->name));
        }
        opt.n_vals = static_cast<int32_t>(s->values.size() - opt.first);
    }
    s->options.push_back(opt);
}

void put_section(uci_snapshot *s, const uci_section *sec)
{
    uci_snapshot::section rec{put_text(s, sec->e.name), put_text(s, sec->type),
                              static_cast<uint32_t>(s->options.size()), 0};
    uci_element *e;
    uci_foreach_element(&sec->options, e) {
        const uci_option *o = uci_to_option(e);
        if (o->type == UCI_TYPE_STRING || o->type == UCI_TYPE_LIST)
            put_option(s, o);
    }
    rec.n_opts = static_cast<uint32_t>(s->options.size()) - rec.first_opt;
    s->sections.push_back(rec);
}

// The index is built once the text block has stopped moving.
void index_sections(uci_snapshot *s)
{
    s->text.shrink_to_fit();
    s->sections.shrink_to_fit();
    s->options.shrink_to_fit();
    s->values.shrink_to_fit();
    name_index_reset(&s->by_name, s->sections.size());
    for (uint32_t i = 0; i < s->sections.size(); i++)
        name_index_add(&s->by_name, s->text.data() + s->sections[i].name, i);
}

size_t snapshot_bytes(const uci_snapshot &s)
{
    return sizeof s + s.text.capacity() +
           s.sections.capacity() * sizeof(uci_snapshot::section) +
           s.options.capacity() * sizeof(uci_snapshot::option) +
           s.values.capacity() * sizeof(uint32_t) +
           s.by_name.slots.capacity() * sizeof(name_index::slot) +
           s.json.capacity() + s.json_end.capacity() * sizeof(uint32_t);
}

void store_section_texts(uci_snapshot *s);

struct uci_ctx_free {
    void operator()(uci_context *c) const { uci_free_context(c); }
};

// Loads the package as any reader would (file, then change log) in a
// private context on `ctx_dirs` (the daemon's store when null) and copies
// it out.
uci_snapshot_ref load_snapshot(const uci_store_dirs *ctx_dirs, const char *package, bool texts)
{
    std::unique_ptr<uci_context, uci_ctx_free> ctx(
        ctx_dirs ? dsd_uci_alloc_at(ctx_dirs->conf.c_str(), ctx_dirs->save.c_str()) : dsd_uci_alloc());
    uci_package *p = nullptr;
    if (!ctx || uci_load(ctx.get(), package, &p) != UCI_OK || !p)
        return nullptr;
    auto snap = std::make_shared<uci_snapshot>();
    uci_element *e;
    uci_foreach_element(&p->sections, e) {
        put_section(snap.get(), uci_to_section(e));
    }
    index_sections(snap.get());
    if (texts)
        store_section_texts(snap.get());
    return snap;
}

void forget_entry(cache_state &c, const char *package)
{
    auto it = c.entries.find(package);
    if (it == c.entries.end())
        return;
    c.bytes -= it->second.bytes;
    c.entries.erase(it);
}

// Least recently used first, until `need` more bytes fit.
void make_room(cache_state &c, size_t need)
{
    while (!c.entries.empty() && c.bytes + need > UCI_CACHE_BYTES) {
        auto oldest = c.entries.begin();
        for (auto it = c.entries.begin(); it != c.entries.end(); ++it) {
            if (it->second.used < oldest->second.used)
                oldest = it;
        }
        c.bytes -= oldest->second.bytes;
        c.entries.erase(oldest);
    }
}

// Keeps a snapshot read under generation `gen` and identity `id`, unless a
// drop came in between, the files are too fresh to be told apart from their
// next version (and this process did not write them), or it cannot fit.
void keep_snapshot(const char *package, const uci_snapshot_ref &snap, const package_id &id,
                   uint64_t gen)
{
    size_t bytes = snapshot_bytes(*snap);
    bool fresh = package_fresh(id);
    cache_state &c = cache();
    std::lock_guard<std::mutex> guard(c.lock);
    auto st = c.packages.find(package);
    if (st == c.packages.end() || st->second.gen != gen || bytes > UCI_CACHE_BYTES)
        return;
    if (fresh && !(st->second.trusted && same_package(st->second.after_write, id)))
        return;
    forget_entry(c, package);
    make_room(c, bytes);
    c.entries.emplace(package, cache_entry{snap, id, gen, ++c.clock, bytes, 0});
    c.bytes += bytes;
}

// Whether `id` is what this process's last write to the package left.
bool own_write(const char *package, const package_id &id)
{
    cache_state &c = cache();
    std::lock_guard<std::mutex> guard(c.lock);
    auto st = c.packages.find(package);
    return st != c.packages.end() && st->second.trusted && same_package(st->second.after_write, id);
}

// The cached snapshot when it is still current; its generation in *gen.
// The cached snapshot when it is still current (its generation is the
// package's and its identity `id`, read at change-notice `epoch`); the
// package's generation in *gen.
uci_snapshot_ref current_entry(const char *package, const package_id &id, uint64_t epoch, uint64_t *gen)
{
    cache_state &c = cache();
    std::lock_guard<std::mutex> guard(c.lock);
    auto st = c.packages.find(package);
    if (st == c.packages.end())
        st = c.packages.emplace(package, package_state{}).first;
    *gen = st->second.gen;
    auto it = c.entries.find(package);
    if (it == c.entries.end() || it->second.gen != *gen || !same_package(it->second.id, id))
        return nullptr;
    it->second.used = ++c.clock;
    it->second.seen_epoch = epoch;
    return it->second.snap;
}

// The cached snapshot when no write of the daemon came since it was kept
// and nothing in the uci directories changed since its identity was last
// found on disk: then there is no need to read the identity again.
uci_snapshot_ref unchanged_entry(const char *package, uint64_t epoch)
{
    cache_state &c = cache();
    std::lock_guard<std::mutex> guard(c.lock);
    auto st = c.packages.find(package);
    auto it = c.entries.find(package);
    if (st == c.packages.end() || it == c.entries.end() || it->second.gen != st->second.gen ||
        it->second.seen_epoch != epoch)
        return nullptr;
    it->second.used = ++c.clock;
    return it->second.snap;
}

json_object *option_json(const uci_snapshot &s, const uci_snapshot::option &o)
{
    if (o.n_vals < 0)
        return json_object_new_string(s.text.data() + o.first);
    json_object *arr = json_object_new_array();
    for (int32_t i = 0; i < o.n_vals; i++)
        json_object_array_add(arr, json_object_new_string(s.text.data() + s.values[o.first + i]));
    return arr;
}

// The same object single_section builds from the live package.
json_object *section_json(const uci_snapshot &s, const uci_snapshot::section &sec)
{
    json_object *obj = json_object_new_object();
    json_object_object_add(obj, ".name", json_object_new_string(s.text.data() + sec.name));
    json_object_object_add(obj, ".type", json_object_new_string(s.text.data() + sec.type));
    for (uint32_t i = 0; i < sec.n_opts; i++) {
        const uci_snapshot::option &o = s.options[sec.first_opt + i];
        json_object_object_add(obj, s.text.data() + o.name, option_json(s, o));
    }
    return obj;
}

// A whole-package get answers some 1,100 sections: building each as a tree
// and serialising it again per request was most of its cost, so the text is
// made once per snapshot, with the flags ds_make_response uses.
void store_section_texts(uci_snapshot *s)
{
    s->json_end.reserve(s->sections.size());
    for (const uci_snapshot::section &sec : s->sections) {
        json_object *obj = section_json(*s, sec);
        size_t len = 0;
        const char *text = json_object_to_json_string_length(obj, JSON_C_TO_STRING_SPACED, &len);
        s->json.append(text ? text : "null", text ? len : 4);
        json_object_put(obj);
        s->json_end.push_back(static_cast<uint32_t>(s->json.size()));
    }
    s->json.shrink_to_fit();
}

const uci_snapshot::section *find_section(const uci_snapshot &snap, const char *name)
{
    uint32_t i = 0;
    return name_index_find(snap.by_name, name, &i) ? &snap.sections[i] : nullptr;
}

// Holds `package` for a read. A thread that holds nothing waits; one that
// holds another package (a transaction's callback reading a second one)
// never waits: two such readers in opposite orders would each stall for
// the bounded wait. False when the package is busy.
bool hold_for_read(const char *package)
{
    return pkg_lock_mark() == 0 ? pkg_lock(package) == 0 : pkg_trylock(package) == 0;
}

// The current snapshot if one is cached; with `fill`, read and maybe kept
// on a miss.
uci_snapshot_ref open_snapshot(const char *package, bool fill)
{
    if (!cache_enabled() || !plain_package(package))
        return nullptr;
    // The epoch is read before the identity: a change after it shows in
    // the next epoch, whatever this stat saw.
    uint64_t epoch = uci_watch_epoch();
    if (uci_snapshot_ref same = unchanged_entry(package, epoch))
        return same;
    package_id before = stat_package(package);
    uint64_t gen = 0;
    uci_snapshot_ref hit = current_entry(package, before, epoch, &gen);
    if (hit || !fill)
        return hit;
    // A flush renames the new file in and then cuts the change log: a load
    // that straddled the two could pair the old file with the cut log, a
    // state older than either. Every write of the daemon holds the package,
    // so the load does too (re-entrant for a writer reading its own package;
    // bounded when the thread holds another, and then the caller reads).
    pkg_lock_scope scope;
    if (!hold_for_read(package))
        return nullptr;
    // A file another writer changed within the clock tick cannot be told
    // from its next version: serve this read, but do not keep it.
    before = stat_package(package);
    bool keepable = !package_fresh(before) || own_write(package, before);
    uci_snapshot_ref snap = load_snapshot(nullptr, package, true);
    if (snap && keepable && same_package(before, stat_package(package)))
        keep_snapshot(package, snap, before, gen);
    return snap;
}

// Whether a snapshot of `package` would be kept: its file is small beside
// the cache (the snapshot takes some three times the file).
bool worth_filling(const char *package)
{
    if (!cache_enabled() || !plain_package(package))
        return false;
    file_id conf = stat_package(package).conf;
    return conf.present && conf.size < static_cast<off_t>(UCI_CACHE_BYTES / 6);
}

// The wanted sections as get_uci_package forms them, from the package as
// `ctx` loads it; a package that cannot be loaded fails as there, with its
// traces. Names are compared as keys, never parsed as lookup expressions.
json_object *part_through_context(uci_context *ctx, const char *package, json_object *wanted)
{
    uci_ptr ptr{};
    ptr.package = package;
    if (!ctx || !package || uci_lookup_ptr(ctx, &ptr, nullptr, true) != UCI_OK ||
        !(ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE) || !ptr.p ||
        !json_object_is_type(wanted, json_type_object))
        return get_uci_package(ctx, package);
    json_object *obj = json_object_new_object();
    uci_element *e;
    uci_foreach_element(&ptr.p->sections, e) {
        if (json_object_object_get_ex(wanted, e->name, nullptr))
            json_object_object_add(obj, e->name, single_section(uci_to_section(e)));
    }
    return obj;
}


// A value whose quoted form reads back as itself on one line.
bool one_line(const char *s)
{
    return !strpbrk(s, "\n\r");
}

// One option as config text; false for what a replay could read otherwise.
bool option_config(const uci_snapshot &s, const uci_snapshot::option &o, std::string *out)
{
    const char *name = s.text.data() + o.name;
    if (!uci_section_name_ok(name) || o.n_vals == 0)
        return false;
    for (int32_t i = 0; i < (o.n_vals < 0 ? 1 : o.n_vals); i++) {
        const char *v = s.text.data() + (o.n_vals < 0 ? o.first : s.values[o.first + i]);
        if (!one_line(v))
            return false;
        out->append(o.n_vals < 0 ? "\toption " : "\tlist ").append(name).push_back(' ');
        uci_append_quoted(out, v);
        out->push_back('\n');
    }
    return true;
}

bool list_clean(const uci_option *o)
{
    if (uci_list_empty(&o->v.list))
        return false;
    uci_element *v;
    uci_foreach_element(&o->v.list, v) {
        if (!v->name || !one_line(v->name))
            return false;
    }
    return true;
}

// Whether the staged section holds only what the snapshot can store and a
// replay reads back unchanged.
bool section_clean(const uci_section *sec)
{
    if (!uci_section_name_ok(sec->e.name) || !uci_section_name_ok(sec->type))
        return false;
    uci_element *e;
    uci_foreach_element(&sec->options, e) {
        const uci_option *o = uci_to_option(e);
        if (!uci_section_name_ok(e->name) || (o->type != UCI_TYPE_STRING && o->type != UCI_TYPE_LIST))
            return false;
        if (o->type == UCI_TYPE_STRING && (!o->v.string || !one_line(o->v.string)))
            return false;
        if (o->type == UCI_TYPE_LIST && !list_clean(o))
            return false;
    }
    return true;
}

// Whether the log grew by exactly `tail` since the ticket and the config
// file kept its identity: the bytes are read back and compared.
bool log_grew_by(const uci_cache_ticket &t, const package_id &after, const char *package,
                 const std::string &tail)
{
    const file_id &was = t.log, &now = after.log;
    if (!same_file(t.conf, after.conf))
        return false;
    if (tail.empty())
        return same_file(was, now);
    if (!now.present)
        return false;
    if (was.present && (was.dev != now.dev || was.ino != now.ino))
        return false;
    off_t from = was.present ? was.size : 0;
    if (now.size != from + static_cast<off_t>(tail.size()))
        return false;
    int fd = open((dsd_path("/tmp/.uci/") + package).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return false;
    std::string text(tail.size() + 1, '\0');
    ssize_t got = pread(fd, text.data(), text.size(), from);
    close(fd);
    return got == static_cast<ssize_t>(tail.size()) && text.compare(0, tail.size(), tail) == 0;
}

// `old` with section `idx` replaced by `sec`. The text block is copied and
// the new strings appended (the old ones stay unused until the next load);
// the name index is rebased onto the copy, the stored texts spliced.
uci_snapshot_ref patched_snapshot(const uci_snapshot &old, uint32_t idx, const uci_section *sec)
{
    auto snap = std::make_shared<uci_snapshot>();
    snap->text.reserve(old.text.size() + 1024);
    snap->text = old.text;
    snap->options = old.options;
    snap->values = old.values;
    snap->sections = old.sections;
    uci_snapshot::section &rec = snap->sections[idx];
    rec.first_opt = static_cast<uint32_t>(snap->options.size());
    uci_element *e;
    uci_foreach_element(&sec->options, e) {
        put_option(snap.get(), uci_to_option(e));
    }
    rec.n_opts = static_cast<uint32_t>(snap->options.size()) - rec.first_opt;
    snap->by_name = old.by_name;
    for (name_index::slot &slot : snap->by_name.slots) {
        if (slot.name)
            slot.name = snap->text.data() + (slot.name - old.text.data());
    }
    json_object *obj = section_json(*snap, rec);
    size_t len = 0;
    const char *text = json_object_to_json_string_length(obj, JSON_C_TO_STRING_SPACED, &len);
    uint32_t begin = idx ? old.json_end[idx - 1] : 0, end = old.json_end[idx];
    snap->json.reserve(old.json.size() - (end - begin) + len);
    snap->json.append(old.json, 0, begin).append(text, len).append(old.json, end, std::string::npos);
    json_object_put(obj);
    snap->json_end = old.json_end;
    int64_t shift = static_cast<int64_t>(len) - (end - begin);
    for (size_t i = idx; i < snap->json_end.size(); i++)
        snap->json_end[i] = static_cast<uint32_t>(snap->json_end[i] + shift);
    return snap;
}

// Swaps the patched snapshot in when the ticket's one is still the current
// entry; bumps the generation as a drop does in every case.
void install_patch(const char *package, const uci_cache_ticket &t, const uci_snapshot_ref &snap,
                   const package_id &after)
{
    size_t bytes = snap ? snapshot_bytes(*snap) : 0;
    cache_state &c = cache();
    std::lock_guard<std::mutex> guard(c.lock);
    package_state &st = c.packages[package];
    auto it = c.entries.find(package);
    bool keep = snap && st.gen == t.gen && it != c.entries.end() && it->second.snap == t.snap &&
                bytes <= UCI_CACHE_BYTES / 2;
    st.gen++;
    st.trusted = true;
    st.after_write = after;
    forget_entry(c, package);
    if (!keep)
        return;
    make_room(c, bytes);
    c.entries.emplace(package, cache_entry{snap, after, st.gen, ++c.clock, bytes, 0});
    c.bytes += bytes;
}

} // namespace

uci_snapshot_ref uci_cache_open(const char *package)
{
    return open_snapshot(package, true);
}

json_object *uci_snapshot_section(const uci_snapshot &snap, const char *section)
{
    const uci_snapshot::section *sec = section ? find_section(snap, section) : nullptr;
    if (!sec) {
        DS_TRACE_AS("get_uci_section", TRACE_ERROR, "uci cannot found.\n");
        return nullptr;
    }
    return section_json(snap, *sec);
}

json_object *uci_snapshot_section_text(const uci_snapshot &snap, const char *section)
{
    if (snap.json_end.empty()) // a private read, never kept: no stored texts
        return uci_snapshot_section(snap, section);
    uci_section_text found{};
    if (!section || !uci_snapshot_find_text(snap, name_key_of(section), &found)) {
        DS_TRACE_AS("get_uci_section", TRACE_ERROR, "uci cannot found.\n");
        return nullptr;
    }
    return jso_new_raw(found.text, found.len);
}

bool uci_snapshot_find_text(const uci_snapshot &snap, const name_key &section, uci_section_text *out)
{
    uint32_t i = 0;
    if (snap.json_end.empty() || !name_index_find_key(snap.by_name, section, &i))
        return false;
    uint32_t begin = i ? snap.json_end[i - 1] : 0;
    *out = {i, snap.json.data() + begin, snap.json_end[i] - begin};
    return true;
}

size_t uci_snapshot_section_count(const uci_snapshot &snap)
{
    return snap.sections.size();
}

json_object *uci_snapshot_section_type(const uci_snapshot &snap, const char *type)
{
    if (!type)
        return nullptr;
    json_object *arr = json_object_new_array();
    for (const uci_snapshot::section &sec : snap.sections) {
        if (strcmp(snap.text.data() + sec.type, type) != 0)
            continue;
        json_object *item = json_object_new_object();
        json_object_object_add(item, snap.text.data() + sec.name, section_json(snap, sec));
        json_object_array_add(arr, item);
    }
    return arr;
}

uci_snapshot_ref uci_snapshot_load_at(const uci_store_dirs &dirs, const char *package)
{
    if (!plain_package(package))
        return nullptr;
    // Held when that needs no wait from a thread holding another package,
    // so a flush is never seen half done (new file, log not cut yet); a
    // read that cannot hold it reads all the same, as a get may.
    pkg_lock_scope scope;
    hold_for_read(package);
    return load_snapshot(&dirs, package, false);
}

uci_snapshot_ref store_view(uci_context *ctx, const char *package)
{
    if (!plain_package(package))
        return nullptr;
    uci_store_dirs mine = uci_store_default();
    bool daemon = !ctx || (mine.conf == ctx->confdir && mine.save == ctx->savedir);
    if (daemon) {
        if (uci_snapshot_ref snap = open_snapshot(package, true))
            return snap;
        return uci_snapshot_load_at(mine, package);
    }
    return uci_snapshot_load_at(uci_store_of(ctx), package);
}

const char *store_view_option(const uci_snapshot &snap, const char *section, const char *option)
{
    const uci_snapshot::section *sec = section && option ? find_section(snap, section) : nullptr;
    for (uint32_t i = 0; sec && i < sec->n_opts; i++) {
        const uci_snapshot::option &o = snap.options[sec->first_opt + i];
        if (!strcmp(snap.text.data() + o.name, option))
            return o.n_vals < 0 ? snap.text.data() + o.first : nullptr;
    }
    return nullptr;
}

bool store_view_has(const uci_snapshot &snap, const char *section)
{
    return section && find_section(snap, section);
}

json_object *store_view_type_names(const uci_snapshot &snap, const char *type)
{
    if (!type)
        return nullptr;
    json_object *arr = json_object_new_array();
    for (const uci_snapshot::section &sec : snap.sections) {
        if (!strcmp(snap.text.data() + sec.type, type))
            json_object_array_add(arr, json_object_new_string(snap.text.data() + sec.name));
    }
    return arr;
}

json_object *store_view_package(const uci_snapshot &snap)
{
    json_object *obj = json_object_new_object();
    for (const uci_snapshot::section &sec : snap.sections)
        json_object_object_add(obj, snap.text.data() + sec.name, section_json(snap, sec));
    return obj;
}

json_object *uci_cache_package_part(uci_context *ctx, const char *package, json_object *wanted)
{
    // A miss fills the cache when the package fits it well: the set's
    // staging then imports only its sections and keeps the snapshot current,
    // so back-to-back sets parse nothing. A package too large to keep is
    // read through the request's context, which then holds it for the
    // staging that follows: one parse, as without a cache.
    uci_snapshot_ref snap =
        json_object_is_type(wanted, json_type_object) ? open_snapshot(package, false) : nullptr;
    if (!snap && json_object_is_type(wanted, json_type_object) && worth_filling(package))
        snap = open_snapshot(package, true);
    if (!snap)
        return part_through_context(ctx, package, wanted);
    json_object *obj = json_object_new_object();
    json_object_object_foreach(wanted, name, val) {
        (void)val;
        if (const uci_snapshot::section *sec = find_section(*snap, name))
            json_object_object_add(obj, name, section_json(*snap, *sec));
    }
    return obj;
}

void uci_cache_drop(const char *package)
{
    if (!cache_enabled() || !plain_package(package))
        return;
    package_id id = stat_package(package);
    cache_state &c = cache();
    std::lock_guard<std::mutex> guard(c.lock);
    package_state &st = c.packages[package];
    st.gen++;
    st.trusted = true;
    st.after_write = id;
    forget_entry(c, package);
}

size_t uci_cache_bytes(void)
{
    cache_state &c = cache();
    std::lock_guard<std::mutex> guard(c.lock);
    return c.bytes;
}

bool uci_cache_ticket_take(const char *package, uci_cache_ticket *t)
{
    if (!t || !cache_enabled() || !plain_package(package))
        return false;
    uint64_t epoch = uci_watch_epoch();
    package_id id = stat_package(package);
    uint64_t gen = 0;
    t->snap = current_entry(package, id, epoch, &gen);
    t->gen = gen;
    t->conf = id.conf;
    t->log = id.log;
    return t->snap != nullptr;
}

bool uci_snapshot_section_config(const uci_snapshot &snap, const char *section, std::string *text)
{
    const uci_snapshot::section *sec = section ? find_section(snap, section) : nullptr;
    if (!sec || !uci_section_name_ok(snap.text.data() + sec->name) || !uci_section_name_ok(snap.text.data() + sec->type))
        return false;
    text->assign("config ").append(snap.text.data() + sec->type).append(" '");
    text->append(snap.text.data() + sec->name).append("'\n");
    for (uint32_t i = 0; i < sec->n_opts; i++) {
        if (!option_config(snap, snap.options[sec->first_opt + i], text))
            return false;
    }
    return true;
}

void uci_cache_patch(const uci_cache_ticket &t, const char *package, const uci_section *s,
                     const std::string &tail)
{
    if (!cache_enabled() || !plain_package(package))
        return;
    package_id after = stat_package(package);
    uint32_t idx = 0;
    uci_snapshot_ref snap;
    if (t.snap && s && section_clean(s) && name_index_find(t.snap->by_name, s->e.name, &idx) &&
        log_grew_by(t, after, package, tail))
        snap = patched_snapshot(*t.snap, idx, s);
    install_patch(package, t, snap, after);
}
