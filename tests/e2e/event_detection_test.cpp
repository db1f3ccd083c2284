// The detection modules against the real daemon and the host bus.
#include <gtest/gtest.h>
#include <json-c/json.h>

#include <fstream>
#include <iterator>

#include "harness/bus_harness.h"
#include "harness/dsd_harness.h"

namespace {

class Detection : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(d.make_config(4));
        ASSERT_TRUE(bus.start(R"({"objects":{"chm_dev_manager":{"methods":{"chm_ubus_get_device_list":)"
                              R"({"reply":{"added_list":[{"id":1,"online":1},{"id":2,"online":0},)"
                              R"({"id":3,"online":1}]}}}},)"
                              R"("chm_event_detect":{"methods":{"chm_motion_detect_restart":{"reply":{"status":0}}}}}})"));
        ASSERT_TRUE(d.start()) << d.log();
    }
    int code(const std::string &req) { return error_code_of(d.request(req)); }
    std::string pkg(const char *name)
    {
        std::ifstream in(d.path("/etc/config/") + name);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    dsd_harness d;
    bus_harness bus{d.root};
};

TEST_F(Detection, LightAlarmSwitchTellsTheEventServiceOnce)
{
    EXPECT_EQ(code(R"({"method":"set","motion_detection":{"chn3_motion_notif_list":{"light_alarm_enabled":"on"}}})"), 0);
    auto calls = bus.calls_to("chm_event_detect", "chm_set_channel_alarm");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_NE(calls[0].message.find("\"channel\":2"), std::string::npos) << calls[0].message;
    EXPECT_NE(calls[0].message.find("\"light_alarm\":1"), std::string::npos) << calls[0].message;
    EXPECT_NE(calls[0].message.find("\"sound_alarm\":0"), std::string::npos) << calls[0].message;
    // Two notification sections in one request: one walk, two calls.
    EXPECT_EQ(code(R"({"method":"set","motion_detection":{"chn1_motion_notif_list":{"sound_alarm_enabled":"on"},)"
                   R"("chn2_motion_notif_list":{"sound_alarm_enabled":"on"}}})"), 0);
    EXPECT_EQ(bus.calls_to("chm_event_detect", "chm_set_channel_alarm").size(), 3u);
    // A refused value changes nothing and calls nobody.
    EXPECT_EQ(code(R"({"method":"set","motion_detection":{"chn3_motion_notif_list":{"app_enabled":"maybe"}}})"), -70704);
    EXPECT_EQ(bus.calls_to("chm_event_detect", "chm_set_channel_alarm").size(), 3u);
}

TEST_F(Detection, RegionsRoundTripOnTheGrid)
{
    EXPECT_EQ(code(R"({"method":"do","motion_detection":{"chn_add_md_regions":{"region_info":[)"
                   R"({"channel":2,"x_coor":5000,"y_coor":0,"width":5001,"height":10}]}}})"), -70202);
    EXPECT_EQ(code(R"({"method":"do","motion_detection":{"chn_add_md_regions":{"region_info":[)"
                   R"({"channel":2,"x_coor":5000,"y_coor":0,"width":5000,"height":10},)"
                   R"({"channel":2,"x_coor":"null","y_coor":"null","width":"null","height":"null"},)"
                   R"({"channel":2,"x_coor":1,"y_coor":2,"width":3,"height":4}]}}})"), 0);
    std::string res = d.request(R"({"method":"do","motion_detection":{"chn_get_md_regions":{"channel":2}}})");
    EXPECT_EQ(error_code_of(res), 0) << res;
    EXPECT_NE(res.find("chn2_region_info_1"), std::string::npos) << res;
    EXPECT_EQ(res.find("chn2_region_info_2"), std::string::npos) << res; // the cleared slot
    EXPECT_NE(res.find("chn2_region_info_3"), std::string::npos) << res;
    EXPECT_NE(res.find("\"width\": \"5000\""), std::string::npos) << res;
    EXPECT_EQ(code(R"({"method":"do","motion_detection":{"chn_get_md_regions":{"channel":129}}})"), -70201);
    EXPECT_EQ(code(R"({"method":"do","motion_detection":{"chn_get_md_regions":{"channel":0}}})"), -70201);
    EXPECT_EQ(code(R"({"method":"do","tamper_detection":{"chn_add_td_regions":{"region_info":[)"
                   R"({"channel":1,"x_coor":0,"y_coor":0,"width":10,"height":10},)"
                   R"({"channel":1,"x_coor":0,"y_coor":0,"width":20,"height":20}]}}})"), -70801);
    // The restart call carries the mask of the channels touched.
    auto restarts = bus.calls_to("chm_event_detect", "chm_motion_detect_restart");
    ASSERT_FALSE(restarts.empty());
    EXPECT_NE(restarts.back().message.find("\"01" + std::string(126, '0') + "\""), std::string::npos);
}

