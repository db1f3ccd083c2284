// The family's "do" keywords: regions, schedules, notification switches and
// the reset to defaults. Each validates the whole request before writing.
#include <json-c/json.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "model/request.h"
#include "model/checkers.h"
#include "modules/event/detection.h"
#include "platform/jso.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"
#include "store/store.h"

namespace {

enum {
    ERR_PARAM = -40101,
    ERR_SIGNAL = -40209,
    ERR_CHANNEL = -70201,
    ERR_COMMIT_SETTINGS = -70711,
    ERR_TAMPER_REGIONS = -70801,
    DEVICE_PAGE = 64,
    DEVICE_PAGES_MAX = 100,
};

const char *const kRectKeys[] = {"x_coor", "y_coor", "width", "height", nullptr};
const char *const kQuadKeys[] = {"pt1_x", "pt1_y", "pt2_x", "pt2_y", "pt3_x", "pt3_y", "pt4_x", "pt4_y", nullptr};
const char *const kLineKeys[] = {"pt1_x", "pt1_y", "pt2_x", "pt2_y", nullptr};
const char *const kWeekdays[] = {"monday", "tuesday", "wednesday", "thursday",
                                 "friday", "saturday", "sunday", nullptr};

const char *const *region_keys(det_region_form form)
{
    switch (form) {
    case DET_REGION_RECT: return kRectKeys;
    case DET_REGION_QUAD: return kQuadKeys;
    case DET_REGION_LINE: return kLineKeys;
    default: return nullptr;
    }
}

std::string name_of(const char *fmt, int a, int b = 0)
{
    char buf[64]; // room for any two ints, so the name is never cut
    snprintf(buf, sizeof buf, fmt, a, b);
    return buf;
}

std::string region_name(int channel, int k)
{
    return name_of("chn%d_region_info_%d", channel, k);
}

int channel_of(const det_member *m, json_object *elem)
{
    json_object *v = jso_obj_get(elem, "channel");
    if (!v || !jso_is_int(v))
        return 0;
    int ch = jso_get_int(v);
    int top = m->channels_by_count ? model_channel_amount() : DS_MAX_CHANNELS;
    return ch >= 1 && ch <= top ? ch : 0;
}

// The array under key of an object argument, or null.
json_object *list_arg(json_object *arg, const char *key)
{
    json_object *list = arg && jso_is_obj(arg) ? jso_obj_get(arg, key) : nullptr;
    return list && jso_is_array(list) ? list : nullptr;
}

/* ---- regions ---- */

bool all_null(json_object *elem, const char *const *keys)
{
    for (const char *const *k = keys; *k; k++) {
        const char *s = jso_obj_get_string_origin(elem, *k);
        if (!s || strcmp(s, "null") != 0)
            return false;
    }
    return true;
}

// Integers on the grid; a rectangle must also fit inside it.
int32_t check_region(const det_member *m, json_object *elem)
{
    const char *const *keys = region_keys(m->region);
    if (all_null(elem, keys))
        return 0;
    uint32_t v[8] = {0};
    int n = 0;
    for (const char *const *k = keys; *k; k++, n++) {
        json_object *x = jso_obj_get(elem, *k);
        if (!x || !jso_is_int(x))
            return ERR_SIGNAL;
        v[n] = static_cast<uint32_t>(jso_get_int(x));
        if (v[n] > DET_GRID)
            return m->region_code;
    }
    if (m->region == DET_REGION_RECT && (v[0] + v[2] > DET_GRID || v[1] + v[3] > DET_GRID))
        return m->region_code;
    if (m->region == DET_REGION_LINE) {
        const char *dir = jso_obj_get_string_origin(elem, "direction");
        if (dir && !str_in_list(dir, det_enum_direction))
            return m->region_code;
    }
    return 0;
}

int32_t check_regions(const det_member *m, json_object *list)
{
    int per_channel[DS_MAX_CHANNELS + 1] = {0};
    size_t n = json_object_array_length(list);
    for (size_t i = 0; i < n; i++) {
        json_object *elem = json_object_array_get_idx(list, i);
        int ch = elem && jso_is_obj(elem) ? channel_of(m, elem) : 0;
        if (!ch)
            return ERR_SIGNAL;
        int32_t rc = check_region(m, elem);
        if (rc != 0)
            return rc;
        if (++per_channel[ch] > m->max_regions) {
            DS_TRACE_AS("det_add_regions", TRACE_ERROR, "Tamper detection region is too many.");
            return ERR_TAMPER_REGIONS;
        }
    }
    return n > static_cast<size_t>(DET_MAX_REGIONS) ? ERR_SIGNAL : 0;
}

int delete_regions(store_txn *txn, const det_member *m, int channel)
{
    for (int k = 1; k <= DET_MAX_REGIONS; k++) {
        std::string sec = region_name(channel, k);
        if (section_exist(txn->ctx, m->module, sec.c_str()) &&
            delete_section(txn, m->module, sec.c_str()) != 0)
            return ERR_PARAM;
    }
    return 0;
}

// Writes one region section; "null" slots stay deleted. 0 or -40101.
int write_region(store_txn *txn, const det_member *m, json_object *elem, int channel, int k)
{
    const char *const *keys = region_keys(m->region);
    if (all_null(elem, keys))
        return 0;
    std::string sec = region_name(channel, k);
    if (add_new_section(txn, m->module, "region_info", sec.c_str()) != 0)
        return ERR_PARAM;
    for (const char *const *key = keys; *key; key++) {
        char buf[16];
        snprintf(buf, sizeof buf, "%d", jso_get_int(jso_obj_get(elem, *key)));
        if (set_opt_value(txn, m->module, sec.c_str(), *key, buf) != 0)
            return ERR_PARAM;
    }
    if (m->region == DET_REGION_LINE) {
        const char *dir = jso_obj_get_string_origin(elem, "direction");
        if (set_opt_value(txn, m->module, sec.c_str(), "direction", dir ? dir : "both") != 0)
            return ERR_PARAM;
    }
    return 0;
}

int commit_or(store_txn *txn, const det_member *m, int32_t code)
{
    if (store_txn_commit(txn, m->module, false) != 0) {
        DS_TRACE_AS("commit_package", TRACE_ERROR, "Commit %s uci failed", m->module);
        return code;
    }
    return 0;
}

json_object *region_json(ds_context *ctx, const det_member *m, const std::string &sec)
{
    json_object *obj = jso_new_obj();
    jso_obj_add_string(obj, ".name", sec.c_str());
    jso_obj_add_string(obj, ".type", "region_info");
    const char *const *keys = region_keys(m->region);
    for (const char *const *k = keys; k && *k; k++) {
        store_opt v_opt = store_read_opt(ctx->uci_ctx, m->module, sec.c_str(), *k);
        const char *v = v_opt.text;
        jso_obj_add_string(obj, *k, v ? v : "");
    }
    if (m->region == DET_REGION_LINE) {
        store_opt v_opt = store_read_opt(ctx->uci_ctx, m->module, sec.c_str(), "direction");
        const char *v = v_opt.text;
        jso_obj_add_string(obj, "direction", v ? v : "both");
    }
    return obj;
}

/* ---- schedules and switches ---- */

// Validates every element of list against the rows in opts and the channel
// rule before anything is written. 0 or the first code.
int32_t check_settings(ds_context *ctx, const det_member *m, json_object *list, const ds_opt *opts)
{
    size_t n = json_object_array_length(list);
    for (size_t i = 0; i < n; i++) {
        json_object *elem = json_object_array_get_idx(list, i);
        if (!elem || !jso_is_obj(elem)) {
            DS_TRACE_AS("det_set_settings", TRACE_ERROR, "Invalid signal.");
            return ERR_SIGNAL;
        }
        if (!channel_of(m, elem))
            return ERR_SIGNAL;
        json_object_object_foreach(elem, key, val) {
            const ds_opt *o = nullptr;
            for (const ds_opt *r = opts; r && r->name; r++)
                o = !o && !strcmp(r->name, key) ? r : o;
            if (o && o->checker) {
                int32_t rc = o->checker(ctx, val, elem, o->arg, o->err_code);
                if (rc != 0)
                    return rc;
            }
        }
    }
    return 0;
}

int write_settings(store_txn *txn, const det_member *m, json_object *elem, const std::string &sec,
                   const ds_opt *opts)
{
    json_object_object_foreach(elem, key, val) {
        bool known = false;
        for (const ds_opt *r = opts; r && r->name; r++)
            known = known || !strcmp(r->name, key);
        if (!known || !jso_is_string(val))
            continue;
        if (set_opt_value(txn, m->module, sec.c_str(), key, jso_get_string_origin(val)) != 0)
            return ERR_PARAM;
    }
    return 0;
}

// Shared body of the schedule and notification keywords.
int set_settings(ds_context *ctx, const det_member *m, json_object *arg, const char *key,
                 const char *fmt, const ds_opt *opts, bool notif)
{
    json_object *list = list_arg(arg, key);
    if (!list) {
        DS_TRACE_AS("det_set_settings", TRACE_ERROR, "Invalid params.");
        return ERR_SIGNAL;
    }
    int32_t rc = check_settings(ctx, m, list, opts);
    if (rc != 0)
        return rc;
    store_txn txn(ctx->uci_ctx);
    size_t n = json_object_array_length(list);
    for (size_t i = 0; i < n; i++) {
        json_object *elem = json_object_array_get_idx(list, i);
        int ch = channel_of(m, elem);
        std::string sec = name_of(fmt, ch);
        if (!section_exist(ctx->uci_ctx, m->module, sec.c_str()))
            continue; // channels without the section are skipped silently
        if (write_settings(&txn, m, elem, sec, opts) != 0)
            return ERR_PARAM;
        if (notif && det_tell_switches(ctx, m, ch) != 0)
            return -10000;
    }
    rc = commit_or(&txn, m, ERR_COMMIT_SETTINGS);
    if (rc != 0)
        return rc;
    char mask[DS_MAX_CHANNELS + 1];
    det_mask_clear(mask); // all zeros on purpose: the daemons reread every channel
    return det_notify(ctx, m, mask);
}

/* ---- defaults ---- */

const det_default kNotifDefaults[] = {
    {"app_enabled", "off"},   {"client_enabled", "off"},      {"screenshot_enabled", "off"},
    {"buzzer_enabled", "off"}, {"popupwin_enabled", "off"},   {"light_alarm_enabled", "off"},
    {"sound_alarm_enabled", "off"}, {"union_enabled", "off"}, {"screenwarn_enabled", "on"},
    {"record_union", "[]"},   {nullptr, nullptr},
};

const det_default kRectDefault[] = {{"x_coor", "0"}, {"y_coor", "0"}, {"width", "10000"}, {"height", "10000"}, {nullptr, nullptr}};
const det_default kQuadDefault[] = {{"pt1_x", "0"}, {"pt1_y", "0"}, {"pt2_x", "10000"}, {"pt2_y", "0"},
                                    {"pt3_x", "10000"}, {"pt3_y", "10000"}, {"pt4_x", "0"}, {"pt4_y", "10000"},
                                    {nullptr, nullptr}};
const det_default kLineDefault[] = {{"pt1_x", "0"}, {"pt1_y", "5000"}, {"pt2_x", "10000"}, {"pt2_y", "5000"},
                                    {"direction", "both"}, {nullptr, nullptr}};

const det_default *region_defaults(det_region_form form)
{
    switch (form) {
    case DET_REGION_RECT: return kRectDefault;
    case DET_REGION_QUAD: return kQuadDefault;
    case DET_REGION_LINE: return kLineDefault;
    default: return nullptr;
    }
}

bool at_defaults(ds_context *ctx, const det_member *m, const std::string &sec, const det_default *d)
{
    for (; d && d->option; d++) {
        store_opt v_opt = store_read_opt(ctx->uci_ctx, m->module, sec.c_str(), d->option);
        const char *v = v_opt.text;
        if (!v || strcmp(v, d->value) != 0)
            return false;
    }
    return true;
}

// Regions the defaults keep: one full picture (two for the intrusion zones).
int default_region_count(const det_member *m)
{
    return m->region == DET_REGION_QUAD ? 2 : m->region == DET_REGION_NONE ? 0 : 1;
}

bool channel_at_defaults(ds_context *ctx, const det_member *m, int ch)
{
    std::string plan = name_of(m->plan_fmt, ch);
    for (const char *const *day = kWeekdays; *day; day++) {
        store_opt v_opt = store_read_opt(ctx->uci_ctx, m->module, plan.c_str(), *day);
        const char *v = v_opt.text;
        if (!v || strcmp(v, "[\"0000-2400\"]") != 0)
            return false;
    }
    int regions = default_region_count(m);
    for (int k = 1; k <= regions; k++) {
        if (!at_defaults(ctx, m, region_name(ch, k), region_defaults(m->region)))
            return false;
    }
    // Any extra region, also one after a gap, makes the reset needed.
    for (int k = regions + 1; regions && k <= DET_MAX_REGIONS; k++) {
        if (section_exist(ctx->uci_ctx, m->module, region_name(ch, k).c_str()))
            return false;
    }
    return at_defaults(ctx, m, name_of(m->switch_fmt, ch), m->switch_defaults) &&
           at_defaults(ctx, m, name_of(m->notif_fmt, ch), kNotifDefaults);
}

int write_defaults(store_txn *txn, const det_member *m, const std::string &sec, const char *type,
                   const det_default *d)
{
    if (!section_exist(txn->ctx, m->module, sec.c_str()) &&
        add_new_section(txn, m->module, type, sec.c_str()) != 0)
        return ERR_PARAM;
    for (; d && d->option; d++) {
        if (set_opt_value(txn, m->module, sec.c_str(), d->option, d->value) != 0)
            return ERR_PARAM;
    }
    return 0;
}

int reset_channel(store_txn *txn, const det_member *m, int ch)
{
    if (write_defaults(txn, m, name_of(m->switch_fmt, ch), "on_off", m->switch_defaults) ||
        write_defaults(txn, m, name_of(m->notif_fmt, ch), "notif_list", kNotifDefaults))
        return ERR_PARAM;
    std::string plan = name_of(m->plan_fmt, ch);
    for (const char *const *day = kWeekdays; *day; day++) {
        if (set_opt_value(txn, m->module, plan.c_str(), *day, "[\"0000-2400\"]") != 0)
            return ERR_PARAM;
    }
    int regions = default_region_count(m);
    if (regions) {
        if (delete_regions(txn, m, ch) != 0)
            return ERR_PARAM;
        for (int k = 1; k <= regions; k++) {
            if (write_defaults(txn, m, region_name(ch, k), "region_info", region_defaults(m->region)) != 0) {
                DS_TRACE_AS("det_set_default", TRACE_ERROR, "set region_info error.");
                return ERR_PARAM;
            }
        }
    }
    return set_channel_alarm_list(ch - 1, 0, 0, m->kind);
}

// The channel manager's added cameras, page by page: {"id", "online", ...}.
json_object *added_cameras(void)
{
    ubus_context *conn = ubus_create_connection();
    if (!conn)
        return nullptr;
    json_object *all = jso_new_array();
    for (int page = 0; page < DEVICE_PAGES_MAX; page++) {
        char msg[96];
        snprintf(msg, sizeof msg, "{\"type\": 0, \"start\": %d, \"num\": %d}", page * DEVICE_PAGE, DEVICE_PAGE);
        ubus_req req{.object = "chm_dev_manager", .method = "chm_ubus_get_device_list", .message = msg, .timeout = 0};
        json_object *reply = nullptr;
        if (ubus_call(conn, &req, &reply) != 0) {
            json_object_put(all);
            all = nullptr;
            break;
        }
        json_object *list = jso_obj_get(reply, "added_list");
        size_t n = list && jso_is_array(list) ? json_object_array_length(list) : 0;
        for (size_t i = 0; i < n; i++)
            json_object_array_add(all, json_object_get(json_object_array_get_idx(list, i)));
        json_object_put(reply);
        if (n < DEVICE_PAGE)
            break;
    }
    ubus_free_connection(conn);
    return all;
}

// Mask of the online cameras; false when an entry is unusable.
bool online_mask(json_object *cams, char mask[DS_MAX_CHANNELS + 1])
{
    det_mask_clear(mask);
    size_t n = json_object_array_length(cams);
    for (size_t i = 0; i < n; i++) {
        json_object *cam = json_object_array_get_idx(cams, i);
        if (!cam)
            return false;
        int32_t id = 0, online = 0;
        if (jso_obj_get_int(cam, "id", &id) != 0)
            return false;
        jso_obj_get_int(cam, "online", &online);
        if (online == 1)
            det_mask_set(mask, id);
    }
    return true;
}

} // namespace

