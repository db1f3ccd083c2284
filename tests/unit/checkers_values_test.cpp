// Option checkers: accepted values, each refusal code, and the rule that a
// row's own code replaces the checker's code except for missing arguments.
#include "model/checkers.h"

#include <gtest/gtest.h>
#include <json-c/json.h>

#include <memory>

namespace {

struct JsoDel {
    void operator()(json_object *o) const { json_object_put(o); }
};
using Jso = std::unique_ptr<json_object, JsoDel>;

Jso str(const char *s) { return Jso(json_object_new_string(s)); }
Jso num(int v) { return Jso(json_object_new_int(v)); }

int32_t run(ds_checker_fn fn, const Jso &v, const void *arg, int32_t code = 0)
{
    return fn(nullptr, v.get(), nullptr, arg, code);
}

TEST(CheckEnum, StringsOnlyAndExactMatch)
{
    EXPECT_EQ(run(check_enum_type, str("on"), ds_enum_on_off), 0);
    EXPECT_EQ(run(check_enum_type, str("off"), ds_enum_on_off), 0);
    EXPECT_EQ(run(check_enum_type, str("On"), ds_enum_on_off), -70212);
    EXPECT_EQ(run(check_enum_type, str("on "), ds_enum_on_off), -70212);
    EXPECT_EQ(run(check_enum_type, num(1), ds_enum_0_1), -70211);
    EXPECT_EQ(run(check_enum_type, str("x"), ds_enum_on_off, -73701), -73701);
    EXPECT_EQ(run(check_enum_type, num(1), ds_enum_0_1, -73701), -73701);
    // Missing value or list: own code even when the row has one.
    EXPECT_EQ(check_enum_type(nullptr, nullptr, nullptr, ds_enum_on_off, -73701), -70105);
    EXPECT_EQ(run(check_enum_type, str("on"), nullptr, -73701), -70105);
}

TEST(CheckMixedEnum, IntegersComparedAsDecimalText)
{
    EXPECT_EQ(run(check_mixed_enum_type, num(1), ds_enum_0_1), 0);
    EXPECT_EQ(run(check_mixed_enum_type, str("0"), ds_enum_0_1), 0);
    EXPECT_EQ(run(check_mixed_enum_type, num(2), ds_enum_0_1), -70212);
    EXPECT_EQ(run(check_mixed_enum_type, num(-1), ds_enum_0_1, -5), -5);
    Jso dbl(json_object_new_double(1.0));
    EXPECT_EQ(run(check_mixed_enum_type, dbl, ds_enum_0_1), -70211);
    EXPECT_EQ(run(check_mixed_enum_type, num(1), nullptr), -70105);
}

TEST(CheckInt, IntegersAndStrictText)
{
    const ds_int_range r{0, 5};
    EXPECT_EQ(run(check_int_type, num(0), &r), 0);
    EXPECT_EQ(run(check_int_type, num(5), &r), 0);
    EXPECT_EQ(run(check_int_type, num(7), &r), -70222);
    EXPECT_EQ(run(check_int_type, num(7), &r, -71713), -71713);
    EXPECT_EQ(run(check_int_type, num(-1), &r), -70222);
    EXPECT_EQ(run(check_int_type, str("+5"), &r), 0);
    EXPECT_EQ(run(check_int_type, str(""), &r), 0);   // reads as 0
    EXPECT_EQ(run(check_int_type, str("-"), &r), 0);  // lone sign reads as 0
    EXPECT_EQ(run(check_int_type, str(" 1"), &r), -70221);
    EXPECT_EQ(run(check_int_type, str("1 "), &r), -70221);
    EXPECT_EQ(run(check_int_type, str("1.0"), &r), -70221);
    EXPECT_EQ(run(check_int_type, str("4294967297"), &r), 0);  // wraps to 1
    Jso boolean(json_object_new_boolean(1));
    EXPECT_EQ(run(check_int_type, boolean, &r), -70221);
    EXPECT_EQ(run(check_int_type, num(1), nullptr, -71713), -70105);
}

TEST(CheckInt, RangeEdges)
{
    const ds_int_range inverted{5, 0};
    EXPECT_EQ(run(check_int_type, num(3), &inverted), -70222);
    const ds_int_range frame{65537, 65561};
    EXPECT_EQ(run(check_int_type, str("65536"), &frame), -70222);
    EXPECT_EQ(run(check_int_type, str("65561"), &frame), 0);
    const ds_int_range big{1, 2147483647};
    EXPECT_EQ(run(check_int_type, str("2147483647"), &big), 0);
    EXPECT_EQ(run(check_int_type, str("2147483648"), &big), -70222);  // wraps negative
}

TEST(CheckDouble, TextOnly)
{
    const ds_double_range r{0.0, 2.0};
    EXPECT_EQ(run(check_double_type, str("1.5"), &r), 0);
    EXPECT_EQ(run(check_double_type, str("2"), &r), 0);
    Jso dbl(json_object_new_double(1.5));
    EXPECT_EQ(run(check_double_type, dbl, &r), -40209);
    EXPECT_EQ(run(check_double_type, num(1), &r), -40209);
    EXPECT_EQ(run(check_double_type, str("1.5x"), &r), -40209);
    EXPECT_EQ(run(check_double_type, str("2.0001"), &r), -40209);
    EXPECT_EQ(run(check_double_type, str("nan"), &r), -40209);
    EXPECT_EQ(run(check_double_type, str("3"), &r, -9), -9);
    const ds_double_range inverted{2.0, 0.0};
    EXPECT_EQ(run(check_double_type, str("1"), &inverted), -40209);
    EXPECT_EQ(run(check_double_type, str("1"), nullptr), -70105);
}

TEST(CheckString, ByteLength)
{
    const ds_len_range any{0, 64};
    const ds_len_range pw{5, 32};
    EXPECT_EQ(run(check_string_type, str(""), &any), 0);
    EXPECT_EQ(run(check_string_type, str("abcd"), &pw), -70233);
    EXPECT_EQ(run(check_string_type, str("abcde"), &pw), 0);
    EXPECT_EQ(run(check_string_type, str("abcd"), &pw, -71501), -71501);
    EXPECT_EQ(run(check_string_type, num(12345), &pw), -70231);
    // Two-byte characters count as bytes: 3 characters, 6 bytes.
    EXPECT_EQ(run(check_string_type, str("\xc3\xa9\xc3\xa9\xc3\xa9"), &pw), 0);
    // Missing argument is an internal error here, unlike the other checkers.
    EXPECT_EQ(run(check_string_type, str("abcde"), nullptr, -71501), -40101);
}

TEST(CheckIp, FoldsEveryRefusal)
{
    EXPECT_EQ(run(check_ip_type, str("192.168.1.1"), nullptr), 0);
    EXPECT_EQ(run(check_ip_type, str("127.0.0.1"), nullptr), -40301);
    EXPECT_EQ(run(check_ip_type, str("224.0.0.1"), nullptr, -71002), -71002);
    EXPECT_EQ(run(check_ip_type, num(1), nullptr), -40301);
    EXPECT_EQ(check_ip_type(nullptr, nullptr, nullptr, nullptr, -71002), -70105);
}

TEST(CheckAnyReadonly, Fixed)
{
    EXPECT_EQ(run(check_any_type, num(1), nullptr), 0);
    EXPECT_EQ(check_any_type(nullptr, nullptr, nullptr, nullptr, 0), 0);
    EXPECT_EQ(run(check_readonly_type, str("x"), nullptr), -70206);
}

} // namespace
