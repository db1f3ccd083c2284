// Module "protocol". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module protocol_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "protocol",
    .package = "protocol",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
};

int protocol_module_init(void)
{
    return add_module_node(&protocol_module);
}
