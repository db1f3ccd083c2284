// Module "protocol" through the set pipeline: the WAN type switches and what
// they do to the derived sections, the DHCP client, UPnP and PPPoE, the
// network package written by the appliers, and the checks on the way in.
// Commands are observed through stand-in scripts placed first in PATH; the
// lease release is observed on a real child process waiting for SIGUSR2.
#include <sys/prctl.h>

#include <ctime>

#include "model/request.h"
#include "model/methods.h"
#include "model/registry.h"
#include "model_test_util.h"
#include "modules/modules.h"
#include "modules/network/network.h"
#include "harness/dsd_harness.h"
#include "store/store.h"

namespace {

model_scratch_root scratch;

const char *const PROTOCOL_PKG =
    "config interface 'wan'\n\toption wan_type '%TYPE%'\n\toption proto '%TYPE%'\n\n"
    "config interface 'lan'\n\toption wan_type 'static_lan'\n\n"
    "config interface 'static'\n\toption ipaddr '10.0.0.2'\n\toption netmask '255.255.255.0'\n"
    "\toption gateway '10.0.0.1'\n\toption pri_dns '8.8.8.8'\n\toption snd_dns '1.1.1.1'\n\n"
    "config interface 'dhcp'\n\toption dns_mode 'dynamic'\n\n"
    "config interface 'pppoe'\n\toption username 'u'\n\toption password 'p'\n\n"
    "config interface 'static_lan'\n\toption ipaddr '192.168.1.1'\n"
    "\toption netmask '255.255.255.0'\n\n"
    "config interface 'dhcp_bond'\n\toption dns_mode 'dynamic'\n\n"
    "config interface 'static_bond'\n\toption ipaddr '10.9.0.2'\n"
    "\toption netmask '255.255.0.0'\n\toption gateway '10.9.0.1'\n\n"
    "config interface 'smart_network'\n\toption ipaddr '10.0.0.77'\n"
    "\toption netmask '255.255.255.0'\n\toption gateway '10.0.0.1'\n\toption dns '9.9.9.9'\n\n"
    "config interface 'smart_network_lan'\n\toption ipaddr '192.168.1.1'\n";

void setup_stand_ins()
{
    write_network_stand_ins(scratch.root);
    std::string path = scratch.root + "/bin:" + (getenv("PATH") ? getenv("PATH") : "/usr/bin:/bin");
    setenv("PATH", path.c_str(), 1);
}

// A child with SIGUSR2 blocked. A lease holder is named like the DHCP client
// and exits 0 once SIGUSR2 arrives (1 after ten seconds without); a bystander
// only waits, so a signal sent to it stays pending where /proc shows it.
pid_t spawn_usr2_child(bool lease_holder)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    sigset_t old;
    pthread_sigmask(SIG_BLOCK, &set, &old);
    pid_t pid = fork();
    if (pid == 0) {
        if (!lease_holder) {
            pause();
            _exit(0);
        }
        prctl(PR_SET_NAME, "udhcpc"); // the release signals only the DHCP client
        timespec limit{10, 0};
        _exit(sigtimedwait(&set, nullptr, &limit) == SIGUSR2 ? 0 : 1);
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    return pid;
}

pid_t spawn_lease_holder() { return spawn_usr2_child(true); }

struct Protocol : testing::Test {
    ds_model_root *root = nullptr;
    ds_context ctx{};

    static void SetUpTestSuite() { setup_stand_ins(); }

    void SetUp() override
    {
        root = model_init();
        ASSERT_EQ(protocol_module_init(), 0);
        write_protocol("dhcp");
        write_network("eth0", "");
        unlink(log_path().c_str());
        unlink((scratch.root + "/var/run/udhcpc-eth0.pid").c_str());
        unlink((scratch.root + "/var/run/udhcpc-br-wan.pid").c_str());
        std::ofstream(scratch.root + "/tmp/ip_conflict") << "1\n";
    }
    void TearDown() override
    {
        release_context(&ctx);
        model_destory(root);
    }
    static std::string log_path() { return scratch.root + "/calls.log"; }
    void write_protocol(const std::string &type)
    {
        std::string text = PROTOCOL_PKG;
        for (size_t p; (p = text.find("%TYPE%")) != std::string::npos;)
            text.replace(p, 6, type);
        scratch.write("protocol", text);
    }
    void write_network(const std::string &ifname, const std::string &type)
    {
        std::string text = "config interface 'lan'\n\toption ipaddr '192.168.1.1'\n\n"
                           "config interface 'wan'\n\toption ifname '" + ifname + "'\n";
        if (!type.empty())
            text += "\toption type '" + type + "'\n";
        scratch.write("network", text);
    }
    int set(const char *request) { return serve_request(&ctx, DS_METHOD_SET, request); }
    std::multiset<std::string> calls() const { return network_calls(scratch.root); }
    bool conflict_flag() const { return access((scratch.root + "/tmp/ip_conflict").c_str(), F_OK) == 0; }
};

bool usr2_pending(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("ShdPnd:", 0) == 0 || line.rfind("SigPnd:", 0) == 0) {
            if (std::stoull(line.substr(7), nullptr, 16) & (1ULL << (SIGUSR2 - 1)))
                return true;
        }
    }
    return false;
}

