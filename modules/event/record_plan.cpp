// Module "record_plan". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module record_plan_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "record_plan",
    .package = "record_plan",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
};

int record_plan_module_init(void)
{
    return add_module_node(&record_plan_module);
}
