// Network settings through the running daemon on a mkconfig root, with
// hostbus as the bus: what a WAN type switch runs, and the LAN/WAN subnet
// refusals that need netifd's answer. Commands are recorded by stand-in
// scripts first in the daemon's PATH.
#include "harness/dsd_harness.h"

namespace {

// netifd's answer for a WAN that holds 172.16.5.20/24.
const char *const WAN_UP =
    R"({"objects":{"network.interface.wan":{"methods":{"status":{"reply":)"
    R"({"up":true,"proto":"dhcp","ipv4-address":[{"address":"172.16.5.20","mask":24}],)"
    R"("route":[{"target":"0.0.0.0","mask":0,"nexthop":"172.16.5.1"}]}}}}}})";

class NetworkE2E : public dsd_device {
protected:
    void SetUp() override
    {
        write_network_stand_ins(d.root);
        boot(4, WAN_UP);
    }
    int set(const std::string &modules) const
    {
        return d.code(R"({"method":"set",)" + modules + "}");
    }
    std::multiset<std::string> calls() const { return network_calls(d.root); }
    void clear_calls() const { unlink(d.path("/calls.log").c_str()); }
    std::string pkg(const char *name) const { return slurp(d.path("/etc/config/") + name); }
};

TEST_F(NetworkE2E, PppoeToDhcpDisconnects)
{
    ASSERT_EQ(set(R"("protocol":{"pppoe":{"username":"user","password":"it's secret"},)"
                  R"("wan":{"wan_type":"pppoe"}})"),
              0);
    EXPECT_EQ(calls(), (std::multiset<std::string>{"network reload"}));
    EXPECT_EQ(d.uci_get("protocol", "wan", "proto", true), "none");
    EXPECT_EQ(d.uci_get("network", "wan", "proto", true), "pppoe");
    clear_calls();
    ASSERT_EQ(set(R"("protocol":{"wan":{"wan_type":"dhcp"}})"), 0);
    EXPECT_EQ(calls(), (std::multiset<std::string>{"upnpc_stop", "ubus call internet disconnect", "network reload"}));
    // Unchanged settings are no change: nothing runs.
    clear_calls();
    ASSERT_EQ(set(R"("protocol":{"wan":{"wan_type":"dhcp"}})"), 0);
    EXPECT_EQ(calls(), (std::multiset<std::string>{}));
}

TEST_F(NetworkE2E, LanAndWanInOneSubnetRefusedBothWays)
{
    const std::string before_protocol = pkg("protocol");
    const std::string before_network = pkg("network");
    // The LAN into the subnet netifd reports for the WAN.
    EXPECT_EQ(set(R"("protocol":{"static_lan":{"ipaddr":"172.16.5.9"}})"), -40308);
    // A static WAN next to the LAN's 192.168.1.1/24.
    EXPECT_EQ(set(R"("protocol":{"static":{"ipaddr":"192.168.1.50","netmask":"255.255.0.0"}})"),
              -40308);
    EXPECT_EQ(calls(), (std::multiset<std::string>{}));
    EXPECT_EQ(pkg("protocol"), before_protocol);
    EXPECT_EQ(pkg("network"), before_network);
    // Outside the WAN's subnet the LAN moves.
    ASSERT_EQ(set(R"("protocol":{"static_lan":{"ipaddr":"172.16.6.9"}})"), 0);
    EXPECT_EQ(d.uci_get("network", "lan", "ipaddr", true), "172.16.6.9");
    EXPECT_GE(bus.calls_to("network.interface.wan", "status").size(), 1u);
}

} // namespace