int det_add_regions(ds_context *ctx, const det_member *m, json_object *arg)
{
    json_object *list = list_arg(arg, "region_info");
    if (!ctx || !list) {
        DS_ERR("Invalid signal.");
        return ERR_SIGNAL;
    }
    int32_t rc = check_regions(m, list);
    if (rc != 0)
        return rc;
    char mask[DS_MAX_CHANNELS + 1];
    det_mask_clear(mask);
    size_t n = json_object_array_length(list);
    for (size_t i = 0; i < n; i++)
        det_mask_set(mask, channel_of(m, json_object_array_get_idx(list, i)));
    store_txn txn(ctx->uci_ctx);
    for (int ch = 1; ch <= DS_MAX_CHANNELS; ch++) {
        if (mask[ch - 1] == '1' && delete_regions(&txn, m, ch) != 0)
            return ERR_PARAM;
    }
    for (size_t i = 0; i < n; i++) {
        json_object *elem = json_object_array_get_idx(list, i);
        if (write_region(&txn, m, elem, channel_of(m, elem), static_cast<int>(i) + 1) != 0)
            return ERR_PARAM;
    }
    rc = commit_or(&txn, m, ERR_PARAM);
    return rc != 0 ? rc : det_notify(ctx, m, mask);
}

int det_get_regions(ds_context *ctx, const det_member *m, json_object *arg)
{
    if (!ctx || !arg || !jso_is_obj(arg)) {
        DS_ERR("Invalid params.");
        return ERR_SIGNAL;
    }
    json_object *v = jso_obj_get(arg, "channel");
    if (!v || !jso_is_int(v))
        return ERR_SIGNAL;
    int ch = jso_get_int(v);
    if (ch < 1 || ch > DS_MAX_CHANNELS)
        return ERR_CHANNEL;
    json_object *arr = jso_new_array();
    for (int k = 1; k <= DET_MAX_REGIONS; k++) {
        std::string sec = region_name(ch, k);
        if (section_exist(ctx->uci_ctx, m->module, sec.c_str()))
            json_object_array_add(arr, region_json(ctx, m, sec));
    }
    if (!ctx->res_obj)
        ctx->res_obj = jso_new_obj();
    if (jso_obj_add(ctx->res_obj, "region_info", arr) != 0) {
        DS_ERR("jso_add_string  [%s]-%s failed", m->module, "region_info");
        return ERR_PARAM;
    }
    return 0;
}

