// Camera firmware upgrade and the camera's own web API: login for a token,
// requests with it, the direct image upload, and the updater process.
#include <json-c/json.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "model/request.h"
#include "model/checkers.h"
#include "modules/chm/chm.h"
#include "platform/http_client.h"
#include "platform/jso.h"
#include "platform/paths.h"
#include "platform/shell.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"
#include "store/store.h"

namespace {

enum { CAMERA_TIMEOUT_MS = 40000 };

struct json_deleter {
    void operator()(json_object *o) const { json_object_put(o); }
};
using json_ptr = std::unique_ptr<json_object, json_deleter>;

struct camera {
    std::string ip, port, user, password, stok;
};

// The channel id of a request, as text or integer; 0 when absent or bad.
int channel_arg(json_object *arg, const char *key)
{
    json_object *v = arg && jso_is_obj(arg) ? jso_obj_get(arg, key) : nullptr;
    int32_t ch = 0;
    if (v && jso_is_int(v))
        ch = jso_get_int(v);
    else if (!v || !jso_is_string(v) || str_to_int(jso_get_string_origin(v), &ch) != 0)
        return 0;
    return ch >= 1 && ch <= DS_MAX_CHANNELS ? ch : 0;
}

std::string decrypt_password(const char *ciphertext)
{
    ubus_context *conn = ubus_create_connection();
    if (!conn) {
        DS_TRACE_AS("get_dut_info_by_channel_id", TRACE_ERROR, "ubus connection error.");
        return "";
    }
    json_ptr msg(jso_new_obj());
    jso_obj_add_string(msg.get(), "ciphertxt", ciphertext);
    std::string text = jso_to_string(msg.get());
    json_object *reply = nullptr;
    ubus_req req{.object = "chm_dev_manager", .method = "chm_dev_manager_rsa_decrypt", .message = text.c_str(), .timeout = 0};
    std::string pwd;
    if (ubus_call(conn, &req, &reply) == 0 && jso_obj_get_string_origin(reply, "decrypt_pwd"))
        pwd = std::string(jso_obj_get_string_origin(reply, "decrypt_pwd")).substr(0, 63);
    json_object_put(reply);
    ubus_free_connection(conn);
    return pwd;
}

// The camera's address and credentials from the channel's section.
bool get_dut_info_by_channel_id(ds_context *ctx, int ch, camera *cam)
{
    if (!ctx || ch < 1 || ch > DS_MAX_CHANNELS) {
        DS_ERR("Invalid params.");
        return false;
    }
    char sec[32];
    snprintf(sec, sizeof sec, "chn%d_channel", ch);
    auto opt = [&](const char *name) {
        store_opt v_opt = store_read_opt(ctx->uci_ctx, "chm", sec, name);
        const char *v = v_opt.text;
        return std::string(v ? v : "");
    };
    cam->ip = opt("ip");
    cam->user = opt("username");
    cam->port = opt("http_port");
    std::string cipher = opt("ciphertext");
    cam->password = cipher == "null" ? "null" : cipher.empty() ? "" : decrypt_password(cipher.c_str());
    return true;
}

json_ptr post(const camera &cam, bool with_token, const std::string &body)
{
    auto reply = std::make_unique<char[]>(HTTP_REPLY_LEN);
    reply[0] = 0;
    if (http_single_post(cam.ip.c_str(), cam.port.c_str(), cam.stok.c_str(), with_token, with_token,
                         body.c_str(), reply.get(), CAMERA_TIMEOUT_MS) != 0)
        return nullptr;
    return json_ptr(json_tokener_parse(reply.get()));
}

// Logs in; the token in cam->stok. 0 or -1 (with the step's trace).
int camera_login(ds_context *ctx, int ch, camera *cam, const char *who)
{
    if (!get_dut_info_by_channel_id(ctx, ch, cam)) {
        DS_TRACE_AS(who, TRACE_ERROR, "get_dut_info_by_channel_id error.");
        return -1;
    }
    if (cam->ip.empty() || cam->user.empty() || cam->password.empty() || cam->port.empty()) {
        DS_TRACE_AS(who, TRACE_ERROR, "invalid param.");
        return -1;
    }
    json_ptr body(jso_new_obj()), login(jso_new_obj());
    jso_obj_add_string(login.get(), "username", cam->user.c_str());
    jso_obj_add_string(login.get(), "password", cam->password.c_str());
    jso_obj_add_string(body.get(), "method", "do");
    jso_obj_add(body.get(), "login", login.release());
    jso_obj_url_coding(body.get(), 0);
    json_ptr reply = post(*cam, false, jso_to_string(body.get()));
    if (!reply) {
        DS_TRACE_AS(who, TRACE_ERROR, "parse json data failed");
        return -1;
    }
    int32_t code = -1;
    jso_obj_get_int(reply.get(), "error_code", &code);
    if (code != 0) {
        DS_TRACE_AS(who, TRACE_ERROR, "login error, got error code: %d", code);
        return -1;
    }
    const char *stok = jso_obj_get_string_origin(reply.get(), "stok");
    if (!stok) {
        DS_TRACE_AS(who, TRACE_ERROR, "stok is null, got error stok: %s", "(null)");
        return -1;
    }
    cam->stok = std::string(stok).substr(0, 63);
    return 0;
}

// Logs in and posts request with the token; the camera's reply or null.
json_ptr request_ipc(ds_context *ctx, int ch, json_object *request)
{
    camera cam;
    if (camera_login(ctx, ch, &cam, "request_ipc") != 0)
        return nullptr;
    json_ptr reply = post(cam, true, jso_to_string(request));
    if (!reply)
        DS_TRACE_AS("request_ipc", TRACE_ERROR, "parse json data failed");
    return reply;
}

void set_response(ds_context *ctx, json_ptr reply)
{
    json_object_put(ctx->res_obj);
    ctx->res_obj = reply ? reply.release() : jso_new_obj();
    jso_foreach_modify_int_to_string(ctx->res_obj);
}

int upload_image(const camera &cam, const std::string &upgrade_path, const char *file)
{
    auto reply = std::make_unique<char[]>(HTTP_REPLY_LEN);
    reply[0] = 0;
    int ret = http_mutipartform_post_upload_file(cam.ip.c_str(), cam.port.c_str(), cam.stok.c_str(), 1,
                                                 upgrade_path.c_str(), file, reply.get());
    DS_TRACE_AS("ipc_disk_upgrade", TRACE_INFO, "http_mutipartform_post_upload_file recv_buf: %s, ret = %d",
                reply.get(), ret);
    json_ptr parsed(json_tokener_parse(reply.get()));
    if (ret != 0 || !parsed) {
        DS_TRACE_AS("ipc_disk_upgrade", TRACE_ERROR, "parse json data failed");
        return -1;
    }
    int32_t code = -1;
    jso_obj_get_int(parsed.get(), "error_code", &code);
    DS_TRACE_AS("ipc_disk_upgrade", TRACE_INFO, "ret : %d", code);
    return code;
}

// A request to the camera built from the keyword's names; its reply becomes
// the response.
int camera_request(ds_context *ctx, json_object *arg, const char *text)
{
    int ch = channel_arg(arg, "channel_id");
    if (!ctx || !ch)
        return -70107;
    json_ptr request(json_tokener_parse(text));
    json_ptr reply = request_ipc(ctx, ch, request.get());
    if (!reply)
        return -70102;
    set_response(ctx, std::move(reply));
    return 0;
}

json_ptr call_updater(const char *method, json_object *msg)
{
    ubus_context *conn = ubus_create_connection();
    if (!conn)
        return nullptr;
    std::string text = msg ? jso_to_string(msg) : "{}";
    json_object *reply = nullptr;
    ubus_req req{.object = "ipc_update", .method = method, .message = text.c_str(), .timeout = 0};
    bool ok = ubus_call(conn, &req, &reply) == 0;
    ubus_free_connection(conn);
    if (!ok) {
        json_object_put(reply);
        return nullptr;
    }
    return json_ptr(reply ? reply : jso_new_obj());
}

} // namespace

