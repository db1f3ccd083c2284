// Lookups and the editing calls. Every edit is applied through the same
// routine that replays the save file, then logged for uci_save, so a change
// means the same thing in memory and after a reload.
#include "uci_internal.h"

#include <cstdlib>
#include <cstring>

namespace {

using ptr_flags = decltype(uci_ptr::flags);

uci_package *find_loaded(uci_context *ctx, const char *name)
{
    uci_element *e;
    uci_foreach_element(&ctx->root, e) {
        if (!strcmp(e->name, name))
            return uci_to_package(e);
    }
    return nullptr;
}

// "@type[index]": the index-th section of that type, negative from the end.
uci_section *find_extended(uci_package *p, const char *ref)
{
    const char *open = strchr(ref, '[');
    std::string type = open ? std::string(ref + 1, open - ref - 1) : std::string(ref + 1);
    long index = 0;
    if (open) {
        char *end = nullptr;
        index = strtol(open + 1, &end, 10);
        if (end == open + 1 || strcmp(end, "]") != 0)
            return nullptr;
    }
    std::vector<uci_section *> matches;
    uci_element *e;
    uci_foreach_element(&p->sections, e) {
        if (type.empty() || type == uci_to_section(e)->type)
            matches.push_back(uci_to_section(e));
    }
    if (index < 0)
        index += static_cast<long>(matches.size());
    if (index < 0 || index >= static_cast<long>(matches.size()))
        return nullptr;
    return matches[index];
}

// Splits "package.section.option=value" in place, as uci's tuple syntax.
int split_tuple(uci_ptr *ptr, char *str)
{
    memset(ptr, 0, sizeof *ptr);
    char *eq = strchr(str, '=');
    if (eq) {
        *eq = 0;
        ptr->value = eq + 1;
    }
    char *parts[3] = {str, nullptr, nullptr};
    for (int i = 1; i < 3; i++) {
        char *dot = strchr(parts[i - 1], '.');
        if (!dot)
            break;
        *dot = 0;
        parts[i] = dot + 1;
    }
    if (!*parts[0] || (parts[1] && !*parts[1]) || (parts[2] && !*parts[2]))
        return UCI_ERR_INVAL;
    ptr->package = parts[0];
    ptr->section = parts[1];
    ptr->option = parts[2];
    return UCI_OK;
}

int ensure_lookup(uci_context *ctx, uci_ptr *ptr)
{
    if (ptr->flags & uci_ptr::UCI_LOOKUP_DONE)
        return ptr->p ? UCI_OK : UCI_ERR_INVAL;
    return uci_lookup_ptr(ctx, ptr, nullptr, true);
}

void refresh_ptr(uci_ptr *ptr, const char *section)
{
    ptr->s = uci_sec_find(ptr->p, section);
    ptr->o = ptr->s && ptr->option ? uci_opt_find(ptr->s, ptr->option) : nullptr;
    ptr->last = ptr->o ? &ptr->o->e : ptr->s ? &ptr->s->e : &ptr->p->e;
}

int record(uci_context *ctx, uci_ptr *ptr, uci_change change, const char *func)
{
    int rc = uci_apply_change(ptr->p, change);
    if (rc != UCI_OK)
        return uci_set_error(ctx, rc, func);
    std::string section = change.section;
    if (change.cmd == CMD_RENAME && change.option.empty())
        section = change.value;
    pending_push(ptr->p, std::move(change));
    refresh_ptr(ptr, section.c_str());
    return UCI_OK;
}

uci_change make_change(int cmd, const uci_ptr *ptr, const char *value)
{
    return uci_change{
        .cmd = cmd,
        .section = ptr->s ? ptr->s->e.name : ptr->section,
        .option = ptr->option ? ptr->option : "",
        .value = value ? value : "",
        .has_value = value != nullptr,
    };
}

} // namespace

