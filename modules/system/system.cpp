// Module "system". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module system_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "system",
    .package = "system",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
};

int system_module_init(void)
{
    return add_module_node(&system_module);
}
