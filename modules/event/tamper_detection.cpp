// Module "tamper_detection": camera occlusion, at most one region per
// channel, channels bounded by the configured count.
#include "model/request.h"
#include "modules/event/detection.h"
#include "modules/event/detection_tables.h"
#include "modules/modules.h"

namespace {

constexpr int32_t kBase = 708;

constexpr auto switch_opts = det_switch_options(kBase);
constexpr auto notif_opts = det_notif_options(kBase, check_tamper_record_union);
constexpr auto plan_opts = det_plan_options(check_tamper_plan);
constexpr ds_opt region_opts[] = {
    det_grid("x_coor", det_code(kBase, 10)), det_grid("y_coor", det_code(kBase, 10)),
    det_grid("width", det_code(kBase, 10)), det_grid("height", det_code(kBase, 10)), det_end(),
};

constexpr det_default switch_defaults[] = {
    {"enabled", "off"}, {"sensitivity", "medium"}, {nullptr, nullptr},
};

const det_member member = {
    .module = "tamper_detection",
    .kind = "tamper",
    .switch_fmt = "chn%d_tamper_det",
    .notif_fmt = "chn%d_tamper_notif_list",
    .notif_extra_fmt = nullptr,
    .plan_fmt = "chn%d_alarm_setting",
    .restart_method = "chm_tamper_detect_restart",
    .schedule_method = nullptr,
    .record_method = "event_occlusion_reconfig",
    .region = DET_REGION_RECT,
    .max_regions = 1,
    .channels_by_count = true,
    .region_code = -70202,
    .switch_defaults = switch_defaults,
    .switch_opts = switch_opts.data(),
    .notif_opts = notif_opts.data(),
    .plan_opts = plan_opts.data(),
    .region_opts = region_opts,
};


const ds_action actions[] = {
    {.keyword = "chn_add_td_regions", .fn = det_kw_add_regions<&member>},
    {.keyword = "set_default_tamper", .fn = det_kw_set_default<&member>},
    {.keyword = "set_all_ch_default_tamper", .fn = det_kw_set_default<&member>},
    {.keyword = "chn_set_td_alarm", .fn = det_kw_set_alarm<&member>},
    {.keyword = "chn_set_td_notif", .fn = det_kw_set_notif<&member>},
    {.keyword = nullptr, .fn = nullptr},
};

const ds_sec types[] = {
    det_type_row("region_info", region_opts, nullptr, nullptr),
    ds_sec{},
};

ds_module tamper_detection_module = {
    .name = "tamper_detection",
    .package = "tamper_detection",
    .sections = nullptr,
    .sec_types = types,
    .actions = actions,
    .ch = 1,
    .lock_actions = 1,
};

} // namespace

int tamper_detection_module_init(void)
{
    return det_register(&tamper_detection_module, &member, det_notif_cb<&member>);
}
