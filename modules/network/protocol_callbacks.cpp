// Before-save and service callbacks of module "protocol": they keep the
// derived "smart_network" sections in step with the connection type, tell
// the DHCP client, UPnP and PPPoE about a type change, and hand the model to
// the network appliers.
#include <signal.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "model/request.h"
#include "model/checkers.h"
#include "modules/network/network.h"
#include "platform/jso.h"
#include "platform/paths.h"
#include "platform/shell.h"
#include "platform/trace.h"
#include "store/store.h"

static const char PROTOCOL[] = "protocol";
static const char *const SMART_OPTS[] = {"ipaddr", "gateway", "dns", nullptr};

// The stored value (copied, since uci may move it), "" when absent.
static std::string stored(ds_context *ctx, const char *pkg, const char *sec, const char *opt)
{
    store_opt v_opt = store_read_opt(ctx->uci_ctx, pkg, sec, opt);
    const char *v = v_opt.text;
    return v ? std::string(v) : std::string();
}

// The request's new value of a "protocol" option, or null.
static const char *requested(ds_context *ctx, const char *sec, const char *opt)
{
    return ctx->req_obj ? jso_get_path3_string(ctx->req_obj, PROTOCOL, sec, opt) : nullptr;
}

// Writes go through the set pipeline's transaction: these callbacks run
// before its save, and what they stage after their own commit is committed
// with the request.
static void set_protocol(ds_context *ctx, const char *sec, const char *opt, const char *value)
{
    if (!ctx->txn || set_opt_value(ctx->txn, PROTOCOL, sec, opt, value) != 0)
        DS_ERR("Set protocol.%s.%s failed.", sec, opt);
}

// A failed commit is reported and the save goes ahead all the same.
static void commit_protocol(ds_context *ctx, const char *caller)
{
    if (!ctx->txn || store_txn_commit(ctx->txn, PROTOCOL, false) != 0)
        DS_TRACE_AS(caller, TRACE_ERROR, "Commit protocol uci failed");
}

// Shared by the DHCP callbacks: when `type_sec`'s stored type is `type`,
// the settings in force are unknown until the lease comes, so the derived
// section shows 0.0.0.0.
static int reset_smart_section(ds_context *ctx, const char *type_sec, const char *type,
                               const char *smart, const char *caller)
{
    if (!ctx) {
        DS_TRACE_AS(caller, TRACE_ERROR, "Invalid params.");
        return -40101;
    }
    if (stored(ctx, PROTOCOL, type_sec, "wan_type") != type)
        return 0;
    for (const char *const *opt = SMART_OPTS; *opt; ++opt)
        set_protocol(ctx, smart, *opt, "0.0.0.0");
    commit_protocol(ctx, caller);
    return 0;
}

int before_save_dhcp_service(ds_context *ctx)
{
    return reset_smart_section(ctx, "wan", "dhcp", "smart_network", __func__);
}

int before_save_dhcp_lan_service(ds_context *ctx)
{
    return reset_smart_section(ctx, "lan", "dhcp_lan", "smart_network_lan", __func__);
}

// What the WAN callback compares: stored (old) and requested (new) values.
struct wan_change {
    std::string old_type;
    const char *new_type;      // null when the request leaves the type alone
    bool link_changed;         // a new MAC, MTU or link rate
    std::string netmask, ipaddr, gateway, dns_pair;
    std::string ifname, net_type;
};

static wan_change read_wan_change(ds_context *ctx)
{
    wan_change w;
    w.old_type = stored(ctx, PROTOCOL, "wan", "wan_type");
    w.netmask = stored(ctx, PROTOCOL, "static", "netmask");
    w.ipaddr = stored(ctx, PROTOCOL, "static", "ipaddr");
    w.gateway = stored(ctx, PROTOCOL, "static", "gateway");
    w.dns_pair = stored(ctx, PROTOCOL, "static", "pri_dns") + " " +
                 stored(ctx, PROTOCOL, "static", "snd_dns");
    w.new_type = requested(ctx, "wan", "wan_type");
    w.link_changed = requested(ctx, "wan", "macaddr") || requested(ctx, "wan", "mtu") ||
                     requested(ctx, "wan", "wan_rate");
    w.ifname = stored(ctx, "network", "wan", "ifname");
    w.net_type = stored(ctx, "network", "wan", "type");
    return w;
}

