// Network address checks: address classes, the address-and-mask rule, mask
// shapes, same-subnet tests, MAC normalisation, DNS and the checkers that
// read a related option from the request or from uci.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <uci.h>

#include <memory>
#include <string>

#include "core/context.h"
#include "model/checkers.h"
#include "model_test_util.h"
#include "modules/network/net_checkers.h"
#include "store/store.h"

namespace {

model_scratch_root scratch;

using jso_ptr = std::unique_ptr<json_object, jso_del>;

jso_ptr str(const char *s) { return jso_ptr(json_object_new_string(s)); }

TEST(NetClass, BoundsIncludingTheWide192)
{
    static const struct { const char *ip; char cls; } rows[] = {
        {.ip = "127.255.255.255", .cls = 'A'}, {.ip = "128.0.0.1", .cls = 'B'}, {.ip = "191.255.0.1", .cls = 'B'},
        {.ip = "192.168.1.1", .cls = 'B'},     {.ip = "193.0.0.1", .cls = 'C'}, {.ip = "223.1.1.1", .cls = 'C'},
        {.ip = "224.0.0.1", .cls = 'D'},       {.ip = "239.1.1.1", .cls = 'D'}, {.ip = "240.0.0.1", .cls = 'E'},
    };
    for (const auto &r : rows)
        EXPECT_EQ(net_ip_class(ipv4_to_uint(r.ip)), r.cls) << r.ip;
    EXPECT_EQ(net_class_mask('B'), 0xFFFF0000u);
    EXPECT_EQ(net_class_mask('D'), 0u);
}

TEST(NetAddrMask, NetworkBroadcastAndClassRules)
{
    static const struct { const char *ip, *mask; int32_t code; } rows[] = {
        {.ip = "192.168.1.10", .mask = "255.255.255.0", .code = 0},
        {.ip = "192.168.1.0", .mask = "255.255.255.0", .code = -40315},
        {.ip = "192.168.1.255", .mask = "255.255.255.0", .code = -40315},
        {.ip = "0.0.0.5", .mask = "255.0.0.0", .code = -40314},
        {.ip = "255.255.255.7", .mask = "255.255.255.0", .code = -40314}, // all network bits set
        // /31 and /32 leave no usable host.
        {.ip = "10.0.0.1", .mask = "255.255.255.254", .code = -40315},
        {.ip = "10.0.0.1", .mask = "255.255.255.255", .code = -40315},
        {.ip = "200.1.1.1", .mask = "128.0.0.0", .code = -40314},
        // A stored mask is not re-validated here: the class part of the
        // address must still fit under it. Class B keeps two octets of
        // 192.168.1.10; as class C the third octet would not fit.
        {.ip = "10.1.2.3", .mask = "0.255.255.0", .code = -40317},
        {.ip = "192.168.1.10", .mask = "192.168.0.255", .code = 0},
        {.ip = "193.168.1.10", .mask = "193.168.0.255", .code = -40317},
        {.ip = nullptr, .mask = "255.0.0.0", .code = -40317},
        {.ip = "10.1.2.3", .mask = "", .code = -40317},
    };
    for (const auto &r : rows)
        EXPECT_EQ(net_addr_mask_rule(r.ip, r.mask), r.code) << (r.ip ? r.ip : "(null)") << " " << r.mask;
}

TEST(NetNetmask, ContiguousMasksOnlyAndSubnetComparison)
{
    for (const char *ok : {"255.255.255.0", "255.255.254.0", "128.0.0.0", "255.255.255.255",
                           "255.255.0.0", "255.255.255.252"})
        EXPECT_EQ(net_netmask_rule(ok), 0) << ok;
    for (const char *bad : {"255.0.255.0", "0.0.0.0", "255.255.255.000", "255.255.255.0.",
                            "255.255.255", "255.255.256.0", "x", "", "255.255.255.1",
                            "0.255.255.255"})
        EXPECT_EQ(net_netmask_rule(bad), -40305) << bad;
    EXPECT_EQ(net_netmask_rule(nullptr), -40305);
    EXPECT_EQ(net_same_subnet("192.168.1.10", "192.168.1.20", "255.255.255.0"), 1);
    EXPECT_EQ(net_same_subnet("192.168.1.10", "192.168.2.20", "255.255.255.0"), 0);
    EXPECT_EQ(net_same_subnet("192.168.1.10", "bad", "255.255.0.0"), -1);
    EXPECT_EQ(net_same_subnet("192.168.1.10", "192.168.1.1", ""), -1);
}

TEST(NetMac, NormalisesThenChecks)
{
    std::string norm;
    EXPECT_EQ(net_mac_check("AA-BB-CC-DD-EE-FF", &norm), 0);
    EXPECT_EQ(norm, "aa:bb:cc:dd:ee:ff");
    EXPECT_EQ(net_mac_check("01-00-5E-00-00-01", &norm), -40311);
    EXPECT_EQ(net_mac_check("03:00:00:00:00:01", nullptr), 0);
    EXPECT_EQ(net_mac_check("00-00-00-00-00-00", nullptr), -40312);
    EXPECT_EQ(net_mac_check("FF:FF:FF:FF:FF:FF", nullptr), -40313);
    for (const char *bad : {"", "aa:bb:cc:dd:ee", "aa:bb:cc:dd:ee:ff:00", "aa:bb:cc:dd:ee:fg",
                            "aabb.ccdd.eeff", "aa:bb:cc:dd:ee:f", " aa:bb:cc:dd:ee:ff"})
        EXPECT_EQ(net_mac_check(bad, nullptr), -40310) << bad;
    // Only the first 19 bytes are looked at: trailing bytes past them are cut.
    EXPECT_EQ(net_mac_check("aa:bb:cc:dd:ee:ff\n\n\nxyz", &norm), -40310);
    EXPECT_EQ(net_mac_check("aa:bb:cc:dd:ee:ff  xyz", &norm), -40310);
    EXPECT_EQ(norm.size(), 19u);
    EXPECT_EQ(regex_exe("^a+$", "aaa"), 1);
    EXPECT_EQ(regex_exe("^a+$", "ab"), 0);
    EXPECT_EQ(regex_exe("(", "a"), -1);
}

TEST(NetMac, CheckerRefusesNonStrings)
{
    auto n = jso_ptr(json_object_new_int(5));
    EXPECT_EQ(check_wan_macaddr(nullptr, n.get(), nullptr, nullptr, 0), -50121);
    EXPECT_EQ(check_wan_macaddr(nullptr, nullptr, nullptr, nullptr, 0), -50121);
    EXPECT_EQ(check_wan_macaddr(nullptr, str("aa-bb-cc-dd-ee-01").get(), nullptr, nullptr, 0), 0);
}

// Checkers that read other options: a context with a request and a uci
// context over a scratch "protocol" and "network".
struct NetCheck : testing::Test {
    ds_context ctx{};

