// Configuration change events, seen the way a user sees them: through
// `dsdc watch --json` listening on the bus. Every kind of change gives
// exactly one event with the right content, a refused or empty change none,
// a secret's value never; events keep flowing after the bus restarts.
#include "harness/dsd_harness.h"

namespace {

// The member at key as compact JSON text; "<absent>" when missing.
std::string json_at(const dsd_answer &e, const char *key)
{
    json_object *v = e.at({key});
    return v ? json_object_to_json_string_ext(v, JSON_C_TO_STRING_PLAIN) : "<absent>";
}

class ChangeEvents : public dsd_device {
protected:
    void SetUp() override
    {
        boot(2, "{}");
        ASSERT_TRUE(start_watch());
    }
    void TearDown() override
    {
        if (watch_pid > 0) {
            kill(watch_pid, SIGTERM);
            waitpid(watch_pid, nullptr, 0);
        }
    }
    bool start_watch()
    {
        std::string cmd = "exec " + tool_command("dsdc") + " watch --json >'" + d.path("/events.out") + "' 2>'" +
                          d.path("/watch.err") + "'";
        watch_pid = fork();
        if (watch_pid == 0) {
            setenv("DSD_ROOT", d.root.c_str(), 1);
            execl("/bin/sh", "sh", "-c", cmd.c_str(), nullptr);
            _exit(127);
        }
        return watch_pid > 0 && listening(1);
    }
    // Waits until the watch has registered n times on the bus.
    bool listening(int n) const
    {
        return wait_until([&] { return count_of(slurp(d.path("/watch.err")), "listening") >= n; });
    }
    // Every event printed so far (a line that is no JSON object is a failure).
    std::vector<dsd_answer> events() const
    {
        std::vector<dsd_answer> out;
        std::string text = slurp(d.path("/events.out"));
        std::istringstream in(text.substr(0, text.rfind('\n') + 1)); // whole lines only
        for (std::string line; std::getline(in, line);)
            out.emplace_back(line);
        return out;
    }
    // Waits (bounded) until n events were printed; the events then.
    std::vector<dsd_answer> wait_events(size_t n) const
    {
        wait_until([&] { return events().size() >= n; });
        return events();
    }
    pid_t watch_pid = -1;
};

constexpr const char *kSecret = "Very-Secret-42";

TEST_F(ChangeEvents, EachCommittedChangeGivesOneEvent)
{
    const struct {
        const char *request;
        int code;
        // The event expected, or module null for none.
        const char *module, *method, *sections, *extra_key, *extra;
        // A package a callback of the module committed itself: one more event after it.
        const char *also = nullptr;
    } cases[] = {
        {R"({"method":"set","video":{"chn1_main":{"main_bitrate":"2000","main_frame_rate":"65550"},"chn2_main":{"main_bitrate":"1000"}}})",
         0, "video", "set", R"(["chn1_main","chn2_main"])", "options", R"({"chn1_main":["main_bitrate","main_frame_rate"],"chn2_main":["main_bitrate"]})"},
        {R"({"method":"set","video":{"chn1_main":{"main_bitrate":"2000"}}})", 0, nullptr, nullptr, nullptr, nullptr, nullptr},
        {R"({"method":"set","video":{"chn1_main":{"main_bitrate":"9000"}}})", -71713, nullptr, nullptr, nullptr, nullptr, nullptr},
        {R"({"method":"add","user_management":{"table":"guest","name":"guest_7","para":{"username":"bob","passwd":"Very-Secret-42","authority":"2"}}})",
         0, "user_management", "add", R"(["guest_7"])", "types", R"(["guest"])"},
        {R"({"method":"delete","user_management":{"name":"guest_7"}})", 0, "user_management", "delete", R"(["guest_7"])", nullptr, nullptr},
        {R"({"method":"delete","user_management":{"name":"guest_7"}})", -40205, nullptr, nullptr, nullptr, nullptr, nullptr},
        {R"({"method":"do","user_management":{"change_user_info":{"username":"admin","passwd":"wrong","new_passwd":"x"}}})",
         -70312, nullptr, nullptr, nullptr, nullptr, nullptr},
        {R"({"method":"do","user_management":{"change_user_info":{"username":"admin","passwd":"admin","new_passwd":"Very-Secret-42"}}})",
         0, "user_management", "do", "[]", "keyword", R"("change_user_info")"},
        // The before-save callback commits "protocol" ahead of the request (one
        // event still); the after-commit hook commits "network".
        {R"({"method":"set","protocol":{"wan":{"mtu":"1400"}}})", 0, "protocol", "set", R"(["wan"])", "options",
         R"({"wan":["mtu"]})", "network"},
        {R"({"method":"set","protocol":{"wan":{"macaddr":"01-00-5E-00-00-01"}}})", -40311, nullptr, nullptr,
         nullptr, nullptr, nullptr},
    };
    size_t expected = 0;
    int sentinel = 0;
    for (const auto &c : cases) {
        ASSERT_EQ(d.code(c.request), c.code) << c.request << "\n" << d.log();
        // A change answered later shows whether this one sent anything: the
        // sender keeps their order.
        ASSERT_EQ(d.code(R"({"method":"set","system":{"sys":{"dsd_trace":")" + std::string(sentinel++ % 2 ? "0" : "1") + R"("}}})"), 0);
        size_t at = expected + (c.module ? 1 : 0) + (c.also ? 1 : 0);
        expected = at + 1;
        std::vector<dsd_answer> ev = wait_events(expected);
        ASSERT_EQ(ev.size(), expected) << c.request;
        EXPECT_EQ(ev.back().str({"module"}), "system");
        if (!c.module)
            continue;
        // The callback's own commit comes right after the request's event.
        const dsd_answer &e = ev[at - 1 - (c.also ? 1 : 0)];
        for (const dsd_answer *x : {&e, c.also ? &ev[at - 1] : static_cast<const dsd_answer *>(nullptr)}) {
            if (!x)
                continue;
            EXPECT_EQ(x->str({"package"}), x == &e ? c.module : c.also) << c.request;
            EXPECT_EQ(x->str({"module"}), c.module) << c.request;
            EXPECT_EQ(x->str({"method"}), c.method) << c.request;
            EXPECT_EQ(x->str({"user"}), "admin") << c.request;
        }
        EXPECT_EQ(json_at(e, "sections"), c.sections) << c.request;
        if (c.extra_key) {
            EXPECT_EQ(json_at(e, c.extra_key), c.extra) << c.request;
        }
    }
    // Per-package counters: video once, user_management three times.
    std::map<std::string, int> last;
    for (const dsd_answer &e : events()) {
        std::string pkg = e.str({"package"});
        EXPECT_EQ(e.num({"change"}), last[pkg] + 1) << pkg;
        last[pkg] = e.num({"change"});
    }
    EXPECT_EQ(last["video"], 1);
    EXPECT_EQ(last["user_management"], 3);
    EXPECT_EQ(last["protocol"], 1);
    EXPECT_EQ(last["network"], 1);
    EXPECT_EQ(slurp(d.path("/events.out")).find(kSecret), std::string::npos);
}

TEST_F(ChangeEvents, RestoreAnnouncesEachPackageOnce)
{
    std::string file = d.path("/tmp/backup.bin");
    ASSERT_EQ(d.backup_to(file), 0) << d.log();
    ASSERT_EQ(d.restore_from(file), 0) << d.log();
    ASSERT_EQ(d.code(R"({"method":"set","system":{"sys":{"dsd_trace":"1"}}})"), 0);
    std::vector<dsd_answer> ev;
    wait_until([&] { return !(ev = events()).empty() && ev.back().str({"method"}) == "set"; });
    ASSERT_GE(ev.size(), 2u);
    std::map<std::string, int> packages;
    for (size_t i = 0; i + 1 < ev.size(); ++i) {
        EXPECT_EQ(ev[i].str({"keyword"}), "upload_conf_gui");
        EXPECT_EQ(ev[i].str({"module"}), "system");
        ++packages[ev[i].str({"package"})];
    }
    EXPECT_EQ(packages["video"], 1);
    for (const auto &[pkg, n] : packages)
        EXPECT_EQ(n, 1) << pkg;
}

TEST_F(ChangeEvents, EventsKeepFlowingAfterTheBusRestarts)
{
    ASSERT_EQ(d.code(R"({"method":"set","video":{"chn1_main":{"main_bitrate":"3000"}}})"), 0);
    ASSERT_EQ(wait_events(1).size(), 1u);
    ASSERT_GE(bus.stop(), 0);
    ASSERT_EQ(d.code(R"({"method":"set","video":{"chn1_main":{"main_bitrate":"3001"}}})"), 0); // nobody hears it
    ASSERT_TRUE(bus.start());
    ASSERT_TRUE(listening(2)) << slurp(d.path("/watch.err"));
    ASSERT_EQ(d.code(R"({"method":"set","video":{"chn1_main":{"main_bitrate":"3002"}}})"), 0);
    std::vector<dsd_answer> ev = wait_events(2);
    ASSERT_EQ(ev.size(), 2u) << d.log();
    EXPECT_EQ(ev[1].num({"change"}), 3); // the change the bus missed still counts
}

TEST_F(ChangeEvents, WatchFiltersModulesAndPrintsOneLineEach)
{
    std::string out = d.path("/video.out");
    std::string cmd = "DSD_ROOT='" + d.root + "' timeout -k 2 -s INT 3 " + tool_command("dsdc") +
                      " watch video >'" + out + "' 2>/dev/null & sleep 1; ";
    ASSERT_EQ(system((cmd + "true").c_str()), 0);
    ASSERT_EQ(d.code(R"({"method":"set","system":{"sys":{"dsd_trace":"1"}}})"), 0);
    ASSERT_EQ(d.code(R"({"method":"set","video":{"chn2_main":{"main_bitrate":"777"}}})"), 0);
    ASSERT_EQ(wait_events(2).size(), 2u);
    std::string text;
    wait_until([&] { return !(text = slurp(out)).empty(); }, 5000);
    EXPECT_NE(text.find(" set video/video by admin #1: chn2_main[main_bitrate]\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("system"), std::string::npos) << text;
    // Without a bus it cannot listen at all.
    ASSERT_GE(bus.stop(), 0);
    std::string none = "DSD_ROOT='" + d.root + "' " + tool_command("dsdc") + " watch 2>/dev/null";
    int st = system(none.c_str());
    EXPECT_EQ(WIFEXITED(st) ? WEXITSTATUS(st) : -1, 3);
}

} // namespace
