// The set pipeline end to end on a module with checked options ("protocol",
// whose "wan" section carries an integer-range "mtu"): a change reaches the
// next get and the file, an unchanged set writes nothing, a refused value
// leaves the file as it was.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>

#include "harness/dsd_harness.h"

namespace {

class ModelSet : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(d.make_config(16));
        ASSERT_TRUE(d.start()) << d.log();
    }
    std::string file() const
    {
        std::ifstream in(d.path("/etc/config/protocol"), std::ios::binary);
        std::stringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }
    std::string get_wan() const
    {
        return d.request(R"({"method":"get","protocol":{"name":"wan"}})");
    }
    int set_wan(const std::string &options) const
    {
        return error_code_of(d.request(R"({"method":"set","protocol":{"wan":)" + options + "}}"));
    }
    dsd_harness d;
};

TEST_F(ModelSet, ChangeIsSeenByTheNextGetAndOnDisk)
{
    ASSERT_NE(get_wan().find("\"mtu\": \"1500\""), std::string::npos) << get_wan();
    EXPECT_EQ(set_wan(R"({"mtu":"1400"})"), 0);
    EXPECT_NE(get_wan().find("\"mtu\": \"1400\""), std::string::npos) << get_wan();
    EXPECT_NE(file().find("option mtu '1400'"), std::string::npos);
    // An integer is stored as its decimal text.
    EXPECT_EQ(set_wan(R"({"mtu":1450})"), 0);
    EXPECT_NE(file().find("option mtu '1450'"), std::string::npos);
}

TEST_F(ModelSet, UnchangedValuesWriteNothing)
{
    const std::string before = file();
    struct stat st0 {};
    ASSERT_EQ(stat(d.path("/etc/config/protocol").c_str(), &st0), 0);
    int unchanged = d.wait_log("Data unchanged.", 1, 0);
    EXPECT_EQ(set_wan(R"({"mtu":"1500","wan_type":"dhcp","unknown":""})"), 0);
    EXPECT_GT(d.wait_log("Data unchanged.", unchanged + 1), unchanged);
    struct stat st1 {};
    ASSERT_EQ(stat(d.path("/etc/config/protocol").c_str(), &st1), 0);
    EXPECT_EQ(st1.st_ino, st0.st_ino);  // no commit replaced the file
    EXPECT_EQ(file(), before);
}

TEST_F(ModelSet, RefusedValuesLeaveTheFileUntouched)
{
    const std::string before = file();
    EXPECT_EQ(set_wan(R"({"mtu":"99999"})"), -70222);
    EXPECT_EQ(set_wan(R"({"mtu":"14x0"})"), -70221);
    EXPECT_EQ(set_wan(R"({"mtu":" 1400"})"), -70221);
    EXPECT_EQ(set_wan(R"({"mtu":{"v":1}})"), -40101);  // not a value: the diff refuses it
    EXPECT_EQ(set_wan(R"({"mtu":null})"), -40101);
    EXPECT_EQ(set_wan(R"({"mtu":"1400","wan_type":"nosuchtype"})"), -70212);
    EXPECT_EQ(file(), before);
    EXPECT_NE(get_wan().find("\"mtu\": \"1500\""), std::string::npos);
}

} // namespace
