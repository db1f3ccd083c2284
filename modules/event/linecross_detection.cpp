// Module "linecross_detection": lines on the 10000 grid crossed in one
// direction or both, per channel, and the family's keywords.
#include "model/request.h"
#include "modules/event/detection.h"
#include "modules/event/detection_tables.h"
#include "modules/modules.h"

namespace {

constexpr int32_t kBase = 740;

constexpr auto switch_opts = det_switch_options(kBase);
constexpr auto notif_opts = det_notif_options(kBase, check_record_union);
constexpr auto plan_opts = det_plan_options(check_ld_plan);
constexpr ds_opt region_opts[] = {
    det_grid("pt1_x", det_code(kBase, 10)), det_grid("pt1_y", det_code(kBase, 10)),
    det_grid("pt2_x", det_code(kBase, 10)), det_grid("pt2_y", det_code(kBase, 10)),
    ds_opt{.name = "direction", .checker = check_enum_type, .arg = det_enum_direction, .err_code = det_code(kBase, 10)},
    det_end(),
};

constexpr det_default switch_defaults[] = {
    {"enabled", "off"}, {"sensitivity", "medium"}, {nullptr, nullptr},
};

const det_member member = {
    .module = "linecross_detection",
    .kind = "linecross",
    .switch_fmt = "chn%d_detection",
    .notif_fmt = "chn%d_notif_list",
    .notif_extra_fmt = nullptr,
    .plan_fmt = "chn%d_alarm_setting",
    .restart_method = "chm_linecross_detect_restart",
    .schedule_method = "chm_set_linecross_detect_arming_schedule",
    .record_method = "event_linecross_reconfig",
    .region = DET_REGION_LINE,
    .max_regions = DET_MAX_REGIONS,
    .channels_by_count = false,
    .region_code = -70202,
    .switch_defaults = switch_defaults,
    .switch_opts = switch_opts.data(),
    .notif_opts = notif_opts.data(),
    .plan_opts = plan_opts.data(),
    .region_opts = region_opts,
};


const ds_action actions[] = {
    {.keyword = "chn_add_ld_regions", .fn = det_kw_add_regions<&member>},
    {.keyword = "chn_get_ld_regions", .fn = det_kw_get_regions<&member>},
    {.keyword = "set_default_linecross", .fn = det_kw_set_default<&member>},
    {.keyword = "chn_set_ld_alarm", .fn = det_kw_set_alarm<&member>},
    {.keyword = "chn_set_ld_notif", .fn = det_kw_set_notif<&member>},
    {.keyword = nullptr, .fn = nullptr},
};

const ds_sec types[] = {
    det_type_row("on_off", switch_opts.data(), nullptr, nullptr),
    det_type_row("notif_list", notif_opts.data(), det_nothing_before_save, nullptr, DS_SEC_AFTER_COMMIT),
    det_type_row("plan", plan_opts.data(), det_nothing_before_save, nullptr),
    det_type_row("region_info", region_opts, nullptr, nullptr),
    ds_sec{},
};

ds_module linecross_detection_module = {
    .name = "linecross_detection",
    .package = "linecross_detection",
    .sections = nullptr,
    .sec_types = types,
    .actions = actions,
    .ch = 1,
    .lock_actions = 1,
};

} // namespace

int linecross_detection_module_init(void)
{
    return det_register(&linecross_detection_module, &member, det_notif_cb<&member>);
}
