// The modules whose behaviour is not modelled beyond their registration:
// name, package, channel flag, and the per-channel (or per-port, per-disk)
// section rows their constructors build at start-up. Most carry no option
// rows, so "set" drops every option sent to them (nothing unchecked is ever
// written) while "get", "add" limits and "delete" work on their sections.
// The few options other daemons depend on are checked on their per-channel
// rows: the main-stream encoder limits ("chn%d_main"), the privacy-mask
// rectangles ("chn%d_cover"), the GB28181 identities ("v_chn%d") and the
// linked recording channels of the exception events.
//
// Counts: channel rows follow the configured channel amount; disk rows
// ("harddisk_%d", "ud_%d", "md_%d") use the eight drive slots of the largest
// chassis; port rows of "unusual_detection" use one PoE port per channel, at
// most sixteen (the largest PoE switch fitted).
#include <cstdlib>

#include "model/checkers.h"
#include "model/registry.h"
#include "modules/event/plan_checkers.h"
#include "modules/modules.h"
#include "platform/trace.h"

namespace {

enum { DISK_SLOTS = 8, POE_PORTS_MAX = 16 };

int channel_count(void)
{
    return model_channel_amount();
}

int disk_count(void)
{
    return DISK_SLOTS;
}

int port_count(void)
{
    int n = model_channel_amount();
    return n < POE_PORTS_MAX ? n : POE_PORTS_MAX;
}

// One family of rows: every pattern is instantiated for 1..count().
// `options` has one entry per pattern (null: no options), or is null.
struct row_group {
    const char *const *patterns;
    size_t npatterns;
    int (*count)(void);
    const ds_opt *const *options;
};

constexpr ds_opt opt_end{.name = nullptr, .checker = nullptr, .arg = nullptr, .err_code = 0};

constexpr ds_int_range grid_range{0, 10000};

constexpr ds_opt grid_opt(const char *name)
{
    return ds_opt{.name = name, .checker = check_int_type, .arg = &grid_range, .err_code = -70202};
}

constexpr ds_opt any_opt(const char *name)
{
    return ds_opt{.name = name, .checker = check_any_type, .arg = nullptr, .err_code = 0};
}

// Frees a table built on the heap and the first `n` names in it.
void free_rows(ds_sec *table, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        free(const_cast<char *>(table[i].name));
    free(table);
}

// Builds the module's named-section table on the heap (sized to the device,
// kept for the life of the process) and registers the module. A module
// already built by an earlier registration in this process keeps its rows.
// Start-up only (main thread).
int register_with_rows(ds_module *mod, const row_group *groups)
{
    if (!mod->sections) {
        size_t cap = 1;
        for (const row_group *g = groups; g->patterns; ++g)
            cap += g->npatterns * static_cast<size_t>(g->count());
        auto *table = static_cast<ds_sec *>(calloc(cap, sizeof(ds_sec)));
        if (!table) {
            DS_ERR("Malloc section table failed.");
            return -1;
        }
        size_t pos = 0;
        for (const row_group *g = groups; g->patterns; ++g) {
            if (model_fill_channel_rows(table, cap, &pos, g->patterns, g->options, g->npatterns,
                                        g->count()) != 0) {
                free_rows(table, pos);
                return -1;
            }
        }
        mod->sections = table;
    }
    return add_module_node(mod);
}


ds_module badblocks_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "badblocks",
    .package = "badblocks",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module cloud_config_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "cloud_config",
    .package = "cloud_config",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module cloud_status_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "cloud_status",
    .package = "cloud_status",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module cover_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "cover",
    .package = "cover",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
    .lock_actions = 0,
};

const char *const cover_chn_patterns[] = {
    "chn%d_cover",
};

// A privacy mask is a rectangle on the 10000 grid.
constexpr ds_opt cover_opts[] = {
    grid_opt("x_coor"), grid_opt("y_coor"), grid_opt("width"), grid_opt("height"), opt_end,
};
const ds_opt *const cover_chn_options[] = {cover_opts};

const row_group cover_rows[] = {
    {.patterns = cover_chn_patterns, .npatterns = 1, .count = channel_count, .options = cover_chn_options},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module ddns_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "ddns",
    .package = "ddns",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module device_info_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "device_info",
    .package = "device_info",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module diagnose_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "diagnose",
    .package = nullptr,
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module firewall_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "firewall",
    .package = "firewall",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module gb28181_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "gb28181",
    .package = "gb28181",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};

