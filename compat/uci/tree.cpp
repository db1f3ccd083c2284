// The in-memory uci tree: contexts, packages, sections, options, and the
// editing calls that change it and log each change for the save file.
#include "uci_internal.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <new>

void uci_list_init_(uci_list *l)
{
    l->next = l;
    l->prev = l;
}

void uci_list_add_(uci_list *head, uci_list *item)
{
    item->prev = head->prev;
    item->next = head;
    head->prev->next = item;
    head->prev = item;
}

void uci_list_del_(uci_list *item)
{
    item->prev->next = item->next;
    item->next->prev = item->prev;
    uci_list_init_(item);
}

int uci_set_error(uci_context *ctx, int err, const char *func)
{
    if (ctx) {
        ctx->err = err;
        ctx->func = func;
    }
    return err;
}

bool uci_name_valid(const char *s, bool package)
{
    if (!s || !*s)
        return false;
    for (; *s; s++) {
        unsigned char c = static_cast<unsigned char>(*s);
        if (!(isalnum(c) || c == '_' || (package && c == '-')))
            return false;
    }
    return true;
}

bool uci_type_valid(const char *s)
{
    if (!s || !*s)
        return false;
    for (; *s; s++) {
        unsigned char c = static_cast<unsigned char>(*s);
        if (c < 33 || c > 126)
            return false;
    }
    return true;
}

bool uci_validate_text(const char *str)
{
    return str != nullptr;
}

/* ---- contexts ---- */

struct uci_context *uci_alloc_context(void)
{
    auto *ctx = static_cast<uci_context *>(calloc(1, sizeof(uci_context)));
    if (!ctx)
        return nullptr;
    uci_list_init_(&ctx->root);
    uci_list_init_(&ctx->backends);
    uci_list_init_(&ctx->delta_path);
    ctx->confdir = strdup(UCI_CONFDIR);
    ctx->savedir = strdup(UCI_SAVEDIR);
    // The default save directory is on the delta search path for good.
    auto *dir = static_cast<uci_element *>(calloc(1, sizeof(uci_element)));
    if (dir) {
        dir->type = UCI_TYPE_PATH;
        dir->name = strdup(UCI_SAVEDIR);
        uci_list_add_(&ctx->delta_path, &dir->list);
    }
    if (!ctx->confdir || !ctx->savedir || !dir || !dir->name) {
        uci_free_context(ctx);
        return nullptr;
    }
    return ctx;
}

void uci_free_context(struct uci_context *ctx)
{
    // The device's library dereferences a null context: dying here too keeps
    // a caller that forgets its own check from passing only on a host.
    if (!ctx)
        abort();
    while (!uci_list_empty(&ctx->root))
        uci_pkg_free(uci_to_package(list_to_element(ctx->root.next)));
    while (!uci_list_empty(&ctx->delta_path)) {
        uci_element *dir = list_to_element(ctx->delta_path.next);
        uci_list_del_(&dir->list);
        free(dir->name);
        free(dir);
    }
    free(ctx->confdir);
    free(ctx->savedir);
    free(ctx->buf);
    free(ctx);
}

static int set_dir(uci_context *ctx, char **field, const char *dir)
{
    if (!ctx || !dir || !*dir)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    char *copy = strdup(dir);
    if (!copy)
        return uci_set_error(ctx, UCI_ERR_MEM, __func__);
    free(*field);
    *field = copy;
    return UCI_OK;
}

int uci_set_confdir(struct uci_context *ctx, const char *dir)
{
    return set_dir(ctx, ctx ? &ctx->confdir : nullptr, dir);
}

int uci_set_savedir(struct uci_context *ctx, const char *dir)
{
    return set_dir(ctx, ctx ? &ctx->savedir : nullptr, dir);
}

static const char *const error_text[] = {
    "Success", "Out of memory", "Invalid argument", "Entry not found",
    "I/O error", "Parse error", "Duplicate entry", "Unknown error",
};

void uci_get_errorstr(struct uci_context *ctx, char **dest, const char *str)
{
    if (!ctx || !dest)
        return;
    int err = ctx->err >= 0 && ctx->err < UCI_ERR_LAST ? ctx->err : UCI_ERR_UNKNOWN;
    const char *prefix = str ? str : "";
    size_t len = strlen(prefix) + strlen(error_text[err]) + 4;
    *dest = static_cast<char *>(malloc(len));
    if (*dest)
        snprintf(*dest, len, "%s%s%s", prefix, *prefix ? ": " : "", error_text[err]);
}

void uci_perror(struct uci_context *ctx, const char *str)
{
    char *msg = nullptr;
    uci_get_errorstr(ctx, &msg, str);
    if (msg)
        fprintf(stderr, "%s\n", msg);
    free(msg);
}

/* ---- elements ---- */

