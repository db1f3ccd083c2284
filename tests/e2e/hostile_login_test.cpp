// Password guessing through every keyword that checks a password, alone and
// mixed in parallel with check_user; sessions after a password change; the
// login directories' modes.
#include <filesystem>

#include "harness/dsd_harness.h"

namespace {

// Three accounts, so each keyword meets a lock of its own.
const char kAccounts[] = "\nconfig root 'root'\n\toption username 'admin'\n\toption passwd 'pw-admin'\n"
                         "\toption gesture_passwd '1478'\n"
                         "\nconfig admin 'admin_2'\n\toption username 'ops'\n\toption passwd 'pw-ops'\n"
                         "\toption gesture_passwd '2589'\n"
                         "\nconfig guest 'guest_1'\n\toption username 'view'\n\toption passwd 'pw-view'\n"
                         "\toption gesture_passwd '3690'\n";

class HostileLogin : public dsd_device {
protected:
    void SetUp() override
    {
        boot(2, R"({"objects":{"record":{"methods":{"login_error":{"reply":{"result":0}}}}}})",
             {{"user_management", kAccounts},
              {"unusual_detection", "\nconfig login_error 'login_error'\n\toption max_times '3'\n\toption enabled 'on'\n"}});
    }
    // The lock-relevant answer of each password-checking keyword: the
    // "real_error_code" member for check_user and the gesture check, the
    // request's code for the account editor.
    int check_user(const std::string &user, const std::string &pass)
    {
        return d.ask(R"({"method":"do","user_management":{"check_user":{"username":")" + user +
                     R"(","passwd":")" + pass + "\"}}}")
            .num({"real_error_code"});
    }
    int gesture(const std::string &user, const std::string &pass)
    {
        return d.ask(R"({"method":"do","user_management":{"check_gesture_pswd":{"username":")" + user +
                     R"(","gesture_passwd":")" + pass + "\"}}}")
            .num({"real_error_code"});
    }
    int change(const std::string &user, const std::string &pass, const std::string &fresh = "new-pw")
    {
        return d.code(R"({"method":"do","user_management":{"change_user_info":{"username":")" +
                                       user + R"(","passwd":")" + pass + R"(","new_passwd":")" + fresh + "\"}}}");
    }
    // Keyword `which` (0 check_user, 1 the gesture check, 2 the account editor).
    int by(int which, const std::string &u, const std::string &p)
    {
        return which == 0 ? check_user(u, p) : which == 1 ? gesture(u, p) : change(u, p);
    }
};

