// Network appliers: package "protocol" (user terms) becomes the "wan" and
// "lan" sections of the system's "network" package, which is committed and
// reloaded. "proto" values follow netifd ("dhcp", "static", "pppoe").
#include <string>

#include "model/request.h"
#include "modules/network/net_checkers.h"
#include "modules/network/network.h"
#include "platform/paths.h"
#include "platform/shell.h"
#include "platform/trace.h"
#include "store/store.h"

static const char PROTOCOL[] = "protocol";
static const char NETWORK[] = "network";

static std::string stored(store_txn *txn, const char *pkg, const char *sec, const char *opt)
{
    store_opt v_opt = store_read_opt(txn->ctx, pkg, sec, opt);
    const char *v = v_opt.text;
    return v ? std::string(v) : std::string();
}

// Sets a "network" option, or removes it when the new value is empty.
static void put(store_txn *txn, const char *sec, const char *opt, const std::string &value)
{
    int rc = 0;
    if (!value.empty())
        rc = set_opt_value(txn, NETWORK, sec, opt, value.c_str());
    else if (store_read_opt(txn->ctx, NETWORK, sec, opt).text)
        rc = delete_opt_value(txn, NETWORK, sec, opt, nullptr);
    if (rc != 0)
        DS_ERR("Set network.%s.%s failed.", sec, opt);
}

// "pri snd" without the placeholders for "no server".
static std::string dns_list(store_txn *txn, const char *sec)
{
    std::string out;
    for (const char *opt : {"pri_dns", "snd_dns"}) {
        std::string v = stored(txn, PROTOCOL, sec, opt);
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
static void put_static(store_txn *txn, const char *net_sec, const char *proto_sec)
{
    put(txn, net_sec, "proto", "static");
    for (const char *opt : {"ipaddr", "netmask", "gateway"})
        put(txn, net_sec, opt, stored(txn, PROTOCOL, proto_sec, opt));
    put(txn, net_sec, "dns", dns_list(txn, proto_sec));
    put(txn, net_sec, "peerdns", "");
}

// DHCP with the DNS servers of the lease, or manual ones when the mode says so.
static void put_dhcp(store_txn *txn, const char *net_sec, const char *proto_sec)
{
    put(txn, net_sec, "proto", "dhcp");
    for (const char *opt : {"ipaddr", "netmask", "gateway"})
        put(txn, net_sec, opt, "");
    bool manual = proto_sec && stored(txn, PROTOCOL, proto_sec, "dns_mode") == "manual";
    put(txn, net_sec, "peerdns", manual ? "0" : "");
    put(txn, net_sec, "dns", manual ? dns_list(txn, proto_sec) : "");
}

static void put_pppoe(store_txn *txn)
{
    put(txn, "wan", "proto", "pppoe");
    for (const char *opt : {"ipaddr", "netmask", "gateway", "dns", "peerdns"})
        put(txn, "wan", opt, "");
    put(txn, "wan", "username", stored(txn, PROTOCOL, "pppoe", "username"));
    put(txn, "wan", "password", stored(txn, PROTOCOL, "pppoe", "password"));
}

// The WAN link settings shared by every connection type.
static void put_wan_link(store_txn *txn, const std::string &type)
{
    // Clients may send '-' separators or capitals; netifd wants aa:bb:...
    std::string mac = stored(txn, PROTOCOL, "wan", "macaddr");
    std::string normalised;
    if (!mac.empty() && net_mac_check(mac.c_str(), &normalised) == 0)
        mac = normalised;
    put(txn, "wan", "macaddr", mac);
    std::string mtu = type == "pppoe" ? stored(txn, PROTOCOL, "pppoe", "mtu")
                                      : stored(txn, PROTOCOL, "wan", "mtu");
    put(txn, "wan", "mtu", mtu);
}

static void put_lan(store_txn *txn)
{
    if (stored(txn, PROTOCOL, "lan", "wan_type") == "dhcp_lan")
        put_dhcp(txn, "lan", nullptr);
    else
        put_static(txn, "lan", "static_lan");
}

// Commits "network" and asks the system to bring the interfaces in line.
static int commit_and_reload(store_txn *txn)
{
    int rc = store_txn_commit(txn, NETWORK, false);
    store_txn_drop(txn); // the reload runs without holding the package
    if (rc != 0) {
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
    store_txn txn(ctx->uci_ctx);
    std::string type = stored(&txn, PROTOCOL, "wan", "wan_type");
    if (type == "static")
        put_static(&txn, "wan", "static");
    else if (type == "pppoe")
        put_pppoe(&txn);
    else
        put_dhcp(&txn, "wan", "dhcp");
    put_wan_link(&txn, type);
    put_lan(&txn);
    return commit_and_reload(&txn);
}

int apply_bond_network(ds_context *ctx)
{
    if (!ctx || !ctx->uci_ctx) {
        DS_ERR("Invalid params.");
        return -40101;
    }
    store_txn txn(ctx->uci_ctx);
    std::string type = stored(&txn, PROTOCOL, "wan", "wan_type");
    if (type == "static_bond" || type == "static")
        put_static(&txn, "wan", type == "static" ? "static" : "static_bond");
    else
        put_dhcp(&txn, "wan", type == "dhcp" ? "dhcp" : "dhcp_bond");
    put_wan_link(&txn, type);
    put_lan(&txn);
    return commit_and_reload(&txn);
}
