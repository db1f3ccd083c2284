// The info and request records of a connection, and its response record.
#include <arpa/inet.h>
#include <json-c/json.h>

#include <cstdlib>
#include <cstring>

#include "core/context.h"
#include "core/dispatch.h"
#include "core/heap.h"
#include "core/pool.h"
#include "core/wire.h"
#include "platform/error_codes.h"
#include "platform/jso.h"
#include "platform/trace.h"

namespace {

enum { URL_ENCODE = 0, URL_DECODE = 1 };

int fail(ds_conn *ctx, int32_t code)
{
    ctx->error_code = code;
    return -1;
}

// Reads an integer member into *out; false when missing or not an integer.
bool int_member(json_object *obj, const char *key, int32_t *out)
{
    json_object *v = nullptr;
    if (!json_object_object_get_ex(obj, key, &v) || !json_object_is_type(v, json_type_int))
        return false;
    *out = json_object_get_int(v);
    return true;
}

int store_identity(ds_conn *ctx, json_object *info)
{
    const char *user = jso_obj_get_string_origin(info, "user");
    if (!user) {
        DS_TRACE_AS("jinf_tlv_data_handle", TRACE_ERROR, "Lack of user field.");
        return fail(ctx, DS_ERR_REQUEST);
    }
    free(ctx->user);
    ctx->user = strdup(user);
    int32_t group = 0, client = 0;
    if (!int_member(info, "group", &group)) {
        DS_TRACE_AS("jinf_tlv_data_handle", TRACE_ERROR, "Lack of group field.");
        return fail(ctx, DS_ERR_REQUEST);
    }
    if (group < 1 || group > 3) {
        DS_TRACE_AS("jinf_tlv_data_handle", TRACE_INFO, "Unknown user group.");
        group = 2;
    }
    ctx->group = static_cast<uint8_t>(group);
    if (!int_member(info, "client", &client)) {
        DS_TRACE_AS("jinf_tlv_data_handle", TRACE_ERROR, "Lack of client field.");
        return fail(ctx, DS_ERR_REQUEST);
    }
    if (client < 1 || client > 13) {
        DS_TRACE_AS("jinf_tlv_data_handle", TRACE_INFO, "Unknown client.");
        client = 13;
    }
    ctx->client = static_cast<uint8_t>(client);
    return 0;
}

int jinf_tlv_data_handle(ds_conn *ctx, sock_reader *rd, int32_t len)
{
    if (len < 1 || len > TLV_INFO_MAX) {
        DS_ERR("Invalid params.");
        return -1;
    }
    context_note_buf_used(ctx, static_cast<size_t>(len) + 1);
    if (sock_reader_read(rd, ctx->buf, static_cast<size_t>(len)) != len) {
        DS_ERR("Socket read TLV value failed.");
        return fail(ctx, DS_ERR_REQUEST);
    }
    json_object *info = jso_from_string(reinterpret_cast<const char *>(ctx->buf));
    if (!info) {
        DS_ERR("Transform json request info to object failed.");
        return fail(ctx, DS_ERR_REQUEST);
    }
    int rc;
    if (jso_obj_url_coding(info, URL_DECODE) != 0) {
        DS_ERR("urldecode error");
        rc = fail(ctx, DS_ERR_PARAM);
    } else {
        rc = store_identity(ctx, info);
    }
    json_object_put(info);
    return rc;
}

bool grow_buffer(ds_conn *ctx, int32_t len)
{
    if (static_cast<uint32_t>(len) < ctx->buf_size)
        return true;
    free(ctx->buf);
    ctx->buf_size = 0;
    ctx->buf = static_cast<uint8_t *>(calloc(1, static_cast<size_t>(len) + 1));
    if (!ctx->buf)
        return false;
    ctx->buf_size = static_cast<uint32_t>(len) + 1;
    return true;
}

// Reads exactly len bytes (short reads continue at the next offset).
int read_value(ds_conn *ctx, sock_reader *rd, int32_t len)
{
    size_t off = 0, remaining = static_cast<size_t>(len);
    context_note_buf_used(ctx, remaining + 1);
    ssize_t n = sock_reader_read(rd, ctx->buf, remaining);
    while (n > 0 && static_cast<size_t>(n) < remaining) {
        off += static_cast<size_t>(n);
        remaining -= static_cast<size_t>(n);
        n = sock_reader_read(rd, ctx->buf + off, remaining);
    }
    if (n != static_cast<ssize_t>(remaining)) {
        DS_TRACE_AS("jreq_tlv_data_handle", TRACE_ERROR,
                    "Socket read TLV value failed. read_len : %d, len : %d", static_cast<int>(n),
                    static_cast<int>(remaining));
        return -1;
    }
    return 0;
}

// Clients of kind 2, 8 and 9 send raw text; every other kind (and a request
// that arrives before any info record) sends URL-encoded strings.
bool request_is_encoded(uint8_t client)
{
    return client != 2 && client != 8 && client != 9;
}

int jreq_tlv_data_handle(ds_conn *ctx, sock_reader *rd, int32_t len)
{
    if (len < 1) {
        DS_ERR("Invalid params.");
        return -1;
    }
    if (len > TLV_REQUEST_MAX) {
        DS_ERR("Request signal is too long.");
        return fail(ctx, DS_ERR_TOO_LONG);
    }
    if (!grow_buffer(ctx, len)) {
        DS_ERR("Malloc buffer failed.");
        return fail(ctx, DS_ERR_NOMEM);
    }
    if (read_value(ctx, rd, len) != 0)
        return fail(ctx, DS_ERR_REQUEST);
    DS_INFO("Request: %s.", reinterpret_cast<const char *>(ctx->buf));
    json_object_put(ctx->req_obj);
    ctx->req_obj = jso_from_string(reinterpret_cast<const char *>(ctx->buf));
    if (!ctx->req_obj) {
        DS_ERR("Transform json request to object failed.");
        return fail(ctx, DS_ERR_BAD_REQUEST);
    }
    if (request_is_encoded(ctx->client) && jso_obj_url_coding(ctx->req_obj, URL_DECODE) != 0) {
        DS_ERR("urldecode error");
        return fail(ctx, DS_ERR_PARAM);
    }
    const char *method = jso_obj_get_string_origin(ctx->req_obj, "method");
    if (!method) {
        DS_ERR("Lack of method field.");
        return fail(ctx, DS_ERR_BAD_REQUEST);
    }
    int code = ds_method_code(method);
    if (!code) {
        DS_ERR("Unsupport method type: %s.", method);
        return fail(ctx, DS_ERR_ILLEGAL);
    }
    ctx->method = static_cast<uint8_t>(code);
    return 0;
}

// One record: header, then its value. The record's own result.
int parse_record(ds_conn *ctx, sock_reader *rd, bool *fatal)
{
    context_note_buf_used(ctx, TLV_HEADER_LEN + 1);
    ssize_t n = sock_reader_read(rd, ctx->buf, TLV_HEADER_LEN);
    if (n != TLV_HEADER_LEN) {
        DS_TRACE_AS("ds_signal_parse", TRACE_ERROR, "Socket read type and length failed, read_len: %d.",
                    static_cast<int>(n));
        *fatal = true;
        return fail(ctx, DS_ERR_REQUEST);
    }
    uint32_t type, raw_len;
    memcpy(&type, ctx->buf, 4);
    memcpy(&raw_len, ctx->buf + 4, 4);
    type = ntohl(type);
    int32_t len = static_cast<int32_t>(ntohl(raw_len));
    DS_TRACE_AS("ds_signal_parse", TRACE_INFO, "TLV type: %d.", static_cast<int>(type));
    DS_TRACE_AS("ds_signal_parse", TRACE_INFO, "TLV length: %d.", len);
    if (len > 0)
        sock_reader_allow(rd, static_cast<size_t>(len));
    if (type == TLV_INFO)
        return jinf_tlv_data_handle(ctx, rd, len);
    if (type == TLV_REQUEST)
        return jreq_tlv_data_handle(ctx, rd, len);
    DS_TRACE_AS("ds_signal_parse", TRACE_ERROR, "Unsupport TLV type.");
    *fatal = true;
    return fail(ctx, DS_ERR_REQUEST);
}

} // namespace

