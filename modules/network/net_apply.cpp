// Network appliers: package "protocol" (user terms) becomes the "wan" and
// "lan" sections of the system's "network" package, which is committed and
// reloaded. "proto" values follow netifd ("dhcp", "static", "pppoe").
#include <string>

#include "core/context.h"
#include "modules/network/net_checkers.h"
#include "modules/network/network.h"
#include "platform/paths.h"
#include "platform/shell.h"
#include "platform/trace.h"
#include "platform/uci_access.h"

static const char PROTOCOL[] = "protocol";
static const char NETWORK[] = "network";

static std::string stored(ds_context *ctx, const char *pkg, const char *sec, const char *opt)
{
    const char *v = get_opt_value(ctx->uci_ctx, pkg, sec, opt);
    return v ? std::string(v) : std::string();
}

// Sets a "network" option, or removes it when the new value is empty.
static void put(ds_context *ctx, const char *sec, const char *opt, const std::string &value)
{
    int rc = 0;
    if (!value.empty())
        rc = set_opt_value(ctx->uci_ctx, NETWORK, sec, opt, value.c_str());
    else if (get_opt_value(ctx->uci_ctx, NETWORK, sec, opt))
        rc = delete_opt_value(ctx->uci_ctx, NETWORK, sec, opt, nullptr);
    if (rc != 0)
        DS_ERR("Set network.%s.%s failed.", sec, opt);
}

// "pri snd" without the placeholders for "no server".
static std::string dns_list(ds_context *ctx, const char *sec)
{
    std::string out;
    for (const char *opt : {"pri_dns", "snd_dns"}) {
        std::string v = stored(ctx, PROTOCOL, sec, opt);
        if (v.empty() || v == "0.0.0.0")
            continue;
        if (!out.empty())
            out += ' ';
        out += v;
    }
    return out;
}

// A static interface from one "protocol" section holding ipaddr, netmask,
// gateway and the DNS pair.
static void put_static(ds_context *ctx, const char *net_sec, const char *proto_sec)
{
    put(ctx, net_sec, "proto", "static");
    for (const char *opt : {"ipaddr", "netmask", "gateway"})
        put(ctx, net_sec, opt, stored(ctx, PROTOCOL, proto_sec, opt));
    put(ctx, net_sec, "dns", dns_list(ctx, proto_sec));
    put(ctx, net_sec, "peerdns", "");
}

// DHCP with the DNS servers of the lease, or manual ones when the mode says so.
static void put_dhcp(ds_context *ctx, const char *net_sec, const char *proto_sec)
{
    put(ctx, net_sec, "proto", "dhcp");
    for (const char *opt : {"ipaddr", "netmask", "gateway"})
        put(ctx, net_sec, opt, "");
    bool manual = proto_sec && stored(ctx, PROTOCOL, proto_sec, "dns_mode") == "manual";
    put(ctx, net_sec, "peerdns", manual ? "0" : "");
    put(ctx, net_sec, "dns", manual ? dns_list(ctx, proto_sec) : "");
}

static void put_pppoe(ds_context *ctx)
{
    put(ctx, "wan", "proto", "pppoe");
    for (const char *opt : {"ipaddr", "netmask", "gateway", "dns", "peerdns"})
        put(ctx, "wan", opt, "");
    put(ctx, "wan", "username", stored(ctx, PROTOCOL, "pppoe", "username"));
    put(ctx, "wan", "password", stored(ctx, PROTOCOL, "pppoe", "password"));
}

// The WAN link settings shared by every connection type.
static void put_wan_link(ds_context *ctx, const std::string &type)
{
    // Clients may send '-' separators or capitals; netifd wants aa:bb:...
    std::string mac = stored(ctx, PROTOCOL, "wan", "macaddr");
    std::string normalised;
    if (!mac.empty() && net_mac_check(mac.c_str(), &normalised) == 0)
        mac = normalised;
    put(ctx, "wan", "macaddr", mac);
    std::string mtu = type == "pppoe" ? stored(ctx, PROTOCOL, "pppoe", "mtu")
                                      : stored(ctx, PROTOCOL, "wan", "mtu");
    put(ctx, "wan", "mtu", mtu);
}

static void put_lan(ds_context *ctx)
{
    if (stored(ctx, PROTOCOL, "lan", "wan_type") == "dhcp_lan")
        put_dhcp(ctx, "lan", nullptr);
    else
        put_static(ctx, "lan", "static_lan");
}

// Commits "network" and asks the system to bring the interfaces in line.
static int commit_and_reload(ds_context *ctx)
{
    if (commit_package(ctx->uci_ctx, NETWORK) != 0) {
        DS_ERR("Commit network uci failed");
        return -40101;
    }
    std::string cmd = shell_quote(dsd_path("/etc/init.d/network")) + " reload > /dev/null 2>&1";
    if (shell_run(cmd) != 0)
        DS_ERR("Reload network failed.");
    return 0;
}

int apply_multi_lans(ds_context *ctx)
{
    if (!ctx || !ctx->uci_ctx) {
        DS_ERR("Invalid params.");
        return -40101;
    }
    std::string type = stored(ctx, PROTOCOL, "wan", "wan_type");
    if (type == "static")
        put_static(ctx, "wan", "static");
    else if (type == "pppoe")
        put_pppoe(ctx);
    else
        put_dhcp(ctx, "wan", "dhcp");
    put_wan_link(ctx, type);
    put_lan(ctx);
    return commit_and_reload(ctx);
}

int apply_bond_network(ds_context *ctx)
{
    if (!ctx || !ctx->uci_ctx) {
        DS_ERR("Invalid params.");
        return -40101;
    }
    std::string type = stored(ctx, PROTOCOL, "wan", "wan_type");
    if (type == "static_bond" || type == "static")
        put_static(ctx, "wan", type == "static" ? "static" : "static_bond");
    else
        put_dhcp(ctx, "wan", type == "dhcp" ? "dhcp" : "dhcp_bond");
    put_wan_link(ctx, type);
    put_lan(ctx);
    return commit_and_reload(ctx);
}