static void stop_upnp(void)
{
    std::string cmd = ". " + shell_quote(dsd_path("/lib/upnpc/upnpc.sh")) +
                      "; upnpc_stop > /dev/null 2>&1";
    shell_run(cmd);
}

// The pid file lives where other programs write, so what it names is not
// trusted: 0 or a negative number would signal a whole process group (dsd's
// own among them), 1 is init (procd powers off on SIGUSR2). Only a pid
// above 1, not dsd or its group, whose /proc name is the DHCP client.
static bool is_dhcp_client(long pid)
{
    if (pid <= 1 || pid > INT32_MAX || pid == getpid() || pid == getpgrp())
        return false;
    char path[64];
    snprintf(path, sizeof path, "/proc/%ld/comm", pid);
    FILE *f = fopen(path, "r");
    if (!f)
        return false;
    char comm[32] = {};
    bool got = fgets(comm, sizeof comm, f) != nullptr;
    fclose(f);
    comm[strcspn(comm, "\n")] = 0;
    return got && strcmp(comm, "udhcpc") == 0;
}

// The pid at the start of the pid file's first line: 0 when it holds none,
// -1 when there is no pid file (no client runs).
static long read_pid_file(const std::string &path)
{
    FILE *f = fopen(path.c_str(), "re");
    if (!f) {
        DS_INFO("No DHCP client pid file %s.", path.c_str());
        return -1;
    }
    char line[64] = {};
    char digits[16] = {};
    bool ok = fgets(line, sizeof(line), f) && sscanf(line, "%15[0-9]", digits) == 1;
    fclose(f);
    return ok ? strtol(digits, nullptr, 10) : 0;
}

// SIGUSR2 makes udhcpc release its lease. The pause lets the client finish
// what it is doing; the request waits for it, so the release is done before
// the new settings are applied. The pid is checked after the pause, right
// before the signal, so the window for its reuse stays small.
static void release_dhcp_lease(const wan_change &w)
{
    std::string ifname = w.net_type == "bridge" ? "br-wan" : w.ifname;
    if (ifname.empty() || ifname.find('/') != std::string::npos) {
        DS_ERR("Invalid WAN interface name.");
        return;
    }
    std::string path = dsd_path(("/var/run/udhcpc-" + ifname + ".pid").c_str());
    long pid = read_pid_file(path);
    if (pid < 0)
        return;
    if (pid > 1)
        shell_run("sleep 2");
    if (!is_dhcp_client(pid)) {
        DS_ERR("Pid file %s names no DHCP client (%ld); lease not released.", path.c_str(), pid);
        return;
    }
    if (kill(static_cast<pid_t>(pid), SIGUSR2) != 0)
        DS_ERR("Signal to DHCP client %ld failed.", pid);
}

static void update_smart_network(ds_context *ctx, const wan_change &w)
{
    if (!w.new_type)
        return;
    std::string nt = w.new_type;
    if (w.old_type == "dhcp" && nt == "static") {
        for (const char *opt : {"netmask", "ipaddr", "gateway", "dns"})
            set_protocol(ctx, "smart_network", opt, "");
    } else if (w.old_type == "static" && nt == "dhcp") {
        set_protocol(ctx, "smart_network", "netmask", w.netmask.c_str());
        set_protocol(ctx, "smart_network", "ipaddr", w.ipaddr.c_str());
        set_protocol(ctx, "smart_network", "gateway", w.gateway.c_str());
        set_protocol(ctx, "smart_network", "dns", w.dns_pair.c_str());
    }
}

