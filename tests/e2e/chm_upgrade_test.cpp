// The HTTP client and the camera firmware upgrade against tools/camsim.
#include <gtest/gtest.h>

#include <fstream>
#include <random>

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
        int rc = http_single_post("127.0.0.1", cam.port.c_str(), nullptr, 0, 0, "{}", reply, 5000);
        EXPECT_EQ(rc, size == 4090 ? 0 : -1) << size;
        if (size == 4091) {
            EXPECT_STREQ(reply, "untouched");
        }
    }
    camsim_harness redirect;
    ASSERT_TRUE(redirect.start({"--redirect"}));
    strcpy(reply, "untouched");
    EXPECT_EQ(http_single_post("127.0.0.1", redirect.port.c_str(), nullptr, 0, 0, "{}", reply, 5000), -1);
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
    std::string info = d.request(R"({"method":"do","chm":{"ipc_device_info":{"channel_id":1}}})");
    EXPECT_EQ(error_code_of(info), 0) << info;
    EXPECT_NE(info.find("CAM-SIM"), std::string::npos);
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
    EXPECT_EQ(error_code_of(d.request(R"({"method":"do","chm":{"ipc_disk_upgrade":{"channel_id":"1"}}})")), -70107);
}

} // namespace