int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended)
{
    if (!ctx || !ptr)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    if (str && split_tuple(ptr, str) != UCI_OK)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    ptr->p = nullptr;
    ptr->s = nullptr;
    ptr->o = nullptr;
    ptr->last = nullptr;
    ptr->flags = ptr_flags{};
    if (!ptr->package || !*ptr->package)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);

    uci_package *p = find_loaded(ctx, ptr->package);
    if (!p) {
        int rc = uci_load(ctx, ptr->package, &p);
        if (rc != UCI_OK)
            return rc;
    }
    ptr->p = p;
    ptr->last = &p->e;
    ptr->target = UCI_TYPE_PACKAGE;
    bool complete = true;
    if (ptr->section) {
        ptr->target = UCI_TYPE_SECTION;
        bool ext = extended && ptr->section[0] == '@';
        ptr->s = ext ? find_extended(p, ptr->section) : uci_sec_find(p, ptr->section);
        if (ptr->s) {
            if (ext)
                ptr->section = ptr->s->e.name;
            ptr->last = &ptr->s->e;
        } else {
            complete = false;
        }
    }
    if (ptr->option) {
        ptr->target = UCI_TYPE_OPTION;
        ptr->o = uci_opt_find(ptr->s, ptr->option);
        if (ptr->o)
            ptr->last = &ptr->o->e;
        else
            complete = false;
    }
    int flags = uci_ptr::UCI_LOOKUP_DONE | (complete ? uci_ptr::UCI_LOOKUP_COMPLETE : 0) |
                (extended ? uci_ptr::UCI_LOOKUP_EXTENDED : 0);
    ptr->flags = static_cast<ptr_flags>(flags);
    return UCI_OK;
}

int uci_set(struct uci_context *ctx, struct uci_ptr *ptr)
{
    if (!ctx || !ptr)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    int rc = ensure_lookup(ctx, ptr);
    if (rc != UCI_OK)
        return rc;
    if (!ptr->value || !ptr->section)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    if (ptr->option) {
        if (!ptr->s || !uci_name_valid(ptr->option, false))
            return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
        if (!ptr->value[0]) // an empty value removes the option, as uci does
            return uci_delete(ctx, ptr);
        if (ptr->o && ptr->o->type == UCI_TYPE_STRING && !strcmp(ptr->o->v.string, ptr->value))
            return UCI_OK;
    } else if (ptr->s) {
        if (!strcmp(ptr->s->type, ptr->value))
            return UCI_OK;
        if (!uci_type_valid(ptr->value))
            return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    } else if (!uci_type_valid(ptr->value)) {
        // Like uci, the section name is not checked: a name a load refuses
        // is staged, and every later load skips that change.
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    }
    return record(ctx, ptr, make_change(CMD_CHANGE, ptr, ptr->value), __func__);
}

int uci_add_list(struct uci_context *ctx, struct uci_ptr *ptr)
{
    if (!ctx || !ptr)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    int rc = ensure_lookup(ctx, ptr);
    if (rc != UCI_OK)
        return rc;
    if (!ptr->s || !ptr->option || !ptr->value || !uci_name_valid(ptr->option, false))
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    return record(ctx, ptr, make_change(CMD_LIST_ADD, ptr, ptr->value), __func__);
}

int uci_del_list(struct uci_context *ctx, struct uci_ptr *ptr)
{
    if (!ctx || !ptr)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    int rc = ensure_lookup(ctx, ptr);
    if (rc != UCI_OK)
        return rc;
    if (!ptr->s || !ptr->option || !ptr->value)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    if (!ptr->o)
        return uci_set_error(ctx, UCI_ERR_NOTFOUND, __func__);
    return record(ctx, ptr, make_change(CMD_LIST_DEL, ptr, ptr->value), __func__);
}

int uci_delete(struct uci_context *ctx, struct uci_ptr *ptr)
{
    if (!ctx || !ptr)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    int rc = ensure_lookup(ctx, ptr);
    if (rc != UCI_OK)
        return rc;
    if (!ptr->section)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    if (!ptr->s || (ptr->option && !ptr->o))
        return uci_set_error(ctx, UCI_ERR_NOTFOUND, __func__);
    // A value only means something for a list: the index of the item to drop.
    bool index = ptr->option && ptr->value && *ptr->value && ptr->o->type == UCI_TYPE_LIST;
    return record(ctx, ptr, make_change(CMD_REMOVE, ptr, index ? ptr->value : nullptr), __func__);
}

int uci_rename(struct uci_context *ctx, struct uci_ptr *ptr)
{
    if (!ctx || !ptr)
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    int rc = ensure_lookup(ctx, ptr);
    if (rc != UCI_OK)
        return rc;
    if (!ptr->section || !ptr->value || !uci_name_valid(ptr->value, false))
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    if (!ptr->s || (ptr->option && !ptr->o))
        return uci_set_error(ctx, UCI_ERR_NOTFOUND, __func__);
    uci_section *taken = ptr->option ? nullptr : uci_sec_find(ptr->p, ptr->value);
    if (taken && taken != ptr->s)
        return UCI_OK; // uci answers 0 and the rename never happens as asked
    return record(ctx, ptr, make_change(CMD_RENAME, ptr, ptr->value), __func__);
}

