// Module "capture_plan". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module capture_plan_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "capture_plan",
    .package = "capture_plan",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
};

int capture_plan_module_init(void)
{
    return add_module_node(&capture_plan_module);
}
