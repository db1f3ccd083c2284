// Module "cloud_storage": when each channel uploads to the cloud, as a weekly
// plan whose seven options are capitalised ("Monday" ...), unlike every
// other schedule; the cloud client reads them so.
#include "modules/event/detection_tables.h"
#include "modules/modules.h"

namespace {

constexpr auto plan_opts = plan_week_options(&plan_form_record, plan_days_capital);

const ds_sec types[] = {
    det_type_row("vcs_upload_plan", plan_opts.data(), nullptr, nullptr),
    ds_sec{},
};

ds_module cloud_storage_module = {
    .name = "cloud_storage",
    .package = "cloud_storage",
    .sections = nullptr,
    .sec_types = types,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};

} // namespace

int cloud_storage_module_init(void)
{
    if (plan_build_rows(&cloud_storage_module, "chn%d_vcs_upload_plan", plan_opts.data(), nullptr) != 0)
        return -1;
    return add_module_node(&cloud_storage_module);
}
