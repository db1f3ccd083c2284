// The web login check against the real daemon: attempts left, the lock, the
// report to the recorder and the operation log, groups by section name.
#include <gtest/gtest.h>
#include <json-c/json.h>

#include <sys/stat.h>

#include <fstream>
#include <iterator>

#include "harness/bus_harness.h"
#include "harness/dsd_harness.h"

namespace {

struct answer {
    int time = -1, code = 1;
    std::string group;
};

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
    answer check(const char *user, const char *pass)
    {
        std::string res = d.request(std::string(R"({"method":"do","user_management":{"check_user":{"username":")") +
                                    user + R"(","passwd":")" + pass + "\"}}}");
        answer a;
        json_object *obj = json_tokener_parse(res.c_str());
        json_object *v = nullptr;
        if (json_object_object_get_ex(obj, "time", &v))
            a.time = json_object_get_int(v);
        if (json_object_object_get_ex(obj, "real_error_code", &v))
            a.code = json_object_get_int(v);
        if (json_object_object_get_ex(obj, "group", &v))
            a.group = json_object_get_string(v);
        EXPECT_EQ(error_code_of(res), 0) << res;
        json_object_put(obj);
        return a;
    }
    dsd_harness d;
    bus_harness bus{d.root};
};

TEST_F(Login, ThreeWrongPasswordsLockEvenTheRightOne)
{
    answer a = check("admin", "x");
    EXPECT_EQ(a.code, -70312);
    EXPECT_EQ(a.time, 2);
    EXPECT_EQ(check("admin", "y").time, 1);
    a = check("admin", "z");
    EXPECT_EQ(a.code, -40404);
    EXPECT_EQ(a.time, 0);
    a = check("admin", "secret");
    EXPECT_EQ(a.code, -40404);
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
    a = check("ops", "pw");
    EXPECT_EQ(a.code, 0);
    EXPECT_EQ(a.group, "admin");
}

TEST_F(Login, AccountChangesEndSessionsAndDeletedAccountsLeaveNoLock)
{
    for (const char *pass : {"a", "b", "c"})
        check("ops", pass);
    ASSERT_TRUE(std::ifstream(d.path("/tmp/luci-pwderr/ops")).good());
    std::ofstream(d.path("/tmp/luci-sessions/abc123")) << "{}";
    int rc = error_code_of(d.request(R"({"method":"set","user_management":{"root":{"comment":"desk"}}})"));
    EXPECT_EQ(rc, 0) << d.log();
    EXPECT_TRUE(std::ifstream(d.path("/tmp/luci-sessions/abc123")).good()) << "only credentials end sessions";
    rc = error_code_of(d.request(R"({"method":"set","user_management":{"root":{"passwd":"new-secret"}}})"));
    EXPECT_EQ(rc, 0) << d.log();
    EXPECT_FALSE(std::ifstream(d.path("/tmp/luci-sessions/abc123")).good());
    EXPECT_EQ(check("admin", "new-secret").code, 0);

    rc = error_code_of(d.request(R"({"method":"delete","user_management":{"name":"admin_2"}})"));
    EXPECT_EQ(rc, 0) << d.log();
    EXPECT_FALSE(std::ifstream(d.path("/tmp/luci-pwderr/ops")).good());
    EXPECT_EQ(check("ops", "pw").code, -70302);
}

} // namespace
