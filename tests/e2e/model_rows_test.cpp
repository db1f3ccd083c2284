// Option rows as the device's documentation lists them, probed one by one
// through the real set pipeline: values inside the limits are answered 0 and
// read back as stored text, values outside are refused with the row's code
// and leave the stored value alone. The expectations are data written here,
// independently of the daemon's own tables, so a row that is missing (the
// set then answers 0 and drops the value) or carries the wrong limits shows.
#include <gtest/gtest.h>
#include <json-c/json.h>

#include <string>

#include "harness/bus_harness.h"
#include "harness/dsd_harness.h"

namespace {

enum kind { INT, LEN, ENUM, UNION, ANY };

struct row {
    const char *module, *section, *option;
    kind k;
    long lo, hi;              // INT: value range; LEN: byte lengths; UNION: element range
    const char *values[4];    // ENUM: accepted values
    int code;                 // the code of a refused value
};

constexpr int kChannels = 16; // the device the probes run on

const row kRows[] = {
    {"alarm_input_output", "alarm1_input_set", "enabled", ENUM, 0, 0, {"on", "off"}, -73701},
    {"alarm_input_output", "alarm1_input_set", "alarm_name", LEN, 0, 64, {}, -73702},
    {"alarm_input_output", "alarm1_input_set", "alarm_type", ENUM, 0, 0, {"on", "off"}, -73703},
    {"alarm_input_output", "alarm2_input_notif_list", "record_union", UNION, 1, kChannels, {}, -73712},
    {"alarm_input_output", "alarm2_input_notif_list", "alarm_output_union", UNION, 1, 4, {}, -73710},
    {"video", "chn1_main", "main_bitrate", INT, 32, 8192, {}, -71713},
    {"video", "chn2_main", "main_frame_rate", INT, 65537, 65561, {}, -71713},
    {"cover", "chn1_cover", "x_coor", INT, 0, 10000, {}, -70202},
    {"cover", "chn3_cover", "width", INT, 0, 10000, {}, -70202},
    {"gb28181", "v_chn1", "device_id", LEN, 18, 20, {}, -73801},
    {"gb28181", "v_chn2", "server_domain", LEN, 8, 10, {}, -73801},
    {"gb28181", "v_chn2", "device_name", ANY, 0, 0, {}, 0},
    {"gb28181", "v_chn2", "keep_alive_cycle", ANY, 0, 0, {}, 0},
    {"chm", "chn1_channel", "username", LEN, 1, 32, {}, -71509},
    {"chm", "chn128_channel", "password", LEN, 5, 32, {}, -71501},
    {"unusual_detection", "chn1_video_miss", "record_union", UNION, 1, kChannels, {}, -72207},
    {"tamper_detection", "chn1_tamper_notif_list", "record_union", UNION, 1, kChannels, {}, -70810},
    {"motion_detection", "chn1_motion_det", "enabled", ENUM, 0, 0, {"on", "off"}, -70702},
    {"motion_detection", "chn1_motion_det", "sensitivity", ENUM, 0, 0, {"high", "medium", "low"}, -70703},
    {"motion_detection", "chn1_motion_det", "digital_sensitivity", INT, 0, 100, {}, -70703},
    {"motion_detection", "chn2_motion_notif_list", "app_enabled", ENUM, 0, 0, {"on", "off"}, -70704},
    {"motion_detection", "chn2_motion_notif_list", "client_enabled", ENUM, 0, 0, {"on", "off"}, -70705},
    {"motion_detection", "chn2_motion_notif_list", "screenwarn_enabled", ENUM, 0, 0, {"on", "off"}, -70706},
    {"motion_detection", "chn2_motion_notif_list", "screenshot_enabled", ENUM, 0, 0, {"on", "off"}, -70707},
    {"motion_detection", "chn2_motion_notif_list", "buzzer_enabled", ENUM, 0, 0, {"on", "off"}, -70708},
    {"motion_detection", "chn2_motion_notif_list", "union_enabled", ENUM, 0, 0, {"on", "off"}, -70709},
    {"motion_detection", "chn2_motion_notif_list", "popupwin_enabled", ENUM, 0, 0, {"on", "off"}, -40209},
    {"motion_detection", "chn2_motion_notif_list", "sound_alarm_enabled", ENUM, 0, 0, {"on", "off"}, -40209},
    {"motion_detection", "chn3_region_info_1", "x_coor", INT, 0, 10000, {}, -70710},
    {"face_comparison", "chn2_group_info_black_2", "light_alarm_enabled", ENUM, 0, 0, {"on", "off"}, -40209},
};

class ModelRows : public dsd_device {
protected:
    void SetUp() override { boot(kChannels, "{}"); }
    // The set's error code; `value` is JSON text.
    int set(const row &r, const std::string &value) const
    {
        std::string req = std::string(R"({"method":"set",")") + r.module + R"(":{")" + r.section + R"(":{")" +
                          r.option + R"(":)" + value + "}}}";
        return d.ask(req).code();
    }
    // The stored value as the get answers it; "<absent>" or "<not a string>".
    std::string stored(const row &r) const
    {
        std::string req = std::string(R"({"method":"get",")") + r.module + R"(":{"name":")" + r.section + R"("}})";
        dsd_answer res = d.ask(req);
        json_object *opt = res.at({r.module, r.section, r.option});
        if (!opt)
            return "<absent>";
        return json_object_is_type(opt, json_type_string) ? json_object_get_string(opt) : "<not a string>";
    }
    void accepts(const row &r, const std::string &json_value, const std::string &text) const
    {
        EXPECT_EQ(0, set(r, json_value)) << json_value;
        EXPECT_EQ(text, stored(r)) << json_value;
    }
    void refuses(const row &r, const std::string &json_value) const
    {
        std::string before = stored(r);
        EXPECT_EQ(r.code, set(r, json_value)) << json_value;
        EXPECT_EQ(before, stored(r)) << json_value;
    }
};

