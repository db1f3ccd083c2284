// Module "capture_plan": when each channel takes snapshots, as a weekly plan
// of at most six typed periods.
#include "modules/event/detection_tables.h"
#include "modules/modules.h"

namespace {

constexpr auto plan_opts = plan_week_options(&plan_form_capture, plan_days_lower);

const ds_sec types[] = {
    det_type_row("channel", plan_opts.data(), nullptr, nullptr),
    ds_sec{},
};

ds_module capture_plan_module = {
    .name = "capture_plan",
    .package = "capture_plan",
    .sections = nullptr,
    .sec_types = types,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};

} // namespace

int capture_plan_module_init(void)
{
    if (plan_build_rows(&capture_plan_module, "chn%d_channel", plan_opts.data(), nullptr) != 0)
        return -1;
    return add_module_node(&capture_plan_module);
}
