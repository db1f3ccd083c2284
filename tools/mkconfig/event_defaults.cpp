// Default packages of the event modules: every detection channel off, one
// full-picture region, armed all day, only the on-screen warning on; the
// alarm ports named and idle; record plans recording all day in mode 1.
#include <cstdio>
#include <string>

#include "families.h"
#include "generic_defaults.h"

namespace {

const char kWholeDay[] = "'[\"0000-2400\"]'";
const char *const kDays[] = {"monday", "tuesday", "wednesday", "thursday", "friday", "saturday", "sunday"};

std::string section(const std::string &type, const std::string &name)
{
    return "\nconfig " + type + " '" + name + "'\n";
}

std::string option(const char *name, const std::string &value)
{
    return std::string("\toption ") + name + " '" + value + "'\n";
}

std::string week(const std::string &value)
{
    std::string out = option("enabled", "on");
    for (const char *day : kDays)
        out += std::string("\toption ") + day + " " + value + "\n";
    return out;
}

std::string notif_defaults(void)
{
    std::string out;
    for (const char *o : {"app_enabled", "client_enabled", "screenshot_enabled", "buzzer_enabled",
                          "popupwin_enabled", "light_alarm_enabled", "sound_alarm_enabled", "union_enabled"})
        out += option(o, "off");
    return out + option("screenwarn_enabled", "on") + option("record_union", "[]");
}

struct member {
    const char *package, *switch_fmt, *notif_fmt;
    const char *region; // region options of the one default region, or null
};

const member kMembers[] = {
    {"motion_detection", "chn%d_motion_det", "chn%d_motion_notif_list",
     "\toption x_coor '0'\n\toption y_coor '0'\n\toption width '10000'\n\toption height '10000'\n"},
    {"intrusion_detection", "chn%d_detection", "chn%d_notif_list",
     "\toption pt1_x '0'\n\toption pt1_y '0'\n\toption pt2_x '10000'\n\toption pt2_y '0'\n"
     "\toption pt3_x '10000'\n\toption pt3_y '10000'\n\toption pt4_x '0'\n\toption pt4_y '10000'\n"},
    {"linecross_detection", "chn%d_detection", "chn%d_notif_list",
     "\toption pt1_x '0'\n\toption pt1_y '5000'\n\toption pt2_x '10000'\n\toption pt2_y '5000'\n"
     "\toption direction 'both'\n"},
    {"tamper_detection", "chn%d_tamper_det", "chn%d_tamper_notif_list",
     "\toption x_coor '0'\n\toption y_coor '0'\n\toption width '10000'\n\toption height '10000'\n"},
    {"face_comparison", "chn%d_face_comparison", "chn%d_group_info_white", nullptr},
};

std::string name(const char *fmt, int n)
{
    char buf[32];
    snprintf(buf, sizeof buf, fmt, n);
    return buf;
}

std::string detection_package(const member &m, int channels)
{
    std::string out;
    for (int ch = 1; ch <= channels; ch++) {
        std::string sw = section("on_off", name(m.switch_fmt, ch)) + option("enabled", "off") +
                         option("sensitivity", "medium");
        if (std::string(m.package) == "motion_detection")
            sw += option("digital_sensitivity", "50") + option("people_enabled", "off") +
                  option("vehicle_enabled", "off");
        out += sw;
        out += section("notif_list", name(m.notif_fmt, ch)) + notif_defaults();
        if (std::string(m.package) == "face_comparison") // one black gallery per channel
            out += section("group_info", "chn" + std::to_string(ch) + "_group_info_black_" + std::to_string(ch)) +
                   notif_defaults();
        out += section("plan", name("chn%d_alarm_setting", ch)) + week(kWholeDay);
        if (m.region)
            out += section("region_info", "chn" + std::to_string(ch) + "_region_info_1") + m.region;
    }
    return out + "\n";
}

std::string plan_package(const char *fmt, int channels, const char *value)
{
    std::string out;
    for (int ch = 1; ch <= channels; ch++)
        out += section("channel", name(fmt, ch)) + week(value);
    return out + "\n";
}

std::string alarm_package(void)
{
    std::string out;
    for (int n = 1; n <= 16; n++) {
        std::string p = "alarm" + std::to_string(n);
        out += section("input_set", p + "_input_set") + option("enabled", "off") +
               option("alarm_name", "Alarm In " + std::to_string(n)) + option("alarm_type", "off");
        out += section("input_notif_list", p + "_input_notif_list") + option("basic_union_enabled", "off") +
               option("buzzer_enabled", "off") + option("popupwin_enabled", "off") +
               option("record_union", "[]") + option("alarm_output_union", "[]");
        out += section("input_defense_setting", p + "_input_defense_setting") + week(kWholeDay);
        out += section("output_set", p + "_output_set") + option("alarm_name", "Alarm Out " + std::to_string(n)) +
               option("delay_time", "10");
        out += section("output_defense_setting", p + "_output_defense_setting") + week(kWholeDay);
    }
    return out + "\n";
}

std::string push_package(int channels)
{
    std::string out;
    for (int ch = 1; ch <= channels; ch++)
        out += section("msg_push_plan", name("chn%d_msg_push_plan", ch)) + option("push_plan_1", "0000-2359,127");
    return out + "\n";
}

std::string cloud_package(int channels)
{
    std::string out;
    for (int ch = 1; ch <= channels; ch++) {
        out += section("vcs_upload_plan", name("chn%d_vcs_upload_plan", ch)) + option("enabled", "off");
        for (const char *day : {"Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday", "Sunday"})
            out += std::string("\toption ") + day + " '[\"0000-2400:1\"]'\n";
    }
    return out + "\n";
}

} // namespace

int mkconfig_write_event(const char *confdir, int channels)
{
    for (const member &m : kMembers) {
        if (mkconfig_write_package(confdir, m.package, detection_package(m, channels)) != 0)
            return -1;
    }
    if (mkconfig_write_package(confdir, "record_plan",
                               plan_package("chn%d_channel", channels, "'[\"0000-2400:1\"]'")) != 0 ||
        mkconfig_write_package(confdir, "capture_plan",
                               plan_package("chn%d_channel", channels, "'[]'")) != 0 ||
        mkconfig_write_package(confdir, "alarm_input_output", alarm_package()) != 0 ||
        mkconfig_write_package(confdir, "msg_push_plan", push_package(channels)) != 0 ||
        mkconfig_write_package(confdir, "zuma_msg_push_plan", push_package(channels)) != 0 ||
        mkconfig_write_package(confdir, "cloud_storage", cloud_package(channels)) != 0)
        return -1;
    return 0;
}
