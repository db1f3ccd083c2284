// The read cache seen from a client: a get after a change made behind the
// daemon's back sees it, and a daemon with the cache answers exactly as one
// without it while others write the same files.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "harness/dsd_harness.h"

namespace {

void spill(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

void append(const std::string &path, const std::string &line)
{
    int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0600);
    ASSERT_GE(fd, 0) << path;
    ASSERT_EQ(write(fd, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    close(fd);
}

// One option of one section through a get; a missing answer or option is
// a recorded failure (and "").
std::string option(const dsd_harness &d, const std::string &module, const std::string &section,
                   const char *opt)
{
    return d.ask(R"({"method":"get",")" + module + R"(":{"name":")" + section + "\"}}")
        .str({module.c_str(), section.c_str(), opt});
}

class ReadCache : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(d.make_config(4));
        ASSERT_TRUE(d.start()) << d.log();
    }
    std::string mtu() const { return option(d, "protocol", "wan", "mtu"); }
    std::string motion(const char *opt) const { return option(d, "motion_detection", "chn1_motion_det", opt); }
    std::string protocol_with_mtu(const std::string &value) const
    {
        std::string text = slurp(d.path("/etc/config/protocol"));
        size_t at = text.find("option mtu '");
        EXPECT_NE(at, std::string::npos) << text;
        size_t end = text.find('\'', at + 12);
        return text.substr(0, at + 12) + value + text.substr(end);
    }
    dsd_harness d;
};

TEST_F(ReadCache, OtherWritersAndRestoreAreSeenByTheNextGet)
{
    std::string backup = d.path("/tmp/backup.bin");
    ASSERT_EQ(d.backup_to(backup), 0);
    ASSERT_EQ(mtu(), "1500");
    ASSERT_EQ(motion("enabled"), "off");
    // The uci command line's set: a line appended to the change log.
    append(d.path("/tmp/.uci/motion_detection"), "motion_detection.chn1_motion_det.enabled='on'\n");
    EXPECT_EQ(motion("enabled"), "on");
    // A commit of the uci command line: a new file renamed over the old one,
    // same size, within the same second.
    std::string same_size = protocol_with_mtu("1300");
    ASSERT_EQ(mtu(), "1500");
    spill(d.path("/etc/config/protocol.new"), same_size);
    ASSERT_EQ(rename(d.path("/etc/config/protocol.new").c_str(), d.path("/etc/config/protocol").c_str()), 0);
    EXPECT_EQ(mtu(), "1300");
    // An editor writing the file in place.
    spill(d.path("/etc/config/protocol"), protocol_with_mtu("576"));
    EXPECT_EQ(mtu(), "576");
    // A restore puts back the saved files and drops their change logs.
    ASSERT_EQ(d.restore_from(backup), 0) << d.log();
    EXPECT_EQ(mtu(), "1500");
    EXPECT_EQ(motion("enabled"), "off");
}

// Mirrors the store of one root into another, as one consistent picture:
// the copy is retried while the source changes under it (a background flush
// moves changes from the log into the file).
void mirror_store(const dsd_harness &from, const dsd_harness &to)
{
    namespace fs = std::filesystem;
    auto identity = [&] {
        std::string id;
        for (const char *dir : {"/etc/config", "/tmp/.uci"})
            for (const auto &e : fs::directory_iterator(from.path(dir))) {
                struct stat st;
                if (lstat(e.path().c_str(), &st) == 0)
                    id += e.path().string() + ":" + std::to_string(st.st_ino) + ":" +
                          std::to_string(st.st_size) + ":" + std::to_string(st.st_mtim.tv_nsec) + ";";
            }
        return id;
    };
    for (int attempt = 0; attempt < 50; ++attempt) {
        std::string before = identity();
        for (const char *dir : {"/etc/config", "/tmp/.uci"}) {
            for (const auto &e : fs::directory_iterator(to.path(dir)))
                fs::remove(e.path());
            for (const auto &e : fs::directory_iterator(from.path(dir)))
                if (e.is_regular_file())
                    spill(to.path(dir) + "/" + e.path().filename().string(), slurp(e.path()));
        }
        if (identity() == before)
            return;
    }
    ADD_FAILURE() << "the source store never stood still";
}