int get_ipc_upgrade_url(ds_context *ctx, json_object *arg)
{
    const char *id = arg && jso_is_obj(arg) ? jso_obj_get_string_origin(arg, "channel_id") : nullptr;
    if (!ctx || !id || !channel_arg(arg, "channel_id")) {
        DS_ERR("Invalid params.");
        return -70107;
    }
    char url[64];
    snprintf(url, sizeof url, "/admin/chm/ipc_upgrade?id=%s", id);
    if (!ctx->res_obj)
        ctx->res_obj = jso_new_obj();
    jso_obj_add_string(ctx->res_obj, "url", url);
    return 0;
}

int ipc_disk_upgrade(ds_context *ctx, json_object *arg)
{
    int ch = channel_arg(arg, "channel_id");
    const char *file = arg && jso_is_obj(arg) ? jso_obj_get_string_origin(arg, "filepath") : nullptr;
    const char *boundary = arg && jso_is_obj(arg) ? jso_obj_get_string_origin(arg, "mime_boundary") : nullptr;
    if (!ctx || !ch || !file || !boundary) {
        DS_ERR("Invalid params.");
        return -70107;
    }
    DS_INFO("mime_boundary : %s", boundary);
    camera cam;
    if (camera_login(ctx, ch, &cam, __func__) != 0)
        return -1;
    DS_INFO("stok_buf : %s", cam.stok.empty() ? "" : "***"); // a camera session key
    json_ptr upgrade = post(cam, true, "{\"method\": \"do\", \"system\": {\"firmware_upgrade\": {\"type\": \"0\"}}}");
    const char *uri = upgrade ? jso_obj_get_string_origin(upgrade.get(), "url") : nullptr;
    std::string decoded;
    if (!uri || !jso_url_decode(uri, &decoded)) {
        DS_ERR("got error upgrade_uri: %s", uri ? uri : "(null)");
        return -1;
    }
    DS_INFO("upgrade_uri_decode : %s", decoded.c_str());
    int code = upload_image(cam, decoded, file);
    if (code != 0)
        return code;
    const char *reboot = "{\"method\": \"do\", \"system\": {\"reboot\": {\"delay\": \"0\"}}}";
    DS_INFO("reboot_data: %s", reboot);
    json_ptr done = post(cam, true, reboot);
    DS_INFO("reboot recv_buf: %s", done ? jso_to_string(done.get()) : "");
    return 0;
}

