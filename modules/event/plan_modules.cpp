// Shared start-up code of the schedule modules (record, capture, cloud and
// push plans).
#include <json-c/json.h>

#include <cstdlib>

#include "modules/event/detection_tables.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"

int plan_build_rows(ds_module *mod, const char *pattern, const ds_opt *options, ds_sec_cb_fn srvcb)
{
    if (mod->sections)
        return 0;
    int count = model_channel_amount();
    size_t cap = static_cast<size_t>(count) + 1;
    auto *table = static_cast<ds_sec *>(calloc(cap, sizeof(ds_sec)));
    size_t pos = 0;
    const char *patterns[] = {pattern};
    const ds_opt *opts[] = {options};
    if (!table || model_fill_channel_rows(table, cap, &pos, patterns, opts, 1, count) != 0) {
        free(table);
        return -1;
    }
    for (size_t i = 0; i < pos; i++)
        table[i].srvcb = srvcb;
    mod->sections = table;
    return 0;
}

const ds_opt push_plan_opts[] = {
    ds_opt{.name = "push_plan_1", .checker = check_msg_push_plan_format, .arg = nullptr, .err_code = -73403},
    det_end(),
};

int msg_push_plan_reconfig(ds_context *ctx)
{
    if (!ctx)
        return -40101;
    DS_INFO("Run msg_push_plan_reconfig.");
    ubus_context *conn = ubus_create_connection();
    json_object *reply = nullptr;
    ubus_req req{.object = "msg_push", .method = "plan_reconfig", .message = nullptr, .timeout = 0};
    int rc = conn && ubus_call(conn, &req, &reply) == 0 ? 0 : -70102;
    if (rc != 0)
        DS_ERR("Ubus call msg_push plan_reconfig failed.");
    json_object_put(reply);
    ubus_free_connection(conn);
    return rc;
}