// The pid file is writable by others: 0 would signal our own group (this
// test would die), our own pid or group, garbage, or a bystander must never
// get the signal. Pid 1 is init; as root a wrong signal would reach the real
// one, so that case is only exercised without privileges.
TEST_F(Protocol, PidFilesNamingNoDhcpClientAreNotSignalled)
{
    pid_t bystander = spawn_usr2_child(false);
    ASSERT_GT(bystander, 0);
    std::vector<std::string> planted = {"0", "-1", "garbage", std::to_string(getpid()),
                                        std::to_string(getpgrp()), std::to_string(bystander)};
    if (geteuid() != 0)
        planted.push_back("1");
    for (const std::string &pid : planted) {
        SCOPED_TRACE(pid);
        write_protocol("dhcp");
        std::ofstream(scratch.root + "/var/run/udhcpc-eth0.pid") << pid << "\n";
        ASSERT_EQ(set(R"({"protocol":{"wan":{"wan_type":"static"}}})"), 0);
        EXPECT_EQ(stored("protocol", "wan", "wan_type"), "static");
    }
    EXPECT_FALSE(usr2_pending(bystander));
    kill(bystander, SIGKILL);
    int status = 0;
    EXPECT_EQ(waitpid(bystander, &status, 0), bystander);
}

TEST_F(Protocol, LinkChangeReleasesThroughTheBridgePidFile)
{
    write_network("eth0", "bridge");
    pid_t holder = spawn_lease_holder();
    ASSERT_GT(holder, 0);
    std::ofstream(scratch.root + "/var/run/udhcpc-br-wan.pid") << holder << " trailing\n";
    ASSERT_EQ(set(R"({"protocol":{"wan":{"mtu":1400,"macaddr":"02-AA-BB-CC-DD-EE"}}})"), 0);
    int status = -1;
    ASSERT_EQ(waitpid(holder, &status, 0), holder);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(calls(), (std::multiset<std::string>{"upnpc_stop", "network reload"}));
    // No new type: the flag stays and proto is left alone.
    EXPECT_TRUE(conflict_flag());
    EXPECT_EQ(stored("network", "wan", "mtu"), "1400");
    EXPECT_EQ(stored("protocol", "wan", "macaddr"), "02-AA-BB-CC-DD-EE");
    EXPECT_EQ(stored("network", "wan", "macaddr"), "02:aa:bb:cc:dd:ee");
}

TEST_F(Protocol, DhcpSectionsResetSettingsInForceAndReloadFirewall)
{
    ASSERT_EQ(set(R"({"protocol":{"dhcp":{"dns_mode":"manual","pri_dns":""}}})"), 0);
    for (const char *opt : {"ipaddr", "gateway", "dns"})
        EXPECT_EQ(stored("protocol", "smart_network", opt), "0.0.0.0") << opt;
    EXPECT_EQ(calls(), (std::multiset<std::string>{"network reload", "track-reload firewall"}));
    EXPECT_EQ(stored("network", "wan", "peerdns"), "0");

    ASSERT_EQ(set(R"({"protocol":{"lan":{"wan_type":"dhcp_lan"}}})"), 0);
    // The LAN was static until this save: nothing is reset yet.
    EXPECT_EQ(stored("protocol", "smart_network_lan", "gateway"), "<none>");
    EXPECT_EQ(stored("network", "lan", "proto"), "dhcp");
    ASSERT_EQ(set(R"({"protocol":{"lan":{"wan_type":"static_lan"}}})"), 0);
    EXPECT_EQ(stored("protocol", "smart_network_lan", "gateway"), "0.0.0.0");
}

TEST_F(Protocol, OneApplyPerRequestAndBondInterface)
{
    write_protocol("static");
    ASSERT_EQ(set(R"({"protocol":{"static":{"gateway":"10.0.0.254"},"pppoe":{"username":"v"}}})"), 0);
    EXPECT_EQ(calls(), (std::multiset<std::string>{"network reload"}));
    EXPECT_EQ(stored("network", "wan", "gateway"), "10.0.0.254");

    write_protocol("static_bond");
    write_network("bond0", "");
    unlink(log_path().c_str());
    ASSERT_EQ(set(R"({"protocol":{"static_bond":{"gateway":"10.9.0.254"}}})"), 0);
    EXPECT_EQ(calls(), (std::multiset<std::string>{"network reload"}));
    EXPECT_EQ(stored("network", "wan", "ifname"), "bond0");
    EXPECT_EQ(stored("network", "wan", "ipaddr"), "10.9.0.2");
    EXPECT_EQ(stored("network", "wan", "gateway"), "10.9.0.254");
    EXPECT_EQ(stored("protocol", "smart_network", "gateway"), "10.9.0.254");
    EXPECT_FALSE(conflict_flag());

    // Switching the bond to DHCP with manual DNS.
    unlink(log_path().c_str());
    ASSERT_EQ(set(R"({"protocol":{"wan":{"wan_type":"dhcp_bond"},)"
                  R"("dhcp_bond":{"dns_mode":"manual","pri_dns":"9.9.9.9"}}})"),
              0);
    EXPECT_EQ(calls(), (std::multiset<std::string>{"upnpc_stop", "network reload"}));
    EXPECT_EQ(stored("protocol", "wan", "proto"), "dhcp");
    EXPECT_EQ(stored("protocol", "smart_network", "ipaddr"), "0.0.0.0");
    EXPECT_EQ(stored("network", "wan", "proto"), "dhcp");
    EXPECT_EQ(stored("network", "wan", "ipaddr"), "<none>");
    EXPECT_EQ(stored("network", "wan", "peerdns"), "0");
    EXPECT_EQ(stored("network", "wan", "dns"), "9.9.9.9");
}

} // namespace