TEST_F(Detection, DefaultsOnlyTouchOnlineChannelsNotAtDefaults)
{
    EXPECT_EQ(code(R"({"method":"do","motion_detection":{"set_default_motion":{"channel":"1"}}})"), -40209);
    EXPECT_EQ(code(R"({"method":"set","motion_detection":{"chn1_motion_det":{"enabled":"on"},)"
                   R"("chn2_motion_det":{"enabled":"on"}}})"), 0);
    size_t before = bus.calls_to("chm_event_detect", "chm_set_channel_alarm").size();
    std::string reply = d.request(R"({"method":"do","motion_detection":{"set_default_motion":{"channel":"all"}}})");
    EXPECT_EQ(0, error_code_of(reply)) << reply;
    // Channel 1 (online, changed) is reset; 2 is offline; 3 is online but at defaults.
    EXPECT_EQ(bus.calls_to("chm_event_detect", "chm_set_channel_alarm").size(), before + 1);
    // The restart service's answer is passed on with its status as text.
    json_object *r = json_tokener_parse(reply.c_str());
    json_object *status = json_object_object_get(r, "status");
    EXPECT_TRUE(json_object_is_type(status, json_type_string)) << reply;
    EXPECT_STREQ("0", json_object_get_string(status));
    json_object_put(r);
    // A fifth region after a gap is not the default picture: channel 3 is reset.
    const std::string full = R"({"channel":3,"x_coor":0,"y_coor":0,"width":10000,"height":10000})";
    const std::string empty = R"({"channel":3,"x_coor":"null","y_coor":"null","width":"null","height":"null"})";
    EXPECT_EQ(code(R"({"method":"do","motion_detection":{"chn_add_md_regions":{"region_info":[)" + full + "," +
                   empty + "," + empty + "," + empty + R"(,{"channel":3,"x_coor":1,"y_coor":2,"width":3,"height":4}]}}})"),
              0);
    EXPECT_NE(pkg("motion_detection").find("chn3_region_info_5"), std::string::npos);
    EXPECT_EQ(code(R"({"method":"do","motion_detection":{"set_default_motion":{"channel":"all"}}})"), 0);
    EXPECT_EQ(pkg("motion_detection").find("chn3_region_info_5"), std::string::npos);
    EXPECT_EQ(bus.calls_to("chm_event_detect", "chm_set_channel_alarm").size(), before + 2);
    std::string res = d.request(R"({"method":"get","motion_detection":{"name":["chn1_motion_det","chn2_motion_det"]}})");
    json_object *obj = json_tokener_parse(res.c_str());
    json_object *md = json_object_object_get(obj, "motion_detection");
    EXPECT_STREQ(json_object_get_string(json_object_object_get(json_object_object_get(md, "chn1_motion_det"), "enabled")), "off");
    EXPECT_STREQ(json_object_get_string(json_object_object_get(json_object_object_get(md, "chn2_motion_det"), "enabled")), "on");
    json_object_put(obj);
}