int det_set_alarm(ds_context *ctx, const det_member *m, json_object *arg)
{
    if (!ctx)
        return ERR_PARAM;
    int rc = set_settings(ctx, m, arg, "alarm_info", m->plan_fmt, m->plan_opts, false);
    if (rc != 0 || !m->schedule_method)
        return rc;
    ubus_context *conn = ubus_create_connection();
    if (!conn)
        return -70101;
    char msg[DS_MAX_CHANNELS + 32];
    char mask[DS_MAX_CHANNELS + 1];
    det_mask_clear(mask);
    snprintf(msg, sizeof msg, "{\"channel\": \"%s\"}", mask);
    ubus_req req{.object = "chm_event_detect", .method = m->schedule_method, .message = msg, .timeout = 0};
    json_object *reply = nullptr;
    rc = ubus_call(conn, &req, &reply) == 0 ? 0 : -70102;
    json_object_put(reply);
    ubus_free_connection(conn);
    return rc;
}

int det_set_notif(ds_context *ctx, const det_member *m, json_object *arg)
{
    if (!ctx)
        return ERR_PARAM;
    return set_settings(ctx, m, arg, "notif_info", m->notif_fmt, m->notif_opts, true);
}

int det_set_default(ds_context *ctx, const det_member *m, json_object *arg)
{
    if (!ctx || !arg || !jso_is_obj(arg)) {
        DS_ERR("Invalid params.");
        return ERR_SIGNAL;
    }
    const char *which = jso_obj_get_string_origin(arg, "channel");
    if (!which || strcmp(which, "all") != 0)
        return ERR_SIGNAL;
    json_object *cams = added_cameras();
    if (!cams)
        return -70102;
    char mask[DS_MAX_CHANNELS + 1];
    bool ok = online_mask(cams, mask);
    json_object_put(cams);
    if (!ok)
        return ERR_SIGNAL;
    int top = m->channels_by_count ? model_channel_amount() : DS_MAX_CHANNELS;
    store_txn txn(ctx->uci_ctx);
    for (int ch = 1; ch <= top; ch++) {
        if (mask[ch - 1] != '1' || channel_at_defaults(ctx, m, ch))
            continue;
        int rc = reset_channel(&txn, m, ch);
        if (rc != 0)
            return rc;
    }
    int rc = commit_or(&txn, m, ERR_PARAM);
    return rc != 0 ? rc : det_notify(ctx, m, mask);
}
