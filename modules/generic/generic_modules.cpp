// Modules whose behaviour is not modelled beyond their registration.
#include "model/registry.h"
#include "modules/modules.h"

static ds_module badblocks_module = {.next = nullptr, .prev = nullptr, .name = "badblocks", .package = "badblocks", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int badblocks_module_init(void) { return add_module_node(&badblocks_module); }
static ds_module cloud_config_module = {.next = nullptr, .prev = nullptr, .name = "cloud_config", .package = "cloud_config", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int cloud_config_module_init(void) { return add_module_node(&cloud_config_module); }
static ds_module cloud_status_module = {.next = nullptr, .prev = nullptr, .name = "cloud_status", .package = "cloud_status", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int cloud_status_module_init(void) { return add_module_node(&cloud_status_module); }
static ds_module cover_module = {.next = nullptr, .prev = nullptr, .name = "cover", .package = "cover", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 1};
int cover_module_init(void) { return add_module_node(&cover_module); }
static ds_module ddns_module = {.next = nullptr, .prev = nullptr, .name = "ddns", .package = "ddns", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int ddns_module_init(void) { return add_module_node(&ddns_module); }
static ds_module device_info_module = {.next = nullptr, .prev = nullptr, .name = "device_info", .package = "device_info", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int device_info_module_init(void) { return add_module_node(&device_info_module); }
static ds_module diagnose_module = {.next = nullptr, .prev = nullptr, .name = "diagnose", .package = nullptr, .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int diagnose_module_init(void) { return add_module_node(&diagnose_module); }
static ds_module firewall_module = {.next = nullptr, .prev = nullptr, .name = "firewall", .package = "firewall", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int firewall_module_init(void) { return add_module_node(&firewall_module); }
static ds_module gb28181_module = {.next = nullptr, .prev = nullptr, .name = "gb28181", .package = "gb28181", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int gb28181_module_init(void) { return add_module_node(&gb28181_module); }
static ds_module harddisk_manage_module = {.next = nullptr, .prev = nullptr, .name = "harddisk_manage", .package = "harddisk_manage", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int harddisk_manage_module_init(void) { return add_module_node(&harddisk_manage_module); }
static ds_module image_module = {.next = nullptr, .prev = nullptr, .name = "image", .package = "image", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 1};
int image_module_init(void) { return add_module_node(&image_module); }
static ds_module image_capture_module = {.next = nullptr, .prev = nullptr, .name = "image_capture", .package = "image_capture", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int image_capture_module_init(void) { return add_module_node(&image_capture_module); }
static ds_module media_server_module = {.next = nullptr, .prev = nullptr, .name = "media_server", .package = "media_server", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int media_server_module_init(void) { return add_module_node(&media_server_module); }
static ds_module function_module = {.next = nullptr, .prev = nullptr, .name = "function", .package = "function", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int function_module_init(void) { return add_module_node(&function_module); }
static ds_module msg_push_module = {.next = nullptr, .prev = nullptr, .name = "msg_push", .package = "msg_push", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int msg_push_module_init(void) { return add_module_node(&msg_push_module); }
static ds_module network_module = {.next = nullptr, .prev = nullptr, .name = "network", .package = "network", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int network_module_init(void) { return add_module_node(&network_module); }
static ds_module nvrtest_module = {.next = nullptr, .prev = nullptr, .name = "nvrtest", .package = nullptr, .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int nvrtest_module_init(void) { return add_module_node(&nvrtest_module); }
static ds_module osd_module = {.next = nullptr, .prev = nullptr, .name = "OSD", .package = "OSD", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 1};
int osd_module_init(void) { return add_module_node(&osd_module); }
static ds_module osd_capability_module = {.next = nullptr, .prev = nullptr, .name = "osd_capability", .package = "osd_capability", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 1};
int osd_capability_module_init(void) { return add_module_node(&osd_capability_module); }
static ds_module p2p_module = {.next = nullptr, .prev = nullptr, .name = "p2p", .package = nullptr, .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int p2p_module_init(void) { return add_module_node(&p2p_module); }
static ds_module plan_advance_module = {.next = nullptr, .prev = nullptr, .name = "plan_advance", .package = "plan_advance", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int plan_advance_module_init(void) { return add_module_node(&plan_advance_module); }
static ds_module playback_module = {.next = nullptr, .prev = nullptr, .name = "playback", .package = "playback", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int playback_module_init(void) { return add_module_node(&playback_module); }
static ds_module port_module = {.next = nullptr, .prev = nullptr, .name = "port", .package = nullptr, .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int port_module_init(void) { return add_module_node(&port_module); }
static ds_module record_module = {.next = nullptr, .prev = nullptr, .name = "record", .package = "record", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int record_module_init(void) { return add_module_node(&record_module); }
static ds_module ptz_module = {.next = nullptr, .prev = nullptr, .name = "ptz", .package = "ptz_tour", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int ptz_module_init(void) { return add_module_node(&ptz_module); }
static ds_module record_control_module = {.next = nullptr, .prev = nullptr, .name = "record_control", .package = "record_control", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int record_control_module_init(void) { return add_module_node(&record_control_module); }
static ds_module relay_module = {.next = nullptr, .prev = nullptr, .name = "relay", .package = nullptr, .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int relay_module_init(void) { return add_module_node(&relay_module); }
static ds_module roi_module = {.next = nullptr, .prev = nullptr, .name = "ROI", .package = "ROI", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 1};
int roi_module_init(void) { return add_module_node(&roi_module); }
static ds_module simple_mode_module = {.next = nullptr, .prev = nullptr, .name = "simple_mode", .package = "simple_mode", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int simple_mode_module_init(void) { return add_module_node(&simple_mode_module); }
static ds_module smart_module = {.next = nullptr, .prev = nullptr, .name = "smart", .package = "smart", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int smart_module_init(void) { return add_module_node(&smart_module); }
static ds_module system_auto_reboot_module = {.next = nullptr, .prev = nullptr, .name = "system_auto_reboot", .package = "system_auto_reboot", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 1};
int system_auto_reboot_module_init(void) { return add_module_node(&system_auto_reboot_module); }
static ds_module timing_reboot_module = {.next = nullptr, .prev = nullptr, .name = "timing_reboot", .package = "timing_reboot", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int timing_reboot_module_init(void) { return add_module_node(&timing_reboot_module); }
static ds_module unusual_detection_module = {.next = nullptr, .prev = nullptr, .name = "unusual_detection", .package = "unusual_detection", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int unusual_detection_module_init(void) { return add_module_node(&unusual_detection_module); }
static ds_module uhttpd_module = {.next = nullptr, .prev = nullptr, .name = "uhttpd", .package = "uhttpd", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int uhttpd_module_init(void) { return add_module_node(&uhttpd_module); }
static ds_module upnpc_module = {.next = nullptr, .prev = nullptr, .name = "upnpc", .package = "upnpc", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int upnpc_module_init(void) { return add_module_node(&upnpc_module); }
static ds_module video_module = {.next = nullptr, .prev = nullptr, .name = "video", .package = "video", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 1};
int video_module_init(void) { return add_module_node(&video_module); }
static ds_module zuma_msg_push_module = {.next = nullptr, .prev = nullptr, .name = "zuma_msg_push", .package = "zuma_msg_push", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int zuma_msg_push_module_init(void) { return add_module_node(&zuma_msg_push_module); }
static ds_module zuma_playback_module = {.next = nullptr, .prev = nullptr, .name = "zuma_playback", .package = nullptr, .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int zuma_playback_module_init(void) { return add_module_node(&zuma_playback_module); }
static ds_module zuma_preview_module = {.next = nullptr, .prev = nullptr, .name = "zuma_preview", .package = nullptr, .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int zuma_preview_module_init(void) { return add_module_node(&zuma_preview_module); }
static ds_module cloud_capability_module = {.next = nullptr, .prev = nullptr, .name = "cloud_capability", .package = "cloud_capability", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int cloud_capability_module_init(void) { return add_module_node(&cloud_capability_module); }
static ds_module media_module = {.next = nullptr, .prev = nullptr, .name = "media", .package = nullptr, .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0};
int media_module_init(void) { return add_module_node(&media_module); }
static ds_module face_gallery_module = {.next = nullptr, .prev = nullptr, .name = "face_gallery", .package = "face_gallery", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 1};
int face_gallery_module_init(void) { return add_module_node(&face_gallery_module); }
static ds_module face_group_module = {.next = nullptr, .prev = nullptr, .name = "face_group", .package = "face_group", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 1};
int face_group_module_init(void) { return add_module_node(&face_group_module); }
static ds_module audio_capability_module = {.next = nullptr, .prev = nullptr, .name = "audio_capability", .package = "audio_capability", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 1};
int audio_capability_module_init(void) { return add_module_node(&audio_capability_module); }
static ds_module audio_config_module = {.next = nullptr, .prev = nullptr, .name = "audio_config", .package = "audio_config", .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 1};
int audio_config_module_init(void) { return add_module_node(&audio_config_module); }
