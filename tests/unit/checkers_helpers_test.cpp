// Helpers shared by the checkers and module code.
#include "model/checkers.h"

#include <gtest/gtest.h>
#include <json-c/json.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

TEST(StrToInt, SignDigitsAndWrap)
{
    int32_t v = 99;
    EXPECT_EQ(str_to_int("+12", &v), 0);
    EXPECT_EQ(v, 12);
    EXPECT_EQ(str_to_int("-12", &v), 0);
    EXPECT_EQ(v, -12);
    EXPECT_EQ(str_to_int("", &v), 0);
    EXPECT_EQ(v, 0);
    EXPECT_EQ(str_to_int("+", &v), 0);
    EXPECT_EQ(v, 0);
    EXPECT_EQ(str_to_int("4294967297", &v), 0);
    EXPECT_EQ(v, 1);
    EXPECT_EQ(str_to_int("4294967295", &v), 0);
    EXPECT_EQ(v, -1);
    v = 99;
    EXPECT_EQ(str_to_int("1-", &v), -1);
    EXPECT_EQ(str_to_int("--1", &v), -1);
    EXPECT_EQ(str_to_int("0x1", &v), -1);
    EXPECT_EQ(v, 99);  // untouched on failure
    EXPECT_EQ(str_to_int(nullptr, &v), -1);
    EXPECT_EQ(str_to_int("1", nullptr), -1);
}

TEST(StrToInt, SixtyFourBitsAndDouble)
{
    int64_t v = 0;
    EXPECT_EQ(str_to_int64("4294967297", &v), 0);
    EXPECT_EQ(v, 4294967297LL);
    EXPECT_EQ(str_to_int64("-9223372036854775808", &v), 0);
    EXPECT_EQ(v, INT64_MIN);
    EXPECT_EQ(str_to_int64("1e3", &v), -1);
    double d = 1;
    EXPECT_EQ(str_to_double("", &d), 0);
    EXPECT_EQ(d, 0.0);
    EXPECT_EQ(str_to_double("-1.25", &d), 0);
    EXPECT_EQ(d, -1.25);
    EXPECT_EQ(str_to_double("1.5 ", &d), -1);
    EXPECT_EQ(str_to_double(nullptr, &d), -1);
}

TEST(Ranges, ListsAndLengths)
{
    EXPECT_EQ(str_in_list("off", ds_enum_on_off), 1);
    EXPECT_EQ(str_in_list("of", ds_enum_on_off), 0);
    EXPECT_EQ(str_in_list(nullptr, ds_enum_on_off), 0);
    EXPECT_EQ(str_in_list("on", nullptr), 0);
    EXPECT_EQ(int_in_range(-5, -5, -5), 1);
    EXPECT_EQ(int_in_range(0, 1, 0), 0);
    EXPECT_EQ(strlen_in_range("abc", 3, 3), 1);
    EXPECT_EQ(strlen_in_range("abc", 4, 2), 0);
    EXPECT_EQ(strlen_in_range(nullptr, 0, 10), 0);
    char text[] = "AbC-Z9";
    EXPECT_EQ(str_to_lower(text), 0);
    EXPECT_STREQ(text, "abc-z9");
    EXPECT_EQ(str_to_lower(nullptr), -1);
}

TEST(IsValidString, SeparatorsWithinN)
{
    EXPECT_EQ(is_valid_string("abc;rm", 3), 1);
    EXPECT_EQ(is_valid_string("abc;rm", 6), 0);
    EXPECT_EQ(is_valid_string("a|b", 10), 0);
    EXPECT_EQ(is_valid_string("a&b`c$", 10), 1);  // only ';' and '|' are refused
    EXPECT_EQ(is_valid_string("ab\0;", 4), 1);    // stops at NUL
}

TEST(Ipv4CheckHost, Codes)
{
    EXPECT_EQ(ipv4_check_host("192.168.1.1"), 0);
    EXPECT_EQ(ipv4_check_host("0.1.2.3"), -40309);
    EXPECT_EQ(ipv4_check_host("224.0.0.1"), -40302);
    EXPECT_EQ(ipv4_check_host("225.1.1.1"), -40309);
    EXPECT_EQ(ipv4_check_host("127.0.0.1"), -40304);
    EXPECT_EQ(ipv4_check_host("1.2.3.4.5"), -40303);
    EXPECT_EQ(ipv4_check_host("1.2.3.04"), -40301);
    EXPECT_EQ(ipv4_check_host("1.2.3.256"), -40301);
    EXPECT_EQ(ipv4_check_host("1.2.3"), -40303);
    EXPECT_EQ(ipv4_check_host("1.2.3.4x"), -40303);
    EXPECT_EQ(ipv4_check_host(nullptr), -40301);
}

