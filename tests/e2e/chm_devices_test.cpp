// Camera keywords against the real daemon and a simulated device manager.
#include <gtest/gtest.h>
#include <json-c/json.h>

#include <string>

#include "harness/bus_harness.h"
#include "harness/dsd_harness.h"

namespace {

const std::string kCipher120(120, 'c');

std::string camera(const std::string &prot, const std::string &port, const std::string &cipher)
{
    return R"({"connect_prot":")" + prot + R"(","ip":"192.168.1.64","port":")" + port +
           R"(","username":"admin","ciphertext":")" + cipher + R"(","uuid":"cam-1"})";
}

class Chm : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(d.make_config(4));
        ASSERT_TRUE(bus.start(R"({"objects":{"chm_dev_manager":{"methods":{)"
                              R"("chm_ubus_add_device":{"reply":{"error_code":0,"result":[{"error_code":3,"id":5}]}},)"
                              R"("chm_ubus_delete_device":{"reply":{"error_code":0}},)"
                              R"("chm_ubus_get_device_list":{"reply":{"error_code":0,"bandwidth":80,)"
                              R"("added_list":[{"id":1,"online":1},{"id":3,"online":0}]}}}},)"
                              R"("record":{"methods":{"get_chn_event":{"reply":{"record_stat":"1000"}}}}}})"));
        ASSERT_TRUE(d.start()) << d.log();
    }
    std::string add(const std::string &cam)
    {
        return d.request(R"({"method":"do","chm":{"chm_add_dev":)" + cam + "}}");
    }
    dsd_harness d;
    bus_harness bus{d.root};
};

TEST_F(Chm, AddCameraDefaultsRtspAndMapsStatuses)
{
    std::string res = add(camera("ONVIF", "80", kCipher120));
    EXPECT_EQ(error_code_of(res), 0) << res;
    EXPECT_NE(res.find("-71552"), std::string::npos) << res; // device-manager status 3
    auto calls = bus.calls_to("chm_dev_manager", "chm_ubus_add_device");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_NE(calls[0].message.find("\"rtsp_prot\":\"auto\""), std::string::npos) << calls[0].message;
    EXPECT_NE(calls[0].message.find("\"device_list\""), std::string::npos);
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
    EXPECT_EQ(error_code_of(d.request(R"({"method":"do","chm":{"chm_del_dev":{"ids":["2","5"]}}})")), 0);
    auto calls = bus.calls_to("chm_dev_manager", "chm_ubus_delete_device");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_NE(calls[0].message.find("01001" + std::string(123, '0')), std::string::npos) << calls[0].message;
    EXPECT_EQ(bus.calls_to("preview", "strategy_set").size(), 2u);
    EXPECT_EQ(bus.calls_to("record", "event_change").size(), 4u);
    EXPECT_EQ(error_code_of(d.request(R"({"method":"do","chm":{"chm_del_dev":{"ids":["129"]}}})")), -71521);
    EXPECT_EQ(error_code_of(d.request(R"({"method":"do","chm":{"chm_del_dev":{"ids":"2"}}})")), -71521);
}

TEST_F(Chm, ChannelTableByPage)
{
    std::string res = d.request(R"({"method":"do","chm":{"get_chn_info_by_page":{"index":1,"count":2}}})");
    EXPECT_EQ(error_code_of(res), 0) << res;
    EXPECT_NE(res.find("chn_info_1"), std::string::npos) << res;
    EXPECT_EQ(res.find("chn_info_3"), std::string::npos) << res;
    EXPECT_NE(res.find("\"record\": \"on\""), std::string::npos) << res;
    res = d.request(R"({"method":"do","chm":{"get_chn_info_by_page":{"index":1,"count":200}}})");
    EXPECT_NE(res.find("chn_info_3"), std::string::npos) << res;
    EXPECT_EQ(error_code_of(d.request(R"({"method":"do","chm":{"get_chn_info_by_page":{"index":0,"count":2}}})")),
              -70107);
}

} // namespace
