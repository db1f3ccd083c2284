// The do and forward methods: run a module's named actions, or pass an opaque
// command to a camera through the channel manager's pass-through.
#include <json-c/json.h>

#include <cstring>

#include "model/request.h"
#include "model/change_events.h"
#include "model/methods.h"
#include "model/model_raii.h"
#include "model/registry.h"
#include "platform/error_codes.h"
#include "platform/jso.h"
#include "platform/trace.h"
#include "store/store.h"
#include "platform/ubus_client.h"

namespace {

struct conn_free {
    void operator()(ubus_context *c) const { ubus_free_connection(c); }
};
using conn_ptr = std::unique_ptr<ubus_context, conn_free>;

} // namespace

// Actions after which the device may restart, be reset or be re-flashed, or
// whose result is a copy of the configuration: the change logs (RAM) must
// be in the configuration files before they run.
static bool flush_before(const char *keyword)
{
    static const char *const kMarks[] = {"reboot", "reset", "upgrade", "factory", "_conf", nullptr};
    for (const char *const *m = kMarks; *m; m++) {
        if (strstr(keyword, *m))
            return true;
    }
    return !strcmp(keyword, "config_recovery");
}

// Runs one keyword of mod with its argument. 0 or the error code.
static int32_t do_keyword_action(ds_context *ctx, const ds_module *mod, const char *keyword,
                             json_object *arg)
{
    if (!keyword) {
        DS_ERR("Invalid params.");
        DS_ERR("Run %s service failed", "(null)");
        return DS_ERR_REQUEST;
    }
    auto *row = static_cast<const ds_action *>(get_ds_node(mod, keyword, DS_NODE_ACTION));
    if (!row) {
        DS_ERR("Service %s not support.", keyword);
        DS_ERR("Run %s service failed", keyword);
        return DS_ERR_UNSUPPORTED;
    }
    DS_INFO("Do %s action in module %s.", keyword, mod->name);
    if (flush_before(keyword) && uci_flush_logged() != 0)
        DS_ERR("flush before %s failed", keyword);
    if (!row->fn) {
        DS_ERR("Function keyword_action is NULL.");
        DS_ERR("Run %s service failed", keyword);
        return DS_ERR_REQUEST;
    }
    // Such an action reads, checks and commits its module's package like a
    // set does, so it holds that package for as long; other packages are
    // locked by the writes themselves.
    store_txn hold(ctx->uci_ctx);
    if (mod->lock_actions && mod->package && store_txn_lock(&hold, {mod->package}) != 0) {
        DS_ERR("Run %s service failed", keyword);
        return DS_ERR_REQUEST;
    }
    change_event_action_start();
    int32_t rc = row->fn(ctx, arg);
    if (rc != 0) {
        DS_ERR("Run %s service failed", keyword);
        return rc;
    }
    change_event_action(ctx, mod, keyword); // tell the bus what it committed
    return 0;
}

// Runs every keyword of one module's request object in order; stops at the
// first failure. 0 or its code.
static int32_t do_module(ds_context *ctx, ds_model_root *root, const char *name, json_object *req)
{
    DS_INFO("Request in module [%s]", name);
    const ds_module *mod = get_module_node(root, name);
    if (!mod) {
        DS_ERR("Module %s not support.", name);
        return DS_ERR_UNSUPPORTED;
    }
    json_object_object_foreach(req, keyword, arg) {
        if (int32_t rc = do_keyword_action(ctx, mod, keyword, arg))
            return rc;
    }
    return DS_OK;
}

// do: {module: {keyword: argument, ...}, ...}. Actions add their results
// to ctx->res_obj, created here first. 0 or the first failing action's code.
// Worker thread owning ctx.
int32_t ds_do(ds_context *ctx)
{
    if (!ctx || !ctx->req_obj) {
        DS_ERR("Invalid params.");
        return DS_ERR_REQUEST;
    }
    if (!jso_is_obj(ctx->req_obj) || json_object_object_length(ctx->req_obj) == 0) {
        DS_ERR("Request signal is illegal.");
        return DS_ERR_ILLEGAL;
    }
    ds_model_root *root = get_model_root();
    if (!root) {
        DS_ERR("Get model root node failed.");
        return DS_ERR_REQUEST;
    }
    if (!ctx->res_obj)
        ctx->res_obj = jso_new_obj();
    if (!ctx->res_obj) {
        DS_ERR("Create new json object failed.");
        return DS_ERR_REQUEST;
    }
    json_object_object_foreach(ctx->req_obj, name, req) {
        if (!jso_is_obj(req))
            continue;
        if (int32_t rc = do_module(ctx, root, name, req))
            return rc;
    }
    return DS_OK;
}

