// Module "motion_detection". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module motion_detection_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "motion_detection",
    .package = "motion_detection",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
};

int motion_detection_module_init(void)
{
    return add_module_node(&motion_detection_module);
}
