// Camera keywords against the real daemon: adding, deleting and editing
// cameras, the keywords that forward to the device manager, the cascade and
// the event detector (against hostbus), the updater service; the HTTP client
// and the camera firmware upgrade against tools/camsim.
#include <random>

#include "harness/camsim_harness.h"
#include "harness/dsd_harness.h"
#include "platform/http_client.h"

namespace {

const std::string kCipher120(120, 'c');

std::string camera(const std::string &prot, const std::string &port, const std::string &cipher)
{
    return R"({"connect_prot":")" + prot + R"(","ip":"192.168.1.64","port":")" + port +
           R"(","username":"admin","ciphertext":")" + cipher + R"(","uuid":"cam-1"})";
}

class Chm : public dsd_device {
protected:
    void SetUp() override
    {
        boot(4, R"({"objects":{"chm_dev_manager":{"methods":{)"
                              R"("chm_ubus_add_device":{"reply":{"error_code":0,"result":[{"error_code":3,"id":5}]}},)"
                              R"("chm_ubus_delete_device":{"reply":{"error_code":0}},)"
                              R"("chm_ubus_edit_device":{"reply":{"error_code":0,"devices":[{"id":7,"ports":[80,554]}]}},)"
                              R"("chm_ubus_get_device_list":{"reply":{"error_code":0,"bandwidth":80,)"
                              R"("added_list":[{"id":1,"online":1},{"id":3,"online":0}]}}}},)"
                              R"("record":{"methods":{"get_chn_event":{"reply":{"record_stat":"1000"}}}}}})");
    }
    std::string add(const std::string &cam)
    {
        return d.request(R"({"method":"do","chm":{"chm_add_dev":)" + cam + "}}");
    }
};

TEST_F(Chm, AddCameraDefaultsRtspAndMapsStatuses)
{
    dsd_answer res(add(camera("ONVIF", "80", kCipher120)));
    EXPECT_EQ(res.code(), 0);
    // The camera's own status is mapped (3) and every number is text.
    EXPECT_TRUE(has_string(res, {"result", "#0", "error_code"}, "-71552"));
    EXPECT_TRUE(has_string(res, {"result", "#0", "id"}, "5"));
    auto calls = bus.calls_to("chm_dev_manager", "chm_ubus_add_device");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_TRUE(has_string(dsd_answer(calls[0].message), {"device_list", "#0", "rtsp_prot"}, "auto"));
}

TEST_F(Chm, FieldChecksComeBeforeAnyBusTraffic)
{
    EXPECT_EQ(error_code_of(add(camera("onvif", "80", kCipher120))), -71511);
    EXPECT_EQ(error_code_of(add(camera("ONVIF", "0", kCipher120))), -71508);
    EXPECT_EQ(error_code_of(add(camera("ONVIF", "65536", kCipher120))), -71508);
    EXPECT_EQ(error_code_of(add(camera("ONVIF", "65535", kCipher120))), 0);
    EXPECT_EQ(error_code_of(add(camera("RTSP", "554", std::string(119, 'c')))), -71519);
    EXPECT_EQ(error_code_of(add(camera("RTSP", "554", std::string(240, 'c')))), 0);
    EXPECT_EQ(error_code_of(add(camera("RTSP", "554", "null"))), 0);
    EXPECT_EQ(error_code_of(add("[1]")), -70107);
    EXPECT_EQ(bus.calls_to("chm_dev_manager", "chm_ubus_add_device").size(), 3u);
}

TEST_F(Chm, DeleteSendsTheMaskAndReleasesTheChannels)
{
    EXPECT_EQ(d.code(R"({"method":"do","chm":{"chm_del_dev":{"ids":["2","5"]}}})"), 0);
    auto calls = bus.calls_to("chm_dev_manager", "chm_ubus_delete_device");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_TRUE(has_string(dsd_answer(calls[0].message), {"channel"}, "01001" + std::string(123, '0')));
    // Every channel's bandwidth is released before any recording event.
    std::string order;
    for (const bus_call &c : bus.calls()) {
        if (c.method == "strategy_set" || c.method == "event_change")
            order += c.method == "strategy_set" ? 'S' : 'E';
    }
    EXPECT_EQ("SSEEEE", order);
    EXPECT_EQ(d.code(R"({"method":"do","chm":{"chm_del_dev":{"ids":["129"]}}})"), -71521);
    EXPECT_EQ(d.code(R"({"method":"do","chm":{"chm_del_dev":{"ids":"2"}}})"), -71521);
}

