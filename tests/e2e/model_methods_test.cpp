// get, set, add and delete against the real daemon on a root written by
// mkconfig: data served out of the box, what reaches the files, and the code
// of each refused request shape with nothing changed on disk. The camera
// channel module "motion_detection" has typed sections found through their
// uci type and a light commit: get by type, a channel-3 change that survives
// a restart, add up to the type's maximum and one more, delete by type.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "harness/dsd_harness.h"

namespace {

struct JsoDel {
    void operator()(json_object *o) const { json_object_put(o); }
};
using Jso = std::unique_ptr<json_object, JsoDel>;

std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

class ModelE2E : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(d.make_config(16));
        ASSERT_TRUE(d.start()) << d.log();
    }
    std::string pkg(const char *name) const { return slurp(d.path("/etc/config/") + name); }
    int code(const std::string &request) const { return error_code_of(d.request(request)); }
    Jso md(const std::string &what) const
    {
        return Jso(json_tokener_parse(
            d.request(R"({"method":"get","motion_detection":)" + what + "}").c_str()));
    }
    std::string option(const char *section, const char *opt) const
    {
        Jso res = md(std::string(R"({"name":")") + section + "\"}");
        json_object *v = nullptr;
        json_object *mod = res ? json_object_object_get(res.get(), "motion_detection") : nullptr;
        json_object *sec = mod ? json_object_object_get(mod, section) : nullptr;
        if (!sec || !json_object_object_get_ex(sec, opt, &v))
            return "<none>";
        return json_object_get_string(v);
    }
    size_t count_type(const char *type) const
    {
        Jso res = md(std::string(R"({"table":")") + type + "\"}");
        json_object *mod = res ? json_object_object_get(res.get(), "motion_detection") : nullptr;
        json_object *arr = mod ? json_object_object_get(mod, type) : nullptr;
        return arr ? json_object_array_length(arr) : 0;
    }
    dsd_harness d;
};

TEST_F(ModelE2E, SetKeepsFilesWhenNothingChangesOrIsRefused)
{
    const std::string before = pkg("record_control");
    struct stat st0 {};
    ASSERT_EQ(stat(d.path("/etc/config/record_control").c_str(), &st0), 0);
    // An empty string for an option uci does not hold is no change.
    EXPECT_EQ(code(R"({"method":"set","record_control":{"chn3_record":{"enabled":""}}})"), 0);
    // Shapes refused by the diff keep the request's initial code (more in the
    // unit tests).
    EXPECT_EQ(code(R"({"method":"set","record_control":{"chn99_record":{"a":"1"}}})"), -40101);
    EXPECT_EQ(code(R"({"method":"set","record_control":{}})"), -40101);
    // Options without a checker are dropped, huge ones included: the section
    // is saved with nothing in it.
    std::string huge(200000, 'x');
    EXPECT_EQ(code(R"({"method":"set","record_control":{"chn3_record":{"a":")" + huge +
                   R"(","b":7,"c":["1",2]}}})"),
              0);
    EXPECT_EQ(pkg("record_control"), before);
    dsd_answer res = d.ask(R"({"method":"get","record_control":{"name":"chn3_record"}})");
    EXPECT_EQ(res.code(), 0);
    ASSERT_NE(res.at({"record_control", "chn3_record"}), nullptr) << res.text;
    EXPECT_EQ(res.at({"record_control", "chn3_record", "a"}), nullptr) << res.text;
}

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
                if (code(R"({"method":"delete","image":{"name":"chn)" + n + R"(_day"}})") != 0)
                    ++failures[c];
                if (code(R"({"method":"delete","record_control":{"name":"chn)" + n +
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
        EXPECT_EQ(code(R"({"method":"get","image":{"name":"chn)" + n + R"(_day"}})"), expect) << ch;
        EXPECT_EQ(code(R"({"method":"get","record_control":{"name":"chn)" + n + R"(_record"}})"),
                  expect)
            << ch;
    }
    EXPECT_EQ(pkg("record_control").find("'chn12_record'"), std::string::npos);
    EXPECT_NE(pkg("record_control").find("'chn13_record'"), std::string::npos);
}

TEST_F(ModelE2E, GetByTypeListsEveryChannel)
{
    Jso res = md(R"({"table":["plan"],"name":"chn16_motion_det"})");
    ASSERT_NE(res, nullptr);
    json_object *mod = json_object_object_get(res.get(), "motion_detection");
    json_object *plans = json_object_object_get(mod, "plan");
    ASSERT_TRUE(json_object_is_type(plans, json_type_array));
    ASSERT_EQ(json_object_array_length(plans), 16u);
    json_object *first = json_object_array_get_idx(plans, 0);
    EXPECT_NE(json_object_object_get(first, "chn1_alarm_setting"), nullptr);
    EXPECT_NE(json_object_object_get(mod, "chn16_motion_det"), nullptr);
    EXPECT_EQ(count_type("no_such_type"), 0u);
    EXPECT_EQ(code(R"({"method":"get","motion_detection":{"table":"no_such_type"}})"), -40106);
}

