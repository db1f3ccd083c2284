// Module "intrusion_detection". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module intrusion_detection_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "intrusion_detection",
    .package = "intrusion_detection",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
};

int intrusion_detection_module_init(void)
{
    return add_module_node(&intrusion_detection_module);
}