    void SetUp() override
    {
        scratch.write("protocol",
                      "config interface 'wan'\n\toption wan_type 'dhcp'\n\n"
                      "config interface 'static'\n\toption ipaddr '10.0.0.2'\n"
                      "\toption netmask '255.255.255.0'\n\n"
                      "config interface 'static_lan'\n\toption netmask '255.255.255.0'\n\n"
                      "config interface 'dhcp'\n\toption dns_mode 'dynamic'\n");
        scratch.write("network", "config interface 'lan'\n\toption ipaddr '192.168.1.1'\n");
        ctx.fd = 0;
        ctx.uci_ctx = dsd_uci_alloc();
    }
    void TearDown() override
    {
        json_object_put(ctx.req_obj);
        uci_free_context(ctx.uci_ctx);
    }
    void request(const char *text)
    {
        json_object_put(ctx.req_obj);
        ctx.req_obj = json_tokener_parse(text);
        ASSERT_NE(ctx.req_obj, nullptr);
    }
};

const net_rel_opt static_mask = {"protocol", "static", "netmask"};
const net_rel_opt lan_mask = {"protocol", "static_lan", "netmask"};
const net_rel_opt dns_mode = {"protocol", "dhcp", "dns_mode"};

TEST_F(NetCheck, WanIpUsesHostCheckThenMask)
{
    static const struct { const char *ip; int32_t code; } rows[] = {
        {.ip = "10.0.0.5", .code = 0},        {.ip = "10.0.0.255", .code = -40315},
        {.ip = "10.0.0.0", .code = -40315},   {.ip = "127.0.0.5", .code = -40304},
        {.ip = "10.0.0.05", .code = -40301},  {.ip = "10.0.0", .code = -40303},
    };
    for (const auto &r : rows)
        EXPECT_EQ(check_wan_ip(&ctx, str(r.ip).get(), nullptr, &static_mask, 0), r.code) << r.ip;
    EXPECT_EQ(check_wan_ip(&ctx, nullptr, nullptr, &static_mask, 0), -40301);
    // The mask sent in the same request wins over the stored one.
    request(R"({"protocol":{"static":{"netmask":"255.255.255.252"}}})");
    EXPECT_EQ(check_wan_ip(&ctx, str("10.0.0.3").get(), nullptr, &static_mask, 0), -40315);
    EXPECT_EQ(check_wan_ip(&ctx, str("10.0.0.2").get(), nullptr, &static_mask, 0), 0);
    const net_rel_opt missing = {"protocol", "static", "nomask"};
    EXPECT_EQ(check_wan_ip(&ctx, str("10.0.0.2").get(), nullptr, &missing, 0), -40317);
}

TEST_F(NetCheck, LanIpRefusesTheWanSubnet)
{
    EXPECT_EQ(check_lan_ip(&ctx, nullptr, nullptr, &lan_mask, 0), -40301);
    EXPECT_EQ(check_lan_ip(&ctx, str("192.168.1.0").get(), nullptr, &lan_mask, 0), -40315);
    // The WAN is DHCP without a bus answer: its address is unknown.
    EXPECT_EQ(check_lan_ip(&ctx, str("10.0.0.9").get(), nullptr, &lan_mask, 0), 0);
    scratch.write("protocol",
                  "config interface 'wan'\n\toption wan_type 'static'\n\n"
                  "config interface 'static'\n\toption ipaddr '10.0.0.2'\n\n"
                  "config interface 'static_lan'\n\toption netmask '255.255.255.0'\n");
    uci_free_context(ctx.uci_ctx);
    ctx.uci_ctx = dsd_uci_alloc();
    EXPECT_EQ(check_lan_ip(&ctx, str("10.0.0.9").get(), nullptr, &lan_mask, 0), -40308);
    EXPECT_EQ(check_lan_ip(&ctx, str("10.0.1.9").get(), nullptr, &lan_mask, 0), 0);
    request(R"({"protocol":{"static_lan":{"netmask":"255.255.0.0"}}})");
    EXPECT_EQ(check_lan_ip(&ctx, str("10.0.1.9").get(), nullptr, &lan_mask, 0), -40308);
}

TEST_F(NetCheck, NetmaskRefusesLanAndStaticWanInOneSubnet)
{
    EXPECT_EQ(check_netmask(&ctx, str("255.255.255.0").get(), nullptr, nullptr, 0), 0);
    EXPECT_EQ(check_netmask(&ctx, str("255.255.255.000").get(), nullptr, nullptr, 0), -40305);
    auto n = jso_ptr(json_object_new_int(24));
    EXPECT_EQ(check_netmask(&ctx, n.get(), nullptr, nullptr, 0), -40305);
    // The static address sent in the same request is the one compared.
    request(R"({"protocol":{"static":{"ipaddr":"192.168.1.100"}}})");
    EXPECT_EQ(check_netmask(&ctx, str("255.255.255.0").get(), nullptr, nullptr, 0), -40308);
    EXPECT_EQ(check_netmask(&ctx, str("255.255.255.192").get(), nullptr, nullptr, 0), 0);
    request(R"({"protocol":{"static":{"ipaddr":"0.0.0.0"}}})");
    EXPECT_EQ(check_netmask(&ctx, str("128.0.0.0").get(), nullptr, nullptr, 0), 0);
}

TEST_F(NetCheck, DnsRules)
{
    const int32_t pri = -50102, snd = -50103;
    EXPECT_EQ(check_pridns(&ctx, str("").get(), nullptr, &dns_mode, pri), 0);
    EXPECT_EQ(check_pridns(&ctx, str("8.8.8.8").get(), nullptr, &dns_mode, pri), 0);
    EXPECT_EQ(check_pridns(&ctx, str("8.8.8").get(), nullptr, &dns_mode, pri), pri);
    EXPECT_EQ(check_pridns(&ctx, str("127.0.0.1").get(), nullptr, &dns_mode, 0), -50102);
    request(R"({"protocol":{"dhcp":{"dns_mode":"manual"}}})");
    EXPECT_EQ(check_pridns(&ctx, str("").get(), nullptr, &dns_mode, pri), 0);
    request(R"({"protocol":{"dhcp":{"dns_mode":"other"}}})");
    EXPECT_EQ(check_pridns(&ctx, str("").get(), nullptr, &dns_mode, pri), pri);
    EXPECT_EQ(check_pridns(&ctx, str("0.0.0.0").get(), nullptr, &dns_mode, pri), pri);
    EXPECT_EQ(check_pridns(&ctx, nullptr, nullptr, &dns_mode, pri), pri);
    EXPECT_EQ(check_static_pridns(&ctx, str("").get(), nullptr, nullptr, 0), 0);
    EXPECT_EQ(check_static_pridns(&ctx, str("1.1.1.01").get(), nullptr, nullptr, 0), -50102);
    EXPECT_EQ(check_secdns(&ctx, str("0.0.0.0").get(), nullptr, nullptr, 0), 0);
    EXPECT_EQ(check_secdns(&ctx, str("225.1.1.1").get(), nullptr, nullptr, 0), snd);
    auto n = jso_ptr(json_object_new_int(8));
    EXPECT_EQ(check_secdns(&ctx, n.get(), nullptr, nullptr, 0), snd);
}

TEST_F(NetCheck, GatewayIsAHostAddress)
{
    EXPECT_EQ(check_gateway(&ctx, str("192.168.1.1").get(), nullptr, nullptr, 0), 0);
    for (const char *bad : {"", "0.0.0.0", "224.0.0.1", "1.2.3.256", "1.2.3.4 "})
        EXPECT_EQ(check_gateway(&ctx, str(bad).get(), nullptr, nullptr, 0), -40306) << bad;
    EXPECT_EQ(check_gateway(&ctx, str("x").get(), nullptr, nullptr, -1234), -1234);
}

} // namespace
