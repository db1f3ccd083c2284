// The web login check against the real daemon: attempts left, the lock, the
// report to the recorder and the operation log, groups by section name
// (sessions ended by account changes are held by the hostile login tests).
#include <gtest/gtest.h>
#include <json-c/json.h>

#include <sys/stat.h>

#include <fstream>
#include <iterator>

#include "harness/bus_harness.h"
#include "harness/dsd_harness.h"

namespace {

class Login : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(d.make_config(2));
        d.write_package("user_management",
                        "\nconfig root 'root'\n\toption username 'admin'\n\toption passwd 'secret'\n"
                        "\toption authority '0'\n"
                        "\nconfig admin 'admin_2'\n\toption username 'ops'\n\toption passwd 'pw'\n"
                        "\nconfig other 'viewer'\n\toption username 'view'\n\toption passwd 'v'\n");
        ASSERT_TRUE(bus.start(R"({"objects":{"record":{"methods":{"login_error":{"reply":{"result":0}}}}}})"));
        ASSERT_TRUE(d.start()) << d.log();
    }
    dsd_answer check(const char *user, const char *pass)
    {
        dsd_answer a = d.ask(std::string(R"({"method":"do","user_management":{"check_user":{"username":")") + user +
                             R"(","passwd":")" + pass + "\"}}}");
        EXPECT_EQ(a.code(), 0) << a.text;
        return a;
    }
    dsd_harness d;
    bus_harness bus{d.root};
};

TEST_F(Login, ThreeWrongPasswordsLockEvenTheRightOne)
{
    dsd_answer a = check("admin", "x");
    EXPECT_EQ(a.num({"real_error_code"}), -70312);
    EXPECT_EQ(a.num({"time"}), 2);
    EXPECT_EQ(check("admin", "y").num({"time"}), 1);
    dsd_answer locked = check("admin", "z");
    EXPECT_EQ(locked.num({"real_error_code"}), -40404);
    EXPECT_EQ(locked.num({"time"}), 0);
    EXPECT_EQ(check("admin", "secret").num({"real_error_code"}), -40404);
    EXPECT_EQ(bus.calls_to("record", "login_error").size(), 2u);
    std::string line = slurp(d.path("/tmp/luci-pwderr/admin"));
    EXPECT_NE(line.find("/3"), std::string::npos) << line;
    // Each lock seen is one security record.
    std::string records = slurp(d.path("/var/log/msglog/records"));
    size_t locks = 0;
    for (size_t at = 0; (at = records.find(R"("main_type":2,"sub_type":1,"text":"用户名: admin\r\n用户已被锁定)", at)) !=
                        std::string::npos;
         at++)
        locks++;
    EXPECT_EQ(locks, 2u) << records;
    // The record directory is owner-only.
    struct stat st;
    ASSERT_EQ(stat(d.path("/tmp/luci-pwderr").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0700u);
    // Another user is not affected, and a good login clears nothing it need not.
    dsd_answer ops = check("ops", "pw");
    EXPECT_EQ(ops.num({"real_error_code"}), 0);
    EXPECT_TRUE(has_string(ops, {"group"}, "admin"));
}

} // namespace
