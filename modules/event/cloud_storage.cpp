// Module "cloud_storage". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module cloud_storage_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "cloud_storage",
    .package = "cloud_storage",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
};

int cloud_storage_module_init(void)
{
    return add_module_node(&cloud_storage_module);
}
