#include "modules/event/detection.h"

#include <json-c/json.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "model/request.h"
#include "platform/jso.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"
#include "store/store.h"

const char *const det_enum_sensitivity[] = {"high", "medium", "low", nullptr};
const char *const det_enum_direction[] = {"AtoB", "BtoA", "both", nullptr};

namespace {

enum {
    ERR_PARAM = -40101,
    ERR_NO_BUS = -70101,
    ERR_BUS = -70102,
    ERR_ALARM_LIST = -10000,
};

struct conn_holder {
    ubus_context *conn = ubus_create_connection();
    ~conn_holder() { ubus_free_connection(conn); }
};

struct json_holder {
    json_object *obj = nullptr;
    ~json_holder() { json_object_put(obj); }
};

// The channel is passed twice for the patterns that number a per-channel
// section by its channel again ("chn%d_group_info_black_%d").
std::string section_name(const char *fmt, int channel)
{
    char buf[32];
    snprintf(buf, sizeof buf, fmt, channel, channel);
    return buf;
}

int light_sound_value(const char *v)
{
    if (v && !strcmp(v, "on"))
        return 1;
    if (v && !strcmp(v, "off"))
        return 0;
    return -1;
}

// The notification section of the channel that `name` is, or null.
const char *notif_fmt_of(const det_member *m, const char *name, int channel)
{
    if (section_name(m->notif_fmt, channel) == name)
        return m->notif_fmt;
    if (m->notif_extra_fmt && section_name(m->notif_extra_fmt, channel) == name)
        return m->notif_extra_fmt;
    return nullptr;
}

// Reads the stored switches of one notification section and tells the
// event-detection service. 0 or -10000.
int tell_section_switches(ds_context *ctx, const det_member *m, const char *fmt, int channel)
{
    std::string sec = section_name(fmt, channel);
    // One view for both switches: the snapshot the set just patched.
    uci_snapshot_ref view = store_view(ctx->uci_ctx, m->module);
    const char *light = view ? store_view_option(*view, sec.c_str(), "light_alarm_enabled") : nullptr;
    std::string light_s = light ? light : "";
    const char *sound = view ? store_view_option(*view, sec.c_str(), "sound_alarm_enabled") : nullptr;
    std::string sound_s = sound ? sound : "";
    DS_INFO("light_on_off:%s sound_on_off:%s\n", light_s.c_str(), sound_s.c_str());
    return set_channel_alarm_list(channel - 1, light_sound_value(light_s.c_str()),
                                  light_sound_value(sound_s.c_str()), m->kind);
}

} // namespace

int det_tell_switches(ds_context *ctx, const det_member *m, int channel)
{
    return tell_section_switches(ctx, m, m->notif_fmt, channel);
}

void det_mask_clear(char mask[DS_MAX_CHANNELS + 1])
{
    memset(mask, '0', DS_MAX_CHANNELS);
    mask[DS_MAX_CHANNELS] = 0;
}

void det_mask_set(char mask[DS_MAX_CHANNELS + 1], int channel)
{
    if (channel >= 1 && channel <= DS_MAX_CHANNELS)
        mask[channel - 1] = '1';
}

namespace {

// The restart failures are traced under the member's own notifier name
// where the member has one (tamper).
void restart_failed(const det_member *m, const char *fmt)
{
    if (!strcmp(m->module, "tamper_detection"))
        DS_TRACE_AS("set_tamper_detection_info", TRACE_ERROR, fmt, m->restart_method);
}

} // namespace

