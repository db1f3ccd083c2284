// Module "linecross_detection". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module linecross_detection_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "linecross_detection",
    .package = "linecross_detection",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
};

int linecross_detection_module_init(void)
{
    return add_module_node(&linecross_detection_module);
}