std::string quoted(const std::string &s)
{
    return "\"" + s + "\"";
}

TEST_F(ModelRows, EveryRowAcceptsItsLimitsAndRefusesBeyondThem)
{
    for (const row &r : kRows) {
        SCOPED_TRACE(std::string(r.module) + " " + r.section + " " + r.option);
        switch (r.k) {
        case INT: // a JSON integer and a string both count; the store holds text
            accepts(r, std::to_string(r.lo), std::to_string(r.lo));
            accepts(r, quoted(std::to_string(r.hi)), std::to_string(r.hi));
            refuses(r, quoted(std::to_string(r.lo - 1)));
            refuses(r, std::to_string(r.hi + 1));
            refuses(r, quoted("12a"));
            break;
        case LEN:
            accepts(r, quoted(std::string(r.hi, 'h')), std::string(r.hi, 'h'));
            if (r.lo > 0)
                accepts(r, quoted(std::string(r.lo, 'l')), std::string(r.lo, 'l'));
            else // uci drops an option set to the empty text
                EXPECT_EQ(0, set(r, quoted("")));
            refuses(r, quoted(std::string(r.hi + 1, 'x')));
            if (r.lo > 0)
                refuses(r, quoted(std::string(r.lo - 1, 'x')));
            break;
        case ENUM:
            for (const char *v : r.values) {
                if (v)
                    accepts(r, quoted(v), v);
            }
            refuses(r, quoted("bogus"));
            refuses(r, quoted("ON"));
            break;
        case UNION:
            accepts(r, quoted("[" + std::to_string(r.lo) + "," + std::to_string(r.hi) + "]"),
                    "[" + std::to_string(r.lo) + "," + std::to_string(r.hi) + "]");
            accepts(r, quoted("[]"), "[]");
            refuses(r, quoted("[" + std::to_string(r.hi + 1) + "]"));
            refuses(r, quoted("[" + std::to_string(r.lo - 1) + "]"));
            refuses(r, quoted("not a list"));
            break;
        case ANY:
            accepts(r, quoted("any text; at all"), "any text; at all");
            break;
        }
    }
}

// Numbers wider than 32 bits keep every digit on their way to the store.
TEST_F(ModelRows, WideIntegersAreStoredAsTheirOwnDigits)
{
    const row r{"gb28181", "v_chn3", "keep_alive_cycle", ANY, 0, 0, {}, 0};
    accepts(r, "4294967297", "4294967297");
    accepts(r, "-9007199254740993", "-9007199254740993");
}

// The black gallery is a notification section like the white one.
TEST_F(ModelRows, BlackGalleryTellsTheChannelSwitches)
{
    const row r{"face_comparison", "chn3_group_info_black_3", "light_alarm_enabled", ENUM, 0, 0, {}, 0};
    accepts(r, quoted("on"), "on");
    auto calls = bus.calls_to("chm_event_detect", "chm_set_channel_alarm");
    ASSERT_EQ(1u, calls.size());
    dsd_answer msg(calls[0].message);
    EXPECT_EQ(2, msg.num({"channel"}));
    EXPECT_EQ(1, msg.num({"light_alarm"}));
    EXPECT_TRUE(has_string(msg, {"type"}, "face"));
}

} // namespace
