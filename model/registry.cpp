// The module registry: arrays of static module descriptors built by the
// constructors at start-up and read without locks afterwards.
#include "model/registry.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

#include "model/model_raii.h"
#include "platform/jso.h"
#include "store/store.h"
#include "platform/trace.h"

// Written once by model_init / model_destory on the main thread before the
// workers start and after they stop; workers only read it.
static ds_model_root *g_model_root = nullptr;

// Name index of the large named-section tables (the per-channel modules hold
// up to 1152 rows, and a whole-package get looks every one of them up).
// Built by model_add and dropped by model_destory, both at start-up or
// shut-down on the main thread; the workers only read it, so no lock.
struct sec_index {
    const ds_sec *table;  // the table indexed; a different table means stale
    name_index by_name; // row index in `table`
};
static std::unordered_map<const ds_module *, sec_index> g_sec_index;
enum { SEC_INDEX_MIN_ROWS = 32 };

static void index_sections(const ds_module *mod)
{
    size_t rows = 0;
    for (const ds_sec *s = mod->sections; s && s->name; ++s)
        ++rows;
    if (rows < SEC_INDEX_MIN_ROWS)
        return;
    sec_index &idx = g_sec_index[mod];
    idx.table = mod->sections;
    name_index_reset(&idx.by_name, rows);
    // The index keeps the first row of a repeated name, as the linear walk does.
    for (const ds_sec *s = mod->sections; s->name; ++s)
        name_index_add(&idx.by_name, s->name, static_cast<uint32_t>(s - mod->sections));
}

// The module's current name index, or null (a small table, or one replaced
// since the index was built: walk it instead).
static const name_index *section_index(const ds_module *mod)
{
    auto it = g_sec_index.find(mod);
    if (it == g_sec_index.end() || it->second.table != mod->sections)
        return nullptr;
    return &it->second.by_name;
}

// 1 with *out set when the module has a current index, 0 otherwise.
static int indexed_section(const ds_module *mod, const name_key &key, const ds_sec **out)
{
    const name_index *idx = section_index(mod);
    if (!idx)
        return 0;
    uint32_t row = 0;
    *out = name_index_find_key(*idx, key, &row) ? &mod->sections[row] : nullptr;
    return 1;
}

// Allocates an empty root and makes it the process's model root. The root,
// or null ("Malloc list head failed."). Main thread, start-up.
ds_model_root *model_init(void)
{
    auto *root = static_cast<ds_model_root *>(calloc(1, sizeof(ds_model_root)));
    if (!root) {
        DS_ERR("Malloc list head failed.");
        return nullptr;
    }
    g_model_root = root;
    return root;
}

// The process's model root (borrowed), null before model_init. Any thread.
ds_model_root *get_model_root(void)
{
    return g_model_root;
}