int ds_signal_parse(ds_conn *ctx)
{
    if (!ctx || ctx->fd < 0 || !ctx->buf) {
        DS_ERR("Invalid params.");
        return -1;
    }
    // Exactly two records, in either order; the second one decides. Bytes
    // the read-ahead took beyond them are dropped with the connection.
    sock_reader rd;
    sock_reader_init(&rd, ctx->fd);
    // Counted from the connection's arrival: one that waited in the queue
    // behind slow clients has already spent part of its time.
    int64_t since = thd_pool_task_queued_ns();
    sock_reader_set_deadline(&rd, since ? since : sock_monotonic_ns());
    int rc = -1;
    bool fatal = false;
    for (int i = 0; i < 2 && !fatal; i++)
        rc = parse_record(ctx, &rd, &fatal);
    return rc;
}

void ds_make_response(ds_conn *ctx)
{
    if (!ctx || ctx->fd < 0 || !ctx->buf || ctx->buf_size == 0) {
        DS_ERR("Invalid params.");
        return;
    }
    if (!ctx->res_obj) {
        make_error_response(ctx->fd, ctx->error_code);
        return;
    }
    if (jso_obj_add_int(ctx->res_obj, "error_code", ctx->error_code) != 0) {
        make_error_response(ctx->fd, DS_ERR_REQUEST);
        return;
    }
    if (ctx->client == 1 || ctx->client == 2)
        jso_obj_url_coding(ctx->res_obj, URL_ENCODE);
    const char *text = json_object_to_json_string(ctx->res_obj);
    if (!text) {
        DS_ERR("json_object_to_json_string failed.");
        make_error_response(ctx->fd, DS_ERR_REQUEST);
        return;
    }
    DS_INFO("Response: %s.", text);
    size_t len = strlen(text);
    heap_note_size(len);
    if (jres_tlv_write(ctx->fd, text, static_cast<uint32_t>(len)) != 0)
        DS_ERR("Write response TLV failed.");
}
