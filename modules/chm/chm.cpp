// Module "chm". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module chm_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "chm",
    .package = "chm",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
};

int chm_module_init(void)
{
    return add_module_node(&chm_module);
}
