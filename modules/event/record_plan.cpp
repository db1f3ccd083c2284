// Module "record_plan": when each channel records, as a weekly plan of typed
// periods (mode 0-2), and the keyword that resets a channel to recording all
// day in mode 1.
#include <json-c/json.h>

#include <cstdio>
#include <cstring>

#include "model/request.h"
#include "modules/event/detection_tables.h"
#include "modules/modules.h"
#include "platform/jso.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"
#include "store/store.h"

namespace {

constexpr auto plan_opts = plan_week_options(&plan_form_record, plan_days_lower);
const char kAllDay[] = "[\"0000-2400:1\"]";

// Tells the recorder to reload its plans; 0, -70101 or -70102.
int rec_plan_reconfig(void)
{
    ubus_context *conn = ubus_create_connection();
    if (!conn)
        return -70101;
    ubus_req req{.object = "record", .method = "rec_plan_reconfig", .message = nullptr, .timeout = 0};
    json_object *reply = nullptr;
    int rc = ubus_call(conn, &req, &reply) == 0 ? 0 : -70102;
    int32_t result = 0;
    if (rc == 0 && reply)
        jso_obj_get_int(reply, "result", &result);
    json_object_put(reply);
    ubus_free_connection(conn);
    return rc;
}

int after_apply_record_plan(ds_context *ctx)
{
    return ctx ? rec_plan_reconfig() : -40101;
}

// Sets what differs from "record all day"; true when anything changed.
bool reset_channel(store_txn *txn, const char *sec)
{
    bool changed = false;
    store_opt enabled_opt = store_read_opt(txn->ctx, "record_plan", sec, "enabled");
    const char *enabled = enabled_opt.text;
    if (!enabled || strcmp(enabled, "on") != 0)
        changed |= set_opt_value(txn, "record_plan", sec, "enabled", "on") == 0;
    for (const char *day : plan_days_lower) {
        store_opt v_opt = store_read_opt(txn->ctx, "record_plan", sec, day);
        const char *v = v_opt.text;
        if (!v || strncmp(v, kAllDay, strlen(kAllDay)) != 0)
            changed |= set_opt_value(txn, "record_plan", sec, day, kAllDay) == 0;
    }
    return changed;
}

// A ubus failure here is not reported: the plan is stored, and the recorder
// rereads plans at its next start.
int set_default_plan(ds_context *ctx, json_object *arg)
{
    if (!ctx)
        return -40101;
    int32_t ch = 0;
    if (!arg || !jso_is_obj(arg) || jso_obj_get_int(arg, "channel", &ch) != 0 || ch < 1 ||
        ch > DS_MAX_CHANNELS)
        return -71006;
    char sec[32];
    snprintf(sec, sizeof sec, "chn%d_channel", ch);
    store_txn txn(ctx->uci_ctx);
    if (!reset_channel(&txn, sec))
        return 0;
    if (store_txn_commit(&txn, "record_plan", false) != 0) {
        DS_ERR("Commit record_plan uci failed");
        return 0;
    }
    (void)rec_plan_reconfig();
    return 0;
}

const ds_action actions[] = {
    {.keyword = "set_default_plan", .fn = set_default_plan},
    {.keyword = nullptr, .fn = nullptr},
};

const ds_sec types[] = {
    det_type_row("channel", plan_opts.data(), nullptr, after_apply_record_plan),
    ds_sec{},
};

ds_module record_plan_module = {
    .name = "record_plan",
    .package = "record_plan",
    .sections = nullptr,
    .sec_types = types,
    .actions = actions,
    .ch = 0,
    .lock_actions = 1,
};

} // namespace

int record_plan_module_init(void)
{
    if (plan_build_rows(&record_plan_module, "chn%d_channel", plan_opts.data(), after_apply_record_plan) != 0)
        return -1;
    return add_module_node(&record_plan_module);
}
