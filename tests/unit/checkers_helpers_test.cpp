// Helpers shared by the checkers and module code, and the option checkers:
// accepted values, each refusal code, and the rule that a row's own code
// replaces the checker's code except for missing arguments.
#include "model/checkers.h"

#include <gtest/gtest.h>
#include <json-c/json.h>

#include <memory>
#include <string>

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
