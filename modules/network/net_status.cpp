// The WAN status as the network checks see it, built from netifd's
// interface status on the bus.
#include <cstdio>
#include <memory>
#include <string>

#include "model/request.h"
#include "modules/network/network.h"
#include "platform/jso.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"
#include "store/store.h"

struct ubus_conn_free {
    void operator()(ubus_context *c) const { ubus_free_connection(c); }
};
struct jso_free {
    void operator()(json_object *o) const { jso_free_obj(o); }
};
using jso_ptr = std::unique_ptr<json_object, jso_free>;

// A status call is a quick read of netifd's state; a bus that does not answer
// within this many seconds leaves the WAN address unknown.
static const int32_t WAN_STATUS_TIMEOUT = 3;

static std::string prefix_to_mask(int bits)
{
    if (bits < 0 || bits > 32)
        return std::string();
    uint32_t m = bits == 0 ? 0 : 0xFFFFFFFFu << (32 - bits);
    char text[16];
    snprintf(text, sizeof(text), "%u.%u.%u.%u", m >> 24, (m >> 16) & 0xFF, (m >> 8) & 0xFF,
             m & 0xFF);
    return text;
}

// First element of an array member, or null (borrowed).
static json_object *first_of(json_object *obj, const char *key)
{
    json_object *arr = jso_obj_get(obj, key);
    if (!jso_is_array(arr) || json_object_array_length(arr) == 0)
        return nullptr;
    return json_object_array_get_idx(arr, 0);
}

// The default route's next hop, or null (borrowed).
static const char *default_gateway(json_object *reply)
{
    json_object *routes = jso_obj_get(reply, "route");
    if (!jso_is_array(routes))
        return nullptr;
    for (size_t i = 0; i < json_object_array_length(routes); ++i) {
        json_object *r = json_object_array_get_idx(routes, i);
        const char *target = jso_obj_get_string_origin(r, "target");
        if (target && std::string(target) == "0.0.0.0")
            return jso_obj_get_string_origin(r, "nexthop");
    }
    return nullptr;
}

// Reduces netifd's reply to what the network code uses.
static json_object *status_from_reply(json_object *reply)
{
    json_object *out = jso_new_obj();
    if (!out)
        return nullptr;
    const char *proto = jso_obj_get_string_origin(reply, "proto");
    jso_obj_add_string(out, "proto", proto ? proto : "");
    json_object *up = jso_obj_get(reply, "up");
    jso_obj_add(out, "up", json_object_new_boolean(up && json_object_get_boolean(up)));
    json_object *addr = first_of(reply, "ipv4-address");
    const char *ip = jso_obj_get_string_origin(addr, "address");
    int32_t bits = -1;
    if (jso_obj_get_int(addr, "mask", &bits) != 0)
        bits = -1;
    jso_obj_add_string(out, "ipaddrs", ip ? ip : "");
    jso_obj_add_string(out, "netmask", prefix_to_mask(bits).c_str());
    const char *gw = default_gateway(reply);
    jso_obj_add_string(out, "gateway", gw ? gw : "");
    return out;
}

json_object *net_wan_status(void)
{
    std::unique_ptr<ubus_context, ubus_conn_free> conn(ubus_create_connection());
    if (!conn)
        return nullptr;
    ubus_req req = {.object = "network.interface.wan", .method = "status", .message = nullptr,
                    .timeout = WAN_STATUS_TIMEOUT};
    json_object *raw = nullptr;
    if (ubus_call(conn.get(), &req, &raw) != 0) {
        jso_free_obj(raw);
        return nullptr;
    }
    jso_ptr reply(raw);
    if (!reply || !jso_is_obj(reply.get()))
        return nullptr;
    return status_from_reply(reply.get());
}

std::string net_wan_ipaddr(ds_context *ctx)
{
    jso_ptr status(net_wan_status());
    const char *ip = status ? jso_obj_get_string_origin(status.get(), "ipaddrs") : nullptr;
    if (ip && *ip)
        return ip;
    // Without netifd's word a static WAN is where its settings put it.
    if (!ctx || !ctx->uci_ctx)
        return std::string();
    store_opt type_opt = store_read_opt(ctx->uci_ctx, "protocol", "wan", "wan_type");
    const char *type = type_opt.text;
    if (!type || std::string(type) != "static")
        return std::string();
    store_opt addr_opt = store_read_opt(ctx->uci_ctx, "protocol", "static", "ipaddr");
    const char *addr = addr_opt.text;
    return addr ? std::string(addr) : std::string();
}
