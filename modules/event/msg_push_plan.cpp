// Module "msg_push_plan": each channel's push window "HHMM-HHMM,D" (D a bitmask of
// weekdays), checked as the push service reads it, and the reload call
// after a change.
#include <json-c/json.h>

#include "core/context.h"
#include "modules/event/detection_tables.h"
#include "modules/modules.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"

namespace {

constexpr ds_opt push_opts[] = {
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

ds_module msg_push_plan_module = {
    .next = nullptr,
    .prev = nullptr,
    .name = "msg_push_plan",
    .package = "msg_push_plan",
    .sections = nullptr,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
};

} // namespace

int msg_push_plan_module_init(void)
{
    if (plan_build_rows(&msg_push_plan_module, "chn%d_msg_push_plan", push_opts, msg_push_plan_reconfig) != 0)
        return -1;
    return add_module_node(&msg_push_plan_module);
}