int uci_add_section(struct uci_context *ctx, struct uci_package *p, const char *type,
                    struct uci_section **res)
{
    if (!ctx || !p || !uci_type_valid(type))
        return uci_set_error(ctx, UCI_ERR_INVAL, __func__);
    uci_section *s = uci_sec_new(p, type, nullptr);
    if (!s)
        return uci_set_error(ctx, UCI_ERR_MEM, __func__);
    uci_sec_name_anonymous(s);
    if (!s->e.name) {
        uci_sec_free(s);
        return uci_set_error(ctx, UCI_ERR_MEM, __func__);
    }
    pending_push(p,
        uci_change{.cmd = CMD_ADD, .section = s->e.name, .option = "", .value = type, .has_value = true});
    if (res)
        *res = s;
    return UCI_OK;
}

static int apply_section_change(uci_package *p, const uci_change &c, bool anonymous)
{
    uci_section *s = uci_sec_find(p, c.section.c_str());
    if (!s) {
        if (!uci_name_valid(c.section.c_str(), false) || !uci_type_valid(c.value.c_str()))
            return UCI_ERR_INVAL;
        s = uci_sec_new(p, c.value.c_str(), c.section.c_str());
        if (!s)
            return UCI_ERR_MEM;
        s->anonymous = anonymous;
        return UCI_OK;
    }
    if (!strcmp(s->type, c.value.c_str()))
        return UCI_OK;
    char *type = strdup(c.value.c_str());
    if (!type)
        return UCI_ERR_MEM;
    free(s->type);
    s->type = type;
    return UCI_OK;
}

static int apply_remove(uci_section *s, uci_option *o, const uci_change &c)
{
    if (c.option.empty()) {
        uci_sec_free(s);
        return UCI_OK;
    }
    if (!o)
        return UCI_ERR_NOTFOUND;
    if (c.has_value && !c.value.empty() && o->type == UCI_TYPE_LIST)
        return uci_opt_del_index(o, c.value.c_str());
    uci_opt_free(o);
    return UCI_OK;
}

static int apply_rename(uci_section *s, uci_option *o, const uci_change &c)
{
    if (!uci_name_valid(c.value.c_str(), false))
        return UCI_ERR_INVAL;
    if (c.option.empty())
        return uci_sec_rename(s, c.value.c_str());
    if (!o)
        return UCI_ERR_NOTFOUND;
    if (uci_opt_find(s, c.value.c_str()))
        return o == uci_opt_find(s, c.value.c_str()) ? UCI_OK : UCI_ERR_DUPLICATE;
    char *name = strdup(c.value.c_str());
    if (!name)
        return UCI_ERR_MEM;
    free(o->e.name);
    o->e.name = name;
    return UCI_OK;
}

int uci_apply_change(uci_package *p, const uci_change &c)
{
    if ((c.cmd == CMD_ADD || c.cmd == CMD_CHANGE) && c.option.empty())
        return apply_section_change(p, c, c.cmd == CMD_ADD);
    uci_section *s = uci_sec_find(p, c.section.c_str());
    if (!s)
        return UCI_ERR_NOTFOUND;
    uci_option *o = c.option.empty() ? nullptr : uci_opt_find(s, c.option.c_str());
    switch (c.cmd) {
    case CMD_CHANGE:
        if (c.value.empty())
            return o ? (uci_opt_free(o), UCI_OK) : UCI_OK;
        if (!uci_name_valid(c.option.c_str(), false))
            return UCI_ERR_INVAL;
        return uci_opt_set(s, c.option.c_str(), c.value.c_str()) ? UCI_OK : UCI_ERR_MEM;
    case CMD_LIST_ADD:
        if (!uci_name_valid(c.option.c_str(), false))
            return UCI_ERR_INVAL;
        return uci_opt_add_list(s, c.option.c_str(), c.value.c_str()) ? UCI_OK : UCI_ERR_MEM;
    case CMD_LIST_DEL:
        if (o)
            uci_opt_del_value(o, c.value.c_str());
        return o ? UCI_OK : UCI_ERR_NOTFOUND;
    case CMD_REMOVE:
        return apply_remove(s, o, c);
    case CMD_RENAME:
        return apply_rename(s, o, c);
    case CMD_REORDER:
        uci_sec_move(s, atoi(c.value.c_str()));
        return UCI_OK;
    default:
        return UCI_ERR_INVAL;
    }
}
