#include "core/request.h"

#include "core/context.h"
#include "core/wire.h"
#include "platform/jso.h"
#include "platform/trace.h"

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct jso_deleter {
    void operator()(json_object *o) const { json_object_put(o); }
};
using jso_ptr = std::unique_ptr<json_object, jso_deleter>;

struct method_row {
    const char *name;
    int code;
};

// Compared in this order, exactly and case-sensitively.
const method_row k_methods[] = {
    {.name = "get", .code = DS_METHOD_GET},
    {.name = "add", .code = DS_METHOD_ADD},
    {.name = "delete", .code = DS_METHOD_DELETE},
    {.name = "set", .code = DS_METHOD_SET},
    {.name = "do", .code = DS_METHOD_DO},
    {.name = "forward", .code = DS_METHOD_FORWARD},
    {.name = nullptr, .code = DS_METHOD_NONE},
};

enum { GROUP_MIN = 1, GROUP_MAX = 3, GROUP_FALLBACK = 2 };
enum { CLIENT_MIN = 1, CLIENT_MAX = 13, CLIENT_FALLBACK = 13 };

// Kinds whose request text arrives already decoded.
bool request_is_raw(uint8_t client)
{
    return client == 2 || client == 8 || client == 9;
}

bool response_is_encoded(uint8_t client)
{
    return client == 1 || client == 2;
}

int fail(ds_context *ctx, int32_t code)
{
    ctx->error_code = code;
    return -1;
}

// Reads the user, group and client members of a decoded info object.
int read_identity(ds_context *ctx, json_object *info)
{
    const char *user = jso_obj_get_string_origin(info, "user");
    if (!user) {
        DS_TRACE_AS("jinf_tlv_data_handle", TRACE_ERROR, "Lack of user field.");
        return fail(ctx, -40101);
    }
    free(ctx->user);
    ctx->user = strdup(user);
    int32_t group = 0;
    if (jso_obj_get_int(info, "group", &group) != 0) {
        DS_TRACE_AS("jinf_tlv_data_handle", TRACE_ERROR, "Lack of group field.");
        return fail(ctx, -40101);
    }
    if (group < GROUP_MIN || group > GROUP_MAX) {
        DS_TRACE_AS("jinf_tlv_data_handle", TRACE_INFO, "Unknown user group.");
        group = GROUP_FALLBACK;
    }
    ctx->group = static_cast<uint8_t>(group);
    int32_t client = 0;
    if (jso_obj_get_int(info, "client", &client) != 0) {
        DS_TRACE_AS("jinf_tlv_data_handle", TRACE_ERROR, "Lack of client field.");
        return fail(ctx, -40101);
    }
    if (client < CLIENT_MIN || client > CLIENT_MAX) {
        DS_TRACE_AS("jinf_tlv_data_handle", TRACE_INFO, "Unknown client.");
        client = CLIENT_FALLBACK;
    }
    ctx->client = static_cast<uint8_t>(client);
    return 0;
}

// Info record (type 1) of len bytes. 0 or -1.
int jinf_tlv_data_handle(ds_context *ctx, int32_t len)
{
    if (len < 1 || len > TLV_INFO_MAX) {
        DS_ERR("Invalid params.");
        return -1;
    }
    if (sock_read(ctx->fd, ctx->buf, static_cast<size_t>(len)) != len) {
        DS_ERR("Socket read TLV value failed.");
        return fail(ctx, -40101);
    }
    jso_ptr info(jso_from_string(reinterpret_cast<const char *>(ctx->buf)));
    if (!info) {
        DS_ERR("Transform json request info to object failed.");
        return fail(ctx, -40101);
    }
    if (jso_obj_url_coding(info.get(), JSO_URL_DECODE) != 0) {
        DS_ERR("urldecode error");
        return fail(ctx, -40102);
    }
    return read_identity(ctx, info.get());
}

// Makes room for a request value of len bytes plus its NUL. 0 or -1.
int fit_buffer(ds_context *ctx, int32_t len)
{
    if (static_cast<uint32_t>(len) < ctx->buf_size)
        return 0;
    free(ctx->buf);
    ctx->buf_size = 0;
    ctx->buf = static_cast<uint8_t *>(calloc(1, static_cast<size_t>(len) + 1));
    if (!ctx->buf) {
        DS_TRACE_AS("jreq_tlv_data_handle", TRACE_ERROR, "Malloc buffer failed.");
        return fail(ctx, -40103);
    }
    ctx->buf_size = static_cast<uint32_t>(len) + 1;
    return 0;
}

// Reads exactly len bytes into the buffer, continuing after short reads.
int read_value(ds_context *ctx, int32_t len)
{
    size_t want = static_cast<size_t>(len);
    size_t off = 0;
    ssize_t n = sock_read(ctx->fd, ctx->buf, want);
    while (n > 0 && static_cast<size_t>(n) < want - off) {
        off += static_cast<size_t>(n);
        n = sock_read(ctx->fd, ctx->buf + off, want - off);
    }
    if (n < 0 || static_cast<size_t>(n) != want - off) {
        DS_TRACE_AS("jreq_tlv_data_handle", TRACE_ERROR,
                    "Socket read TLV value failed. read_len : %d, len : %d", static_cast<int>(n),
                    static_cast<int>(want - off));
        return fail(ctx, -40101);
    }
    return 0;
}