TEST_F(ModelE2E, ChannelThreeChangeIsServedAndSurvivesARestart)
{
    ASSERT_EQ(option("chn3_motion_det", "enabled"), "off");
    EXPECT_EQ(code(R"({"method":"set","motion_detection":{"chn3_motion_det":)"
                   R"({"enabled":"on","digital_sensitivity":70,"sensitivity":"medium"}}})"),
              0);
    EXPECT_EQ(option("chn3_motion_det", "enabled"), "on");
    EXPECT_EQ(option("chn3_motion_det", "digital_sensitivity"), "70");
    EXPECT_EQ(option("chn4_motion_det", "enabled"), "off");
    ASSERT_GE(d.stop(), 0);
    ASSERT_TRUE(d.start()) << d.log();
    EXPECT_EQ(option("chn3_motion_det", "enabled"), "on");
    EXPECT_EQ(option("chn3_motion_det", "digital_sensitivity"), "70");
}

TEST_F(ModelE2E, AddUpToTheMaximumAndOneMore)
{
    size_t have = count_type("region_info");
    ASSERT_EQ(have, 16u);
    // Names the "_%d" scan lets through but uci would never load.
    for (const char *bad : {"region_info_x", "region_info_-5", "region_info_ 7", "region_info_+3"}) {
        EXPECT_EQ(code(std::string(R"({"method":"add","motion_detection":{"table":"region_info",)") +
                       R"("name":")" + bad + R"(","para":{}}})"),
                  -70204)
            << bad;
    }
    auto add = [](const std::string &n) {
        return R"({"method":"add","motion_detection":{"table":"region_info","name":"region_info_)" + n +
               R"(","para":{}}})";
    };
    for (size_t n = 1; have < 254; ++n, ++have)
        ASSERT_EQ(code(add(std::to_string(n))), 0) << n;
    // Two adds of different names race for the last free slot: one wins.
    // Rounds free the slot again by deleting the winner.
    for (int round = 0; round < 10; round++) {
        const std::string names[2] = {std::to_string(500 + 2 * round), std::to_string(501 + 2 * round)};
        int codes[2] = {kNoErrorCode, kNoErrorCode};
        std::thread a([&] { codes[0] = code(add(names[0])); });
        std::thread b([&] { codes[1] = code(add(names[1])); });
        a.join();
        b.join();
        ASSERT_EQ(std::min(codes[0], codes[1]), -40207) << "round " << round;
        ASSERT_EQ(std::max(codes[0], codes[1]), 0) << "round " << round;
        ASSERT_EQ(count_type("region_info"), 255u) << "round " << round;
        const std::string &won = names[codes[0] == 0 ? 0 : 1];
        ASSERT_EQ(code(R"({"method":"delete","motion_detection":{"name":"region_info_)" + won + "\"}}"), 0);
    }
    ASSERT_EQ(code(add("999")), 0);
    EXPECT_EQ(code(add("997")), -40207);
    EXPECT_EQ(code(R"({"method":"add","motion_detection":{"table":"region_info",)"
                   R"("name":"region_info_1","para":{}}})"),
              -40203);
    EXPECT_EQ(count_type("region_info"), 255u);
}

TEST_F(ModelE2E, DeleteByTypeAndByName)
{
    EXPECT_EQ(code(R"({"method":"delete","motion_detection":{"name":"chn2_motion_det"}})"), 0);
    EXPECT_EQ(count_type("on_off"), 15u);
    EXPECT_EQ(d.uci_get("motion_detection", "chn2_motion_det", "enabled"), ""); // gone from the files too
    EXPECT_NE(d.uci_get("motion_detection", "chn3_motion_det", "enabled"), "");
    // Still a registered row, now absent from uci.
    EXPECT_EQ(code(R"({"method":"get","motion_detection":{"name":"chn2_motion_det"}})"), -40101);
    EXPECT_EQ(code(R"({"method":"delete","motion_detection":{"table":"region_info"}})"), 0);
    EXPECT_EQ(count_type("region_info"), 0u);
    EXPECT_EQ(code(R"({"method":"delete","motion_detection":{"table":"region_info"}})"), -40205);
    EXPECT_EQ(count_type("plan"), 16u);
}

} // namespace
