// Default packages of the network modules: "protocol" (the WAN/LAN model the
// daemon serves) and the system's "network" package that the appliers write
// and the checks read.
#include "families.h"
#include "generic_defaults.h"

// A factory WAN on DHCP, the camera LAN on 192.168.1.1/24.
static const char PROTOCOL_DEFAULTS[] =
    "\nconfig interface 'wan'\n"
    "\toption wan_type 'dhcp'\n"
    "\toption proto 'dhcp'\n"
    "\toption mtu '1500'\n"
    "\toption wan_rate 'auto'\n"
    "\n"
    "config interface 'lan'\n"
    "\toption wan_type 'static_lan'\n"
    "\n"
    "config interface 'static'\n"
    "\toption netmask '255.255.255.0'\n"
    "\n"
    "config interface 'dhcp'\n"
    "\toption dns_mode 'dynamic'\n"
    "\n"
    "config interface 'pppoe'\n"
    "\toption mtu '1492'\n"
    "\n"
    "config interface 'static_lan'\n"
    "\toption ipaddr '192.168.1.1'\n"
    "\toption netmask '255.255.255.0'\n"
    "\n"
    "config interface 'dhcp_bond'\n"
    "\toption dns_mode 'dynamic'\n"
    "\n"
    "config interface 'static_bond'\n"
    "\toption netmask '255.255.255.0'\n"
    "\n"
    "config interface 'smart_network'\n"
    "\toption ipaddr '0.0.0.0'\n"
    "\toption netmask '0.0.0.0'\n"
    "\toption gateway '0.0.0.0'\n"
    "\toption dns '0.0.0.0'\n"
    "\n"
    "config interface 'smart_network_lan'\n"
    "\toption ipaddr '192.168.1.1'\n"
    "\toption gateway '0.0.0.0'\n"
    "\toption dns '0.0.0.0'\n\n";

static const char NETWORK_DEFAULTS[] =
    "\nconfig interface 'loopback'\n"
    "\toption ifname 'lo'\n"
    "\toption proto 'static'\n"
    "\toption ipaddr '127.0.0.1'\n"
    "\toption netmask '255.0.0.0'\n"
    "\n"
    "config interface 'lan'\n"
    "\toption ifname 'eth1'\n"
    "\toption proto 'static'\n"
    "\toption ipaddr '192.168.1.1'\n"
    "\toption netmask '255.255.255.0'\n"
    "\n"
    "config interface 'wan'\n"
    "\toption ifname 'eth0'\n"
    "\toption proto 'dhcp'\n\n";

int mkconfig_write_network(const char *confdir, int channels)
{
    (void)channels;
    if (!confdir)
        return -1;
    if (mkconfig_write_package(confdir, "protocol", PROTOCOL_DEFAULTS) != 0)
        return -1;
    return mkconfig_write_package(confdir, "network", NETWORK_DEFAULTS);
}
