// Module "zuma_msg_push_plan": each channel's push window "HHMM-HHMM,D" (D a bitmask of
// weekdays), checked as the push service reads it, and the reload call
// after a change.
#include "modules/event/detection_tables.h"
#include "modules/modules.h"

namespace {

ds_module zuma_msg_push_plan_module = {
    .name = "zuma_msg_push_plan",
    .package = "zuma_msg_push_plan",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};

} // namespace

int zuma_msg_push_plan_module_init(void)
{
    if (plan_build_rows(&zuma_msg_push_plan_module, "chn%d_msg_push_plan", push_plan_opts, msg_push_plan_reconfig) != 0)
        return -1;
    return add_module_node(&zuma_msg_push_plan_module);
}
