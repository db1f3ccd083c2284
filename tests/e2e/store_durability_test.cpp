// The store under concurrent clients and at stop: every change answered 0 is
// on file after the daemon ends and nothing is applied twice (adds racing
// for one slot are held by the model's end-to-end tests). The host libraries
// behave like the device's here, so only the daemon's own serialisation and
// flush keep these true.
#include <sys/mount.h>

#include <cerrno>
#include <cstring>

#include "harness/dsd_harness.h"

namespace {

constexpr int kClients = 6;

std::string set_req(const std::string &sec, const std::string &opt, const std::string &value)
{
    return R"({"method":"set","motion_detection":{")" + sec + R"(":{")" + opt + R"(":")" + value +
           "\"}}}";
}

// The option as dsd answers it (a string); a failure is recorded and ""
// returned when the answer does not carry it.
std::string stored(const dsd_harness &d, const std::string &sec, const std::string &opt)
{
    return d.ask(R"({"method":"get","motion_detection":{"name":")" + sec + "\"}}")
        .str({"motion_detection", sec.c_str(), opt.c_str()});
}

struct writer {
    std::string sec, opt;
    std::vector<std::string> values; // cycled through; the last one sent must stay
};

// Each writer sends `count` sets of its own option; all answered 0.
void run_writers(const dsd_harness &d, const std::vector<writer> &writers, int count)
{
    std::vector<std::thread> threads;
    std::atomic<int> failed{0};
    for (const writer &w : writers) {
        threads.emplace_back([&, w] {
            for (int i = 0; i < count; i++) {
                if (d.code(set_req(w.sec, w.opt, w.values[i % w.values.size()])) != 0)
                    failed++;
            }
        });
    }
    for (auto &t : threads)
        t.join();
    EXPECT_EQ(failed.load(), 0);
}

using StoreDurability = dsd_device;

std::string last_value(const writer &w, int count)
{
    return w.values[(count - 1) % w.values.size()];
}

TEST_F(StoreDurability, SixClientsOnOnePackageAndOneSectionLoseNothing)
{
    boot(kClients, nullptr, {}, {});
    ASSERT_NE(stored(d, "chn1_motion_det", "digital_sensitivity"), "") << "the precondition: a readable option";
    const int count = 200 / harness_slowdown();

    std::vector<writer> sections, options;
    for (int c = 1; c <= kClients; c++) {
        writer w{"chn" + std::to_string(c) + "_motion_det", "digital_sensitivity", {}};
        for (int v = 0; v < 7; v++)
            w.values.push_back(std::to_string(c * 10 + v));
        sections.push_back(w);
    }
    for (const char *opt : {"enabled", "people_enabled", "vehicle_enabled"})
        options.push_back({"chn1_motion_det", opt, {"on", "off"}});
    options.push_back({"chn1_motion_det", "sensitivity", {"low", "high", "medium"}});
    options.push_back({"chn1_motion_det", "digital_sensitivity", {"3", "4", "5", "6", "7"}});

    run_writers(d, sections, count);
    for (const writer &w : sections)
        EXPECT_EQ(stored(d, w.sec, w.opt), last_value(w, count)) << w.sec;
    run_writers(d, options, count + 1);
    for (const writer &w : options)
        EXPECT_EQ(stored(d, w.sec, w.opt), last_value(w, count + 1)) << w.opt;

    // SIGTERM: the light commit's changes are flushed, and dsd exits 0.
    int status = d.stop();
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(slurp(d.path("/tmp/.uci/motion_detection")), ""); // so what is read is committed
    EXPECT_EQ(d.uci_get("motion_detection", "chn1_motion_det", ""), "on_off");
    for (const writer &w : options)
        EXPECT_EQ(d.uci_get("motion_detection", w.sec, w.opt), last_value(w, count + 1)) << w.opt;
}