// Position of `name` in the root's name-sorted array: the first entry not
// less than it.
static uint32_t sorted_pos(const ds_model_root *root, const char *name)
{
    uint32_t lo = 0, hi = root->count;
    while (lo < hi) {
        uint32_t mid = lo + (hi - lo) / 2;
        if (strcmp(root->by_name[mid]->name, name) < 0)
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo;
}

// The registered module called `name` (exact match), or null: a binary
// search of the name-sorted array. Any thread once start-up is over.
ds_module *get_module_node(ds_model_root *root, const char *name)
{
    if (!root || !name) {
        DS_ERR("Invalid params.");
        return nullptr;
    }
    uint32_t pos = sorted_pos(root, name);
    if (pos < root->count && strcmp(root->by_name[pos]->name, name) == 0)
        return root->by_name[pos];
    DS_INFO("The module node (%s) not found.", name);
    return nullptr;
}

// Registers `mod` (static storage, not owned) after the others; -1 for null
// arguments or a name already registered. Main thread, start-up.
int model_add(ds_model_root *root, ds_module *mod)
{
    if (!root || !mod || !mod->name) {
        DS_ERR("Invalid params.");
        return -1;
    }
    uint32_t pos = sorted_pos(root, mod->name);
    if (pos < root->count && strcmp(root->by_name[pos]->name, mod->name) == 0) {
        DS_ERR("Module node %s has existed.", mod->name);
        return -1;
    }
    size_t bytes = (root->count + 1) * sizeof(ds_module *);
    auto **in_order = static_cast<ds_module **>(realloc(root->in_order, bytes));
    if (!in_order)
        return -1;
    root->in_order = in_order;
    auto **by_name = static_cast<ds_module **>(realloc(root->by_name, bytes));
    if (!by_name)
        return -1;
    root->by_name = by_name;
    in_order[root->count] = mod;
    memmove(&by_name[pos + 1], &by_name[pos], (root->count - pos) * sizeof(ds_module *));
    by_name[pos] = mod;
    root->count++;
    index_sections(mod);
    return 0;
}

// model_add on the process's model root; -1 when there is none. Called by
// the module constructors on the main thread.
int add_module_node(ds_module *mod)
{
    ds_model_root *root = get_model_root();
    if (!root) {
        DS_ERR("Get model root node failed.");
        return -1;
    }
    return model_add(root, mod);
}

// Forgets every module (descriptors stay valid) and frees the root; 0, or
// -1 for null. Main thread, after the workers have stopped.
int model_destory(ds_model_root *root)
{
    if (!root) {
        DS_ERR("Invalid param.");
        return -1;
    }
    for (uint32_t i = 0; i < root->count; ++i)
        g_sec_index.erase(root->in_order[i]);
    if (g_model_root == root)
        g_model_root = nullptr;
    free(root->in_order);
    free(root->by_name);
    free(root);
    return 0;
}

// The row of `name` in the module's named sections (DS_NODE_SECTION),
// section types (DS_NODE_SEC_TYPE) or actions (DS_NODE_ACTION); null when
// absent or the table is missing. Borrowed. Any thread.
const void *get_ds_node(const ds_module *mod, const char *name, int kind)
{
    if (!mod || !name || kind < DS_NODE_SECTION || kind > DS_NODE_ACTION) {
        DS_ERR("Invalid params.");
        return nullptr;
    }
    if (kind == DS_NODE_ACTION) {
        for (const ds_action *a = mod->actions; a && a->keyword; ++a) {
            if (strcmp(a->keyword, name) == 0)
                return a;
        }
        return nullptr;
    }
    const ds_sec *hit = nullptr;
    if (kind == DS_NODE_SECTION && indexed_section(mod, name_key_of(name), &hit))
        return hit;
    const ds_sec *table = kind == DS_NODE_SECTION ? mod->sections : mod->sec_types;
    for (const ds_sec *s = table; s && s->name; ++s) {
        if (strcmp(s->name, name) == 0)
            return s;
    }
    return nullptr;
}

const ds_sec *get_section_node_by_key(const ds_module *mod, const name_key &key)
{
    if (!mod || !key.name)
        return nullptr;
    const ds_sec *hit = nullptr;
    if (indexed_section(mod, key, &hit))
        return hit;
    return static_cast<const ds_sec *>(get_ds_node(mod, key.name, DS_NODE_SECTION));
}

// Reads the section's uci type with a context of its own: the caller may be
// in the middle of staging changes on the request's context.
static const ds_sec *sec_type_from_uci(const ds_module *mod, const char *section_name)
{
    uci_ctx_ptr uci(dsd_uci_alloc());
    if (!uci)
        return nullptr;
    // The module name, not its package, names the uci package here ("ptz"
    // reads package "ptz", not "ptz_tour"): clients rely on this behaviour.
    jso_ptr sec(get_uci_section(uci.get(), mod->name, section_name));
    if (!sec)
        return nullptr;
    const char *type = jso_obj_get_string_origin(sec.get(), ".type");
    if (!type)
        return nullptr;
    DS_INFO("sec_type is :%s", type);
    for (const ds_sec *s = mod->sec_types; s->name; ++s) {
        if (strcmp(s->name, type) == 0)
            return s;
    }
    return nullptr;
}

// The type row of a named uci section: a type name contained in the
// section name first, else the section's stored type. Borrowed, or null.
// Any thread (its own uci context).
const ds_sec *get_sec_type(const ds_module *mod, const char *section_name)
{
    if (!mod || !section_name) {
        DS_ERR("Invalid params.");
        return nullptr;
    }
    if (!mod->sec_types)
        return nullptr;
    // A type name contained in the section name decides without touching
    // uci (chn3_alarm_setting -> "alarm_setting"); earlier rows win.
    for (const ds_sec *s = mod->sec_types; s->name; ++s) {
        if (strstr(section_name, s->name))
            return s;
    }
    return sec_type_from_uci(mod, section_name);
}

// The option row called `option` in the section row, or null. Any thread.
const ds_opt *get_filter_node(const ds_sec *sec, const char *option)
{
    if (!sec || !option) {
        DS_ERR("Invalid params.");
        return nullptr;
    }
    for (const ds_opt *o = sec->options; o && o->name; ++o) {
        if (strcmp(o->name, option) == 0)
            return o;
    }
    return nullptr;
}

// The configured channel count, from option "chan_amount" of section
// "basic_info" in package "basic_info". A device without the option (or with
// an unreadable one) is taken as the full 128-channel model; values outside
// 1..128 are clamped so the per-channel tables never overflow. Any thread
// (private uci context); called by the constructors at start-up.
int model_channel_amount(void)
{
    std::unique_ptr<char, decltype(&free)> text(
        get_opt_value_dup("basic_info", "basic_info", "chan_amount"), &free);
    if (!text)
        return DS_MAX_CHANNELS;
    char *end = nullptr;
    long n = strtol(text.get(), &end, 10);
    if (end == text.get() || *end != '\0')
        return DS_MAX_CHANNELS;
    if (n < 1)
        return 1;
    if (n > DS_MAX_CHANNELS)
        return DS_MAX_CHANNELS;
    return static_cast<int>(n);
}

// See registry.h. The names are heap copies kept for the process's life.
int model_fill_channel_rows(ds_sec *table, size_t cap, size_t *pos,
                            const char *const *patterns,
                            const ds_opt *const *options, size_t npatterns,
                            int count)
{
    if (!table || !pos || !patterns || count < 0) {
        DS_ERR("Invalid params.");
        return -1;
    }
    size_t need = static_cast<size_t>(count) * npatterns;
    // One row stays free for the null sentinel.
    if (*pos > cap || cap - *pos < need + 1) {
        DS_ERR("Section table too small.");
        return -1;
    }
    for (int n = 1; n <= count; ++n) {
        for (size_t i = 0; i < npatterns; ++i) {
            char *name = static_cast<char *>(calloc(1, 32));
            if (!name) {
                DS_ERR("Malloc section name failed.");
                return -1;
            }
            // n is passed twice so a pattern with a second number (a per-channel
            // sub-index) stays defined behaviour; extra arguments are ignored.
            snprintf(name, 32, patterns[i], n, n);
            table[*pos] = ds_sec{.name = name, .data_kind = DS_DATA_UCI, .max_sec = 255,
                                 .options = options ? options[i] : nullptr,
                                 .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr};
            ++*pos;
        }
    }
    table[*pos] = ds_sec{};
    return 0;
}