TEST(Ipv4CheckHost, DeliberateLeniencies)
{
    EXPECT_EQ(ipv4_check_host("1.2.3.00"), 0);    // zero written twice
    EXPECT_EQ(ipv4_check_host("1.-1.3.4"), 0);    // no lower bound
    EXPECT_EQ(ipv4_check_host(" 1.2.3.4"), -40301);  // blank is not a digit
    EXPECT_EQ(ipv4_check_host("1.2.3.10000"), -40303);
    EXPECT_EQ(ipv4_check_host("1.10000.3.4"), -40303);
    EXPECT_EQ(ipv4_to_uint("192.168.1.2"), 0xC0A80102u);
    EXPECT_EQ(ipv4_to_uint("1.2.3"), 0u);
    EXPECT_EQ(ipv4_to_uint("1.x.0.1"), 0x01000001u);
}

TEST(DomainIsValid, LabelsAndLength)
{
    EXPECT_EQ(domain_is_valid("a"), 1);
    EXPECT_EQ(domain_is_valid("a.b"), 1);
    EXPECT_EQ(domain_is_valid("a_b-c"), 1);
    EXPECT_EQ(domain_is_valid("a."), 0);
    EXPECT_EQ(domain_is_valid(".a"), 0);
    EXPECT_EQ(domain_is_valid("a..b"), 0);
    EXPECT_EQ(domain_is_valid("a b"), 0);
    EXPECT_EQ(domain_is_valid("ab "), 0);
    EXPECT_EQ(domain_is_valid("ab\n"), 0);
    EXPECT_EQ(domain_is_valid(""), 0);
    EXPECT_EQ(domain_is_valid(nullptr), 0);
    EXPECT_EQ(domain_is_valid(std::string(63, 'x').c_str()), 1);
    EXPECT_EQ(domain_is_valid(std::string(64, 'x').c_str()), 0);
    // Labels of 63 joined by dots: 4 x 63 + 3 = 255 bytes is one too many.
    std::string l(63, 'x');
    std::string d254 = l + "." + l + "." + l + "." + std::string(62, 'x');
    ASSERT_EQ(d254.size(), 254u);
    EXPECT_EQ(domain_is_valid(d254.c_str()), 1);
    EXPECT_EQ(domain_is_valid((d254 + "x").c_str()), 0);
}

TEST(RegionIsValid, GridBounds)
{
    EXPECT_EQ(region_is_valid(5000, 0, 5000, 10000), 1);
    EXPECT_EQ(region_is_valid(5001, 0, 5000, 100), 0);
    EXPECT_EQ(region_is_valid(0, 10001, 0, 0), 0);
    EXPECT_EQ(region_is_valid(0xFFFFFFFFu, 0, 2, 0), 0);  // no wrap past the bound
}

TEST(JsoPath, ThreeSteps)
{
    json_object *o = json_tokener_parse(R"({"a":{"b":{"c":"v","n":1}}})");
    ASSERT_NE(o, nullptr);
    EXPECT_STREQ(jso_get_path3_string(o, "a", "b", "c"), "v");
    EXPECT_EQ(jso_get_path3_string(o, "a", "b", "n"), nullptr);
    EXPECT_NE(jso_get_path3(o, "a", "b", "n"), nullptr);
    EXPECT_EQ(jso_get_path3(o, "a", "x", "c"), nullptr);
    json_object_put(o);
}

TEST(Files, TouchStatAndSize)
{
    char dir[] = "/tmp/dsd_checkers_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string f = std::string(dir) + "/f";
    EXPECT_EQ(is_regular_file(f.c_str()), 0);
    EXPECT_EQ(get_file_size(f.c_str()), -1);
    touch_file(f.c_str());
    EXPECT_EQ(is_regular_file(f.c_str()), 1);
    EXPECT_EQ(is_directory(f.c_str()), 0);
    EXPECT_EQ(is_directory(dir), 1);
    EXPECT_EQ(get_file_size(f.c_str()), 0);
    touch_file((std::string(dir) + "/missing/f").c_str());  // no parent: nothing
    EXPECT_EQ(is_regular_file(nullptr), 0);
    unlink(f.c_str());
    rmdir(dir);
}

TEST(RunShellDetached, RunsAndFrees)
{
    char dir[] = "/tmp/dsd_shell_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string f = std::string(dir) + "/done";
    pthread_t t;
    ASSERT_EQ(pthread_create(&t, nullptr, run_shell_detached,
                             strdup(("touch " + f).c_str())), 0);
    // Poll with a bound: the thread is detached, so it cannot be joined.
    for (int i = 0; i < 500 && !is_regular_file(f.c_str()); ++i)
        usleep(10000);
    EXPECT_EQ(is_regular_file(f.c_str()), 1);
    unlink(f.c_str());
    rmdir(dir);
}

} // namespace