TEST_F(HostileLogin, EveryPasswordCheckCountsTowardTheOneLock)
{
    struct {
        const char *keyword, *user, *right_pw, *right_gesture;
        int which;
    } cases[] = {
        {"check_gesture_pswd", "admin", "pw-admin", "1478", 1},
        {"change_user_info", "ops", "pw-ops", "2589", 2},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(by(c.which, c.user, "wrong-1"), -70312) << c.keyword;
        EXPECT_EQ(by(c.which, c.user, "wrong-2"), -70312) << c.keyword;
        EXPECT_EQ(by(c.which, c.user, "wrong-3"), -40404) << c.keyword << ": the third failure reaches the maximum";
        // Locked for every keyword, right secrets included.
        EXPECT_EQ(check_user(c.user, c.right_pw), -40404) << c.keyword;
        EXPECT_EQ(gesture(c.user, c.right_gesture), -40404) << c.keyword;
        EXPECT_EQ(change(c.user, c.right_pw), -40404) << c.keyword;
        std::string record = slurp(d.path(std::string("/tmp/luci-pwderr/") + c.user));
        EXPECT_EQ(record.substr(record.find('/')), "/3") << c.keyword << ": " << record;
    }
    // The locked accounts kept their passwords; the third one mixes keywords.
    EXPECT_EQ(slurp(d.path("/etc/config/user_management")), kAccounts);
    EXPECT_EQ(change("view", "wrong-1"), -70312);
    EXPECT_EQ(gesture("view", "0000"), -70312);
    EXPECT_EQ(check_user("view", "wrong-3"), -40404);
    EXPECT_EQ(change("view", "pw-view"), -40404);
    // Each of the ten locks answered was reported to the recorder and left
    // one security record.
    EXPECT_EQ(bus.calls_to("record", "login_error").size(), 10u);
    std::string records = slurp(d.path("/var/log/msglog/records"));
    size_t logged = 0;
    for (size_t at = 0; (at = records.find(R"("main_type":2,"sub_type":1,"text":"用户名: )", at)) != std::string::npos; at++)
        logged++;
    EXPECT_EQ(logged, 10u) << records;
}

TEST_F(HostileLogin, ParallelMixesCountEveryFailureOnce)
{
    std::vector<int> got(9, 1);
    std::vector<std::thread> threads;
    for (int i = 0; i < 9; i++)
        threads.emplace_back([&, i] { got[i] = by(i % 3, "admin", "wrong-" + std::to_string(i)); });
    for (auto &t : threads)
        t.join();
    int wrong = 0, locked = 0;
    for (int code : got) {
        wrong += code == -70312;
        locked += code == -40404;
    }
    EXPECT_EQ(wrong, 2) << "of three counted failures, two leave attempts";
    EXPECT_EQ(locked, 7);
    std::string record = slurp(d.path("/tmp/luci-pwderr/admin"));
    EXPECT_EQ(record.substr(record.find('/')), "/3") << record;
    for (int which = 0; which < 3; which++)
        EXPECT_EQ(by(which, "admin", which == 1 ? "1478" : "pw-admin"), -40404) << which;
    EXPECT_EQ(slurp(d.path("/etc/config/user_management")), kAccounts);
}

TEST_F(HostileLogin, ChangedPasswordEndsSessions)
{
    std::filesystem::create_directories(d.path("/tmp/luci-sessions"));
    std::ofstream(d.path("/tmp/luci-sessions/s1")) << "{}";
    EXPECT_EQ(change("ops", "wrong"), -70312);
    EXPECT_TRUE(std::ifstream(d.path("/tmp/luci-sessions/s1")).good()) << "a refused change ends nothing";
    // A new secret is one line of text like every stored value.
    EXPECT_EQ(change("ops", "pw-ops", "two\\nlines"), -40209);
    EXPECT_EQ(change("ops", "pw-ops", "fresh-ops"), 0) << d.log();
    EXPECT_FALSE(std::ifstream(d.path("/tmp/luci-sessions/s1")).good());
    // The right password cleared the failure before it.
    std::string record = slurp(d.path("/tmp/luci-pwderr/ops"));
    EXPECT_EQ(record.substr(record.find('/')), "/0") << record;
    EXPECT_EQ(check_user("ops", "fresh-ops"), 0);
    EXPECT_EQ(check_user("ops", "pw-ops"), -70312);
    // Setting an administrator's or a guest's password ends them too.
    for (const char *section : {"admin_2", "guest_1"}) {
        std::ofstream(d.path("/tmp/luci-sessions/s2")) << "{}";
        EXPECT_EQ(d.code(std::string(R"({"method":"set","user_management":{")") + section +
                                          R"(":{"passwd":"set-pw"}}})"),
                  0)
            << section << d.log();
        EXPECT_FALSE(std::ifstream(d.path("/tmp/luci-sessions/s2")).good()) << section;
    }
}

mode_t mode_of(const std::string &path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 07777;
}

TEST(HostileLoginDirs, OwnerOnlyWhateverTheUmask)
{
    dsd_harness d;
    ASSERT_TRUE(d.make_config(2));
    // As an older daemon left them: mode 700 read as a decimal number.
    for (const char *dir : {"/tmp/luci-pwderr", "/tmp/luci-sessions"}) {
        ASSERT_EQ(mkdir(d.path(dir).c_str(), 0700), 0);
        ASSERT_EQ(chmod(d.path(dir).c_str(), 700), 0);
    }
    mode_t old_mask = umask(0);
    bool started = d.start();
    umask(old_mask);
    ASSERT_TRUE(started) << d.log();
    auto check = [&] {
        return d.code(R"({"method":"do","user_management":{"check_user":{"username":"x","passwd":"y"}}})");
    };
    ASSERT_EQ(check(), 0);
    for (const char *dir : {"/tmp/luci-pwderr", "/tmp/luci-sessions"})
        EXPECT_EQ(mode_of(d.path(dir)), 0700u) << dir << " fixed";
    for (const char *dir : {"/tmp/luci-pwderr", "/tmp/luci-sessions"})
        std::filesystem::remove_all(d.path(dir));
    ASSERT_EQ(check(), 0);
    for (const char *dir : {"/tmp/luci-pwderr", "/tmp/luci-sessions"})
        EXPECT_EQ(mode_of(d.path(dir)), 0700u) << dir << " made";
}

} // namespace