TEST_F(StoreDurability, SigtermAfterABusCallFlushesAndExitsZero)
{
    boot(2, nullptr, {}, {});
    ASSERT_EQ(d.code(set_req("chn2_motion_det", "sensitivity", "high")), 0);
    // A forward connects to the bus (none runs here): the bus library takes
    // SIGTERM over, as uloop_init does on the device.
    d.request(R"({"method":"forward","destination":"ipc","channel":1,"content":{"cmd":"get"}})");
    ASSERT_NE(slurp(d.path("/tmp/.uci/motion_detection")), "");
    int status = d.stop();
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(slurp(d.path("/tmp/.uci/motion_detection")), ""); // so what is read is committed
    EXPECT_EQ(d.uci_get("motion_detection", "chn2_motion_det", "sensitivity"), "high");
}

// SIGTERM while four clients stream sets, then the change logs under
// /tmp/.uci wiped as a reboot wipes them, then a restart: every value that
// was answered 0 is in /etc/config (or the one in flight, which may have
// landed before the stop).
TEST_F(StoreDurability, SigtermMidStreamThenRebootKeepsEveryAnsweredValue)
{
    constexpr int kWriters = 4;
    boot(kWriters, nullptr, {}, {});
    struct last {
        std::atomic<int> acked{-1}, in_flight{-1};
    } state[kWriters];
    std::atomic<bool> stopping{false};
    std::atomic<int> answered{0};
    std::vector<std::thread> threads;
    for (int w = 0; w < kWriters; w++) {
        threads.emplace_back([&, w] {
            std::string sec = "chn" + std::to_string(w + 1) + "_motion_det";
            for (int i = 1; !stopping; i++) {
                int value = i % 101;
                state[w].in_flight = value;
                std::string res = d.request(set_req(sec, "digital_sensitivity", std::to_string(value)));
                if (res.empty()) {
                    EXPECT_TRUE(stopping.load()) << "no answer before the stop";
                    return;
                }
                if (error_code_or_none(res) != 0) {
                    ADD_FAILURE() << sec << ": " << res;
                    return;
                }
                state[w].acked = value;
                answered++;
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(scaled_ms(400)));
    stopping = true;
    int status = d.stop();
    for (auto &t : threads)
        t.join();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_GT(answered.load(), kWriters) << "the stop came before the stream";
    ASSERT_EQ(system(("rm -rf '" + d.path("/tmp/.uci") + "' && mkdir '" + d.path("/tmp/.uci") + "'").c_str()), 0);
    ASSERT_TRUE(d.start({}));
    for (int w = 0; w < kWriters; w++) {
        std::string sec = "chn" + std::to_string(w + 1) + "_motion_det";
        std::string on_file = d.uci_get("motion_detection", sec, "digital_sensitivity");
        int acked = state[w].acked, flying = state[w].in_flight;
        EXPECT_TRUE(on_file == std::to_string(acked) || on_file == std::to_string(flying))
            << sec << ": on file " << on_file << ", answered " << acked << ", in flight " << flying;
        EXPECT_EQ(stored(d, sec, "digital_sensitivity"), on_file);
    }
}

// A restore while a client streams sets of a restored package: both are
// answered, the package stays whole, and what is on file afterwards is the
// backup's value or one of the sets answered after the restore began; a set
// after both lands.
TEST_F(StoreDurability, RestoreDuringSetsLeavesOneWholeState)
{
    boot(2, nullptr, {}, {});
    const std::string sec = "chn1_motion_det", backup = d.path("/tmp/backup.bin");
    ASSERT_EQ(d.code(set_req(sec, "digital_sensitivity", "33")), 0);
    ASSERT_EQ(d.backup_to(backup), 0);
    std::atomic<bool> restoring{false}, done{false};
    std::vector<int> after; // values answered 0 once the restore was sent
    std::thread writer([&] {
        for (int v = 40; !done; v = v == 100 ? 40 : v + 1) {
            bool late = restoring;
            if (d.code(set_req(sec, "digital_sensitivity", std::to_string(v))) == 0 && late)
                after.push_back(v);
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(scaled_ms(50)));
    restoring = true;
    EXPECT_EQ(d.restore_from(backup), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(scaled_ms(50)));
    done = true;
    writer.join();
    std::string got = stored(d, sec, "digital_sensitivity");
    bool known = got == "33";
    for (int v : after)
        known = known || got == std::to_string(v);
    EXPECT_TRUE(known) << "on file " << got << ": neither the backup's value nor a set answered after it";
    EXPECT_EQ(d.uci_get("motion_detection", sec, "digital_sensitivity"), got);
    EXPECT_NE(d.uci_get("motion_detection", "chn2_motion_det", "enabled"), "") << "the package lost its sections";
    ASSERT_EQ(d.code(set_req(sec, "digital_sensitivity", "12")), 0);
    EXPECT_EQ(d.uci_get("motion_detection", sec, "digital_sensitivity"), "12");
}

// A small tmpfs over the save directory, unmounted on every path.
struct tmpfs_mount {
    std::string dir;
    int error = 0; // errno of the mount, 0 when mounted
    explicit tmpfs_mount(const std::string &d) : dir(d)
    {
        mkdir(dir.c_str(), 0700);
        // 0700: dsd replaces a save directory others could write to.
        if (mount("tmpfs", dir.c_str(), "tmpfs", 0, "size=64k,mode=0700") != 0)
            error = errno;
    }
    ~tmpfs_mount()
    {
        if (error == 0)
            umount2(dir.c_str(), MNT_DETACH);
    }
};

// Every line of a change log is whole: a delta line of motion_detection
// (an optional command character first) whose value, if any, is closed.
void expect_whole_delta_lines(const std::string &log)
{
    EXPECT_TRUE(log.empty() || log.back() == '\n') << "torn last line";
    std::istringstream in(log);
    for (std::string l; std::getline(in, l);) {
        size_t eq = l.find("='");
        EXPECT_TRUE(l.find("motion_detection.") <= 1 && (l.find('=') == std::string::npos ||
                                                          (eq != std::string::npos && l.size() > eq + 2 && l.back() == '\''))) << l;
    }
}

TEST_F(StoreDurability, FullSaveAreaAnswersAnErrorAndKeepsTheLogWhole)
{
    ASSERT_TRUE(d.make_config(4));
    tmpfs_mount area(d.path("/tmp/.uci"));
    if (area.error != 0)
        GTEST_SKIP() << "cannot mount a tmpfs here (" << strerror(area.error)
                     << "): needs root or CAP_SYS_ADMIN";
    ASSERT_TRUE(d.start({}));
    ASSERT_NE(stored(d, "chn1_motion_det", "digital_sensitivity"), "") << "the precondition: a readable option";
    // All but one page taken: a few dozen changes fit.
    std::string junk = d.path("/tmp/.uci/junk");
    std::ofstream(junk, std::ios::binary) << std::string(60 * 1024, 'x');
    ASSERT_EQ(slurp(junk).size(), 60u * 1024);

    std::map<std::string, std::string> acked;
    int failed_code = 0, value = 0;
    std::string failed_sec, sec;
    for (int i = 0; i < 1000 && failed_code == 0; i++) {
        sec = "chn" + std::to_string(i % 4 + 1) + "_motion_det";
        value = 10 + i % 80;
        failed_code = d.code(set_req(sec, "digital_sensitivity", std::to_string(value)));
        if (failed_code == 0)
            acked[sec] = std::to_string(value);
    }
    ASSERT_NE(failed_code, 0) << "the save area never filled";
    ASSERT_NE(failed_code, kNoErrorCode) << "no error_code in the answer";
    EXPECT_GT(acked.size(), 0u);
    expect_whole_delta_lines(slurp(d.path("/tmp/.uci/motion_detection")));
    for (const auto &[s, v] : acked)
        EXPECT_EQ(stored(d, s, "digital_sensitivity"), v) << s;

    ASSERT_EQ(unlink(junk.c_str()), 0);
    ASSERT_EQ(d.code(set_req(sec, "digital_sensitivity", "99")), 0);
    EXPECT_EQ(stored(d, sec, "digital_sensitivity"), "99");
    expect_whole_delta_lines(slurp(d.path("/tmp/.uci/motion_detection")));
}

} // namespace
