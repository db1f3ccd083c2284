// Module "face_comparison": faces matched against the white and black
// galleries; the gallery sections carry the notification switches.
#include "model/request.h"
#include "modules/event/detection.h"
#include "modules/event/detection_tables.h"
#include "modules/modules.h"

namespace {

constexpr int32_t kBase = 741;

constexpr auto switch_opts = det_switch_options(kBase);
constexpr auto notif_opts = det_notif_options(kBase, check_record_union);
constexpr auto plan_opts = det_plan_options(check_facecomparison_plan);

constexpr det_default switch_defaults[] = {
    {"enabled", "off"}, {"sensitivity", "medium"}, {nullptr, nullptr},
};

const det_member member = {
    .module = "face_comparison",
    .kind = "face",
    .switch_fmt = "chn%d_face_comparison",
    .notif_fmt = "chn%d_group_info_white",
    .notif_extra_fmt = "chn%d_group_info_black_%d",
    .plan_fmt = "chn%d_alarm_setting",
    .restart_method = "chm_face_comparison_restart",
    .schedule_method = nullptr,
    .record_method = "event_face_comparison_reconfig",
    .region = DET_REGION_NONE,
    .max_regions = 0,
    .channels_by_count = false,
    .region_code = -70202,
    .switch_defaults = switch_defaults,
    .switch_opts = switch_opts.data(),
    .notif_opts = notif_opts.data(),
    .plan_opts = plan_opts.data(),
    .region_opts = nullptr,
};


const ds_action actions[] = {
    {.keyword = "chn_set_facecomparison_alarm", .fn = det_kw_set_alarm<&member>},
    {.keyword = "chn_set_face_comparison_notif", .fn = det_kw_set_notif<&member>},
    {.keyword = "set_default_facecomparison", .fn = det_kw_set_default<&member>},
    {.keyword = nullptr, .fn = nullptr},
};

const ds_sec types[] = {
    det_type_row("group_info", notif_opts.data(), det_nothing_before_save, nullptr),
    det_type_row("plan", plan_opts.data(), det_nothing_before_save, nullptr),
    ds_sec{},
};

ds_module face_comparison_module = {
    .name = "face_comparison",
    .package = "face_comparison",
    .sections = nullptr,
    .sec_types = types,
    .actions = actions,
    .ch = 1,
    .lock_actions = 1,
};

} // namespace

int face_comparison_module_init(void)
{
    return det_register(&face_comparison_module, &member, det_notif_cb<&member>);
}
