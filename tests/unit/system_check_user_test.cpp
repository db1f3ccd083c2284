// The "check_user" keyword and the lock records under it, on a clock the test
// moves. No bus runs here, so a lock is answered with the reporting error
// -70101 and "time" 0: the lock itself and the failed report are both visible.
#include <iterator>

#include "model/request.h"
#include "modules/system/login.h"
#include "platform/paths.h"
#include "model_test_util.h"
#include "store/store.h"

namespace {

model_scratch_root scratch; // DSD_ROOT, set before any path is read
long g_now = 1000;
long test_clock(void)
{
    return g_now;
}

struct answer {
    bool members = false;
    int time = -1, code = 1;
    std::string group, authority;
};

class CheckUser : public ::testing::Test {
protected:
    static void SetUpTestSuite() { login_set_clock(test_clock); }
    static void TearDownTestSuite() { login_set_clock(nullptr); }
    void SetUp() override
    {
        std::string cmd = "rm -rf " + root + "/tmp/luci-pwderr";
        ASSERT_EQ(system(cmd.c_str()), 0);
        package("user_management", "\nconfig root 'root'\n\toption username 'admin'\n\toption passwd 'secret'\n"
                                   "\toption authority '0'\n"
                                   "\nconfig admin 'admin_2'\n\toption username 'ops'\n\toption passwd 'pw'\n"
                                   "\toption authority '1'\n"
                                   "\nconfig guest 'guest_1'\n\toption username 'tv'\n\toption passwd 'tv'\n"
                                   "\nconfig other 'viewer'\n\toption username 'view'\n\toption passwd 'v'\n");
        lock_settings("on", "3");
        g_now = 1000;
    }
    static void package(const std::string &name, const std::string &text)
    {
        std::ofstream(root + "/etc/config/" + name) << text;
    }
    static void lock_settings(const char *enabled, const char *max)
    {
        package("unusual_detection", std::string("\nconfig login_error 'login_error'\n\toption enabled '") + enabled +
                                         "'\n\toption max_times '" + max + "'\n");
    }
    static std::string record(const char *user)
    {
        std::ifstream in(root + "/tmp/luci-pwderr/" + user);
        return in ? std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()) : "<none>";
    }
    answer check(const char *user, const char *pass)
    {
        ds_context ctx{};
        ctx.uci_ctx = dsd_uci_alloc();
        json_object *arg = json_object_new_object();
        json_object_object_add(arg, "username", json_object_new_string(user));
        json_object_object_add(arg, "passwd", json_object_new_string(pass));
        EXPECT_EQ(check_username_passwd(&ctx, arg), 0);
        json_object_put(arg);
        answer a;
        json_object *v = nullptr;
        a.members = ctx.res_obj && json_object_object_get_ex(ctx.res_obj, "real_error_code", &v);
        if (a.members) {
            a.code = json_object_get_int(v);
            a.time = json_object_get_int(json_object_object_get(ctx.res_obj, "time"));
            if (json_object_object_get_ex(ctx.res_obj, "group", &v))
                a.group = json_object_get_string(v);
            if (json_object_object_get_ex(ctx.res_obj, "authority", &v))
                a.authority = json_object_get_string(v);
        }
        json_object_put(ctx.res_obj);
        uci_free_context(ctx.uci_ctx);
        return a;
    }
    static inline const std::string &root = scratch.root;
};

TEST_F(CheckUser, LockAndItsBoundaries)
{
    EXPECT_EQ(check("admin", "a").time, 2);
    answer a = check("admin", "b");
    EXPECT_EQ(a.code, -70312);
    EXPECT_EQ(a.time, 1);
    a = check("admin", "c");
    EXPECT_EQ(a.code, -70101); // locked, and the report had no bus
    EXPECT_EQ(a.time, 0);
    EXPECT_EQ(record("admin"), "1000/3");
    g_now = 1000 + 1799; // the right password does not open a lock
    a = check("admin", "secret");
    EXPECT_EQ(a.code, -70101);
    EXPECT_EQ(a.group, "");
    g_now = 1000 + 1800; // free, but the count stands: one failure locks again
    a = check("admin", "d");
    EXPECT_EQ(a.code, -70101);
    EXPECT_EQ(a.time, 0);
    EXPECT_EQ(record("admin"), "2800/3");
    g_now = 2800 + 1801; // past the reset: counting starts again
    a = check("admin", "e");
    EXPECT_EQ(a.code, -70312);
    EXPECT_EQ(a.time, 2);
    a = check("admin", "secret");
    EXPECT_EQ(a.code, 0);
    EXPECT_EQ(a.time, 3);
    EXPECT_EQ(a.authority, "0");
    EXPECT_EQ(a.group, "root");
    EXPECT_EQ(record("admin"), "4601/0");
}

TEST_F(CheckUser, UnknownUsersGroupsAndDisabledLocking)
{
    answer a = check("nobody", "x");
    EXPECT_EQ(a.code, -70302);
    EXPECT_EQ(a.time, 0);
    a = check("ops", "pw");
    EXPECT_EQ(a.code, 0);
    EXPECT_EQ(a.group, "admin");
    EXPECT_EQ(a.authority, "1");
    EXPECT_EQ(check("tv", "tv").group, "guest");
    EXPECT_EQ(check("view", "v").group, "viewer");
    EXPECT_EQ(record("ops"), "<none>"); // a good login creates no record

    lock_settings("off", "3");
    for (int i = 0; i < 5; i++) {
        a = check("ops", "bad");
        EXPECT_EQ(a.code, -70312);
        EXPECT_EQ(a.time, 999);
    }
    EXPECT_EQ(record("ops"), "<none>");

    package("user_management", "");
    std::string cmd = "rm -f " + root + "/etc/config/user_management";
    ASSERT_EQ(system(cmd.c_str()), 0);
    EXPECT_FALSE(check("ops", "pw").members);
}

TEST_F(CheckUser, MalformedRecordsCountAsNone)
{
    int count = 0, code = 0;
    ASSERT_EQ(system(("mkdir -p " + root + "/tmp/luci-pwderr").c_str()), 0);
    std::ofstream(root + "/tmp/luci-pwderr/u2") << "garbage";
    EXPECT_EQ(is_locked("u2", 3, &code), 0);
    ASSERT_EQ(log_errinfo("u2", &count, 3), 0);
    EXPECT_EQ(count, 1);
    std::ofstream(root + "/tmp/luci-pwderr/u3") << "";
    EXPECT_EQ(is_locked("u3", 0, &code), 0);
}

TEST_F(CheckUser, NamesThatCouldClimbStayInTheDirectory)
{
    int count = 0, code = 0;
    ASSERT_EQ(system(("mkdir -p " + root + "/tmp/luci-pwderr").c_str()), 0);
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