TEST_F(Chm, ForwardedKeywordsCheckFieldsAndTranslateTheAnswer)
{
    auto edit = [&](const std::string &keyword, const std::string &arg) {
        return d.request(R"({"method":"do","chm":{")" + keyword + R"(":)" + arg + "}}");
    };
    EXPECT_EQ(-71522, error_code_of(edit("chm_edit_dev", R"({"uuid":"cam-1"})")));
    EXPECT_EQ(-71522, error_code_of(edit("chm_edit_dev", R"({"name":")" + std::string(65, 'n') + R"("})")));
    EXPECT_EQ(-71509, error_code_of(edit("chm_edit_dev", R"({"name":"door","username":""})")));
    EXPECT_EQ(-71520, error_code_of(edit("chm_edit_dev", R"({"name":"door","uuid":")" + std::string(33, 'u') + R"("})")));
    EXPECT_EQ(-71509, error_code_of(edit("chm_mod_dev_passwd", R"({"username":")" + std::string(33, 'a') + R"("})")));
    EXPECT_EQ(-71522, error_code_of(edit("chm_edit_dev_url", R"({"device_list":[{"rtsp_url_main":"rtsp://x"}]})")));
    EXPECT_TRUE(bus.calls_to("chm_dev_manager").empty());

    dsd_answer res(edit("chm_edit_dev", R"({"name":"door","username":"admin","uuid":"cam-1"})"));
    EXPECT_EQ(0, res.code());
    EXPECT_TRUE(has_string(res, {"devices", "#0", "ports", "#1"}, "554"));
    // A peer that answers without a status has not answered.
    EXPECT_EQ(-71550, error_code_of(edit("chm_get_dev_url", "{}")));
}

TEST_F(Chm, ChannelTableByPage)
{
    // Channel 1 (recording, "1000") on the first page of two; channel 3 after it.
    dsd_answer page = d.ask(R"({"method":"do","chm":{"get_chn_info_by_page":{"index":1,"count":2}}})");
    EXPECT_EQ(page.code(), 0);
    EXPECT_EQ(page.len({"chm", "chn_info"}), 1);
    EXPECT_TRUE(has_string(page, {"chm", "chn_info", "#0", "chn_info_1", "record"}, "on"));
    dsd_answer all = d.ask(R"({"method":"do","chm":{"get_chn_info_by_page":{"index":1,"count":200}}})");
    EXPECT_EQ(all.len({"chm", "chn_info"}), 2);
    EXPECT_NE(all.at({"chm", "chn_info", "#1", "chn_info_3"}), nullptr) << all.text;
    EXPECT_TRUE(has_string(all, {"chm", "chn_info", "#1", "chn_info_3", "record"}, "off"));
    EXPECT_EQ(d.code(R"({"method":"do","chm":{"get_chn_info_by_page":{"index":0,"count":2}}})"),
              -70107);
}

// The keywords that only forward: each reaches its own object and method
// with the request as sent, and the answer comes back with numbers as text;
// a device-manager status is mapped (3 -> -71552).
struct forward_row {
    const char *keyword, *object, *method;
};
const forward_row kForwardRows[] = {
    {"refresh_device_version_info", "chm_dev_manager", "chm_ubus_dev_ver_info_refresh"},
    {"get_device_version_info", "chm_dev_manager", "chm_dev_manager_get_device_version_info"},
    {"chm_manual_refresh", "chm_dev_manager", "chm_ubus_device_discovery"},
    {"chm_manual_refresh_ex", "chm_dev_manager", "chm_ubus_device_discovery"},
    {"chm_async_refresh", "chm_dev_manager", "chm_ubus_device_discovery"},
    {"chm_device_discovery", "chm_dev_manager", "chm_ubus_device_discovery"},
    {"chm_alloc_dev_ip", "chm_dev_manager", "chm_ubus_alloc_device_ipaddr"},
    {"chm_dev_ip_conflict_detect", "chm_dev_manager", "chm_ubus_ip_conflict_detect"},
    {"chm_set_device_ip", "chm_dev_manager", "chm_dev_manager_set_device_ip"},
    {"chm_set_device_list_ip", "chm_dev_manager", "chm_ubus_set_device_ipaddr"},
    {"chm_get_recover_string", "chm_dev_manager", "chm_ubus_get_device_security_code"},
    {"chm_verification_code_check", "chm_dev_manager", "chm_ubus_device_verification_code_check"},
    {"chm_password_reset", "chm_dev_manager", "chm_ubus_device_password_reset"},
    {"chm_set_factory_dev_password", "chm_dev_manager", "chm_ubus_set_factory_device_password"},
    {"set_device_status", "chm_dev_manager", "chm_ubus_set_device_status"},
    {"chm_check_video_conf_ready", "chm_dev_manager", "chm_ubus_check_video_configuration_ready"},
    {"chm_adapt_video_conf", "chm_dev_manager", "chm_ubus_channel_video_configuration_adapt"},
    {"chm_get_notified_event", "chm_dev_manager", "chm_ubus_get_notified_event"},
    {"set_wireless_reconnect_enable", "chm_dev_manager", "chm_ubus_set_wireless_reconnect_enable"},
    {"force_iframe", "chm_dev_manager", "chm_ubus_force_chn_iframe"},
    {"get_device_num", "chm_dev_manager", "chm_ubus_get_device_num"},
    {"added_chn_info_get", "chm_dev_manager", "chm_ubus_get_added_chn_info"},
    {"chm_get_cascade_list", "chm_cascade", "chm_get_cascade_list"},
    {"chm_set_cascade_migarate", "chm_cascade", "chm_set_cascade_migarate"},
    {"chm_change_sta_connect_config", "chm_cascade", "chm_set_cascade_ap_config"},
    {"chm_get_smart_detection", "chm_event_detect", "chm_get_smart_detection_conf"},
    {"chm_get_msg_alarm_list", "chm_event_detect", "chm_get_msg_alarm_list"},
    {"chm_get_ai_enhance_capability", "chm_event_detect", "chm_get_ai_enhance_capability"},
    {"chm_get_face_enhance_capability", "chm_event_detect", "chm_get_face_enhance_capability"},
    {nullptr, nullptr, nullptr},
};

using ChmForward = dsd_device;

TEST_F(ChmForward, EveryForwardedKeywordReachesItsMethod)
{
    const std::string ok = R"({"default":{"reply":{"error_code":0,"n":5,"list":[1]}}})";
    boot(2, (R"({"objects":{"chm_dev_manager":)" + ok + R"(,"chm_cascade":)" + ok + R"(,"chm_event_detect":)" + ok + "}}").c_str());
    for (const forward_row *r = kForwardRows; r->keyword; r++) {
        SCOPED_TRACE(r->keyword);
        size_t before = bus.calls_to(r->object, r->method).size();
        dsd_answer a = d.ask(R"({"method":"do","chm":{")" + std::string(r->keyword) + R"(":{"probe":7,"uuid":"cam-1"}}})");
        EXPECT_EQ(a.code(), 0);
        EXPECT_TRUE(has_string(a, {"n"}, "5"));
        EXPECT_TRUE(has_string(a, {"list", "#0"}, "1"));
        auto calls = bus.calls_to(r->object, r->method);
        ASSERT_EQ(calls.size(), before + 1);
        dsd_answer sent(calls.back().message);
        EXPECT_EQ(sent.num({"probe"}), 7);
        EXPECT_TRUE(has_string(sent, {"uuid"}, "cam-1"));
    }
    EXPECT_EQ(bus.calls().size(), sizeof kForwardRows / sizeof kForwardRows[0] - 1); // nothing else
    // The device manager's own status is mapped; a too-long uuid never leaves.
    bus.set_scenario(R"({"objects":{"chm_dev_manager":{"default":{"reply":{"error_code":3}}}}})");
    EXPECT_EQ(d.ask(R"({"method":"do","chm":{"force_iframe":{"channel":1}}})").code(), -71552);
    size_t calls = bus.calls().size();
    EXPECT_EQ(d.ask(R"({"method":"do","chm":{"force_iframe":{"uuid":")" + std::string(33, 'u') + R"("}}})").code(),
              -71520);
    EXPECT_EQ(bus.calls().size(), calls);
}

using ChmPaging = dsd_device;

TEST_F(ChmPaging, ProbedDevicesAcrossPages)
{
    boot(2, "{\"objects\": {\"chm_dev_manager\": {\"methods\": {\"chm_ubus_get_device_list\": {\"sequence\": [{\"reply\": {\"error_code\": 0, \"probe_list\": [{\"id\": 0, \"ip\": \"10.0.0.0\"}, {\"id\": 1, \"ip\": \"10.0.0.1\"}, {\"id\": 2, \"ip\": \"10.0.0.2\"}, {\"id\": 3, \"ip\": \"10.0.0.3\"}, {\"id\": 4, \"ip\": \"10.0.0.4\"}, {\"id\": 5, \"ip\": \"10.0.0.5\"}, {\"id\": 6, \"ip\": \"10.0.0.6\"}, {\"id\": 7, \"ip\": \"10.0.0.7\"}, {\"id\": 8, \"ip\": \"10.0.0.8\"}, {\"id\": 9, \"ip\": \"10.0.0.9\"}, {\"id\": 10, \"ip\": \"10.0.0.10\"}, {\"id\": 11, \"ip\": \"10.0.0.11\"}, {\"id\": 12, \"ip\": \"10.0.0.12\"}, {\"id\": 13, \"ip\": \"10.0.0.13\"}, {\"id\": 14, \"ip\": \"10.0.0.14\"}, {\"id\": 15, \"ip\": \"10.0.0.15\"}, {\"id\": 16, \"ip\": \"10.0.0.16\"}, {\"id\": 17, \"ip\": \"10.0.0.17\"}, {\"id\": 18, \"ip\": \"10.0.0.18\"}, {\"id\": 19, \"ip\": \"10.0.0.19\"}, {\"id\": 20, \"ip\": \"10.0.0.20\"}, {\"id\": 21, \"ip\": \"10.0.0.21\"}, {\"id\": 22, \"ip\": \"10.0.0.22\"}, {\"id\": 23, \"ip\": \"10.0.0.23\"}, {\"id\": 24, \"ip\": \"10.0.0.24\"}, {\"id\": 25, \"ip\": \"10.0.0.25\"}, {\"id\": 26, \"ip\": \"10.0.0.26\"}, {\"id\": 27, \"ip\": \"10.0.0.27\"}, {\"id\": 28, \"ip\": \"10.0.0.28\"}, {\"id\": 29, \"ip\": \"10.0.0.29\"}, {\"id\": 30, \"ip\": \"10.0.0.30\"}, {\"id\": 31, \"ip\": \"10.0.0.31\"}, {\"id\": 32, \"ip\": \"10.0.0.32\"}, {\"id\": 33, \"ip\": \"10.0.0.33\"}, {\"id\": 34, \"ip\": \"10.0.0.34\"}, {\"id\": 35, \"ip\": \"10.0.0.35\"}, {\"id\": 36, \"ip\": \"10.0.0.36\"}, {\"id\": 37, \"ip\": \"10.0.0.37\"}, {\"id\": 38, \"ip\": \"10.0.0.38\"}, {\"id\": 39, \"ip\": \"10.0.0.39\"}, {\"id\": 40, \"ip\": \"10.0.0.40\"}, {\"id\": 41, \"ip\": \"10.0.0.41\"}, {\"id\": 42, \"ip\": \"10.0.0.42\"}, {\"id\": 43, \"ip\": \"10.0.0.43\"}, {\"id\": 44, \"ip\": \"10.0.0.44\"}, {\"id\": 45, \"ip\": \"10.0.0.45\"}, {\"id\": 46, \"ip\": \"10.0.0.46\"}, {\"id\": 47, \"ip\": \"10.0.0.47\"}, {\"id\": 48, \"ip\": \"10.0.0.48\"}, {\"id\": 49, \"ip\": \"10.0.0.49\"}, {\"id\": 50, \"ip\": \"10.0.0.50\"}, {\"id\": 51, \"ip\": \"10.0.0.51\"}, {\"id\": 52, \"ip\": \"10.0.0.52\"}, {\"id\": 53, \"ip\": \"10.0.0.53\"}, {\"id\": 54, \"ip\": \"10.0.0.54\"}, {\"id\": 55, \"ip\": \"10.0.0.55\"}, {\"id\": 56, \"ip\": \"10.0.0.56\"}, {\"id\": 57, \"ip\": \"10.0.0.57\"}, {\"id\": 58, \"ip\": \"10.0.0.58\"}, {\"id\": 59, \"ip\": \"10.0.0.59\"}, {\"id\": 60, \"ip\": \"10.0.0.60\"}, {\"id\": 61, \"ip\": \"10.0.0.61\"}, {\"id\": 62, \"ip\": \"10.0.0.62\"}, {\"id\": 63, \"ip\": \"10.0.0.63\"}], \"discover_finished\": 1}}, {\"reply\": {\"error_code\": 0, \"probe_list\": [{\"id\": 64, \"ip\": \"10.0.0.64\"}, {\"id\": 65, \"ip\": \"10.0.0.65\"}, {\"id\": 66, \"ip\": \"10.0.0.66\"}, {\"id\": 67, \"ip\": \"10.0.0.67\"}, {\"id\": 68, \"ip\": \"10.0.0.68\"}, {\"id\": 69, \"ip\": \"10.0.0.69\"}, {\"id\": 70, \"ip\": \"10.0.0.70\"}, {\"id\": 71, \"ip\": \"10.0.0.71\"}, {\"id\": 72, \"ip\": \"10.0.0.72\"}, {\"id\": 73, \"ip\": \"10.0.0.73\"}, {\"id\": 74, \"ip\": \"10.0.0.74\"}, {\"id\": 75, \"ip\": \"10.0.0.75\"}, {\"id\": 76, \"ip\": \"10.0.0.76\"}, {\"id\": 77, \"ip\": \"10.0.0.77\"}, {\"id\": 78, \"ip\": \"10.0.0.78\"}, {\"id\": 79, \"ip\": \"10.0.0.79\"}, {\"id\": 80, \"ip\": \"10.0.0.80\"}, {\"id\": 81, \"ip\": \"10.0.0.81\"}, {\"id\": 82, \"ip\": \"10.0.0.82\"}, {\"id\": 83, \"ip\": \"10.0.0.83\"}, {\"id\": 84, \"ip\": \"10.0.0.84\"}, {\"id\": 85, \"ip\": \"10.0.0.85\"}, {\"id\": 86, \"ip\": \"10.0.0.86\"}, {\"id\": 87, \"ip\": \"10.0.0.87\"}, {\"id\": 88, \"ip\": \"10.0.0.88\"}, {\"id\": 89, \"ip\": \"10.0.0.89\"}, {\"id\": 90, \"ip\": \"10.0.0.90\"}, {\"id\": 91, \"ip\": \"10.0.0.91\"}, {\"id\": 92, \"ip\": \"10.0.0.92\"}, {\"id\": 93, \"ip\": \"10.0.0.93\"}, {\"id\": 94, \"ip\": \"10.0.0.94\"}, {\"id\": 95, \"ip\": \"10.0.0.95\"}, {\"id\": 96, \"ip\": \"10.0.0.96\"}, {\"id\": 97, \"ip\": \"10.0.0.97\"}, {\"id\": 98, \"ip\": \"10.0.0.98\"}, {\"id\": 99, \"ip\": \"10.0.0.99\"}, {\"id\": 100, \"ip\": \"10.0.0.100\"}, {\"id\": 101, \"ip\": \"10.0.0.101\"}, {\"id\": 102, \"ip\": \"10.0.0.102\"}, {\"id\": 103, \"ip\": \"10.0.0.103\"}, {\"id\": 104, \"ip\": \"10.0.0.104\"}, {\"id\": 105, \"ip\": \"10.0.0.105\"}, {\"id\": 106, \"ip\": \"10.0.0.106\"}, {\"id\": 107, \"ip\": \"10.0.0.107\"}, {\"id\": 108, \"ip\": \"10.0.0.108\"}, {\"id\": 109, \"ip\": \"10.0.0.109\"}, {\"id\": 110, \"ip\": \"10.0.0.110\"}, {\"id\": 111, \"ip\": \"10.0.0.111\"}, {\"id\": 112, \"ip\": \"10.0.0.112\"}, {\"id\": 113, \"ip\": \"10.0.0.113\"}, {\"id\": 114, \"ip\": \"10.0.0.114\"}, {\"id\": 115, \"ip\": \"10.0.0.115\"}, {\"id\": 116, \"ip\": \"10.0.0.116\"}, {\"id\": 117, \"ip\": \"10.0.0.117\"}, {\"id\": 118, \"ip\": \"10.0.0.118\"}, {\"id\": 119, \"ip\": \"10.0.0.119\"}, {\"id\": 120, \"ip\": \"10.0.0.120\"}, {\"id\": 121, \"ip\": \"10.0.0.121\"}, {\"id\": 122, \"ip\": \"10.0.0.122\"}, {\"id\": 123, \"ip\": \"10.0.0.123\"}, {\"id\": 124, \"ip\": \"10.0.0.124\"}, {\"id\": 125, \"ip\": \"10.0.0.125\"}, {\"id\": 126, \"ip\": \"10.0.0.126\"}, {\"id\": 127, \"ip\": \"10.0.0.127\"}], \"discover_finished\": 1}}, {\"reply\": {\"error_code\": 0, \"probe_list\": [{\"id\": 128, \"ip\": \"10.0.0.128\"}, {\"id\": 129, \"ip\": \"10.0.0.129\"}, {\"id\": 130, \"ip\": \"10.0.0.130\"}, {\"id\": 131, \"ip\": \"10.0.0.131\"}, {\"id\": 132, \"ip\": \"10.0.0.132\"}, {\"id\": 133, \"ip\": \"10.0.0.133\"}, {\"id\": 134, \"ip\": \"10.0.0.134\"}, {\"id\": 135, \"ip\": \"10.0.0.135\"}, {\"id\": 136, \"ip\": \"10.0.0.136\"}, {\"id\": 137, \"ip\": \"10.0.0.137\"}, {\"id\": 138, \"ip\": \"10.0.0.138\"}, {\"id\": 139, \"ip\": \"10.0.0.139\"}, {\"id\": 140, \"ip\": \"10.0.0.140\"}, {\"id\": 141, \"ip\": \"10.0.0.141\"}, {\"id\": 142, \"ip\": \"10.0.0.142\"}, {\"id\": 143, \"ip\": \"10.0.0.143\"}, {\"id\": 144, \"ip\": \"10.0.0.144\"}, {\"id\": 145, \"ip\": \"10.0.0.145\"}, {\"id\": 146, \"ip\": \"10.0.0.146\"}, {\"id\": 147, \"ip\": \"10.0.0.147\"}, {\"id\": 148, \"ip\": \"10.0.0.148\"}, {\"id\": 149, \"ip\": \"10.0.0.149\"}], \"discover_finished\": 1}}]}, \"chm_ubus_add_device\": {\"reply\": {\"error_code\": 0, \"result\": []}}}}}}");
    dsd_answer res = d.ask(R"({"method":"do","chm":{"chm_get_probe_dev":{}}})");
    EXPECT_EQ(res.code(), 0);
    EXPECT_EQ(res.len({"probe_list"}), 150);
    auto calls = bus.calls_to("chm_dev_manager", "chm_ubus_get_device_list");
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(dsd_answer(calls[2].message).num({"start"}), 128);
    // Cameras given by RTSP URL: credentials move out of the URL.
    std::string zuma = d.request(R"({"method":"do","chm":{"chm_add_dev_list_zuma":{"device_list":[)"
                                 R"({"name":"door","rtsp_url_main":"rtsp://user:pw@10.0.0.9:554/live"}]}}})");
    EXPECT_EQ(error_code_of(zuma), 0) << zuma;
    auto adds = bus.calls_to("chm_dev_manager", "chm_ubus_add_device");
    ASSERT_EQ(adds.size(), 1u);
    dsd_answer sent(adds[0].message);
    EXPECT_TRUE(has_string(sent, {"device_list", "#0", "rtsp_url_main"}, "rtsp://10.0.0.9:554/live"));
    EXPECT_TRUE(has_string(sent, {"device_list", "#0", "password"}, "pw"));
    EXPECT_EQ(d.code(R"({"method":"do","chm":{"chm_add_dev_list_zuma":{"device_list":[{"rtsp_url_main":"x"}]}}})"),
              -71522);
}

} // namespace

namespace {

TEST(HttpClient, UrlForms)
{
    char url[HTTP_URL_LEN];
    ASSERT_EQ(http_makeup_url("10.0.0.2", "0", nullptr, 0, 0, url, nullptr), 0);
    EXPECT_STREQ(url, "http://10.0.0.2:80");
    ASSERT_EQ(http_makeup_url("10.0.0.2", "abc", "T", 1, 1, url, "/p"), 0);
    EXPECT_STREQ(url, "http://10.0.0.2:80/stok=T/ds/p");
    ASSERT_EQ(http_makeup_url("10.0.0.2", "8080", "T", 0, 1, url, nullptr), 0);
    EXPECT_STREQ(url, "http://10.0.0.2:8080/ds");
    EXPECT_EQ(http_makeup_url("10.0.0.2", "80", nullptr, 1, 0, url, nullptr), -1);
    EXPECT_EQ(http_makeup_url(nullptr, "80", nullptr, 0, 0, url, nullptr), -1);
    // A URL that does not fit is refused whole, never cut to another path.
    std::string prefix = "http://10.0.0.2:80";
    std::string fits(HTTP_URL_LEN - 1 - prefix.size(), 'p');
    fits[0] = '/';
    ASSERT_EQ(http_makeup_url("10.0.0.2", "80", nullptr, 0, 0, url, fits.c_str()), 0);
    EXPECT_EQ(std::string(url), prefix + fits);
    EXPECT_EQ(http_makeup_url("10.0.0.2", "80", nullptr, 0, 0, url, (fits + "x").c_str()), -1);
}

TEST(HttpClient, ReplyLimitsStatusesAndFlags)
{
    char reply[HTTP_REPLY_LEN];
    for (long size : {4090L, 4091L}) {
        camsim_harness cam;
        ASSERT_TRUE(cam.start({"--reply-size", std::to_string(size)}));
        strcpy(reply, "untouched");
        int rc = http_single_post("127.0.0.1", cam.port.c_str(), nullptr, 0, 0, "{}", reply, scaled_ms(5000));
        EXPECT_EQ(rc, size == 4090 ? 0 : -1) << size;
        if (size == 4091) {
            EXPECT_STREQ(reply, "untouched");
        }
    }
    camsim_harness redirect;
    ASSERT_TRUE(redirect.start({"--redirect"}));
    strcpy(reply, "untouched");
    EXPECT_EQ(http_single_post("127.0.0.1", redirect.port.c_str(), nullptr, 0, 0, "{}", reply, scaled_ms(5000)), -1);
    EXPECT_STREQ(reply, "untouched");
    camsim_harness hang;
    ASSERT_TRUE(hang.start({"--hang"}));
    EXPECT_EQ(http_single_post("127.0.0.1", hang.port.c_str(), nullptr, 0, 0, "{}", reply, 300), -1);
    EXPECT_EQ(http_single_post("127.0.0.1", "80", "T", 2, 0, "{}", reply, 100), -1);
    EXPECT_EQ(http_single_post("127.0.0.1", "80", "T", 0, 2, "{}", reply, 100), -1);
}

class Upgrade : public ::testing::Test {
protected:
    void start(const std::vector<std::string> &faults)
    {
        ASSERT_TRUE(cam.start(faults));
        ASSERT_TRUE(d.make_config(2));
        d.write_package("chm", "\nconfig channel 'chn1_channel'\n\toption ip '127.0.0.1'\n\toption http_port '" +
                                   cam.port + "'\n\toption username 'admin'\n\toption ciphertext 'null'\n");
        ASSERT_TRUE(d.start()) << d.log();
        image = d.path("/tmp/image.bin");
        std::mt19937 rng(5);
        std::string data(5 * 1024 * 1024, '\0');
        for (auto &c : data)
            c = static_cast<char>(rng());
        std::ofstream(image, std::ios::binary) << data;
        content = data;
    }
    int upgrade()
    {
        return error_code_of(d.request(R"({"method":"do","chm":{"ipc_disk_upgrade":{"channel_id":"1","filepath":")" +
                                       image + R"(","mime_boundary":"----b"}}})", dsd_identity(), 60000));
    }
    int count(const std::string &path)
    {
        int n = 0;
        for (const auto &r : cam.requests())
            n += r == "POST " + path;
        return n;
    }
    camsim_harness cam;
    dsd_harness d;
    std::string image, content;
};

TEST_F(Upgrade, ImageArrivesIntactThenTheCameraReboots)
{
    start({});
    EXPECT_EQ(upgrade(), 0) << d.log();
    EXPECT_NE(cam.stored().find(content), std::string::npos); // the whole image inside the form
    EXPECT_EQ(count("/"), 1);
    EXPECT_EQ(count("/stok=a1b2c3/ds"), 2); // upgrade request, then reboot
    EXPECT_TRUE(has_string(d.ask(R"({"method":"do","chm":{"ipc_device_info":{"channel_id":1}}})"),
                           {"device_info", "model"}, "CAM-SIM"));
}

TEST_F(Upgrade, MissingTokenStopsBeforeTheUpload)
{
    start({"--no-stok"});
    EXPECT_NE(upgrade(), 0);
    EXPECT_EQ(count("/"), 1); // the login was asked for, and nothing after it
    EXPECT_EQ(count("/stok=a1b2c3/ds"), 0);
    EXPECT_EQ(cam.stored(), "");
}

TEST_F(Upgrade, UploadPathTooLongForTheUrlIsNeverCut)
{
    start({"--long-url"});
    EXPECT_NE(upgrade(), 0);
    for (const auto &r : cam.requests())
        EXPECT_EQ(r.find("/upgrade"), std::string::npos) << r;
    EXPECT_EQ(count("/stok=a1b2c3/ds"), 1); // the upgrade request, no reboot
}

TEST_F(Upgrade, FailedUploadSendsNoReboot)
{
    start({"--upload-fails"});
    EXPECT_EQ(upgrade(), -1);
    EXPECT_EQ(count("/stok=a1b2c3/ds"), 1);
    EXPECT_EQ(d.code(R"({"method":"do","chm":{"ipc_disk_upgrade":{"channel_id":"1"}}})"), -70107);
}

// The keywords that ask the camera itself: each logs in once, posts one
// request to the session path and answers with the camera's reply.
TEST_F(Upgrade, CameraKeywordsPassTheCamerasAnswerOn)
{
    start({});
    const char *const keywords[] = {"ipc_device_info", "online_update_check", "online_update_check_status",
                                    "online_update", "online_update_progress"};
    int n = 0;
    for (const char *k : keywords) {
        SCOPED_TRACE(k);
        dsd_answer a = d.ask(R"({"method":"do","chm":{")" + std::string(k) + R"(":{"channel_id":1}}})");
        EXPECT_EQ(a.code(), 0);
        EXPECT_TRUE(has_string(a, {"device_info", "model"}, "CAM-SIM"));
        n++;
        EXPECT_EQ(count("/"), n);
        EXPECT_EQ(count("/stok=a1b2c3/ds"), n);
        EXPECT_EQ(d.ask(R"({"method":"do","chm":{")" + std::string(k) + R"(":{"channel_id":0}}})").code(), -70107);
    }
    dsd_answer url = d.ask(R"({"method":"do","chm":{"ipc_local_upgrade":{"channel_id":"3"}}})");
    EXPECT_EQ(url.code(), 0);
    EXPECT_TRUE(has_string(url, {"url"}, "/admin/chm/ipc_upgrade?id=3"));
}

// The keywords of the camera updater service go to its bus object with
// their own fields.
using ChmUpdater = dsd_device;

TEST_F(ChmUpdater, KeywordsReachTheUpdaterService)
{
    boot(2, R"({"objects":{"ipc_update":{"methods":{)"
                          R"("online_update_ipc":{"reply":{"error_code":0}},)"
                          R"("local_update_ipc":{"reply":{"ok":1}},)"
                          R"("ipc_update_exit":{"reply":{"exit_flag":0}},)"
         R"("get_update_status":{"reply":{"progress":40}}}}}})");
    auto code = [&](const std::string &k, const std::string &arg) {
        return d.ask(R"({"method":"do","chm":{")" + k + R"(":)" + arg + "}}").code();
    };
    EXPECT_EQ(code("online_update_ipc", R"({"channel":[2,3]})"), 0);
    auto calls = bus.calls_to("ipc_update", "online_update_ipc");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(dsd_answer(calls[0].message).len({"channel"}), 2);
    EXPECT_EQ(code("local_update_ipc", R"({"file_boundry":"--b","file_path":"/tmp/fw.bin"})"), 0);
    calls = bus.calls_to("ipc_update", "local_update_ipc");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_TRUE(has_string(dsd_answer(calls[0].message), {"file_path"}, "/tmp/fw.bin"));
    EXPECT_TRUE(has_string(dsd_answer(calls[0].message), {"file_boundry"}, "--b"));
    EXPECT_EQ(code("local_update_ipc", R"({"file_path":"/tmp/fw.bin"})"), -70107);
    EXPECT_EQ(code("ipc_update_exit", "{}"), 0);
    EXPECT_EQ(bus.calls_to("ipc_update", "ipc_update_exit").size(), 1u);
    dsd_answer status = d.ask(R"({"method":"do","chm":{"get_update_status":{"channel":1}}})");
    EXPECT_EQ(status.code(), 0);
    EXPECT_EQ(status.at({"progress"}) ? json_object_get_int(status.at({"progress"})) : -1, 40) << status.text;
    // A refusing updater is reported, not taken for success.
    bus.set_scenario(R"({"objects":{"ipc_update":{"methods":{"online_update_ipc":{"reply":{"error_code":5}}}}}})");
    EXPECT_EQ(code("online_update_ipc", R"({"channel":[2]})"), -40102);
    EXPECT_EQ(code("online_update_ipc", "{}"), -70107);
}

} // namespace
