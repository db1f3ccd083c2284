// Module "intrusion_detection": zones (quadrilaterals on the 10000 grid)
// entered by people or vehicles, per channel, and the family's keywords.
#include "core/context.h"
#include "modules/event/detection.h"
#include "modules/event/detection_tables.h"
#include "modules/modules.h"

namespace {

constexpr int32_t kBase = 739;

constexpr auto switch_opts = det_switch_options(kBase);
constexpr auto notif_opts = det_notif_options(kBase, check_record_union);
constexpr auto plan_opts = det_plan_options(check_id_plan);
constexpr ds_opt region_opts[] = {
    det_grid("pt1_x", det_code(kBase, 10)), det_grid("pt1_y", det_code(kBase, 10)),
    det_grid("pt2_x", det_code(kBase, 10)), det_grid("pt2_y", det_code(kBase, 10)),
    det_grid("pt3_x", det_code(kBase, 10)), det_grid("pt3_y", det_code(kBase, 10)),
    det_grid("pt4_x", det_code(kBase, 10)), det_grid("pt4_y", det_code(kBase, 10)),
    det_end(),
};

constexpr det_default switch_defaults[] = {
    {"enabled", "off"}, {"sensitivity", "medium"}, {nullptr, nullptr},
};

const det_member member = {
    .module = "intrusion_detection",
    .kind = "intrusion",
    .switch_fmt = "chn%d_detection",
    .notif_fmt = "chn%d_notif_list",
    .plan_fmt = "chn%d_alarm_setting",
    .restart_method = "chm_intrusion_detect_restart",
    .schedule_method = "chm_set_intrusion_detect_arming_schedule",
    .record_method = "event_intrusion_reconfig",
    .region = DET_REGION_QUAD,
    .max_regions = DET_MAX_REGIONS,
    .channels_by_count = false,
    .region_code = -70202,
    .mark_byte = DS_MARK_DETECTION_BYTE,
    .mark_bit = DS_MARK_INTRUSION_NOTIF_BIT,
    .switch_defaults = switch_defaults,
    .switch_opts = switch_opts.data(),
    .notif_opts = notif_opts.data(),
    .plan_opts = plan_opts.data(),
    .region_opts = region_opts,
};

int after_apply_notif_list(ds_context *ctx)
{
    return det_after_apply_notif_list(ctx, &member);
}

int chn_add_id_regions(ds_context *ctx, json_object *arg)
{
    return det_add_regions(ctx, &member, arg);
}

int chn_get_id_regions(ds_context *ctx, json_object *arg)
{
    return det_get_regions(ctx, &member, arg);
}

int set_default_intrusion(ds_context *ctx, json_object *arg)
{
    return det_set_default(ctx, &member, arg);
}

int chn_set_id_alarm(ds_context *ctx, json_object *arg)
{
    return det_set_alarm(ctx, &member, arg);
}

int chn_set_id_notif(ds_context *ctx, json_object *arg)
{
    return det_set_notif(ctx, &member, arg);
}


const ds_action actions[] = {
    {.keyword = "chn_add_id_regions", .fn = chn_add_id_regions},
    {.keyword = "chn_get_id_regions", .fn = chn_get_id_regions},
    {.keyword = "set_default_intrusion", .fn = set_default_intrusion},
    {.keyword = "chn_set_id_alarm", .fn = chn_set_id_alarm},
    {.keyword = "chn_set_id_notif", .fn = chn_set_id_notif},
    {.keyword = nullptr, .fn = nullptr},
};

const ds_sec types[] = {
    det_type_row("on_off", switch_opts.data(), nullptr, nullptr),
    det_type_row("notif_list", notif_opts.data(), det_nothing_before_save, after_apply_notif_list),
    det_type_row("plan", plan_opts.data(), det_nothing_before_save, nullptr),
    det_type_row("region_info", region_opts, nullptr, nullptr),
    ds_sec{},
};

ds_module intrusion_detection_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "intrusion_detection",
    .package = "intrusion_detection",
    .sections = nullptr,
    .sec_types = types,
    .actions = actions,
    .ch = 1,
};

} // namespace

int intrusion_detection_module_init(void)
{
    if (det_build_rows(&intrusion_detection_module, &member, after_apply_notif_list) != 0)
        return -1;
    return add_module_node(&intrusion_detection_module);
}
