// Module "chm": the channel manager's front end. Keywords with their own
// checks have handlers in chm_devices.cpp; the rest forward their request
// unchanged to the device-manager method named in the table and translate
// the answer the same way.
#include <json-c/json.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "model/request.h"
#include "model/checkers.h"
#include "model/registry.h"
#include "modules/chm/chm.h"
#include "modules/modules.h"
#include "platform/jso.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"
#include "store/store.h"

namespace {

// Keyword -> bus object and method, for the keywords that only forward.
struct chm_forward {
    const char *keyword;
    const char *object;
    const char *method;
};

const chm_forward kForwards[] = {
    {"refresh_device_version_info", "chm_dev_manager", "chm_ubus_dev_ver_info_refresh"},
    {"get_device_version_info", "chm_dev_manager", "chm_dev_manager_get_device_version_info"},
    {"chm_manual_refresh", "chm_dev_manager", "chm_ubus_device_discovery"},
    {"chm_manual_refresh_ex", "chm_dev_manager", "chm_ubus_device_discovery"},
    {"chm_async_refresh", "chm_dev_manager", "chm_ubus_device_discovery"},
    {"chm_device_discovery", "chm_dev_manager", "chm_ubus_device_discovery"},
    {"chm_get_dev_url", "chm_dev_manager", "chm_ubus_get_device_url"},
    {"chm_mod_dev_passwd", "chm_dev_manager", "chm_ubus_change_password"},
    {"chm_edit_dev", "chm_dev_manager", "chm_ubus_edit_device"},
    {"chm_alloc_dev_ip", "chm_dev_manager", "chm_ubus_alloc_device_ipaddr"},
    {"chm_dev_ip_conflict_detect", "chm_dev_manager", "chm_ubus_ip_conflict_detect"},
    {"chm_set_device_ip", "chm_dev_manager", "chm_dev_manager_set_device_ip"},
    {"chm_set_device_list_ip", "chm_dev_manager", "chm_ubus_set_device_ipaddr"},
    {"chm_get_recover_string", "chm_dev_manager", "chm_ubus_get_device_security_code"},
    {"chm_verification_code_check", "chm_dev_manager", "chm_ubus_device_verification_code_check"},
    {"chm_password_reset", "chm_dev_manager", "chm_ubus_device_password_reset"},
    {"chm_set_factory_dev_password", "chm_dev_manager", "chm_ubus_set_factory_device_password"},
    {"set_device_status", "chm_dev_manager", "chm_ubus_set_device_status"},
    {"chm_check_video_conf_ready", "chm_dev_manager", "chm_ubus_check_video_configuration_ready"},
    {"chm_adapt_video_conf", "chm_dev_manager", "chm_ubus_channel_video_configuration_adapt"},
    {"chm_get_notified_event", "chm_dev_manager", "chm_ubus_get_notified_event"},
    {"chm_activate_hik_device", "chm_dev_manager", "chm_ubus_activate_hik_device"},
    {"set_wireless_reconnect_enable", "chm_dev_manager", "chm_ubus_set_wireless_reconnect_enable"},
    {"chm_get_cascade_list", "chm_cascade", "chm_get_cascade_list"},
    {"chm_set_cascade_migarate", "chm_cascade", "chm_set_cascade_migarate"},
    {"chm_change_sta_connect_config", "chm_cascade", "chm_set_cascade_ap_config"},
    {"chm_get_smart_detection", "chm_event_detect", "chm_get_smart_detection_conf"},
    {"chm_get_msg_alarm_list", "chm_event_detect", "chm_get_msg_alarm_list"},
    {"chm_set_channel_alarm", "chm_event_detect", "chm_set_channel_alarm"},
    {"chm_get_ai_enhance_capability", "chm_event_detect", "chm_get_ai_enhance_capability"},
    {"force_iframe", "chm_dev_manager", "chm_ubus_force_chn_iframe"},
    {"chm_get_face_enhance_capability", "chm_event_detect", "chm_get_face_enhance_capability"},
    {"get_device_num", "chm_dev_manager", "chm_ubus_get_device_num"},
    {"added_chn_info_get", "chm_dev_manager", "chm_ubus_get_added_chn_info"},
    {nullptr, nullptr, nullptr},
};

const chm_forward *forward_of(const char *keyword)
{
    for (const chm_forward *f = kForwards; f->keyword; f++) {
        if (!strcmp(f->keyword, keyword))
            return f;
    }
    return nullptr;
}

// Which request fields a forwarded keyword carries and must check first.
enum : unsigned { FIELD_NAME = 1, FIELD_USER = 2 };

struct chm_field_rule {
    const char *keyword;
    unsigned fields;
};

const chm_field_rule kFieldRules[] = {
    {"chm_edit_dev", FIELD_NAME | FIELD_USER},
    {"chm_mod_dev_passwd", FIELD_USER},
    {"chm_password_reset", FIELD_USER},
    {"chm_set_factory_dev_password", FIELD_USER},
    {nullptr, 0},
};

unsigned fields_of(const char *keyword)
{
    for (const chm_field_rule *r = kFieldRules; r->keyword; r++) {
        if (!strcmp(r->keyword, keyword))
            return r->fields;
    }
    return 0;
}

// One device's fields: "name" where the keyword carries one, "username"
// and "uuid" wherever they are sent. 0 or the field's code.
int32_t check_device_fields(const char *keyword, unsigned fields, json_object *dev)
{
    json_object *user = jso_obj_get(dev, "username");
    json_object *uuid = jso_obj_get(dev, "uuid");
    if ((fields & FIELD_NAME) && !chm_check_name(jso_obj_get_string_origin(dev, "name"))) {
        DS_TRACE_AS(keyword, TRACE_ERROR, "Invalid name.");
        return -71522;
    }
    if ((fields & FIELD_USER) && user && !chm_check_len(jso_get_string_origin(user), 1, 32)) {
        DS_TRACE_AS(keyword, TRACE_ERROR, "Invalid username.");
        return -71509;
    }
    if (uuid && !chm_check_len(jso_get_string_origin(uuid), 1, 32)) {
        DS_TRACE_AS(keyword, TRACE_ERROR, "Invalid uuid.");
        return -71520;
    }
    return 0;
}

// The request object itself and each entry of its "device_list".
int32_t check_fields(const char *keyword, json_object *arg)
{
    if (!arg)
        return 0;
    unsigned fields = fields_of(keyword);
    json_object *list = jso_obj_get(arg, "device_list");
    if (!jso_is_array(list))
        return check_device_fields(keyword, fields, arg);
    for (size_t i = 0; i < json_object_array_length(list); i++) {
        json_object *dev = json_object_array_get_idx(list, i);
        int32_t rc = jso_is_obj(dev) ? check_device_fields(keyword, fields, dev) : -70107;
        if (rc != 0)
            return rc;
    }
    return 0;
}

// The object request to the table's method; the answer (status mapped,
// numbers as text) becomes the response.
int forward(ds_context *ctx, const char *keyword, json_object *arg)
{
    const chm_forward *f = forward_of(keyword);
    if (!ctx || !f || (arg && !jso_is_obj(arg))) {
        DS_TRACE_AS(keyword, TRACE_ERROR, "Invalid params.");
        return -70107;
    }
    int32_t field_rc = check_fields(keyword, arg);
    if (field_rc != 0)
        return field_rc;
    ubus_context *conn = ubus_create_connection();
    if (!conn) {
        DS_TRACE_AS(keyword, TRACE_ERROR, "ubus connection error.");
        return -70101;
    }
    std::string msg = arg ? jso_to_string(arg) : "{}";
    json_object_put(ctx->res_obj);
    ctx->res_obj = nullptr;
    ubus_req req{.object = f->object, .method = f->method, .message = msg.c_str(), .timeout = 0};
    int rc = 0;
    if (ubus_call(conn, &req, &ctx->res_obj) != 0 || !ctx->res_obj || !jso_is_obj(ctx->res_obj)) {
        DS_TRACE_AS(keyword, TRACE_ERROR, "ubus call error.");
        json_object_put(ctx->res_obj);
        ctx->res_obj = jso_new_obj();
        rc = -70102;
    } else {
        // A reply without a status is not an answer the client can trust.
        rc = map_status(ctx->res_obj);
        json_object_object_del(ctx->res_obj, "error_code");
        jso_foreach_modify_int_to_string(ctx->res_obj);
    }
    ubus_free_connection(conn);
    return rc;
}

#define CHM_FORWARD(fn, keyword)                                                                   \
    int fn(ds_context *ctx, json_object *arg) { return forward(ctx, keyword, arg); }

CHM_FORWARD(refresh_device_version_info, "refresh_device_version_info")
CHM_FORWARD(get_device_version_info, "get_device_version_info")
CHM_FORWARD(do_chm_manual_refresh_ex, "chm_manual_refresh_ex")
CHM_FORWARD(do_chm_async_refresh, "chm_async_refresh")
CHM_FORWARD(do_chm_device_discovery, "chm_device_discovery")
CHM_FORWARD(do_chm_get_dev_url, "chm_get_dev_url")
CHM_FORWARD(do_mod_dev_passwd, "chm_mod_dev_passwd")
CHM_FORWARD(do_chm_edit_dev, "chm_edit_dev")
CHM_FORWARD(do_chm_alloc_dev_ip, "chm_alloc_dev_ip")
CHM_FORWARD(do_chm_dev_ip_conflict_detect, "chm_dev_ip_conflict_detect")
CHM_FORWARD(do_chm_set_device_ip, "chm_set_device_ip")
CHM_FORWARD(do_chm_set_device_list_ip, "chm_set_device_list_ip")
CHM_FORWARD(do_chm_get_recover_string, "chm_get_recover_string")
CHM_FORWARD(do_chm_verification_code_check, "chm_verification_code_check")
CHM_FORWARD(do_chm_password_reset, "chm_password_reset")
CHM_FORWARD(do_chm_set_factory_dev_password, "chm_set_factory_dev_password")
CHM_FORWARD(do_set_device_status, "set_device_status")
CHM_FORWARD(do_chm_check_video_conf_ready, "chm_check_video_conf_ready")
CHM_FORWARD(do_chm_adapt_video_conf, "chm_adapt_video_conf")
CHM_FORWARD(do_chm_get_notified_event, "chm_get_notified_event")
CHM_FORWARD(do_chm_activate_hik_device, "chm_activate_hik_device")
CHM_FORWARD(do_chm_set_wireless_reconnect_enable, "set_wireless_reconnect_enable")
CHM_FORWARD(do_chm_get_cascade_list, "chm_get_cascade_list")
CHM_FORWARD(do_chm_set_cascade_migarate, "chm_set_cascade_migarate")
CHM_FORWARD(do_chm_change_sta_connect_config, "chm_change_sta_connect_config")
CHM_FORWARD(do_chm_get_smart_detection, "chm_get_smart_detection")
CHM_FORWARD(do_chm_get_msg_alarm_list, "chm_get_msg_alarm_list")
CHM_FORWARD(do_chm_set_channel_alarm, "chm_set_channel_alarm")
CHM_FORWARD(do_chm_get_ai_enhance_capability, "chm_get_ai_enhance_capability")
CHM_FORWARD(do_chm_force_iframe, "force_iframe")
CHM_FORWARD(do_chm_get_face_enhance_capability, "chm_get_face_enhance_capability")
CHM_FORWARD(do_chm_get_device_num, "get_device_num")
CHM_FORWARD(do_chm_added_chn_info_get, "added_chn_info_get")

int chm_auto_refresh(ds_context *ctx, json_object *)
{
    return chm_get_device_list(ctx, 2);
}

int chm_get_probe_dev(ds_context *ctx, json_object *)
{
    return chm_get_device_list(ctx, 1);
}

// Counts of the added cameras, online or not.
int do_chm_get_dev_count(ds_context *ctx, json_object *)
{
    int rc = chm_get_device_list(ctx, 0);
    if (rc != 0)
        return rc;
    json_object *list = jso_obj_get(ctx->res_obj, "added_list");
    int total = list && jso_is_array(list) ? static_cast<int>(json_object_array_length(list)) : 0;
    int online = 0;
    for (int i = 0; i < total; i++) {
        json_object *o = jso_obj_get(json_object_array_get_idx(list, i), "online");
        online += o && ((jso_is_int(o) && jso_get_int(o) == 1) ||
                        (jso_is_string(o) && !strcmp(jso_get_string_origin(o), "1")));
    }
    json_object *res = jso_new_obj();
    jso_obj_add_string(res, "total", std::to_string(total).c_str());
    jso_obj_add_string(res, "online", std::to_string(online).c_str());
    json_object_put(ctx->res_obj);
    ctx->res_obj = res;
    return 0;
}

int do_chm_get_dev_info(ds_context *ctx, json_object *)
{
    return chm_get_device_list(ctx, 0);
}

// In the order the keywords have always been searched.
const ds_action chm_actions[] = {
    {.keyword = "ipc_local_upgrade", .fn = get_ipc_upgrade_url},
    {.keyword = "ipc_disk_upgrade", .fn = ipc_disk_upgrade},
    {.keyword = "save_chn_conf", .fn = save_chn_conf},
    {.keyword = "ipc_device_info", .fn = ipc_device_info},
    {.keyword = "refresh_device_version_info", .fn = refresh_device_version_info},
    {.keyword = "get_device_version_info", .fn = get_device_version_info},
    {.keyword = "local_update_ipc", .fn = local_update_ipc},
    {.keyword = "online_update_ipc", .fn = online_update_ipc},
    {.keyword = "get_update_status", .fn = get_update_status},
    {.keyword = "ipc_update_start", .fn = ipc_update_start},
    {.keyword = "ipc_update_exit", .fn = ipc_update_exit},
    {.keyword = "online_update_check", .fn = online_update_check},
    {.keyword = "online_update_check_status", .fn = online_update_check_status},
    {.keyword = "online_update", .fn = online_update},
    {.keyword = "online_update_progress", .fn = online_update_progress},
    {.keyword = "chm_auto_refresh", .fn = chm_auto_refresh},
    {.keyword = "chm_manual_refresh", .fn = do_chm_manual_refresh_ex},
    {.keyword = "chm_manual_refresh_ex", .fn = do_chm_manual_refresh_ex},
    {.keyword = "chm_async_refresh", .fn = do_chm_async_refresh},
    {.keyword = "chm_device_discovery", .fn = do_chm_device_discovery},
    {.keyword = "chm_get_probe_dev", .fn = chm_get_probe_dev},
    {.keyword = "get_chn_info_by_page", .fn = get_chn_info_by_page},
    {.keyword = "chm_add_dev", .fn = do_chm_add_dev},
    {.keyword = "chm_add_dev_list", .fn = do_chm_add_dev_list},
    {.keyword = "chm_add_dev_list_zuma", .fn = do_chm_add_dev_list_zuma},
    {.keyword = "chm_edit_dev_url", .fn = do_chm_edit_dev_url},
    {.keyword = "chm_del_dev", .fn = do_chm_del_dev},
    {.keyword = "chm_get_dev_url", .fn = do_chm_get_dev_url},
    {.keyword = "chm_mod_dev_passwd", .fn = do_mod_dev_passwd},
    {.keyword = "chm_edit_dev", .fn = do_chm_edit_dev},
    {.keyword = "chm_alloc_dev_ip", .fn = do_chm_alloc_dev_ip},
    {.keyword = "chm_dev_ip_conflict_detect", .fn = do_chm_dev_ip_conflict_detect},
    {.keyword = "chm_set_device_ip", .fn = do_chm_set_device_ip},
    {.keyword = "chm_set_device_list_ip", .fn = do_chm_set_device_list_ip},
    {.keyword = "chm_get_recover_string", .fn = do_chm_get_recover_string},
    {.keyword = "chm_verification_code_check", .fn = do_chm_verification_code_check},
    {.keyword = "chm_password_reset", .fn = do_chm_password_reset},
    {.keyword = "chm_set_factory_dev_password", .fn = do_chm_set_factory_dev_password},
    {.keyword = "chm_get_dev_count", .fn = do_chm_get_dev_count},
    {.keyword = "chm_get_dev_info", .fn = do_chm_get_dev_info},
    {.keyword = "set_device_status", .fn = do_set_device_status},
    {.keyword = "chm_check_video_conf_ready", .fn = do_chm_check_video_conf_ready},
    {.keyword = "chm_adapt_video_conf", .fn = do_chm_adapt_video_conf},
    {.keyword = "chm_get_notified_event", .fn = do_chm_get_notified_event},
    {.keyword = "chm_activate_hik_device", .fn = do_chm_activate_hik_device},
    {.keyword = "set_wireless_reconnect_enable", .fn = do_chm_set_wireless_reconnect_enable},
    {.keyword = "chm_get_cascade_list", .fn = do_chm_get_cascade_list},
    {.keyword = "chm_set_cascade_migarate", .fn = do_chm_set_cascade_migarate},
    {.keyword = "chm_change_sta_connect_config", .fn = do_chm_change_sta_connect_config},
    {.keyword = "chm_get_smart_detection", .fn = do_chm_get_smart_detection},
    {.keyword = "chm_get_msg_alarm_list", .fn = do_chm_get_msg_alarm_list},
    {.keyword = "chm_set_channel_alarm", .fn = do_chm_set_channel_alarm},
    {.keyword = "chm_get_ai_enhance_capability", .fn = do_chm_get_ai_enhance_capability},
    {.keyword = "force_iframe", .fn = do_chm_force_iframe},
    {.keyword = "chm_get_face_enhance_capability", .fn = do_chm_get_face_enhance_capability},
    {.keyword = "get_device_num", .fn = do_chm_get_device_num},
    {.keyword = "added_chn_info_get", .fn = do_chm_added_chn_info_get},
    {.keyword = nullptr, .fn = nullptr},
};

ds_module chm_module = {
    .name = "chm",
    .package = "chm",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = chm_actions,
    .ch = 0,
    .lock_actions = 0,
};

constexpr ds_len_range kUserLen{1, 32};
constexpr ds_len_range kPasswordLen{5, 32};

// The camera's stored credentials; the other options of a channel belong to
// the device manager, which writes them itself.
constexpr ds_opt channel_opts[] = {
    {.name = "username", .checker = check_string_type, .arg = &kUserLen, .err_code = -71509},
    {.name = "password", .checker = check_string_type, .arg = &kPasswordLen, .err_code = -71501},
    {.name = nullptr, .checker = nullptr, .arg = nullptr, .err_code = 0},
};

// Rows for every channel and stream slot the device manager may fill,
// whatever the configured amount: it keeps all 128 channel sections and 64
// URL sections in the package.
int build_rows(void)
{
    if (chm_module.sections)
        return 0;
    enum { URL_SLOTS = 64 };
    size_t cap = 2 * DS_MAX_CHANNELS + URL_SLOTS + 1;
    auto *table = static_cast<ds_sec *>(calloc(cap, sizeof(ds_sec)));
    size_t pos = 0;
    const char *per_channel[] = {"chn%d_channel", "chn%d_video_recover"};
    const ds_opt *per_channel_opts[] = {channel_opts, nullptr};
    const char *urls[] = {"rtsp_url_%d"};
    if (!table ||
        model_fill_channel_rows(table, cap, &pos, per_channel, per_channel_opts, 2, DS_MAX_CHANNELS) != 0 ||
        model_fill_channel_rows(table, cap, &pos, urls, nullptr, 1, URL_SLOTS) != 0) {
        free(table);
        return -1;
    }
    chm_module.sections = table;
    return 0;
}

} // namespace

int chm_module_init(void)
{
    if (build_rows() != 0)
        return -1;
    return add_module_node(&chm_module);
}
