#include "modules/module_table.h"

#include "model/registry.h"
#include "modules/modules.h"
#include "platform/trace.h"

// Registration order matters: the listings (dsdc schema, docs/modules.md,
// mkconfig) and the registration traces follow it. Keep one row per module;
// a null init is a generic module (one row of modules/generic's table).
const ds_module_ctor ds_module_table[] = {
    {.name = "alarm_input_output", .init = alarm_input_output_module_init},
    {.name = "badblocks", .init = nullptr},
    {.name = "capture_plan", .init = capture_plan_module_init},
    {.name = "chm", .init = chm_module_init},
    {.name = "cloud_config", .init = nullptr},
    {.name = "cloud_status", .init = nullptr},
    {.name = "cover", .init = nullptr},
    {.name = "ddns", .init = nullptr},
    {.name = "device_info", .init = nullptr},
    {.name = "diagnose", .init = nullptr},
    {.name = "firewall", .init = nullptr},
    {.name = "gb28181", .init = nullptr},
    {.name = "harddisk_manage", .init = nullptr},
    {.name = "image", .init = nullptr},
    {.name = "image_capture", .init = nullptr},
    {.name = "intrusion_detection", .init = intrusion_detection_module_init},
    {.name = "linecross_detection", .init = linecross_detection_module_init},
    {.name = "media_server", .init = nullptr},
    {.name = "function", .init = nullptr},
    {.name = "motion_detection", .init = motion_detection_module_init},
    {.name = "msg_push", .init = nullptr},
    {.name = "msg_push_plan", .init = msg_push_plan_module_init},
    {.name = "network", .init = nullptr},
    {.name = "nvrtest", .init = nullptr},
    {.name = "OSD", .init = nullptr},
    {.name = "osd_capability", .init = nullptr},
    {.name = "p2p", .init = nullptr},
    {.name = "plan_advance", .init = nullptr},
    {.name = "playback", .init = nullptr},
    {.name = "port", .init = nullptr},
    {.name = "record", .init = nullptr},
    {.name = "protocol", .init = protocol_module_init},
    {.name = "ptz", .init = nullptr},
    {.name = "record_control", .init = nullptr},
    {.name = "record_plan", .init = record_plan_module_init},
    {.name = "relay", .init = nullptr},
    {.name = "ROI", .init = nullptr},
    {.name = "simple_mode", .init = nullptr},
    {.name = "smart", .init = nullptr},
    {.name = "system", .init = system_module_init},
    {.name = "system_auto_reboot", .init = nullptr},
    {.name = "tamper_detection", .init = tamper_detection_module_init},
    {.name = "timing_reboot", .init = nullptr},
    {.name = "unusual_detection", .init = nullptr},
    {.name = "uhttpd", .init = nullptr},
    {.name = "upnpc", .init = nullptr},
    {.name = "user_management", .init = user_management_module_init},
    {.name = "video", .init = nullptr},
    {.name = "zuma_msg_push", .init = nullptr},
    {.name = "zuma_msg_push_plan", .init = zuma_msg_push_plan_module_init},
    {.name = "zuma_playback", .init = nullptr},
    {.name = "zuma_preview", .init = nullptr},
    {.name = "cloud_storage", .init = cloud_storage_module_init},
    {.name = "cloud_capability", .init = nullptr},
    {.name = "media", .init = nullptr},
    {.name = "face_gallery", .init = nullptr},
    {.name = "face_comparison", .init = face_comparison_module_init},
    {.name = "face_group", .init = nullptr},
    {.name = "audio_capability", .init = nullptr},
    {.name = "audio_config", .init = nullptr},
    {.name = "statistics", .init = statistics_module_init},
    {.name = nullptr, .init = nullptr},
};

// Runs the module constructors of ds_module_table in order; the first one
// that fails stops the run. 0, or -1. Main thread, start-up.
int model_register(ds_model_root *root)
{
    if (!root) {
        DS_ERR("Invalid param.");
        return -1;
    }
    for (const ds_module_ctor *c = ds_module_table; c->name; ++c) {
        if ((c->init ? c->init() : generic_module_register(c->name)) != 0) {
            DS_ERR("Register module %s failed.", c->name);
            return -1;
        }
    }
    return 0;
}
