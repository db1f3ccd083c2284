// The read cache seen from a client: a get after a change made behind the
// daemon's back sees it (agreement with a fresh parse is held by the store's
// view tests).
#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <string>

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

class ReadCache : public dsd_device {
protected:
    void SetUp() override { boot(4); }
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

} // namespace
