// The option checkers and their helpers: accepted values, each refusal code,
// the rule that a row's own code replaces the checker's except for missing
// arguments; the network address checks (classes, address and mask, mask
// shapes, subnets, MAC normalisation, DNS) and the checkers that read a
// related option from the request or from uci.
#include "model/request.h"
#include "model/checkers.h"
#include "model_test_util.h"
#include "modules/network/net_checkers.h"
#include "store/store.h"

namespace {

TEST(StrToInt, SignDigitsWrapAndFailures)
{
    // Failures leave the output untouched (it starts at 99).
    static const struct { const char *in; int rc; int32_t v; } rows[] = {
        {.in = "+12", .rc = 0, .v = 12},          {.in = "-12", .rc = 0, .v = -12},
        {.in = "", .rc = 0, .v = 0},              {.in = "+", .rc = 0, .v = 0},
        {.in = "4294967297", .rc = 0, .v = 1},    {.in = "4294967295", .rc = 0, .v = -1},
        {.in = "1-", .rc = -1, .v = 99},          {.in = "--1", .rc = -1, .v = 99},
        {.in = "0x1", .rc = -1, .v = 99},         {.in = nullptr, .rc = -1, .v = 99},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.in ? r.in : "(null)");
        int32_t v = 99;
        EXPECT_EQ(str_to_int(r.in, &v), r.rc);
        EXPECT_EQ(v, r.v);
    }
    EXPECT_EQ(str_to_int("1", nullptr), -1);
    double d = 1;
    EXPECT_EQ(str_to_double("", &d), 0);
    EXPECT_EQ(d, 0.0);
    EXPECT_EQ(str_to_double("-1.25", &d), 0);
    EXPECT_EQ(d, -1.25);
    EXPECT_EQ(str_to_double("1.5 ", &d), -1);
    EXPECT_EQ(str_to_double(nullptr, &d), -1);
}

TEST(Ranges, OnlySemicolonAndBarAreRefusedUpToTheLength)
{
    EXPECT_EQ(is_valid_string("abc;rm", 3), 1);
    EXPECT_EQ(is_valid_string("abc;rm", 6), 0);
    EXPECT_EQ(is_valid_string("a|b", 10), 0);
    EXPECT_EQ(is_valid_string("a&b`c$", 10), 1);
    EXPECT_EQ(is_valid_string("ab\0;", 4), 1);    // stops at NUL
}

TEST(Ipv4CheckHost, CodesAndDeliberateLeniencies)
{
    static const struct { const char *ip; int32_t code; } rows[] = {
        {.ip = "192.168.1.1", .code = 0},       {.ip = "0.1.2.3", .code = -40309},
        {.ip = "224.0.0.1", .code = -40302},    {.ip = "225.1.1.1", .code = -40309},
        {.ip = "127.0.0.1", .code = -40304},    {.ip = "1.2.3.4.5", .code = -40303},
        {.ip = "1.2.3.04", .code = -40301},     {.ip = "1.2.3.256", .code = -40301},
        {.ip = "1.2.3", .code = -40303},        {.ip = "1.2.3.4x", .code = -40303},
        {.ip = nullptr, .code = -40301},        {.ip = " 1.2.3.4", .code = -40301},
        {.ip = "1.2.3.00", .code = 0},          // zero written twice
        {.ip = "1.-1.3.4", .code = 0},          // no lower bound
        {.ip = "1.2.3.10000", .code = -40303},  {.ip = "1.10000.3.4", .code = -40303},
    };
    for (const auto &r : rows)
        EXPECT_EQ(ipv4_check_host(r.ip), r.code) << (r.ip ? r.ip : "(null)");
    EXPECT_EQ(ipv4_to_uint("192.168.1.2"), 0xC0A80102u);
    EXPECT_EQ(ipv4_to_uint("1.2.3"), 0u);
    EXPECT_EQ(ipv4_to_uint("1.x.0.1"), 0x01000001u);
}

const ds_int_range r05{0, 5}, inverted{5, 0}, frame{65537, 65561}, big{1, 2147483647};
const ds_double_range d02{0.0, 2.0}, dinv{2.0, 0.0};
const ds_len_range any{0, 64}, pw{5, 32};

struct probe {
    ds_checker_fn fn;
    const void *arg;
    const char *value; // JSON text; null for a missing value
    int32_t row_code;
    int32_t expect;
};