// Parses the request text in the buffer and finds its method code. 0 or -1.
int parse_request(ds_context *ctx)
{
    const char *text = reinterpret_cast<const char *>(ctx->buf);
    DS_TRACE_AS("jreq_tlv_data_handle", TRACE_INFO, "Request: %s.", text);
    json_object_put(ctx->req_obj);
    ctx->req_obj = jso_from_string(text);
    if (!ctx->req_obj) {
        DS_TRACE_AS("jreq_tlv_data_handle", TRACE_ERROR, "Transform json request to object failed.");
        return fail(ctx, -40210);
    }
    if (!request_is_raw(ctx->client) && jso_obj_url_coding(ctx->req_obj, JSO_URL_DECODE) != 0) {
        DS_TRACE_AS("jreq_tlv_data_handle", TRACE_ERROR, "urldecode error");
        return fail(ctx, -40102);
    }
    const char *method = jso_obj_get_string_origin(ctx->req_obj, "method");
    if (!method) {
        DS_TRACE_AS("jreq_tlv_data_handle", TRACE_ERROR, "Lack of method field.");
        return fail(ctx, -40210);
    }
    int code = ds_method_code(method);
    if (code == DS_METHOD_NONE) {
        DS_TRACE_AS("jreq_tlv_data_handle", TRACE_ERROR, "Unsupport method type: %s.", method);
        return fail(ctx, -40209);
    }
    ctx->method = static_cast<uint8_t>(code);
    return 0;
}

// Request record (type 2) of len bytes. 0 or -1.
int jreq_tlv_data_handle(ds_context *ctx, int32_t len)
{
    if (len < 1) {
        DS_ERR("Invalid params.");
        return -1;
    }
    if (len > TLV_REQUEST_MAX) {
        DS_ERR("Request signal is too long.");
        return fail(ctx, -40202);
    }
    if (fit_buffer(ctx, len) != 0 || read_value(ctx, len) != 0)
        return -1;
    return parse_request(ctx);
}

// One record: header, then its value. 0 or -1; *stop set when parsing must
// end at once (short header, unknown type).
int read_record(ds_context *ctx, bool *stop)
{
    ssize_t n = sock_read(ctx->fd, ctx->buf, TLV_HEADER_LEN);
    if (n != TLV_HEADER_LEN) {
        DS_TRACE_AS("ds_signal_parse", TRACE_ERROR,
                    "Socket read type and length failed, read_len: %d.", static_cast<int>(n));
        *stop = true;
        return fail(ctx, -40101);
    }
    uint32_t be[2];
    memcpy(be, ctx->buf, sizeof(be));
    uint32_t type = ntohl(be[0]);
    int32_t len = static_cast<int32_t>(ntohl(be[1]));
    DS_TRACE_AS("ds_signal_parse", TRACE_INFO, "TLV type: %d.", static_cast<int>(type));
    DS_TRACE_AS("ds_signal_parse", TRACE_INFO, "TLV length: %d.", static_cast<int>(len));
    if (type == TLV_INFO)
        return jinf_tlv_data_handle(ctx, len);
    if (type == TLV_REQUEST)
        return jreq_tlv_data_handle(ctx, len);
    DS_TRACE_AS("ds_signal_parse", TRACE_ERROR, "Unsupport TLV type.");
    *stop = true;
    return fail(ctx, -40101);
}

// Adds "error_code", codes and serialises the response object. The text is
// borrowed from ctx->res_obj; null when it could not be finished.
const char *finish_response(ds_context *ctx)
{
    if (jso_obj_add_int(ctx->res_obj, "error_code", ctx->error_code) != 0)
        return nullptr;
    if (response_is_encoded(ctx->client))
        jso_obj_url_coding(ctx->res_obj, JSO_URL_ENCODE);
    const char *text = json_object_to_json_string(ctx->res_obj);
    if (!text)
        DS_TRACE_AS("ds_make_response", TRACE_ERROR, "json_object_to_json_string failed.");
    return text;
}

} // namespace

int ds_method_code(const char *name)
{
    if (!name)
        return DS_METHOD_NONE;
    for (const method_row *row = k_methods; row->name; row++) {
        if (strcmp(row->name, name) == 0)
            return row->code;
    }
    return DS_METHOD_NONE;
}

int ds_signal_parse(ds_context *ctx)
{
    if (!ctx || ctx->fd < 0 || !ctx->buf) {
        DS_ERR("Invalid params.");
        return -1;
    }
    int ret = -1;
    for (int i = 0; i < 2; i++) {
        bool stop = false;
        ret = read_record(ctx, &stop);
        // A lost buffer (failed growth) leaves nothing to read into.
        if (stop || !ctx->buf)
            return -1;
    }
    return ret;
}

int ds_make_response(ds_context *ctx)
{
    if (!ctx || ctx->fd < 0 || !ctx->buf || ctx->buf_size == 0) {
        DS_ERR("Invalid params.");
        return -1;
    }
    if (!ctx->res_obj)
        return make_error_response(ctx->fd, ctx->error_code);
    const char *text = finish_response(ctx);
    if (!text)
        return make_error_response(ctx->fd, -40101);
    DS_INFO("Response: %s.", text);
    if (jres_tlv_write(ctx->fd, text, static_cast<uint32_t>(strlen(text))) != 0) {
        DS_ERR("Write response TLV failed.");
        return -1;
    }
    return 0;
}