const char *const gb28181_chn_patterns[] = {
    "v_chn%d",
};

constexpr ds_len_range gb_id_len{18, 20};
constexpr ds_len_range gb_domain_len{8, 10};
// The identities the platform registers with; the other options are taken
// as they come.
constexpr ds_opt gb28181_opts[] = {
    {.name = "device_id", .checker = check_string_type, .arg = &gb_id_len, .err_code = -73801},
    {.name = "server_id", .checker = check_string_type, .arg = &gb_id_len, .err_code = -73801},
    {.name = "server_domain", .checker = check_string_type, .arg = &gb_domain_len, .err_code = -73801},
    any_opt("device_name"), any_opt("server_ip"), any_opt("auth_password"), any_opt("keep_alive_cycle"),
    opt_end,
};
const ds_opt *const gb28181_chn_options[] = {gb28181_opts};

const row_group gb28181_rows[] = {
    {.patterns = gb28181_chn_patterns, .npatterns = 1, .count = channel_count, .options = gb28181_chn_options},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module harddisk_manage_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "harddisk_manage",
    .package = "harddisk_manage",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};

const char *const harddisk_manage_chn_patterns[] = {
    "ch%d_quota",
    "ch%d_pack",
};

const char *const harddisk_manage_disk_patterns[] = {
    "harddisk_%d",
    "ud_%d",
    "md_%d",
};