int ipc_device_info(ds_context *ctx, json_object *arg)
{
    int rc = camera_request(ctx, arg, "{\"method\": \"get\", \"device_info\": {\"name\": [\"info\"]}}");
    if (rc == 0 && !jso_obj_get(ctx->res_obj, "device_info")) {
        DS_ERR("res_device_info is null.");
        return -70102;
    }
    return rc;
}

int online_update_check(ds_context *ctx, json_object *arg)
{
    return camera_request(ctx, arg, "{\"method\": \"do\", \"cloud_config\": {\"check_fw_version\": {}}}");
}

int online_update_check_status(ds_context *ctx, json_object *arg)
{
    return camera_request(ctx, arg, "{\"method\": \"get\", \"cloud_status\": {\"name\": [\"check_fw_ver_status\"]}, "
                                    "\"cloud_config\": {\"name\": [\"new_firmware\"]}}");
}

int online_update(ds_context *ctx, json_object *arg)
{
    return camera_request(ctx, arg, "{\"method\": \"do\", \"cloud_config\": {\"fw_download\": {}}}");
}

int online_update_progress(ds_context *ctx, json_object *arg)
{
    return camera_request(ctx, arg, "{\"method\": \"get\", \"client_info\": {\"name\": [\"info\"]}, "
                                    "\"cloud_status\": {\"name\": [\"upgrade_status\"]}}");
}

int online_update_ipc(ds_context *ctx, json_object *arg)
{
    json_object *ch = arg && jso_is_obj(arg) ? jso_obj_get(arg, "channel") : nullptr;
    if (!ctx || !ch)
        return -70107;
    json_ptr msg(jso_new_obj());
    jso_obj_add(msg.get(), "channel", json_object_get(ch));
    json_ptr reply = call_updater("online_update_ipc", msg.get());
    int32_t code = -1;
    if (!reply || jso_obj_get_int(reply.get(), "error_code", &code) != 0 || code != 0) {
        DS_ERR("online_update_ipc error_code: %d", code);
        return -40102;
    }
    return 0;
}

int local_update_ipc(ds_context *ctx, json_object *arg)
{
    const char *boundary = arg && jso_is_obj(arg) ? jso_obj_get_string_origin(arg, "file_boundry") : nullptr;
    const char *path = arg && jso_is_obj(arg) ? jso_obj_get_string_origin(arg, "file_path") : nullptr;
    if (!ctx || !boundary || !path)
        return -70107;
    json_ptr msg(jso_new_obj());
    jso_obj_add_string(msg.get(), "file_boundry", boundary);
    jso_obj_add_string(msg.get(), "file_path", path);
    json_ptr reply = call_updater("local_update_ipc", msg.get());
    DS_INFO("result : %s", reply ? jso_to_string(reply.get()) : "");
    return reply ? 0 : -70102;
}

int ipc_update_exit(ds_context *ctx, json_object *)
{
    if (!ctx)
        return -40101;
    json_ptr reply = call_updater("ipc_update_exit", nullptr);
    int32_t flag = 0;
    if (reply && jso_obj_get_int(reply.get(), "exit_flag", &flag) == 0 && flag == 1)
        shell_run("killall ipc_update");
    return reply ? 0 : -70102;
}

// Starts the updater unless one already runs: never two.
int ipc_update_start(ds_context *ctx, json_object *)
{
    if (!ctx)
        return -40101;
    std::string updater = dsd_path("/bin/ipc_update");
    FILE *p = popen("ps | grep ipc_update", "r");
    bool running = false;
    char line[512];
    while (p && fgets(line, sizeof line, p))
        running = running || strstr(line, "/bin/ipc_update") != nullptr;
    if (p)
        pclose(p);
    if (!running)
        shell_run(shell_quote(updater) + " &");
    return 0;
}

// The updater's progress, as it reports it.
int get_update_status(ds_context *ctx, json_object *arg)
{
    if (!ctx)
        return -40101;
    json_ptr reply = call_updater("get_update_status", arg && jso_is_obj(arg) ? arg : nullptr);
    if (!reply)
        return -70102;
    set_response(ctx, std::move(reply));
    return 0;
}
