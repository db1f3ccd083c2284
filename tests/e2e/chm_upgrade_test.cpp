// The HTTP client and the camera firmware upgrade against tools/camsim.
#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "harness/bus_harness.h"
#include "harness/camsim_harness.h"
#include "harness/dsd_harness.h"
#include "platform/http_client.h"

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
