// Module "protocol": the WAN and LAN connection in user terms (connection
// type, static address, DNS mode), later applied to the system's "network"
// package. Sections are addressed by their fixed names.
#include "model/checkers.h"
#include "model/registry.h"
#include "modules/modules.h"
#include "modules/network/net_checkers.h"
#include "modules/network/network.h"

static const char *const wan_types[] = {"dhcp", "static", "pppoe", "dhcp_bond", "static_bond",
                                        nullptr};
static const char *const lan_types[] = {"dhcp_lan", "static_lan", "static", nullptr};
static const char *const dns_modes[] = {"dynamic", "manual", nullptr};

static const ds_int_range wan_mtu = {576, 1500};
static const ds_int_range pppoe_mtu = {576, 1492};
static const ds_len_range rate_len = {0, 32};
static const ds_len_range account_len = {1, 64};

static const net_rel_opt static_mask = {"protocol", "static", "netmask"};
static const net_rel_opt static_lan_mask = {"protocol", "static_lan", "netmask"};
static const net_rel_opt static_bond_mask = {"protocol", "static_bond", "netmask"};
static const net_rel_opt dhcp_mode = {"protocol", "dhcp", "dns_mode"};
static const net_rel_opt dhcp_bond_mode = {"protocol", "dhcp_bond", "dns_mode"};

// "proto" is derived from "wan_type" by the WAN callback, so it has no
// checker and a client can't set it.
static const ds_opt wan_opts[] = {
    {.name = "wan_type", .checker = check_enum_type, .arg = wan_types, .err_code = 0},
    {.name = "macaddr", .checker = check_wan_macaddr, .arg = nullptr, .err_code = 0},
    {.name = "mtu", .checker = check_int_type, .arg = &wan_mtu, .err_code = 0},
    {.name = "wan_rate", .checker = check_string_type, .arg = &rate_len, .err_code = 0},
    {},
};

static const ds_opt lan_opts[] = {
    {.name = "wan_type", .checker = check_enum_type, .arg = lan_types, .err_code = 0},
    {},
};

static const ds_opt static_opts[] = {
    {.name = "ipaddr", .checker = check_wan_ip, .arg = &static_mask, .err_code = 0},
    {.name = "netmask", .checker = check_netmask, .arg = nullptr, .err_code = 0},
    {.name = "gateway", .checker = check_gateway, .arg = nullptr, .err_code = NET_ERR_GATEWAY},
    {.name = "pri_dns", .checker = check_static_pridns, .arg = nullptr, .err_code = NET_ERR_PRI_DNS},
    {.name = "snd_dns", .checker = check_secdns, .arg = nullptr, .err_code = NET_ERR_SND_DNS},
    {},
};

static const ds_opt dhcp_opts[] = {
    {.name = "dns_mode", .checker = check_enum_type, .arg = dns_modes, .err_code = 0},
    {.name = "pri_dns", .checker = check_pridns, .arg = &dhcp_mode, .err_code = NET_ERR_PRI_DNS},
    {.name = "snd_dns", .checker = check_secdns, .arg = nullptr, .err_code = NET_ERR_SND_DNS},
    {},
};

static const ds_opt pppoe_opts[] = {
    {.name = "username", .checker = check_string_type, .arg = &account_len, .err_code = 0},
    {.name = "password", .checker = check_string_type, .arg = &account_len, .err_code = 0},
    {.name = "mtu", .checker = check_int_type, .arg = &pppoe_mtu, .err_code = 0},
    {},
};

static const ds_opt static_lan_opts[] = {
    {.name = "ipaddr", .checker = check_lan_ip, .arg = &static_lan_mask, .err_code = 0},
    {.name = "netmask", .checker = check_netmask, .arg = nullptr, .err_code = 0},
    {.name = "gateway", .checker = check_gateway, .arg = nullptr, .err_code = NET_ERR_GATEWAY},
    {.name = "pri_dns", .checker = check_static_pridns, .arg = nullptr, .err_code = NET_ERR_PRI_DNS},
    {.name = "snd_dns", .checker = check_secdns, .arg = nullptr, .err_code = NET_ERR_SND_DNS},
    {},
};