// A daemon with the cache against one without: the cached one serves
// concurrent writers (its own sets, and another writer's change lines);
// after each round the uncached one is given the same files and both must
// answer every read byte for byte alike.
TEST(ReadCacheAgreement, CachedAndUncachedAnswersAgreeWithConcurrentWriters)
{
    dsd_harness cached, plain;
    ASSERT_TRUE(cached.make_config(4));
    ASSERT_TRUE(plain.make_config(4));
    mkdir(cached.path("/tmp/.uci").c_str(), 0755);
    mkdir(plain.path("/tmp/.uci").c_str(), 0755);
    ASSERT_TRUE(cached.start()) << cached.log();
    setenv("DSD_UCI_CACHE", "0", 1);
    bool started = plain.start();
    unsetenv("DSD_UCI_CACHE");
    ASSERT_TRUE(started) << plain.log();

    const std::vector<std::string> reads = {
        R"({"method":"get","protocol":{"name":"wan"}})",
        R"({"method":"get","motion_detection":{"name":["chn1_motion_det","chn2_motion_det","chn3_motion_det"]}})",
        R"({"method":"get","motion_detection":{"table":"on_off"}})",
        // a repeated name keeps its first place; two modules in one answer
        R"({"method":"get","motion_detection":{"name":["chn2_motion_det","chn1_motion_det","chn2_motion_det"]},)"
        R"("protocol":{"name":["wan"]}})",
        R"({"method":"get","alarm_input_output":{"name":["alarm1_input_set","alarm2_input_set"]}})",
    };
    // A list a set of the same section must carry along; names with a quote
    // or none at all must read back as they were set.
    append(cached.path("/tmp/.uci/motion_detection"),
           "|motion_detection.chn1_motion_det.zones='a b'\n|motion_detection.chn1_motion_det.zones='it'\\''s'\n");
    const char *names[] = {"It's \"one\"", "", "Alarm In ''", "plain"};
    auto writer = [&](unsigned seed, int ops, bool external) {
        std::mt19937 rng(seed);
        for (int i = 0; i < ops; ++i) {
            int ch = 1 + static_cast<int>(rng() % 3);
            std::string sec = "chn" + std::to_string(ch) + "_motion_det";
            switch (rng() % 5) {
            case 0:
                cached.request(R"({"method":"set","protocol":{"wan":{"mtu":")" +
                               std::to_string(576 + rng() % 900) + "\"}}}");
                break;
            case 1:
                cached.request(R"({"method":"set","motion_detection":{")" + sec +
                               R"(":{"digital_sensitivity":")" + std::to_string(1 + rng() % 100) + "\"}}}");
                break;
            case 2:
                if (external) {
                    append(cached.path("/tmp/.uci/motion_detection"),
                           "motion_detection." + sec + ".enabled='" + (rng() % 2 ? "on" : "off") + "'\n");
                    break;
                }
                [[fallthrough]];
            case 3:
                cached.request(R"({"method":"set","alarm_input_output":{"alarm)" + std::to_string(1 + rng() % 2) +
                               R"(_input_set":{"alarm_name":)" + json_quote(names[rng() % 4]) + "}}}");
                break;
            default:
                cached.request(reads[rng() % reads.size()]);
            }
        }
    };
    const int rounds = 6, ops = 12;
    for (int round = 0; round < rounds; ++round) {
        std::thread a(writer, 100 + round, ops, false);
        std::thread b(writer, 200 + round, ops, true);
        std::thread r(writer, 300 + round, ops, false);
        a.join();
        b.join();
        r.join();
        std::vector<std::string> seen;
        for (const std::string &req : reads)
            seen.push_back(cached.request(req));
        mirror_store(cached, plain);
        for (size_t i = 0; i < reads.size(); ++i) {
            std::string want = plain.request(reads[i]);
            ASSERT_EQ(error_code_of(want), 0) << want;
            EXPECT_EQ(seen[i], want) << "round " << round << ": " << reads[i];
        }
        // Clients whose responses are URL-encoded take another cached path.
        dsd_identity coded;
        coded.client = 1;
        std::string want = plain.request(reads[1], coded);
        ASSERT_EQ(error_code_of(want), 0) << want;
        EXPECT_EQ(cached.request(reads[1], coded), want) << "round " << round;
    }
}

} // namespace
