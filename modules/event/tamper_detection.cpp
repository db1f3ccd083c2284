// Module "tamper_detection". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module tamper_detection_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "tamper_detection",
    .package = "tamper_detection",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
};

int tamper_detection_module_init(void)
{
    return add_module_node(&tamper_detection_module);
}
