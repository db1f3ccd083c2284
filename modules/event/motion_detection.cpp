// Module "motion_detection": per-channel switch, notification and schedule
// sections, rectangles on the 10000 grid, and the family's keywords.
#include "model/request.h"
#include "modules/event/detection.h"
#include "modules/event/detection_tables.h"
#include "modules/modules.h"

namespace {

constexpr int32_t kBase = 707;

constexpr ds_opt md_switch_opts[] = {
    det_on_off("enabled", -70702),
    ds_opt{.name = "sensitivity", .checker = check_enum_type, .arg = det_enum_sensitivity, .err_code = -70703},
    ds_opt{.name = "digital_sensitivity", .checker = check_int_type, .arg = &det_percent_range, .err_code = -70703},
    det_on_off("people_enabled", -70702),
    det_on_off("vehicle_enabled", -70702),
    det_end(),
};
constexpr auto md_notif_opts = det_notif_options(kBase, check_record_union);
constexpr auto md_plan_opts = det_plan_options(check_md_plan);
constexpr ds_opt md_region_opts[] = {
    det_grid("x_coor", -70710), det_grid("y_coor", -70710), det_grid("width", -70710),
    det_grid("height", -70710), det_end(),
};

constexpr det_default md_switch_defaults[] = {
    {"enabled", "off"}, {"sensitivity", "medium"}, {"digital_sensitivity", "50"},
    {"people_enabled", "off"}, {"vehicle_enabled", "off"}, {nullptr, nullptr},
};

const det_member md = {
    .module = "motion_detection",
    .kind = "motion",
    .switch_fmt = "chn%d_motion_det",
    .notif_fmt = "chn%d_motion_notif_list",
    .notif_extra_fmt = nullptr,
    .plan_fmt = "chn%d_alarm_setting",
    .restart_method = "chm_motion_detect_restart",
    .schedule_method = nullptr,
    .record_method = "event_motion_reconfig",
    .region = DET_REGION_RECT,
    .max_regions = DET_MAX_REGIONS,
    .channels_by_count = false,
    .region_code = -70202,
    .switch_defaults = md_switch_defaults,
    .switch_opts = md_switch_opts,
    .notif_opts = md_notif_opts.data(),
    .plan_opts = md_plan_opts.data(),
    .region_opts = md_region_opts,
};

const ds_action md_actions[] = {
    {.keyword = "chn_add_md_regions", .fn = det_kw_add_regions<&md>},
    {.keyword = "chn_get_md_regions", .fn = det_kw_get_regions<&md>},
    {.keyword = "set_default_motion", .fn = det_kw_set_default<&md>},
    {.keyword = "chn_set_md_alarm", .fn = det_kw_set_alarm<&md>},
    {.keyword = "chn_set_md_notif", .fn = det_kw_set_notif<&md>},
    {.keyword = nullptr, .fn = nullptr},
};

const ds_sec md_types[] = {
    det_type_row("on_off", md_switch_opts, nullptr, nullptr),
    det_type_row("notif_list", md_notif_opts.data(), det_nothing_before_save, nullptr, DS_SEC_AFTER_COMMIT),
    det_type_row("plan", md_plan_opts.data(), det_nothing_before_save, nullptr),
    det_type_row("region_info", md_region_opts, nullptr, nullptr),
    ds_sec{},
};

ds_module motion_detection_module = {
    .name = "motion_detection",
    .package = "motion_detection",
    .sections = nullptr,
    .sec_types = md_types,
    .actions = md_actions,
    .ch = 1,
    .lock_actions = 1,
};

} // namespace

int motion_detection_module_init(void)
{
    return det_register(&motion_detection_module, &md, det_notif_cb<&md>);
}
