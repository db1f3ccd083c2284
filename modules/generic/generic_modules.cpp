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
#include <cstring>

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


const char *const image_capture_chn_patterns[] = {
    "chn%d_capture",
};

const row_group image_capture_rows[] = {
    {.patterns = image_capture_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};




const char *const msg_push_chn_patterns[] = {
    "chn%d_msg_push_info",
};

const row_group msg_push_rows[] = {
    {.patterns = msg_push_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
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


const char *const osd_capability_chn_patterns[] = {
    "chn%d_capability",
};

const row_group osd_capability_rows[] = {
    {.patterns = osd_capability_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};








const char *const record_control_chn_patterns[] = {
    "chn%d_record",
};

const row_group record_control_rows[] = {
    {.patterns = record_control_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};



const char *const roi_chn_patterns[] = {
    "chn%d_roi_enable",
};

const row_group roi_rows[] = {
    {.patterns = roi_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};




const char *const system_auto_reboot_chn_patterns[] = {
    "chn%d_reboot",
};

const row_group system_auto_reboot_rows[] = {
    {.patterns = system_auto_reboot_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
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


const char *const zuma_msg_push_chn_patterns[] = {
    "chn%d_msg_push_info",
};

const row_group zuma_msg_push_rows[] = {
    {.patterns = zuma_msg_push_chn_patterns, .npatterns = 1, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};








const char *const audio_capability_chn_patterns[] = {
    "chn%d_device_speaker",
    "chn%d_device_microphone",
};

const row_group audio_capability_rows[] = {
    {.patterns = audio_capability_chn_patterns, .npatterns = 2, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


const char *const audio_config_chn_patterns[] = {
    "chn%d_speaker",
    "chn%d_microphone",
};

const row_group audio_config_rows[] = {
    {.patterns = audio_config_chn_patterns, .npatterns = 2, .count = channel_count, .options = nullptr},
    {.patterns = nullptr, .npatterns = 0, .count = nullptr, .options = nullptr},
};


// One generic module: its descriptor's fields and its row families.
struct generic_module {
    const char *name;
    const char *package;       // null for modules without configuration
    uint32_t ch;               // 1: commit with the light commit
    const row_group *rows;     // null: no named sections
};

// The generic modules, one row each: name, package, light commit (the
// camera-channel modules), and the section rows built at start-up.
const generic_module generic_modules[] = {
    {.name = "badblocks", .package = "badblocks", .ch = 0, .rows = nullptr},
    {.name = "cloud_config", .package = "cloud_config", .ch = 0, .rows = nullptr},
    {.name = "cloud_status", .package = "cloud_status", .ch = 0, .rows = nullptr},
    {.name = "cover", .package = "cover", .ch = 1, .rows = cover_rows},
    {.name = "ddns", .package = "ddns", .ch = 0, .rows = nullptr},
    {.name = "device_info", .package = "device_info", .ch = 0, .rows = nullptr},
    {.name = "diagnose", .package = nullptr, .ch = 0, .rows = nullptr},
    {.name = "firewall", .package = "firewall", .ch = 0, .rows = nullptr},
    {.name = "gb28181", .package = "gb28181", .ch = 0, .rows = gb28181_rows},
    {.name = "harddisk_manage", .package = "harddisk_manage", .ch = 0, .rows = harddisk_manage_rows},
    {.name = "image", .package = "image", .ch = 1, .rows = image_rows},
    {.name = "image_capture", .package = "image_capture", .ch = 0, .rows = image_capture_rows},
    {.name = "media_server", .package = "media_server", .ch = 0, .rows = nullptr},
    {.name = "function", .package = "function", .ch = 0, .rows = nullptr},
    {.name = "msg_push", .package = "msg_push", .ch = 0, .rows = msg_push_rows},
    {.name = "network", .package = "network", .ch = 0, .rows = nullptr},
    {.name = "nvrtest", .package = nullptr, .ch = 0, .rows = nullptr},
    {.name = "OSD", .package = "OSD", .ch = 1, .rows = osd_rows},
    {.name = "osd_capability", .package = "osd_capability", .ch = 1, .rows = osd_capability_rows},
    {.name = "p2p", .package = nullptr, .ch = 0, .rows = nullptr},
    {.name = "plan_advance", .package = "plan_advance", .ch = 0, .rows = nullptr},
    {.name = "playback", .package = "playback", .ch = 0, .rows = nullptr},
    {.name = "port", .package = nullptr, .ch = 0, .rows = nullptr},
    {.name = "record", .package = "record", .ch = 0, .rows = nullptr},
    {.name = "ptz", .package = "ptz_tour", .ch = 0, .rows = nullptr},
    {.name = "record_control", .package = "record_control", .ch = 0, .rows = record_control_rows},
    {.name = "relay", .package = nullptr, .ch = 0, .rows = nullptr},
    {.name = "ROI", .package = "ROI", .ch = 1, .rows = roi_rows},
    {.name = "simple_mode", .package = "simple_mode", .ch = 0, .rows = nullptr},
    {.name = "smart", .package = "smart", .ch = 0, .rows = nullptr},
    {.name = "system_auto_reboot", .package = "system_auto_reboot", .ch = 1, .rows = system_auto_reboot_rows},
    {.name = "timing_reboot", .package = "timing_reboot", .ch = 0, .rows = nullptr},
    {.name = "unusual_detection", .package = "unusual_detection", .ch = 0, .rows = unusual_detection_rows},
    {.name = "uhttpd", .package = "uhttpd", .ch = 0, .rows = nullptr},
    {.name = "upnpc", .package = "upnpc", .ch = 0, .rows = nullptr},
    {.name = "video", .package = "video", .ch = 1, .rows = video_rows},
    {.name = "zuma_msg_push", .package = "zuma_msg_push", .ch = 0, .rows = zuma_msg_push_rows},
    {.name = "zuma_playback", .package = nullptr, .ch = 0, .rows = nullptr},
    {.name = "zuma_preview", .package = nullptr, .ch = 0, .rows = nullptr},
    {.name = "cloud_capability", .package = "cloud_capability", .ch = 0, .rows = nullptr},
    {.name = "media", .package = nullptr, .ch = 0, .rows = nullptr},
    {.name = "face_gallery", .package = "face_gallery", .ch = 1, .rows = nullptr},
    {.name = "face_group", .package = "face_group", .ch = 1, .rows = nullptr},
    {.name = "audio_capability", .package = "audio_capability", .ch = 1, .rows = audio_capability_rows},
    {.name = "audio_config", .package = "audio_config", .ch = 1, .rows = audio_config_rows},
    {.name = nullptr, .package = nullptr, .ch = 0, .rows = nullptr},
};

constexpr size_t GENERIC_COUNT = sizeof generic_modules / sizeof generic_modules[0] - 1;

// The descriptors the registry links, made from the table at registration;
// they live as long as the process.
ds_module g_generic[GENERIC_COUNT];

} // namespace

int generic_module_register(const char *name)
{
    for (size_t i = 0; name && i < GENERIC_COUNT; ++i) {
        const generic_module &g = generic_modules[i];
        if (strcmp(g.name, name) != 0)
            continue;
        ds_module *mod = &g_generic[i];
        mod->name = g.name;
        mod->package = g.package;
        mod->ch = g.ch;
        return g.rows ? register_with_rows(mod, g.rows) : add_module_node(mod);
    }
    DS_ERR("Generic module %s not found.", name ? name : "");
    return -1;
}