uci_package *uci_pkg_new(uci_context *ctx, const char *name)
{
    auto *p = static_cast<uci_package *>(calloc(1, sizeof(uci_package)));
    if (!p)
        return nullptr;
    p->e.type = UCI_TYPE_PACKAGE;
    p->e.name = strdup(name);
    p->priv = new (std::nothrow) uci_pkg_priv;
    if (!p->e.name || !p->priv) {
        free(p->e.name);
        delete pkg_priv(p);
        free(p);
        return nullptr;
    }
    uci_list_init_(&p->e.list);
    uci_list_init_(&p->sections);
    uci_list_init_(&p->delta);
    uci_list_init_(&p->saved_delta);
    p->ctx = ctx;
    p->has_delta = true;
    return p;
}

void uci_pkg_clear(uci_package *p)
{
    while (!uci_list_empty(&p->sections))
        uci_sec_free(uci_to_section(list_to_element(p->sections.next)));
    pkg_priv(p)->by_name.clear();
    p->n_section = 0;
}

void uci_pkg_free(uci_package *p)
{
    if (!p)
        return;
    uci_list_del_(&p->e.list);
    pending_clear(p);
    uci_pkg_clear(p);
    delete pkg_priv(p);
    free(p->path);
    free(p->e.name);
    free(p);
}

uci_section *uci_sec_new(uci_package *p, const char *type, const char *name)
{
    auto *s = static_cast<uci_section *>(calloc(1, sizeof(uci_section)));
    if (!s)
        return nullptr;
    s->e.type = UCI_TYPE_SECTION;
    s->type = strdup(type);
    s->e.name = name && *name ? strdup(name) : nullptr;
    if (!s->type || (name && *name && !s->e.name)) {
        free(s->type);
        free(s->e.name);
        free(s);
        return nullptr;
    }
    s->anonymous = !(name && *name);
    s->package = p;
    uci_list_init_(&s->options);
    uci_list_add_(&p->sections, &s->e.list);
    p->n_section++;
    if (s->e.name)
        pkg_priv(p)->by_name[s->e.name] = s;
    return s;
}

void uci_sec_free(uci_section *s)
{
    while (!uci_list_empty(&s->options))
        uci_opt_free(uci_to_option(list_to_element(s->options.next)));
    if (s->e.name) {
        auto &idx = pkg_priv(s->package)->by_name;
        auto it = idx.find(s->e.name);
        if (it != idx.end() && it->second == s)
            idx.erase(it);
    }
    uci_list_del_(&s->e.list);
    free(s->type);
    free(s->e.name);
    free(s);
}

static unsigned int djb_hash(unsigned int hash, const char *str)
{
    if (hash == ~0U)
        hash = 5381;
    for (; *str; str++)
        hash = ((hash << 5) + hash) + static_cast<unsigned char>(*str);
    return hash & 0x7FFFFFFF;
}

// Anonymous sections get uci's generated name: "cfg", the section's ordinal
// in hex, then 16 bits of a hash of its type alone (uci names a section
// before its options are read).
void uci_sec_name_anonymous(uci_section *s)
{
    if (s->e.name)
        return;
    unsigned int hash = djb_hash(~0U, s->type);
    auto &idx = pkg_priv(s->package)->by_name;
    char buf[32];
    int ordinal = s->package->n_section;
    do {
        snprintf(buf, sizeof buf, "cfg%02x%04x", ordinal++, hash % (1 << 16));
    } while (idx.count(buf));
    s->e.name = strdup(buf);
    if (s->e.name)
        idx[s->e.name] = s;
}

uci_section *uci_sec_find(uci_package *p, const char *name)
{
    if (!p || !name)
        return nullptr;
    auto &idx = pkg_priv(p)->by_name;
    auto it = idx.find(name);
    return it == idx.end() ? nullptr : it->second;
}

int uci_sec_rename(uci_section *s, const char *name)
{
    auto &idx = pkg_priv(s->package)->by_name;
    if (idx.count(name))
        return s->e.name && !strcmp(s->e.name, name) ? UCI_OK : UCI_ERR_DUPLICATE;
    char *copy = strdup(name);
    if (!copy)
        return UCI_ERR_MEM;
    if (s->e.name)
        idx.erase(s->e.name);
    free(s->e.name);
    s->e.name = copy;
    s->anonymous = false;
    idx[copy] = s;
    return UCI_OK;
}

void uci_sec_move(uci_section *s, int pos)
{
    uci_list *head = &s->package->sections;
    uci_list_del_(&s->e.list);
    uci_list *at = head->next;
    for (int i = 0; i < pos && at != head; i++)
        at = at->next;
    uci_list_add_(at, &s->e.list); // inserts before `at`
}