static const ds_opt dhcp_bond_opts[] = {
    {.name = "dns_mode", .checker = check_enum_type, .arg = dns_modes, .err_code = 0},
    {.name = "pri_dns", .checker = check_pridns, .arg = &dhcp_bond_mode, .err_code = NET_ERR_PRI_DNS},
    {.name = "snd_dns", .checker = check_secdns, .arg = nullptr, .err_code = NET_ERR_SND_DNS},
    {},
};

static const ds_opt static_bond_opts[] = {
    {.name = "ipaddr", .checker = check_wan_ip, .arg = &static_bond_mask, .err_code = 0},
    {.name = "netmask", .checker = check_netmask, .arg = nullptr, .err_code = 0},
    {.name = "gateway", .checker = check_gateway, .arg = nullptr, .err_code = NET_ERR_GATEWAY},
    {.name = "pri_dns", .checker = check_static_pridns, .arg = nullptr, .err_code = NET_ERR_PRI_DNS},
    {.name = "snd_dns", .checker = check_secdns, .arg = nullptr, .err_code = NET_ERR_SND_DNS},
    {},
};

// The settings in force are written by the callbacks only: no options are
// settable, so a set of these sections changes nothing.
static ds_sec protocol_sections[] = {
    {.name = "wan", .data_kind = DS_DATA_UCI, .max_sec = 1, .options = wan_opts,
     .beforesavecb = before_save_wan_service, .srvcb = nullptr, .dynamic = nullptr,
     .flags = DS_SEC_AFTER_COMMIT},
    {.name = "lan", .data_kind = DS_DATA_UCI, .max_sec = 1, .options = lan_opts,
     .beforesavecb = before_save_dhcp_lan_service, .srvcb = nullptr,
     .dynamic = nullptr, .flags = DS_SEC_AFTER_COMMIT},
    {.name = "static", .data_kind = DS_DATA_UCI, .max_sec = 1, .options = static_opts,
     .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr,
     .flags = DS_SEC_AFTER_COMMIT},
    {.name = "dhcp", .data_kind = DS_DATA_UCI, .max_sec = 1, .options = dhcp_opts,
     .beforesavecb = before_save_dhcp_service, .srvcb = nullptr, .dynamic = nullptr,
     .flags = DS_SEC_AFTER_COMMIT},
    {.name = "pppoe", .data_kind = DS_DATA_UCI, .max_sec = 1, .options = pppoe_opts,
     .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr,
     .flags = DS_SEC_AFTER_COMMIT},
    {.name = "static_lan", .data_kind = DS_DATA_UCI, .max_sec = 1, .options = static_lan_opts,
     .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr,
     .flags = DS_SEC_AFTER_COMMIT},
    {.name = "dhcp_bond", .data_kind = DS_DATA_UCI, .max_sec = 1, .options = dhcp_bond_opts,
     .beforesavecb = before_save_bond_service, .srvcb = nullptr, .dynamic = nullptr,
     .flags = DS_SEC_AFTER_COMMIT},
    {.name = "static_bond", .data_kind = DS_DATA_UCI, .max_sec = 1, .options = static_bond_opts,
     .beforesavecb = before_save_bond_service, .srvcb = nullptr, .dynamic = nullptr,
     .flags = DS_SEC_AFTER_COMMIT},
    {.name = "smart_network", .data_kind = DS_DATA_UCI, .max_sec = 1, .options = nullptr,
     .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr},
    {.name = "smart_network_lan", .data_kind = DS_DATA_UCI, .max_sec = 1, .options = nullptr,
     .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr},
    {},
};

static ds_module protocol_module = {
    .name = "protocol",
    .package = "protocol",
    .sections = protocol_sections,
    .sec_types = nullptr,
    .actions = nullptr,
    .ch = 0,
    .lock_actions = 0,
    .after_commit = manual_dns_changed_cb,
};

int protocol_module_init(void)
{
    return add_module_node(&protocol_module);
}