// Each line: checker, argument, value, row code, result.
const probe kProbes[] = {
    {check_enum_type, ds_enum_on_off, R"("on")", 0, 0},
    {check_enum_type, ds_enum_on_off, R"("On")", 0, -70212},
    {check_enum_type, ds_enum_on_off, R"("on ")", 0, -70212},
    {check_enum_type, ds_enum_0_1, "1", 0, -70211},
    {check_enum_type, ds_enum_on_off, R"("x")", -73701, -73701},
    {check_enum_type, ds_enum_on_off, nullptr, -73701, -70105}, // missing: own code
    {check_enum_type, nullptr, R"("on")", -73701, -70105},
    {check_mixed_enum_type, ds_enum_0_1, "1", 0, 0},
    {check_mixed_enum_type, ds_enum_0_1, "2", 0, -70212},
    {check_mixed_enum_type, ds_enum_0_1, "-1", -5, -5},
    {check_mixed_enum_type, ds_enum_0_1, "1.0", 0, -70211},
    {check_mixed_enum_type, nullptr, "1", 0, -70105},
    {check_int_type, &r05, "5", 0, 0},
    {check_int_type, &r05, "7", 0, -70222},
    {check_int_type, &r05, "7", -71713, -71713},
    {check_int_type, &r05, R"("+5")", 0, 0},
    {check_int_type, &r05, R"("")", 0, 0},  // reads as 0
    {check_int_type, &r05, R"("-")", 0, 0}, // a lone sign reads as 0
    {check_int_type, &r05, R"(" 1")", 0, -70221},
    {check_int_type, &r05, R"("1.0")", 0, -70221},
    {check_int_type, &r05, R"("4294967297")", 0, 0}, // wraps to 1
    {check_int_type, &r05, "true", 0, -70221},
    {check_int_type, nullptr, "1", -71713, -70105},
    {check_int_type, &inverted, "3", 0, -70222},
    {check_int_type, &frame, R"("65536")", 0, -70222},
    {check_int_type, &big, R"("2147483647")", 0, 0},
    {check_int_type, &big, R"("2147483648")", 0, -70222}, // wraps negative
    {check_double_type, &d02, R"("1.5")", 0, 0},
    {check_double_type, &d02, "1.5", 0, -40209},
    {check_double_type, &d02, R"("1.5x")", 0, -40209},
    {check_double_type, &d02, R"("2.0001")", 0, -40209},
    {check_double_type, &d02, R"("nan")", 0, -40209},
    {check_double_type, &d02, R"("3")", -9, -9},
    {check_double_type, &dinv, R"("1")", 0, -40209},
    {check_double_type, nullptr, R"("1")", 0, -70105},
    {check_string_type, &any, R"("")", 0, 0},
    {check_string_type, &pw, R"("abcd")", 0, -70233},
    {check_string_type, &pw, R"("abcde")", 0, 0},
    {check_string_type, &pw, "12345", 0, -70231},
    {check_string_type, &pw, "\"\xc3\xa9\xc3\xa9\xc3\xa9\"", 0, 0}, // bytes, not characters
    {check_string_type, nullptr, R"("abcde")", -71501, -40101},   // internal error here
    {check_ip_type, nullptr, R"("192.168.1.1")", 0, 0},
    {check_ip_type, nullptr, R"("127.0.0.1")", 0, -40301},
    {check_ip_type, nullptr, R"("224.0.0.1")", -71002, -71002},
    {check_ip_type, nullptr, nullptr, -71002, -70105},
    {check_any_type, nullptr, "1", 0, 0},
    {check_readonly_type, nullptr, R"("x")", 0, -70206},
};

TEST(Checkers, EveryProbeGetsItsCode)
{
    for (const probe &p : kProbes) {
        SCOPED_TRACE(&p - kProbes);
        std::unique_ptr<json_object, decltype(&json_object_put)> v(
            p.value ? json_tokener_parse(p.value) : nullptr, &json_object_put);
        ASSERT_TRUE(!p.value || v) << p.value;
        EXPECT_EQ(p.expect, p.fn(nullptr, v.get(), nullptr, p.arg, p.row_code))
            << (p.value ? p.value : "(missing)") << " row code " << p.row_code;
    }
}

} // namespace

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