// {"device_list": [{"chn_id": channel, "command": content, URL-encoded}]}; null on failure.
static json_object *forward_message(int32_t channel, json_object *content)
{
    json_object *copy = nullptr;
    if (json_object_deep_copy(content, &copy, nullptr) != 0)
        return nullptr;
    jso_ptr command(copy);
    if (jso_obj_url_coding(command.get(), JSO_URL_ENCODE) != 0)
        return nullptr;
    jso_ptr device(jso_new_obj()), list(jso_new_array()), msg(jso_new_obj());
    if (!device || !list || !msg)
        return nullptr;
    if (jso_obj_add_int(device.get(), "chn_id", channel) != 0 ||
        jso_obj_add(device.get(), "command", command.release()) != 0 ||
        json_object_array_add(list.get(), device.release()) != 0 ||
        jso_obj_add(msg.get(), "device_list", list.release()) != 0)
        return nullptr;
    return msg.release();
}

// The camera's answer: reply "result"[0]."command" parsed and URL-decoded;
// null when absent or not JSON. *answered tells whether the command string
// was there at all: a camera that answered with text still answered.
static json_object *forward_answer(json_object *reply, bool *answered)
{
    *answered = false;
    json_object *result = jso_obj_get(reply, "result");
    if (!jso_is_array(result) || json_object_array_length(result) == 0)
        return nullptr;
    const char *text = jso_obj_get_string_origin(json_object_array_get_idx(result, 0), "command");
    if (!text)
        return nullptr;
    *answered = true;
    jso_ptr content(jso_from_string(text));
    if (!content) {
        DS_ERR("Parse command of channel answer failed.");
        return nullptr;
    }
    if (jso_obj_url_coding(content.get(), JSO_URL_DECODE) != 0)
        DS_ERR("urldecode error");
    return content.release();
}

// The text of msg (owned by msg), or null when it would not fit the
// request's receive buffer: a pass-through is bounded like a request.
static const char *forward_text(const ds_context *ctx, json_object *msg)
{
    const char *text = msg ? jso_to_string(msg) : nullptr;
    if (!text || strlen(text) + 1 > ctx->text_limit)
        return nullptr;
    return text;
}

// Calls the pass-through and fills the response. 0, or the error code:
// also DS_ERR_FORWARD with the channel answered when the camera gave no
// usable answer.
static int32_t forward_call(ds_context *ctx, int32_t channel, json_object *content)
{
    conn_ptr conn(ubus_create_connection());
    if (!conn)
        return DS_ERR_FORWARD;
    jso_ptr msg(forward_message(channel, content));
    const char *text = forward_text(ctx, msg.get());
    if (!text) {
        DS_ERR("jso_to_string error.");
        return DS_ERR_BUS_CALL;
    }
    ubus_req req = {.object = "chm_slp", .method = "chm_slp_passthrough", .message = text, .timeout = 0};
    json_object *raw = nullptr;
    int rc = ubus_call(conn.get(), &req, &raw);
    jso_ptr reply(raw);
    if (rc != 0) {
        DS_ERR("ubus call error.");
        return DS_ERR_FORWARD;
    }
    if (!ctx->res_obj && !(ctx->res_obj = jso_new_obj())) {
        DS_ERR("Create new json object failed.");
        return DS_ERR_REQUEST;
    }
    bool answered = false;
    json_object *answer = forward_answer(reply.get(), &answered);
    if (answer)
        jso_obj_add(ctx->res_obj, "content", answer);
    jso_obj_add_int(ctx->res_obj, "channel", channel);
    return answered ? DS_OK : DS_ERR_FORWARD;
}

// forward: {"destination": "ipc", "channel": n, "content": {...}} passes the
// content to the camera channel. 0 or the error code. Worker thread owning
// ctx.
int32_t ds_forward(ds_context *ctx)
{
    if (!ctx || !ctx->req_obj) {
        DS_ERR("Invalid params.");
        return DS_ERR_REQUEST;
    }
    const char *dest = jso_obj_get_string_origin(ctx->req_obj, "destination");
    if (!dest || strcmp(dest, "ipc") != 0) {
        DS_ERR("Destination %s not support.", dest ? dest : "(null)");
        return DS_ERR_UNSUPPORTED;
    }
    int32_t channel = 0;
    json_object *content = jso_obj_get(ctx->req_obj, "content");
    if (jso_obj_get_int(ctx->req_obj, "channel", &channel) != 0 || !jso_is_obj(content)) {
        DS_ERR("Request signal is illegal.");
        return DS_ERR_ILLEGAL;
    }
    return forward_call(ctx, channel, content);
}
