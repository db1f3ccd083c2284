// The model against the real daemon on a root written by mkconfig: get, set,
// add and delete (concurrent deletes, adds up to a type's maximum with two
// racing for the last slot, delete by type and by name); option rows as the
// device's documentation lists them, probed one by one through the real set
// pipeline (values inside the limits answered 0 and read back as stored
// text, values outside refused with the row's code and nothing stored; the
// expectations are data written here, independently of the daemon's own
// tables); and a get after a change made behind the daemon's back.
#include <fcntl.h>

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
