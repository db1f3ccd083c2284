// The lock arithmetic of the login check, on a clock the test moves.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "modules/system/login.h"
#include "platform/paths.h"

namespace {

long g_now = 10000;
long test_clock(void)
{
    return g_now;
}

class LoginLock : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        char tmpl[] = "/tmp/dsd-login-XXXXXX";
        root = mkdtemp(tmpl);
        setenv("DSD_ROOT", root.c_str(), 1);
        ASSERT_EQ(dsd_root(), root) << "DSD_ROOT was read before this suite";
        std::string cmd = "mkdir -p " + root + "/tmp/luci-pwderr";
        ASSERT_EQ(system(cmd.c_str()), 0);
        login_set_clock(test_clock);
    }
    static void TearDownTestSuite()
    {
        login_set_clock(nullptr);
        std::string cmd = "rm -rf " + root;
        EXPECT_EQ(system(cmd.c_str()), 0);
    }
    static std::string root;
};
std::string LoginLock::root;

TEST_F(LoginLock, MalformedRecordsCountAsNone)
{
    int count = 0, code = 0;
    std::ofstream(root + "/tmp/luci-pwderr/u2") << "garbage";
    EXPECT_EQ(is_locked("u2", 3, &code), 0);
    ASSERT_EQ(log_errinfo("u2", &count, 3), 0);
    EXPECT_EQ(count, 1);
    std::ofstream(root + "/tmp/luci-pwderr/u3") << "";
    EXPECT_EQ(is_locked("u3", 0, &code), 0);
}

TEST_F(LoginLock, NamesThatCouldClimbStayInTheDirectory)
{
    int count = 0, code = 0;
    g_now = 50000;
    for (const char *user : {"../../escape", ".", "..", "a/b"}) {
        for (int i = 0; i < 2; i++)
            ASSERT_EQ(log_errinfo(user, &count, 2), 0) << user;
        EXPECT_EQ(count, 2);
        EXPECT_NE(is_locked(user, 2, &code), 0) << user;
    }
    EXPECT_FALSE(std::ifstream(root + "/escape").good());
    EXPECT_FALSE(std::ifstream(root + "/tmp/escape").good());
    EXPECT_TRUE(std::ifstream(root + "/tmp/luci-pwderr/hex-2e2e2f2e2e2f657363617065").good());
}

} // namespace
