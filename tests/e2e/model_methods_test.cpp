// get, set, add and delete against the real daemon on a root written by
// mkconfig: data served out of the box, what reaches the files, and the code
// of each refused request shape with nothing changed on disk. The camera
// channel module "motion_detection" has typed sections found through their
// uci type and a light commit: get by type, a channel-3 change that survives
// a restart, add up to the type's maximum and one more, delete by type.
#include <gtest/gtest.h>
#include <json-c/json.h>

#include <string>
#include <thread>
#include <vector>

#include "harness/dsd_harness.h"

namespace {

class ModelE2E : public dsd_device {
protected:
    void SetUp() override { boot(16); }
    dsd_answer md(const std::string &what) const
    {
        return d.ask(R"({"method":"get","motion_detection":)" + what + "}");
    }
    // Sections of a type the get lists (0 when it answers no array).
    size_t count_type(const char *type) const
    {
        dsd_answer res = md(std::string(R"({"table":")") + type + "\"}");
        json_object *arr = res.at({"motion_detection", type});
        return arr && json_object_is_type(arr, json_type_array) ? json_object_array_length(arr) : 0;
    }
};

TEST_F(ModelE2E, ConcurrentDeletesAcrossChannelsAllLand)
{
    // Six clients, each deleting its own channels' sections of one package,
    // both light-committed (image) and fully committed (record_control).
    std::vector<std::thread> clients;
    std::vector<int> failures(6, 0);
    for (int c = 0; c < 6; ++c) {
        clients.emplace_back([&, c] {
            for (int ch = c + 1; ch <= 12; ch += 6) {
                std::string n = std::to_string(ch);
                if (d.code(R"({"method":"delete","image":{"name":"chn)" + n + R"(_day"}})") != 0)
                    ++failures[c];
                if (d.code(R"({"method":"delete","record_control":{"name":"chn)" + n +
                         R"(_record"}})") != 0)
                    ++failures[c];
            }
        });
    }
    for (auto &t : clients)
        t.join();
    for (int c = 0; c < 6; ++c)
        EXPECT_EQ(failures[c], 0) << "client " << c;
    for (int ch = 1; ch <= 16; ++ch) {
        std::string n = std::to_string(ch);
        int expect = ch <= 12 ? -40101 : 0;
        EXPECT_EQ(d.code(R"({"method":"get","image":{"name":"chn)" + n + R"(_day"}})"), expect) << ch;
        EXPECT_EQ(d.code(R"({"method":"get","record_control":{"name":"chn)" + n + R"(_record"}})"),
                  expect)
            << ch;
    }
    EXPECT_EQ(d.uci_get("record_control", "chn12_record", "", true), "");
    EXPECT_NE(d.uci_get("record_control", "chn13_record", "", true), "");
}

TEST_F(ModelE2E, AddUpToTheMaximumAndOneMore)
{
    size_t have = count_type("region_info");
    ASSERT_EQ(have, 16u);
    // Names the "_%d" scan lets through but uci would never load.
    for (const char *bad : {"region_info_x", "region_info_-5", "region_info_ 7", "region_info_+3"}) {
        EXPECT_EQ(d.code(std::string(R"({"method":"add","motion_detection":{"table":"region_info",)") +
                       R"("name":")" + bad + R"(","para":{}}})"),
                  -70204)
            << bad;
    }
    auto add = [](const std::string &n) {
        return R"({"method":"add","motion_detection":{"table":"region_info","name":"region_info_)" + n +
               R"(","para":{}}})";
    };
    for (size_t n = 1; have < 254; ++n, ++have)
        ASSERT_EQ(d.code(add(std::to_string(n))), 0) << n;
    // Two adds of different names race for the last free slot: one wins.
    // Rounds free the slot again by deleting the winner; a race is caught
    // only when the two overlap, hence thirty of them.
    for (int round = 0; round < 30; round++) {
        const std::string names[2] = {std::to_string(500 + 2 * round), std::to_string(501 + 2 * round)};
        int codes[2] = {kNoErrorCode, kNoErrorCode};
        std::thread a([&] { codes[0] = d.code(add(names[0])); });
        std::thread b([&] { codes[1] = d.code(add(names[1])); });
        a.join();
        b.join();
        ASSERT_EQ(std::min(codes[0], codes[1]), -40207) << "round " << round;
        ASSERT_EQ(std::max(codes[0], codes[1]), 0) << "round " << round;
        ASSERT_EQ(count_type("region_info"), 255u) << "round " << round;
        const std::string &won = names[codes[0] == 0 ? 0 : 1];
        ASSERT_EQ(d.code(R"({"method":"delete","motion_detection":{"name":"region_info_)" + won + "\"}}"), 0);
    }
    ASSERT_EQ(d.code(add("999")), 0);
    EXPECT_EQ(d.code(add("997")), -40207);
    EXPECT_EQ(d.code(R"({"method":"add","motion_detection":{"table":"region_info",)"
                   R"("name":"region_info_1","para":{}}})"),
              -40203);
    EXPECT_EQ(count_type("region_info"), 255u);
}

TEST_F(ModelE2E, DeleteByTypeAndByName)
{
    EXPECT_EQ(d.code(R"({"method":"delete","motion_detection":{"name":"chn2_motion_det"}})"), 0);
    EXPECT_EQ(count_type("on_off"), 15u);
    EXPECT_EQ(d.uci_get("motion_detection", "chn2_motion_det", "enabled"), ""); // gone from the files too
    EXPECT_NE(d.uci_get("motion_detection", "chn3_motion_det", "enabled"), "");
    // Still a registered row, now absent from uci.
    EXPECT_EQ(d.code(R"({"method":"get","motion_detection":{"name":"chn2_motion_det"}})"), -40101);
    EXPECT_EQ(d.code(R"({"method":"delete","motion_detection":{"table":"region_info"}})"), 0);
    EXPECT_EQ(count_type("region_info"), 0u);
    EXPECT_EQ(d.code(R"({"method":"delete","motion_detection":{"table":"region_info"}})"), -40205);
    EXPECT_EQ(count_type("plan"), 16u);
}

} // namespace
