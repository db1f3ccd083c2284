// Callbacks of module "protocol" and the appliers that turn package
// "protocol" into the system's "network" package.
//
// All run on the request's worker thread with the request's context and its
// uci context. Shell commands go through shell_run with every configured
// value quoted; paths go through dsd_path.
#pragma once

#include <string>

struct ds_context;
struct json_object;

// Before-save callbacks: 0, or -40101 for a missing context. uci and shell
// failures are traced and the save goes ahead.
int before_save_dhcp_service(ds_context *ctx);
int before_save_dhcp_lan_service(ds_context *ctx);
int before_save_wan_service(ds_context *ctx);
int before_save_bond_service(ds_context *ctx);

// Service callback of the WAN/LAN sections: applies the model to "network"
// (bond or multi-LAN applier), then reloads the firewall when the DHCP DNS
// settings changed. Applies once per request. 0 or the applier's code.
int manual_dns_changed_cb(ds_context *ctx);

// Write "network" "wan"/"lan" from package "protocol", commit "network" and
// reload the network service. 0, or -40101 when the context is missing or
// "network" can't be committed.
int apply_multi_lans(ds_context *ctx);
int apply_bond_network(ds_context *ctx);

// The WAN status object: {"proto", "up", "ipaddrs", "netmask", "gateway"}
// built from ubus "network.interface.wan" "status". Null when the bus gives
// no answer. New reference.
json_object *net_wan_status(void);
// The WAN's current address: the status' "ipaddrs" or, when the bus has no
// answer and the WAN is static, the configured static address; "" when
// unknown.
std::string net_wan_ipaddr(ds_context *ctx);