uci_option *uci_opt_find(uci_section *s, const char *name)
{
    uci_element *e;
    if (!s || !name)
        return nullptr;
    uci_foreach_element(&s->options, e) {
        if (!strcmp(e->name, name))
            return uci_to_option(e);
    }
    return nullptr;
}

static void opt_clear_value(uci_option *o)
{
    if (o->type == UCI_TYPE_STRING) {
        free(o->v.string);
        o->v.string = nullptr;
        return;
    }
    while (!uci_list_empty(&o->v.list)) {
        uci_element *i = list_to_element(o->v.list.next);
        uci_list_del_(&i->list);
        free(i->name);
        free(i);
    }
}

void uci_opt_free(uci_option *o)
{
    opt_clear_value(o);
    uci_list_del_(&o->e.list);
    free(o->e.name);
    free(o);
}

static uci_option *opt_new(uci_section *s, const char *name)
{
    auto *o = static_cast<uci_option *>(calloc(1, sizeof(uci_option)));
    if (!o)
        return nullptr;
    o->e.type = UCI_TYPE_OPTION;
    o->e.name = strdup(name);
    if (!o->e.name) {
        free(o);
        return nullptr;
    }
    o->section = s;
    o->type = UCI_TYPE_STRING;
    uci_list_add_(&s->options, &o->e.list);
    return o;
}

uci_option *uci_opt_set(uci_section *s, const char *name, const char *value)
{
    char *copy = strdup(value);
    if (!copy)
        return nullptr;
    uci_option *o = uci_opt_find(s, name);
    if (!o)
        o = opt_new(s, name);
    if (!o) {
        free(copy);
        return nullptr;
    }
    opt_clear_value(o);
    o->type = UCI_TYPE_STRING;
    o->v.string = copy;
    return o;
}

static bool list_append(uci_option *o, const char *value)
{
    auto *item = static_cast<uci_element *>(calloc(1, sizeof(uci_element)));
    if (!item)
        return false;
    item->type = UCI_TYPE_ITEM;
    item->name = strdup(value);
    if (!item->name) {
        free(item);
        return false;
    }
    uci_list_add_(&o->v.list, &item->list);
    return true;
}

uci_option *uci_opt_add_list(uci_section *s, const char *name, const char *value)
{
    uci_option *o = uci_opt_find(s, name);
    if (!o) {
        o = opt_new(s, name);
        if (!o)
            return nullptr;
        o->type = UCI_TYPE_LIST;
        uci_list_init_(&o->v.list);
    } else if (o->type == UCI_TYPE_STRING) {
        char *old = o->v.string;
        o->type = UCI_TYPE_LIST;
        uci_list_init_(&o->v.list);
        bool ok = list_append(o, old ? old : "");
        free(old);
        if (!ok)
            return nullptr;
    }
    return list_append(o, value) ? o : nullptr;
}

int uci_opt_del_index(uci_option *o, const char *index)
{
    char *end = nullptr;
    long n = strtol(index, &end, 10);
    if (o->type != UCI_TYPE_LIST || *end || n < 0)
        return UCI_ERR_INVAL;
    uci_element *e;
    uci_foreach_element(&o->v.list, e) {
        if (n-- == 0) {
            uci_list_del_(&e->list);
            free(e->name);
            free(e);
            return UCI_OK;
        }
    }
    return UCI_ERR_NOTFOUND;
}

void uci_opt_del_value(uci_option *o, const char *value)
{
    if (o->type != UCI_TYPE_LIST)
        return;
    uci_element *e, *tmp;
    uci_foreach_element_safe(&o->v.list, tmp, e) {
        if (!strcmp(e->name, value)) {
            uci_list_del_(&e->list);
            free(e->name);
            free(e);
        }
    }
}

static char *dup_or_null(const std::string &s, bool present)
{
    return present ? strdup(s.c_str()) : nullptr;
}

void pending_push(uci_package *p, uci_change change)
{
    auto *d = static_cast<uci_delta *>(calloc(1, sizeof(uci_delta)));
    if (d) {
        uci_list_init_(&d->e.list);
        d->e.type = UCI_TYPE_DELTA;
        d->e.name = dup_or_null(change.option, !change.option.empty());
        d->cmd = static_cast<uci_command>(change.cmd);
        d->section = strdup(change.section.c_str());
        d->value = dup_or_null(change.value, change.cmd != CMD_REMOVE || change.has_value);
        uci_list_add_(&p->delta, &d->e.list);
    }
    pkg_priv(p)->pending.push_back(std::move(change));
}

void pending_clear(uci_package *p)
{
    while (!uci_list_empty(&p->delta)) {
        uci_delta *d = uci_to_delta(list_to_element(p->delta.next));
        uci_list_del_(&d->e.list);
        free(d->e.name);
        free(d->section);
        free(d->value);
        free(d);
    }
    if (pkg_priv(p))
        pkg_priv(p)->pending.clear();
}