int det_notify(ds_context *ctx, const det_member *m, const char *mask)
{
    conn_holder bus;
    if (!bus.conn)
        return ERR_NO_BUS;
    json_holder reply;
    ubus_req record{.object = "record", .method = m->record_method, .message = nullptr, .timeout = 0};
    if (ubus_call(bus.conn, &record, &reply.obj) != 0)
        return ERR_BUS;
    json_object_put(reply.obj);
    reply.obj = nullptr;
    char msg[DS_MAX_CHANNELS + 32];
    snprintf(msg, sizeof msg, "{\"channel\": \"%s\"}", mask);
    ubus_req restart{.object = "chm_event_detect", .method = m->restart_method, .message = msg, .timeout = 0};
    if (ubus_call(bus.conn, &restart, &reply.obj) != 0) {
        restart_failed(m, "ubus call chm_event_detect %s fail");
        return ERR_BUS;
    }
    // The kept reply goes to the client, whose numbers are text.
    if (reply.obj && jso_foreach_modify_int_to_string(reply.obj) != 0) {
        DS_TRACE_AS("det_notify", TRACE_ERROR, "number_to_string error");
        restart_failed(m, "ubus call chm_event_detect.%s result is wrong");
    }
    if (reply.obj && ctx) {
        json_object_put(ctx->res_obj);
        ctx->res_obj = reply.obj;
        reply.obj = nullptr;
    }
    return 0;
}

// Message: {"channel": index, "light_alarm": l, "sound_alarm": s, "type": kind}.
int set_channel_alarm_list(int index, int light, int sound, const char *kind)
{
    conn_holder bus;
    if (!bus.conn)
        return ERR_ALARM_LIST;
    char msg[160];
    snprintf(msg, sizeof msg, "{\"channel\": %d, \"light_alarm\": %d, \"sound_alarm\": %d, \"type\": \"%s\"}",
             index, light, sound, kind);
    json_holder reply;
    ubus_req req{.object = "chm_event_detect", .method = "chm_set_channel_alarm", .message = msg, .timeout = 0};
    return ubus_call(bus.conn, &req, &reply.obj) == 0 ? 0 : ERR_ALARM_LIST;
}

int det_build_rows(ds_module *mod, const det_member *m)
{
    if (mod->sections)
        return 0; // built by an earlier registration in this process
    const char *patterns[] = {m->switch_fmt, m->notif_fmt, m->plan_fmt, m->notif_extra_fmt};
    const ds_opt *options[] = {m->switch_opts, m->notif_opts, m->plan_opts, m->notif_opts};
    size_t per_channel = m->notif_extra_fmt ? 4 : 3;
    int count = model_channel_amount();
    size_t cap = per_channel * static_cast<size_t>(count) + 1;
    auto *table = static_cast<ds_sec *>(calloc(cap, sizeof(ds_sec)));
    size_t pos = 0;
    if (!table || model_fill_channel_rows(table, cap, &pos, patterns, options, per_channel, count) != 0) {
        free(table);
        return -1;
    }
    for (size_t i = 0; i < pos; i++) {
        if (i % per_channel == 1 || i % per_channel == 3)
            table[i].flags = DS_SEC_AFTER_COMMIT; // the notification rows of each channel
    }
    mod->sections = table;
    return 0;
}

int det_nothing_before_save(ds_context *)
{
    return 0;
}

int det_after_apply_notif_list(ds_context *ctx, const det_member *m)
{
    if (!ctx) {
        DS_ERR("Invalid params.");
        return ERR_PARAM;
    }
    json_object *mod = jso_obj_get(ctx->req_obj, m->module);
    if (mod && jso_is_obj(mod)) {
        json_object_object_foreach(mod, name, sec) {
            (void)sec;
            int ch = 0;
            const char *fmt = sscanf(name, "chn%d", &ch) == 1 ? notif_fmt_of(m, name, ch) : nullptr;
            if (!fmt)
                continue;
            if (tell_section_switches(ctx, m, fmt, ch) != 0)
                return ERR_ALARM_LIST;
        }
    }
    return 0;
}

int det_register(ds_module *mod, const det_member *m, ds_sec_cb_fn notif_cb)
{
    if (det_build_rows(mod, m) != 0)
        return -1;
    mod->after_commit = notif_cb;
    return add_module_node(mod);
}