const row_group harddisk_manage_rows[] = {
    {.patterns = harddisk_manage_chn_patterns, .npatterns = 2, .count = channel_count, .options = nullptr},
    {.patterns = harddisk_manage_disk_patterns, .npatterns = 3, .count = disk_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module image_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "image",
    .package = "image",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
    .lock_actions = 0,
};

const char *const image_chn_patterns[] = {
    "chn%d_switch",
    "chn%d_common",
    "chn%d_day",
    "chn%d_night",
    "chn%d_image_list",
    "chn%d_expose",
    "chn%d_supplement_lamp",
    "chn%d_clear_licence",
    "chn%d_smart_white_lamp",
};

const row_group image_rows[] = {
    {.patterns = image_chn_patterns, .npatterns = 9, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module image_capture_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "image_capture",
    .package = "image_capture",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};

const char *const image_capture_chn_patterns[] = {
    "chn%d_capture",
};

const row_group image_capture_rows[] = {
    {.patterns = image_capture_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module media_server_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "media_server",
    .package = "media_server",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module function_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "function",
    .package = "function",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module msg_push_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "msg_push",
    .package = "msg_push",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};

const char *const msg_push_chn_patterns[] = {
    "chn%d_msg_push_info",
};

const row_group msg_push_rows[] = {
    {.patterns = msg_push_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module network_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "network",
    .package = "network",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module nvrtest_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "nvrtest",
    .package = nullptr,
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module osd_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "OSD",
    .package = "OSD",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
    .lock_actions = 0,
};

const char *const osd_chn_patterns[] = {
    "chn%d_font",
    "chn%d_date",
    "chn%d_week",
    "chn%d_label_info_1",
    "chn%d_label_info_2",
    "chn%d_label_info_3",
    "chn%d_label_info_4",
    "chn%d_label_info_5",
    "chn%d_label_info_6",
};

const row_group osd_rows[] = {
    {.patterns = osd_chn_patterns, .npatterns = 9, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module osd_capability_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "osd_capability",
    .package = "osd_capability",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
    .lock_actions = 0,
};

const char *const osd_capability_chn_patterns[] = {
    "chn%d_capability",
};

const row_group osd_capability_rows[] = {
    {.patterns = osd_capability_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module p2p_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "p2p",
    .package = nullptr,
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module plan_advance_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "plan_advance",
    .package = "plan_advance",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module playback_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "playback",
    .package = "playback",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module port_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "port",
    .package = nullptr,
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module record_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "record",
    .package = "record",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module ptz_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "ptz",
    .package = "ptz_tour",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module record_control_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "record_control",
    .package = "record_control",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};

const char *const record_control_chn_patterns[] = {
    "chn%d_record",
};

const row_group record_control_rows[] = {
    {.patterns = record_control_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module relay_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "relay",
    .package = nullptr,
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module roi_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "ROI",
    .package = "ROI",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
    .lock_actions = 0,
};

const char *const roi_chn_patterns[] = {
    "chn%d_roi_enable",
};

const row_group roi_rows[] = {
    {.patterns = roi_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module simple_mode_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "simple_mode",
    .package = "simple_mode",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module smart_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "smart",
    .package = "smart",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module system_auto_reboot_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "system_auto_reboot",
    .package = "system_auto_reboot",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
    .lock_actions = 0,
};

const char *const system_auto_reboot_chn_patterns[] = {
    "chn%d_reboot",
};

const row_group system_auto_reboot_rows[] = {
    {.patterns = system_auto_reboot_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module timing_reboot_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "timing_reboot",
    .package = "timing_reboot",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module unusual_detection_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "unusual_detection",
    .package = "unusual_detection",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};

const char *const unusual_detection_chn_patterns[] = {
    "chn%d_video_miss",
};

const char *const unusual_detection_port_patterns[] = {
    "port%d_shortcut",
    "port%d_power_overload",
};

// Every exception event links recording channels of this device.
constexpr ds_opt unusual_opts[] = {
    {.name = "record_union", .checker = unusual_check_record_union, .arg = nullptr, .err_code = -72207},
    opt_end,
};
const ds_opt *const unusual_chn_options[] = {unusual_opts};
const ds_opt *const unusual_port_options[] = {unusual_opts, unusual_opts};

const row_group unusual_detection_rows[] = {
    {.patterns = unusual_detection_chn_patterns, .npatterns = 1, .count = channel_count,
     .options = unusual_chn_options},
    {.patterns = unusual_detection_port_patterns, .npatterns = 2, .count = port_count,
     .options = unusual_port_options},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module uhttpd_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "uhttpd",
    .package = "uhttpd",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module upnpc_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "upnpc",
    .package = "upnpc",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module video_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "video",
    .package = "video",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
    .lock_actions = 0,
};

const char *const video_chn_patterns[] = {
    "chn%d_main",
    "chn%d_minor",
    "chn%d_main_video_capability",
    "chn%d_minor_video_capability",
};

constexpr ds_int_range main_bitrate_range{32, 8192};
// Stored as 65536 + frames per second, 1..25.
constexpr ds_int_range main_frame_rate_range{65537, 65561};
constexpr ds_opt video_main_opts[] = {
    {.name = "main_bitrate", .checker = check_int_type, .arg = &main_bitrate_range, .err_code = -71713},
    {.name = "main_frame_rate", .checker = check_int_type, .arg = &main_frame_rate_range, .err_code = -71713},
    opt_end,
};
const ds_opt *const video_chn_options[] = {video_main_opts, nullptr, nullptr, nullptr};

const row_group video_rows[] = {
    {.patterns = video_chn_patterns, .npatterns = 4, .count = channel_count, .options = video_chn_options},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module zuma_msg_push_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "zuma_msg_push",
    .package = "zuma_msg_push",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};

const char *const zuma_msg_push_chn_patterns[] = {
    "chn%d_msg_push_info",
};

const row_group zuma_msg_push_rows[] = {
    {.patterns = zuma_msg_push_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module zuma_playback_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "zuma_playback",
    .package = nullptr,
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module zuma_preview_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "zuma_preview",
    .package = nullptr,
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module cloud_capability_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "cloud_capability",
    .package = "cloud_capability",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module media_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "media",
    .package = nullptr,
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
};


ds_module face_gallery_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "face_gallery",
    .package = "face_gallery",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
    .lock_actions = 0,
};


ds_module face_group_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "face_group",
    .package = "face_group",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
    .lock_actions = 0,
};


ds_module audio_capability_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "audio_capability",
    .package = "audio_capability",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
    .lock_actions = 0,
};

const char *const audio_capability_chn_patterns[] = {
    "chn%d_device_speaker",
    "chn%d_device_microphone",
};

const row_group audio_capability_rows[] = {
    {.patterns = audio_capability_chn_patterns, .npatterns = 2, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


ds_module audio_config_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "audio_config",
    .package = "audio_config",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 1,
    .lock_actions = 0,
};

const char *const audio_config_chn_patterns[] = {
    "chn%d_speaker",
    "chn%d_microphone",
};

const row_group audio_config_rows[] = {
    {.patterns = audio_config_chn_patterns, .npatterns = 2, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


} // namespace

int badblocks_module_init(void)
{
    return add_module_node(&badblocks_module);
}

int cloud_config_module_init(void)
{
    return add_module_node(&cloud_config_module);
}

int cloud_status_module_init(void)
{
    return add_module_node(&cloud_status_module);
}

int cover_module_init(void)
{
    return register_with_rows(&cover_module, cover_rows);
}

int ddns_module_init(void)
{
    return add_module_node(&ddns_module);
}

int device_info_module_init(void)
{
    return add_module_node(&device_info_module);
}

int diagnose_module_init(void)
{
    return add_module_node(&diagnose_module);
}

int firewall_module_init(void)
{
    return add_module_node(&firewall_module);
}

int gb28181_module_init(void)
{
    return register_with_rows(&gb28181_module, gb28181_rows);
}

int harddisk_manage_module_init(void)
{
    return register_with_rows(&harddisk_manage_module, harddisk_manage_rows);
}

int image_module_init(void)
{
    return register_with_rows(&image_module, image_rows);
}

int image_capture_module_init(void)
{
    return register_with_rows(&image_capture_module, image_capture_rows);
}

int media_server_module_init(void)
{
    return add_module_node(&media_server_module);
}

int function_module_init(void)
{
    return add_module_node(&function_module);
}

int msg_push_module_init(void)
{
    return register_with_rows(&msg_push_module, msg_push_rows);
}

int network_module_init(void)
{
    return add_module_node(&network_module);
}

int nvrtest_module_init(void)
{
    return add_module_node(&nvrtest_module);
}

int osd_module_init(void)
{
    return register_with_rows(&osd_module, osd_rows);
}

int osd_capability_module_init(void)
{
    return register_with_rows(&osd_capability_module, osd_capability_rows);
}

int p2p_module_init(void)
{
    return add_module_node(&p2p_module);
}

int plan_advance_module_init(void)
{
    return add_module_node(&plan_advance_module);
}

int playback_module_init(void)
{
    return add_module_node(&playback_module);
}

int port_module_init(void)
{
    return add_module_node(&port_module);
}

int record_module_init(void)
{
    return add_module_node(&record_module);
}

int ptz_module_init(void)
{
    return add_module_node(&ptz_module);
}

int record_control_module_init(void)
{
    return register_with_rows(&record_control_module, record_control_rows);
}

int relay_module_init(void)
{
    return add_module_node(&relay_module);
}

int roi_module_init(void)
{
    return register_with_rows(&roi_module, roi_rows);
}

int simple_mode_module_init(void)
{
    return add_module_node(&simple_mode_module);
}

int smart_module_init(void)
{
    return add_module_node(&smart_module);
}

int system_auto_reboot_module_init(void)
{
    return register_with_rows(&system_auto_reboot_module, system_auto_reboot_rows);
}

int timing_reboot_module_init(void)
{
    return add_module_node(&timing_reboot_module);
}

int unusual_detection_module_init(void)
{
    return register_with_rows(&unusual_detection_module, unusual_detection_rows);
}

int uhttpd_module_init(void)
{
    return add_module_node(&uhttpd_module);
}

int upnpc_module_init(void)
{
    return add_module_node(&upnpc_module);
}

int video_module_init(void)
{
    return register_with_rows(&video_module, video_rows);
}

int zuma_msg_push_module_init(void)
{
    return register_with_rows(&zuma_msg_push_module, zuma_msg_push_rows);
}

int zuma_playback_module_init(void)
{
    return add_module_node(&zuma_playback_module);
}

int zuma_preview_module_init(void)
{
    return add_module_node(&zuma_preview_module);
}

int cloud_capability_module_init(void)
{
    return add_module_node(&cloud_capability_module);
}

int media_module_init(void)
{
    return add_module_node(&media_module);
}

int face_gallery_module_init(void)
{
    return add_module_node(&face_gallery_module);
}

int face_group_module_init(void)
{
    return add_module_node(&face_group_module);
}

int audio_capability_module_init(void)
{
    return register_with_rows(&audio_capability_module, audio_capability_rows);
}

int audio_config_module_init(void)
{
    return register_with_rows(&audio_config_module, audio_config_rows);
}
