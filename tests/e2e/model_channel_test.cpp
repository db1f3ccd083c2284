// The generic pipelines on a camera-channel module with typed sections
// ("motion_detection": sections found through their uci type, light
// commit): get by type, a channel-3 change that survives a restart,
// unchanged and refused sets that write nothing, add up to the type's
// maximum and one more, delete by type and by name.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>

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

class ModelChannel : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(d.make_config(16));
        ASSERT_TRUE(d.start()) << d.log();
    }
    int code(const std::string &request) const { return error_code_of(d.request(request)); }
    // The stored state of the package: its file and its pending change log.
    std::string stored() const
    {
        return slurp(d.path("/etc/config/motion_detection")) + "\n--\n" +
               slurp(d.path("/tmp/.uci/motion_detection"));
    }
    Jso get(const std::string &what) const
    {
        return Jso(json_tokener_parse(
            d.request(R"({"method":"get","motion_detection":)" + what + "}").c_str()));
    }
    std::string option(const char *section, const char *opt) const
    {
        Jso res = get(std::string(R"({"name":")") + section + "\"}");
        json_object *v = nullptr;
        json_object *mod = res ? json_object_object_get(res.get(), "motion_detection") : nullptr;
        json_object *sec = mod ? json_object_object_get(mod, section) : nullptr;
        if (!sec || !json_object_object_get_ex(sec, opt, &v))
            return "<none>";
        return json_object_get_string(v);
    }
    size_t count_type(const char *type) const
    {
        Jso res = get(std::string(R"({"table":")") + type + "\"}");
        json_object *mod = res ? json_object_object_get(res.get(), "motion_detection") : nullptr;
        json_object *arr = mod ? json_object_object_get(mod, type) : nullptr;
        return arr ? json_object_array_length(arr) : 0;
    }
    dsd_harness d;
};

TEST_F(ModelChannel, GetByTypeListsEveryChannel)
{
    Jso res = get(R"({"table":["plan"],"name":"chn16_motion_det"})");
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

TEST_F(ModelChannel, ChannelThreeChangeIsServedAndSurvivesARestart)
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

TEST_F(ModelChannel, UnchangedAndRefusedSetsWriteNothing)
{
    const std::string before = stored();
    int unchanged = d.wait_log("Data unchanged.", 1, 0);
    EXPECT_EQ(code(R"({"method":"set","motion_detection":{"chn3_motion_det":)"
                   R"({"enabled":"off","digital_sensitivity":50}}})"),
              0);
    EXPECT_GT(d.wait_log("Data unchanged.", unchanged + 1), unchanged);
    EXPECT_EQ(code(R"({"method":"set","motion_detection":{"chn3_motion_det":{"sensitivity":"max"}}})"),
              -70703);
    EXPECT_EQ(code(R"({"method":"set","motion_detection":{"chn3_motion_det":)"
                   R"({"digital_sensitivity":"101"}}})"),
              -70703);
    EXPECT_EQ(code(R"({"method":"set","motion_detection":{"chn3_motion_det":{"enabled":1}}})"),
              -70702);
    EXPECT_EQ(stored(), before);
    EXPECT_EQ(option("chn3_motion_det", "enabled"), "off");
}

TEST_F(ModelChannel, AddUpToTheMaximumAndOneMore)
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
    for (size_t n = 1; have < 255; ++n, ++have) {
        std::string req = R"({"method":"add","motion_detection":{"table":"region_info","name":)"
                          R"("region_info_)" + std::to_string(n) + R"(","para":{}}})";
        ASSERT_EQ(code(req), 0) << n;
    }
    EXPECT_EQ(count_type("region_info"), 255u);
    EXPECT_EQ(code(R"({"method":"add","motion_detection":{"table":"region_info",)"
                   R"("name":"region_info_999","para":{}}})"),
              -40207);
    EXPECT_EQ(code(R"({"method":"add","motion_detection":{"table":"region_info",)"
                   R"("name":"region_info_1","para":{}}})"),
              -40203);
    EXPECT_EQ(count_type("region_info"), 255u);
}

TEST_F(ModelChannel, DeleteByTypeAndByName)
{
    EXPECT_EQ(code(R"({"method":"delete","motion_detection":{"name":"chn2_motion_det"}})"), 0);
    EXPECT_EQ(count_type("on_off"), 15u);
    // Still a registered row, now absent from uci.
    EXPECT_EQ(code(R"({"method":"get","motion_detection":{"name":"chn2_motion_det"}})"), -40101);
    EXPECT_EQ(code(R"({"method":"delete","motion_detection":{"table":"region_info"}})"), 0);
    EXPECT_EQ(count_type("region_info"), 0u);
    EXPECT_EQ(code(R"({"method":"delete","motion_detection":{"table":"region_info"}})"), -40205);
    EXPECT_EQ(count_type("plan"), 16u);
}

} // namespace
