// Module "zuma_msg_push_plan". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module zuma_msg_push_plan_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "zuma_msg_push_plan",
    .package = "zuma_msg_push_plan",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
};

int zuma_msg_push_plan_module_init(void)
{
    return add_module_node(&zuma_msg_push_plan_module);
}
