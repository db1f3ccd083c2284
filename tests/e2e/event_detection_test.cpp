// The detection modules against the real daemon and the host bus.
#include "harness/dsd_harness.h"

namespace {

class Detection : public dsd_device {
protected:
    void SetUp() override
    {
        boot(4, R"({"objects":{"chm_dev_manager":{"methods":{"chm_ubus_get_device_list":)"
                              R"({"reply":{"added_list":[{"id":1,"online":1},{"id":2,"online":0},)"
                              R"({"id":3,"online":1}]}}}},)"
                   R"("chm_event_detect":{"default":{"reply":{"status":0}}}}})");
    }
};

// The five detection modules share one shape; a row differs only in names.
struct member_row {
    const char *module, *switch_fmt, *notif_fmt, *default_kw, *restart, *record;
};
const member_row kMembers[] = {
    {"motion_detection", "chn%d_motion_det", "chn%d_motion_notif_list", "set_default_motion",
     "chm_motion_detect_restart", "event_motion_reconfig"},
    {"intrusion_detection", "chn%d_detection", "chn%d_notif_list", "set_default_intrusion",
     "chm_intrusion_detect_restart", "event_intrusion_reconfig"},
    {"linecross_detection", "chn%d_detection", "chn%d_notif_list", "set_default_linecross",
     "chm_linecross_detect_restart", "event_linecross_reconfig"},
    {"tamper_detection", "chn%d_tamper_det", "chn%d_tamper_notif_list", "set_default_tamper",
     "chm_tamper_detect_restart", "event_occlusion_reconfig"},
    {"face_comparison", "chn%d_face_comparison", "chn%d_group_info_white", "set_default_facecomparison",
     "chm_face_comparison_restart", "event_face_comparison_reconfig"},
};

std::string chn(const char *fmt, int n)
{
    char out[64];
    snprintf(out, sizeof out, fmt, n);
    return out;
}

// Per member: the switch is stored and a bad value refused; a notification
// set tells the event service about that channel's light and sound; the
// default keyword resets the online channel that differs, announces the
// online channels' mask to the restart method and tells the recorder.
TEST_F(Detection, FamilyMembersShareTheirShape)
{
    for (const member_row &m : kMembers) {
        SCOPED_TRACE(m.module);
        const std::string mod = m.module, sw1 = chn(m.switch_fmt, 1), nt3 = chn(m.notif_fmt, 3);
        EXPECT_EQ(d.code(R"({"method":"set",")" + mod + R"(":{")" + sw1 + R"(":{"enabled":"on"}}})"), 0);
        EXPECT_LT(d.code(R"({"method":"set",")" + mod + R"(":{")" + sw1 + R"(":{"enabled":"maybe"}}})"), 0);
        EXPECT_EQ(d.uci_get(mod, sw1, "enabled"), "on");
        dsd_answer got = d.ask(R"({"method":"get",")" + mod + R"(":{"name":")" + sw1 + R"("}})");
        EXPECT_TRUE(has_string(got, {m.module, sw1.c_str(), "enabled"}, "on"));

        size_t alarms = bus.calls_to("chm_event_detect", "chm_set_channel_alarm").size();
        EXPECT_EQ(d.code(R"({"method":"set",")" + mod + R"(":{")" + nt3 + R"(":{"sound_alarm_enabled":"on"}}})"), 0);
        auto calls = bus.calls_to("chm_event_detect", "chm_set_channel_alarm");
        ASSERT_EQ(calls.size(), alarms + 1);
        dsd_answer msg(calls.back().message);
        EXPECT_EQ(msg.num({"channel"}), 2);
        EXPECT_EQ(msg.num({"sound_alarm"}), 1);

        size_t records = bus.calls_to("record", m.record).size();
        EXPECT_EQ(d.code(R"({"method":"do",")" + mod + R"(":{")" + m.default_kw + R"(":{"channel":"all"}}})"), 0);
        EXPECT_EQ(d.uci_get(mod, sw1, "enabled"), "off");
        EXPECT_EQ(bus.calls_to("record", m.record).size(), records + 1);
        auto restarts = bus.calls_to("chm_event_detect", m.restart);
        ASSERT_FALSE(restarts.empty());
        EXPECT_TRUE(has_string(dsd_answer(restarts.back().message), {"channel"}, "101" + std::string(125, '0')));
    }
}

// One call per notification section changed (the message itself is held by
// the family test above); a refused value calls nobody.
TEST_F(Detection, EachChangedNotificationSectionIsOneCall)
{
    EXPECT_EQ(d.code(R"({"method":"set","motion_detection":{"chn1_motion_notif_list":{"sound_alarm_enabled":"on"},)"
                   R"("chn2_motion_notif_list":{"light_alarm_enabled":"on"}}})"), 0);
    EXPECT_EQ(bus.calls_to("chm_event_detect", "chm_set_channel_alarm").size(), 2u);
    EXPECT_EQ(d.code(R"({"method":"set","motion_detection":{"chn3_motion_notif_list":{"app_enabled":"maybe"}}})"), -70704);
    EXPECT_EQ(bus.calls_to("chm_event_detect", "chm_set_channel_alarm").size(), 2u);
}

TEST_F(Detection, RegionsRoundTripOnTheGrid)
{
    EXPECT_EQ(d.code(R"({"method":"do","motion_detection":{"chn_add_md_regions":{"region_info":[)"
                   R"({"channel":2,"x_coor":5000,"y_coor":0,"width":5001,"height":10}]}}})"), -70202);
    EXPECT_EQ(d.code(R"({"method":"do","motion_detection":{"chn_add_md_regions":{"region_info":[)"
                   R"({"channel":2,"x_coor":5000,"y_coor":0,"width":5000,"height":10},)"
                   R"({"channel":2,"x_coor":"null","y_coor":"null","width":"null","height":"null"},)"
                   R"({"channel":2,"x_coor":1,"y_coor":2,"width":3,"height":4}]}}})"), 0);
    dsd_answer res = d.ask(R"({"method":"do","motion_detection":{"chn_get_md_regions":{"channel":2}}})");
    EXPECT_EQ(res.code(), 0);
    ASSERT_EQ(res.len({"region_info"}), 2); // slot 2 was cleared
    EXPECT_TRUE(has_string(res, {"region_info", "#0", ".name"}, "chn2_region_info_1"));
    EXPECT_TRUE(has_string(res, {"region_info", "#0", "width"}, "5000"));
    EXPECT_TRUE(has_string(res, {"region_info", "#1", ".name"}, "chn2_region_info_3"));
    EXPECT_TRUE(has_string(res, {"region_info", "#1", "height"}, "4"));
    EXPECT_EQ(d.code(R"({"method":"do","motion_detection":{"chn_get_md_regions":{"channel":129}}})"), -70201);
    EXPECT_EQ(d.code(R"({"method":"do","motion_detection":{"chn_get_md_regions":{"channel":0}}})"), -70201);
    EXPECT_EQ(d.code(R"({"method":"do","tamper_detection":{"chn_add_td_regions":{"region_info":[)"
                   R"({"channel":1,"x_coor":0,"y_coor":0,"width":10,"height":10},)"
                   R"({"channel":1,"x_coor":0,"y_coor":0,"width":20,"height":20}]}}})"), -70801);
    // The restart call carries the mask of the channels touched.
    auto restarts = bus.calls_to("chm_event_detect", "chm_motion_detect_restart");
    ASSERT_FALSE(restarts.empty());
    EXPECT_TRUE(has_string(dsd_answer(restarts.back().message), {"channel"}, "01" + std::string(126, '0')));
}

TEST_F(Detection, DefaultsOnlyTouchOnlineChannelsNotAtDefaults)
{
    EXPECT_EQ(d.code(R"({"method":"do","motion_detection":{"set_default_motion":{"channel":"1"}}})"), -40209);
    EXPECT_EQ(d.code(R"({"method":"set","motion_detection":{"chn1_motion_det":{"enabled":"on"},)"
                   R"("chn2_motion_det":{"enabled":"on"}}})"), 0);
    size_t before = bus.calls_to("chm_event_detect", "chm_set_channel_alarm").size();
    dsd_answer reply = d.ask(R"({"method":"do","motion_detection":{"set_default_motion":{"channel":"all"}}})");
    EXPECT_EQ(0, reply.code());
    // Channel 1 (online, changed) is reset; 2 is offline; 3 is online but at defaults.
    EXPECT_EQ(bus.calls_to("chm_event_detect", "chm_set_channel_alarm").size(), before + 1);
    // The restart service's answer is passed on with its status as text.
    EXPECT_TRUE(has_string(reply, {"status"}, "0"));
    // A fifth region after a gap is not the default picture: channel 3 is reset.
    const std::string full = R"({"channel":3,"x_coor":0,"y_coor":0,"width":10000,"height":10000})";
    const std::string empty = R"({"channel":3,"x_coor":"null","y_coor":"null","width":"null","height":"null"})";
    EXPECT_EQ(d.code(R"({"method":"do","motion_detection":{"chn_add_md_regions":{"region_info":[)" + full + "," +
                   empty + "," + empty + "," + empty + R"(,{"channel":3,"x_coor":1,"y_coor":2,"width":3,"height":4}]}}})"),
              0);
    EXPECT_EQ(d.uci_get("motion_detection", "chn3_region_info_5", "width"), "3");
    EXPECT_EQ(d.code(R"({"method":"do","motion_detection":{"set_default_motion":{"channel":"all"}}})"), 0);
    EXPECT_EQ(d.uci_get("motion_detection", "chn3_region_info_5", "width"), "");
    EXPECT_EQ(d.uci_get("motion_detection", "chn3_region_info_1", "width"), "10000");
    EXPECT_EQ(bus.calls_to("chm_event_detect", "chm_set_channel_alarm").size(), before + 2);
    dsd_answer res = d.ask(R"({"method":"get","motion_detection":{"name":["chn1_motion_det","chn2_motion_det"]}})");
    EXPECT_TRUE(has_string(res, {"motion_detection", "chn1_motion_det", "enabled"}, "off"));
    EXPECT_TRUE(has_string(res, {"motion_detection", "chn2_motion_det", "enabled"}, "on"));
}

TEST_F(Detection, ScheduleAndNotificationKeywordsValidateFirst)
{
    EXPECT_EQ(d.code(R"({"method":"do","motion_detection":{"chn_set_md_alarm":{"alarm_info":[)"
                   R"({"channel":1,"monday":"[\"0800-1200\"]"},{"channel":2,"monday":"[\"1200-1100\"]"}]}}})"), -71001);
    const std::string before = d.uci_get("motion_detection", "chn1_alarm_setting", "monday");
    EXPECT_NE(before, "[\"0800-1200\"]");
    EXPECT_EQ(d.uci_get("motion_detection", "chn1_alarm_setting", "monday"), before); // nothing written
    EXPECT_EQ(d.code(R"({"method":"do","motion_detection":{"chn_set_md_alarm":{"alarm_info":[)"
                   R"({"channel":1,"monday":"[\"0800-1200\"]"}]}}})"), 0);
    EXPECT_EQ(d.uci_get("motion_detection", "chn1_alarm_setting", "monday"), "[\"0800-1200\"]");
    EXPECT_EQ(d.code(R"({"method":"do","motion_detection":{"chn_set_md_notif":{"notif_info":[)"
                   R"({"channel":1,"light_alarm_enabled":"on"}]}}})"), 0);
    auto calls = bus.calls_to("chm_event_detect", "chm_set_channel_alarm");
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(dsd_answer(calls.back().message).num({"light_alarm"}), 1);
    // These two keywords deliberately announce an all-zero mask.
    auto restarts = bus.calls_to("chm_event_detect", "chm_motion_detect_restart");
    ASSERT_FALSE(restarts.empty());
    EXPECT_TRUE(has_string(dsd_answer(restarts.back().message), {"channel"}, std::string(128, '0')));
    EXPECT_EQ(d.code(R"({"method":"do","motion_detection":{"chn_set_md_notif":{"notif_info":[null]}}})"), -40209);
    EXPECT_EQ(d.code(R"({"method":"do","motion_detection":{"chn_set_md_alarm":{"alarm_info":[{"channel":200}]}}})"), -40209);
}

