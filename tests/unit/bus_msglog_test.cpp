// Operation log: type limits, templates, the 1023-byte cut, the client
// address from shared memory, and the flush call to the log service.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "platform/shm.h"
#include "platform/msglog.h"
#include "platform/trace.h"

#include "bus_test_root.h"
#include "harness/dsd_harness.h"

namespace {

std::string records_path()
{
    return test_root() + "/var/log/msglog/records";
}

// Every record written so far (a line that is no JSON object is a failure).
std::vector<dsd_answer> read_records()
{
    std::vector<dsd_answer> out;
    std::ifstream in(records_path());
    for (std::string line; std::getline(in, line);)
        out.emplace_back(line);
    return out;
}

class Msglog : public ::testing::Test {
protected:
    void SetUp() override
    {
        test_root();
        unlink(records_path().c_str());
    }
};

} // namespace

TEST_F(Msglog, TypeLimitsDifferBetweenEntryPoints)
{
    EXPECT_EQ(-1, dsd_msglog(6, 1, "x"));
    EXPECT_EQ(-1, dsd_msglog(3, 29, "x"));
    EXPECT_EQ(-1, dsd_msglog_with_user(5, 1, "d", "admin"));
    EXPECT_EQ(-1, dsd_msglog_with_user(3, 34, "d", "admin"));
    EXPECT_TRUE(read_records().empty());

    EXPECT_EQ(0, dsd_msglog(5, 28, "edge"));
    EXPECT_EQ(0, dsd_msglog_with_user(3, 33, "format array", "admin"));
    EXPECT_EQ(0, dsd_msglog_with_user(4, 0, nullptr, "admin"));
    auto recs = read_records();
    ASSERT_EQ(3u, recs.size());
    EXPECT_EQ(5, recs[0].num({"main_type"}));
    EXPECT_EQ(28, recs[0].num({"sub_type"}));
    EXPECT_EQ("edge\r\n", recs[0].str({"text"}));
    EXPECT_EQ(3, recs[1].num({"main_type"}));
    EXPECT_EQ(33, recs[1].num({"sub_type"}));
}

TEST_F(Msglog, NullTextWritesTwoRecords)
{
    EXPECT_EQ(0, dsd_msglog(3, 1, nullptr));
    auto recs = read_records();
    ASSERT_EQ(2u, recs.size());
    EXPECT_EQ(nullptr, recs[0].at({"text"}));
    EXPECT_EQ("(null)\r\n", recs[1].str({"text"}));
}

TEST_F(Msglog, LongDetailIsCutTo1023Bytes)
{
    std::string detail(2000, 'd');
    EXPECT_EQ(0, dsd_msglog_with_user(3, 29, detail.c_str(), "admin"));
    std::string text(3000, 't');
    EXPECT_EQ(0, dsd_msglog(3, 1, text.c_str()));
    auto recs = read_records();
    ASSERT_EQ(2u, recs.size());
    EXPECT_EQ(1023u, recs[0].str({"text"}).size());
    EXPECT_EQ(0u, recs[0].str({"text"}).rfind("用户名: admin\r\nIP地址: ", 0));
    EXPECT_EQ(1023u, recs[1].str({"text"}).size());
}

TEST_F(Msglog, UserTemplatesCarryClientAddressFromSharedMemory)
{
    key_t key = ftok((test_root() + "/usr/bin/dsd").c_str(), 54);
    ASSERT_GT(key, 0);
    int id = shmget(key, 80, IPC_CREAT | 0600);
    ASSERT_GE(id, 0);
    char *block = static_cast<char *>(shmat(id, nullptr, 0));
    ASSERT_NE(reinterpret_cast<char *>(-1), block);
    memset(block, 0, 80);
    strcpy(block + 64, "192.168.1.23");
    dsd_shm_init();

    EXPECT_STREQ("192.168.1.23", get_client_ip());
    EXPECT_EQ(0, dsd_msglog_with_user(3, 29, "创建阵列", "admin"));
    EXPECT_EQ(0, dsd_msglog_with_user(2, 1, nullptr, "guest"));
    auto recs = read_records();
    ASSERT_EQ(2u, recs.size());
    EXPECT_EQ("用户名: admin\r\nIP地址: 192.168.1.23\r\n创建阵列\r\n", recs[0].str({"text"}));
    EXPECT_EQ("用户名: guest\r\nIP地址: 192.168.1.23\r\n", recs[1].str({"text"}));

    shmdt(block);
    shmctl(id, IPC_RMID, nullptr);
}

TEST_F(Msglog, SyncAsksLogServiceToFlush)
{
    EXPECT_EQ(-70101, dsd_sync(0));

    bus_harness bus(test_root());
    ASSERT_TRUE(bus.start("{}"));
    EXPECT_EQ(0, dsd_sync(5));
    auto calls = bus.calls_to("msglog_v2", "msglog_sync");
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ("{}", calls[0].message);

    bus.set_scenario(R"({"objects":{"msglog_v2":{"methods":{"msglog_sync":{"status":9}}}}})");
    EXPECT_EQ(-70102, dsd_sync(0));
    bus.set_scenario(R"({"objects":{"msglog_v2":{"absent":true}}})");
    EXPECT_EQ(-70102, dsd_sync(0));
    bus.stop();
    unlink(bus.log_path().c_str());
}
