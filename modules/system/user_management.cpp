// Module "user_management". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module user_management_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "user_management",
    .package = "user_management",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
};

int user_management_module_init(void)
{
    return add_module_node(&user_management_module);
}