TEST_F(Detection, ScheduleAndNotificationKeywordsValidateFirst)
{
    EXPECT_EQ(code(R"({"method":"do","motion_detection":{"chn_set_md_alarm":{"alarm_info":[)"
                   R"({"channel":1,"monday":"[\"0800-1200\"]"},{"channel":2,"monday":"[\"1200-1100\"]"}]}}})"), -71001);
    EXPECT_EQ(pkg("motion_detection").find("0800-1200"), std::string::npos); // nothing written
    EXPECT_EQ(code(R"({"method":"do","motion_detection":{"chn_set_md_alarm":{"alarm_info":[)"
                   R"({"channel":1,"monday":"[\"0800-1200\"]"}]}}})"), 0);
    EXPECT_NE(pkg("motion_detection").find("0800-1200"), std::string::npos);
    EXPECT_EQ(code(R"({"method":"do","motion_detection":{"chn_set_md_notif":{"notif_info":[)"
                   R"({"channel":1,"light_alarm_enabled":"on"}]}}})"), 0);
    auto calls = bus.calls_to("chm_event_detect", "chm_set_channel_alarm");
    ASSERT_FALSE(calls.empty());
    EXPECT_NE(calls.back().message.find("\"light_alarm\":1"), std::string::npos);
    // These two keywords deliberately announce an all-zero mask.
    auto restarts = bus.calls_to("chm_event_detect", "chm_motion_detect_restart");
    ASSERT_FALSE(restarts.empty());
    EXPECT_NE(restarts.back().message.find(std::string(128, '0')), std::string::npos);
    EXPECT_EQ(code(R"({"method":"do","motion_detection":{"chn_set_md_notif":{"notif_info":[null]}}})"), -40209);
    EXPECT_EQ(code(R"({"method":"do","motion_detection":{"chn_set_md_alarm":{"alarm_info":[{"channel":200}]}}})"), -40209);
}

TEST_F(Detection, AlarmInputsReloadOncePerRequest)
{
    EXPECT_EQ(code(R"({"method":"set","alarm_input_output":{"alarm1_input_set":{"alarm_type":"on"},)"
                   R"("alarm2_input_notif_list":{"alarm_output_union":"[1,4]"}}})"), 0);
    EXPECT_EQ(bus.calls_to("record", "event_alarm_in_reconfig").size(), 1u);
    EXPECT_EQ(code(R"({"method":"do","alarm_input_output":{"set_default_alarm_input":{"channel":"all"}}})"), 0);
    EXPECT_NE(pkg("alarm_input_output").find("option alarm_type 'off'"), std::string::npos);
}

TEST_F(Detection, RecordPlanResetAndPlanRules)
{
    EXPECT_EQ(code(R"({"method":"set","record_plan":{"chn2_channel":{"monday":"[\"0800-1200:3\"]"}}})"), -40209);
    EXPECT_EQ(code(R"({"method":"set","record_plan":{"chn2_channel":{"monday":"[\"0800-1200:2\"]"}}})"), 0);
    EXPECT_EQ(bus.calls_to("record", "rec_plan_reconfig").size(), 1u);
    EXPECT_EQ(code(R"({"method":"do","record_plan":{"set_default_plan":{"channel":2}}})"), 0);
    EXPECT_EQ(bus.calls_to("record", "rec_plan_reconfig").size(), 2u);
    EXPECT_EQ(code(R"({"method":"do","record_plan":{"set_default_plan":{"channel":2}}})"), 0); // nothing to do
    EXPECT_EQ(bus.calls_to("record", "rec_plan_reconfig").size(), 2u);
    EXPECT_EQ(code(R"({"method":"do","record_plan":{"set_default_plan":{"channel":0}}})"), -71006);
    EXPECT_EQ(code(R"({"method":"set","cloud_storage":{"chn1_vcs_upload_plan":{"Monday":"[\"0000-2400:1\"]","monday":"x"}}})"), 0);
    EXPECT_EQ(code(R"({"method":"set","msg_push_plan":{"chn1_msg_push_plan":{"push_plan_1":"2400-2400,1"}}})"), -73403);
    EXPECT_EQ(code(R"({"method":"set","msg_push_plan":{"chn1_msg_push_plan":{"push_plan_1":"0800-2000,31"}}})"), 0);
    EXPECT_EQ(bus.calls_to("msg_push", "plan_reconfig").size(), 1u);
}

} // namespace
