// Module "msg_push_plan". Descriptor only until its tables are written.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module msg_push_plan_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "msg_push_plan",
    .package = "msg_push_plan",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
};

int msg_push_plan_module_init(void)
{
    return add_module_node(&msg_push_plan_module);
}
