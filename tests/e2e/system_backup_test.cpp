// Backup and restore through the real daemon: round trip, exclusions,
// tampering, another device's backup, hostile bundles, size limit.
#include "crypto/des.h"
#include "harness/dsd_harness.h"

namespace {

const char kKey[] = "mqwer#!^$KLPZ392";

class Backup : public dsd_device {
protected:
    void SetUp() override { boot(2); }
    int upload(const std::string &url) const { return d.restore_from(url); }
};

// A package as hands and tools leave it (comments, both quoting styles, an
// escaped quote, a list) and a staged change: after a backup, later edits
// and a restore, every value reads back as it was at the backup.
TEST_F(Backup, RoundTripOverRealPackageTextKeepsEveryValue)
{
    d.write_package("osd", "# kept by hand\nconfig osd 'chn1_osd'\n\toption title \"Front door\"\n"
                           "\toption text 'it'\\''s 5 o'\\''clock'\n\tlist lines 'a b'\n\tlist lines 'c'\n"
                           "\nconfig osd 'chn2_osd'\n\toption title Yard # trailing comment\n");
    const struct { const char *pkg, *sec, *opt, *value; } kept[] = {
        {"osd", "chn1_osd", "title", "Front door"},
        {"osd", "chn1_osd", "text", "it's 5 o'clock"},
        {"osd", "chn2_osd", "title", "Yard"},
        {"motion_detection", "chn1_motion_det", "digital_sensitivity", "33"},
    };
    for (const auto &k : kept) {
        if (std::string(k.pkg) == "osd") {
            ASSERT_EQ(d.uci_get(k.pkg, k.sec, k.opt), k.value) << "the test's own reading of " << k.sec;
        }
    }
    const std::string set = R"({"method":"set","motion_detection":{"chn1_motion_det":{"digital_sensitivity":")";
    ASSERT_EQ(d.code(set + "33\"}}}"), 0);
    std::string file = d.path("/tmp/backup.bin");
    ASSERT_EQ(d.backup_to(file), 0);
    ASSERT_EQ(d.code(set + "77\"}}}"), 0);
    d.write_package("osd", "\nconfig osd 'chn1_osd'\n\toption title 'changed'\n");
    ASSERT_EQ(upload(file), 0);
    for (const auto &k : kept)
        EXPECT_EQ(d.uci_get(k.pkg, k.sec, k.opt), k.value) << k.pkg << "." << k.sec << "." << k.opt;
    dsd_answer got = d.ask(R"({"method":"get","motion_detection":{"name":"chn1_motion_det"}})");
    EXPECT_TRUE(has_string(got, {"motion_detection", "chn1_motion_det", "digital_sensitivity"}, "33"));
}

TEST_F(Backup, TamperingAndForeignDevicesAreRefused)
{
    std::string file = d.path("/tmp/backup.bin");
    ASSERT_EQ(d.backup_to(file), 0);
    std::string data = slurp(file);
    data[data.size() / 2] ^= 0x01;
    std::ofstream(d.path("/tmp/damaged.bin"), std::ios::binary) << data;
    int rc = upload(d.path("/tmp/damaged.bin"));
    EXPECT_TRUE(rc == -50914 || rc == -50916) << rc;

    std::string bundle = "@FILE_START@------------------------------------------\n"
                         "@FILE_PATH@=/etc/config/video\n\nconfig main 'evil'\n\toption mark 'x'\n"
                         "@FILE_END@------------------------------------------\n";
    EXPECT_EQ(upload(d.forge_backup(bundle, "foreign.bin", "OtherNVR")), -50914);
    EXPECT_EQ(upload(d.forge_backup(bundle, "good.bin", "NVR")), 0);
    EXPECT_EQ(d.uci_get("video", "evil", "mark"), "x");

    // Hostile names and cut bundles are refused by the splitter (its unit
    // tests) and answered -40102 (the hostile backup tests).
    std::string before = slurp(d.path("/etc/config/video"));
    std::string first_line_without_comma = d.path("/tmp/nocomma.plain");
    std::ofstream(first_line_without_comma) << "0123456789abcdef0123456789abcdef NVR\n" << bundle;
    des_encrypt_file(first_line_without_comma.c_str(), d.path("/tmp/nocomma.bin").c_str(), kKey);
    EXPECT_EQ(upload(d.path("/tmp/nocomma.bin")), -50914);
    EXPECT_EQ(slurp(d.path("/etc/config/video")), before); // nothing written by refused uploads
    EXPECT_FALSE(std::ifstream(d.path("/passwd")).good());
    // A device that cannot name itself accepts no backup, not even a nameless one.
    d.write_package("device_info", "\nconfig info 'info'\n");
    EXPECT_EQ(upload(d.forge_backup(bundle, "nameless.bin", "")), -50914);
    // No work file survives a refused upload.
    for (const char *work : {"/tmp/decrypt_conf", "/tmp/conf_bundle", "/tmp/restore/tmp_conf_final.bin", "/tmp/restore"}) {
        struct stat st;
        EXPECT_NE(stat(d.path(work).c_str(), &st), 0) << work;
    }
}

TEST_F(Backup, DirectoryDestinationReceivesTheNamedFile)
{
    std::string dir = d.path("/tmp/web");
    ASSERT_EQ(mkdir(dir.c_str(), 0700), 0);
    ASSERT_EQ(d.code(R"({"method":"do","system":{"download_conf_gui":{"url":")" + dir + R"(","name":"NVR1"}}})"), 0)
        << d.log();
    dsd_snapshot listing = snapshot_dir(dir);
    ASSERT_EQ(listing.size(), 1u) << snapshot_changes(listing, {});
    const std::string name = listing.begin()->first;
    EXPECT_EQ(name.rfind("NVR1_", 0), 0u) << name;
    EXPECT_NE(name.find("_config.bin"), std::string::npos) << name;
    // The backup file itself does not stay behind in /tmp.
    EXPECT_FALSE(std::ifstream(d.path("/tmp/") + name).good());
}

TEST_F(Backup, RequestChecks)
{
    std::string big = d.path("/tmp/big.bin");
    std::ofstream(big, std::ios::binary) << std::string(3145729, 'x');
    EXPECT_EQ(upload(big), -40102);
    EXPECT_EQ(upload(d.path("/tmp/missing.bin")), -40102);
    EXPECT_EQ(upload("/etc/passwd"), -40209);
    EXPECT_EQ(d.code(R"({"method":"do","system":{"upload_conf_gui":"x"}})"), -40209);
    EXPECT_EQ(d.code(R"({"method":"do","system":{"download_conf_gui":{"url":"/nonexistent/dir/x"}}})"), -40102);
    EXPECT_EQ(d.backup_to(d.path("/tmp/$(reboot)")),
              -40209);
    dsd_answer down = d.ask(R"({"method":"do","system":{"download_conf":{}}})");
    EXPECT_EQ(down.code(), 0);
    EXPECT_TRUE(has_string(down, {"url"}, "/admin/system/download_conf"));
    EXPECT_TRUE(has_string(d.ask(R"({"method":"do","system":{"upload_conf":{}}})"), {"url"}, "/admin/system/upload_conf"));
    std::string records = slurp(d.path("/var/log/msglog/records"));
    EXPECT_NE(records.find(R"("main_type":3,"sub_type":22)"), std::string::npos) << records;
    EXPECT_NE(records.find(R"("main_type":3,"sub_type":23)"), std::string::npos) << records;
}

} // namespace
