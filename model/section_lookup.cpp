#include "model/section_lookup.h"

#include "platform/trace.h"

const ds_sec *find_section(const ds_module *mod, const char *name, int by_name)
{
    if (!mod || !name)
        return nullptr;
    if (!by_name)
        return static_cast<const ds_sec *>(get_ds_node(mod, name, DS_NODE_SEC_TYPE));
    const auto *sec = static_cast<const ds_sec *>(get_ds_node(mod, name, DS_NODE_SECTION));
    if (sec)
        return sec;
    DS_INFO("Section name %s not found, check section type.", name);
    return get_sec_type(mod, name);
}