TEST_F(Detection, AlarmInputsReloadOncePerRequest)
{
    EXPECT_EQ(d.code(R"({"method":"set","alarm_input_output":{"alarm1_input_set":{"alarm_type":"on"},)"
                   R"("alarm2_input_notif_list":{"alarm_output_union":"[1,4]"}}})"), 0);
    EXPECT_EQ(bus.calls_to("record", "event_alarm_in_reconfig").size(), 1u); // once for two sections
    EXPECT_EQ(d.uci_get("alarm_input_output", "alarm1_input_set", "alarm_type"), "on");
    EXPECT_EQ(d.code(R"({"method":"do","alarm_input_output":{"set_default_alarm_input":{"channel":"all"}}})"), 0);
    EXPECT_EQ(d.uci_get("alarm_input_output", "alarm1_input_set", "alarm_type"), "off");
}

TEST_F(Detection, RecordPlanResetAndPlanRules)
{
    EXPECT_EQ(d.code(R"({"method":"set","record_plan":{"chn2_channel":{"monday":"[\"0800-1200:3\"]"}}})"), -40209);
    EXPECT_EQ(d.code(R"({"method":"set","record_plan":{"chn2_channel":{"monday":"[\"0800-1200:2\"]"}}})"), 0);
    EXPECT_EQ(bus.calls_to("record", "rec_plan_reconfig").size(), 1u);
    EXPECT_EQ(d.code(R"({"method":"do","record_plan":{"set_default_plan":{"channel":2}}})"), 0);
    EXPECT_EQ(bus.calls_to("record", "rec_plan_reconfig").size(), 2u);
    EXPECT_EQ(d.code(R"({"method":"do","record_plan":{"set_default_plan":{"channel":2}}})"), 0); // nothing to do
    EXPECT_EQ(bus.calls_to("record", "rec_plan_reconfig").size(), 2u);
    EXPECT_EQ(d.code(R"({"method":"do","record_plan":{"set_default_plan":{"channel":0}}})"), -71006);
    EXPECT_EQ(d.code(R"({"method":"set","cloud_storage":{"chn1_vcs_upload_plan":{"Monday":"[\"0000-2400:1\"]","monday":"x"}}})"), 0);
    EXPECT_EQ(d.code(R"({"method":"set","msg_push_plan":{"chn1_msg_push_plan":{"push_plan_1":"2400-2400,1"}}})"), -73403);
    EXPECT_EQ(d.code(R"({"method":"set","msg_push_plan":{"chn1_msg_push_plan":{"push_plan_1":"0800-2000,31"}}})"), 0);
    EXPECT_EQ(bus.calls_to("msg_push", "plan_reconfig").size(), 1u);
}

} // namespace
