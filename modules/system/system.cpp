// Module "system": the daemon's own switches (section "sys") and the
// configuration backup, restore and recovery keywords.
#include "model/checkers.h"
#include "modules/modules.h"
#include "modules/system/backup.h"

namespace {

constexpr ds_int_range kDebugRange{0, 3};

constexpr ds_opt sys_opts[] = {
    {.name = "debug_mode", .checker = check_int_type, .arg = &kDebugRange, .err_code = -40209},
    {.name = "dsd_trace", .checker = check_enum_type, .arg = ds_enum_0_1, .err_code = -40209},
    {.name = nullptr, .checker = nullptr, .arg = nullptr, .err_code = 0},
};

ds_sec sections[] = {
    ds_sec{.name = "sys", .data_kind = DS_DATA_UCI, .max_sec = 1, .options = sys_opts,
           .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr},
    ds_sec{},
};

const ds_action actions[] = {
    {.keyword = "download_conf", .fn = download_conf},
    {.keyword = "upload_conf", .fn = upload_conf},
    {.keyword = "download_conf_gui", .fn = download_conf_gui},
    {.keyword = "upload_conf_gui", .fn = upload_conf_gui},
    {.keyword = "config_recovery", .fn = config_recovery},
    {.keyword = nullptr, .fn = nullptr},
};

ds_module system_module = {
    .name = "system",
    .package = "system",
    .sections = sections,
    .sec_types = nullptr,
    .actions = actions,
    .ch = 0,
    .lock_actions = 0,
};

} // namespace

int system_module_init(void)
{
    return add_module_node(&system_module);
}