// Connection types that are carried by another protocol value.
struct proto_map_row {
    const char *wan_type;
    const char *proto;
};
static const proto_map_row proto_map[] = {
    {.wan_type = "dhcp_bond", .proto = "dhcp"},
    {.wan_type = "static_bond", .proto = "static"},
    {.wan_type = "pppoe", .proto = "none"},
    {.wan_type = nullptr, .proto = nullptr},
};

static const char *mapped_proto(const char *wan_type)
{
    for (const proto_map_row *r = proto_map; r->wan_type; ++r) {
        if (strcmp(r->wan_type, wan_type) == 0)
            return r->proto;
    }
    return nullptr;
}

static void clear_ip_conflict(void)
{
    std::string flag = dsd_path("/tmp/ip_conflict");
    unlink(flag.c_str());
}

int before_save_wan_service(ds_context *ctx)
{
    if (!ctx) {
        DS_ERR("Invalid params.");
        return -40101;
    }
    wan_change w = read_wan_change(ctx);
    const std::string effective = w.new_type ? w.new_type : w.old_type;
    if (effective != "pppoe")
        stop_upnp();
    bool to_static = w.old_type == "dhcp" && w.new_type && strcmp(w.new_type, "static") == 0;
    if (to_static || w.link_changed)
        release_dhcp_lease(w);
    update_smart_network(ctx, w);
    commit_protocol(ctx, __func__);
    if (!w.new_type)
        return 0;
    if (w.old_type == "pppoe" && effective != "pppoe")
        shell_run("ubus call internet disconnect");
    if (const char *proto = mapped_proto(w.new_type))
        set_protocol(ctx, "wan", "proto", proto);
    clear_ip_conflict();
    return 0;
}

// The value a bond option will have after this save: the request's, else
// the stored one.
static std::string bond_value(ds_context *ctx, const char *sec, const char *opt)
{
    const char *v = requested(ctx, sec, opt);
    return v ? std::string(v) : stored(ctx, PROTOCOL, sec, opt);
}

// Bonded WAN: the same bookkeeping as the plain WAN for the two bond
// sections. A static bond shows its own settings as the ones in force; a
// DHCP bond shows 0.0.0.0 until its lease comes.
int before_save_bond_service(ds_context *ctx)
{
    if (!ctx) {
        DS_ERR("Invalid params.");
        return -40101;
    }
    const char *nt = requested(ctx, "wan", "wan_type");
    std::string type = nt ? std::string(nt) : stored(ctx, PROTOCOL, "wan", "wan_type");
    if (type == "static_bond") {
        std::string dns = bond_value(ctx, "static_bond", "pri_dns") + " " +
                          bond_value(ctx, "static_bond", "snd_dns");
        for (const char *opt : {"netmask", "ipaddr", "gateway"})
            set_protocol(ctx, "smart_network", opt, bond_value(ctx, "static_bond", opt).c_str());
        set_protocol(ctx, "smart_network", "dns", dns.c_str());
    } else if (type == "dhcp_bond") {
        for (const char *const *opt = SMART_OPTS; *opt; ++opt)
            set_protocol(ctx, "smart_network", *opt, "0.0.0.0");
    } else {
        return 0;
    }
    commit_protocol(ctx, __func__);
    clear_ip_conflict();
    return 0;
}

static bool dhcp_dns_requested(ds_context *ctx)
{
    for (const char *opt : {"dns_mode", "pri_dns", "snd_dns"}) {
        if (ctx->req_obj && jso_get_path3(ctx->req_obj, PROTOCOL, "dhcp", opt))
            return true;
    }
    return false;
}

int manual_dns_changed_cb(ds_context *ctx)
{
    if (!ctx) {
        DS_ERR("Invalid params.");
        return -40101;
    }
    // The module's after-commit hook: however many sections of one request
    // changed, the network is applied once, from the whole committed package.
    int rc = stored(ctx, "network", "wan", "ifname") != "bond0" ? apply_multi_lans(ctx)
                                                                 : apply_bond_network(ctx);
    if (rc != 0)
        return rc;
    if (dhcp_dns_requested(ctx))
        shell_run("track-reload firewall > /dev/null 2>&1;");
    return 0;
}
