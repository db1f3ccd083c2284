// Network settings through the running daemon on a mkconfig root, with
// hostbus as the bus: what a WAN type switch runs, and the LAN/WAN subnet
// refusals that need netifd's answer. Commands are recorded by stand-in
// scripts first in the daemon's PATH.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "harness/bus_harness.h"
#include "harness/dsd_harness.h"

namespace {

void write_script(const std::string &path, const std::string &body)
{
    std::ofstream(path) << "#!/bin/sh\n" << body;
    chmod(path.c_str(), 0755);
}

// netifd's answer for a WAN that holds 172.16.5.20/24.
const char *const WAN_UP =
    R"({"objects":{"network.interface.wan":{"methods":{"status":{"reply":)"
    R"({"up":true,"proto":"dhcp","ipv4-address":[{"address":"172.16.5.20","mask":24}],)"
    R"("route":[{"target":"0.0.0.0","mask":0,"nexthop":"172.16.5.1"}]}}}}}})";

class NetworkE2E : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(d.make_config(4));
        for (const char *dir : {"/bin", "/lib", "/lib/upnpc", "/etc/init.d"})
            mkdir(d.path(dir).c_str(), 0755);
        const std::string log = d.path("/calls.log");
        for (const char *tool : {"sleep", "ubus", "track-reload"})
            write_script(d.path("/bin/") + tool, std::string("echo \"") + tool + " $*\" >> '" + log + "'\n");
        write_script(d.path("/etc/init.d/network"), "echo \"network $*\" >> '" + log + "'\n");
        std::ofstream(d.path("/lib/upnpc/upnpc.sh"))
            << "upnpc_stop() { echo upnpc_stop >> '" << log << "'; }\n";
        const char *path = getenv("PATH");
        saved_path = path ? path : "/usr/bin:/bin";
        setenv("PATH", (d.path("/bin") + ":" + saved_path).c_str(), 1);
        ASSERT_TRUE(bus.start(WAN_UP));
        ASSERT_TRUE(d.start()) << d.log();
    }
    void TearDown() override { setenv("PATH", saved_path.c_str(), 1); }

    int set(const std::string &modules) const
    {
        return d.code(R"({"method":"set",)" + modules + "}");
    }
    // The commands run, as a set of lines: their order and pauses ("sleep")
    // are the script's business, not the effect.
    std::multiset<std::string> calls() const
    {
        std::istringstream in(slurp(d.path("/calls.log")));
        std::multiset<std::string> out;
        for (std::string line; std::getline(in, line);) {
            if (line.rfind("sleep", 0) != 0)
                out.insert(line);
        }
        return out;
    }
    void clear_calls() const { unlink(d.path("/calls.log").c_str()); }
    std::string pkg(const char *name) const { return slurp(d.path("/etc/config/") + name); }
    dsd_harness d;
    bus_harness bus{d.root};
    std::string saved_path;
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
