// Stored values and uploaded bundles against the structure of the files the
// daemon writes: forged backup records through set and add, packages a
// backup never carries, restores blocked half-way.
#include "harness/dsd_harness.h"

namespace {

const std::string kDashes(42, '-');

std::string record(const std::string &name, const std::string &body)
{
    return "@FILE_START@" + kDashes + "\n@FILE_PATH@=/etc/config/" + name + "\n" + body + "@FILE_END@" + kDashes +
           "\n";
}

const char kAccounts[] = "\nconfig root 'root'\n\toption username 'admin'\n\toption passwd 'right-pw'\n";

class HostileBackup : public dsd_device {
protected:
    void SetUp() override { boot(2, nullptr, {{"user_management", kAccounts}}); }
    int upload(const std::string &url) const { return d.restore_from(url); }
    int check_user(const std::string &pass)
    {
        return d.ask(R"({"method":"do","user_management":{"check_user":{"username":"admin","passwd":)" +
                     json_quote(pass) + "}}}")
            .num({"real_error_code"});
    }
};

TEST_F(HostileBackup, ForgedValuesAreRefusedBySetAndAdd)
{
    const std::string forged = "cam\n@FILE_END@" + kDashes + "\n@FILE_START@" + kDashes +
                               "\n@FILE_PATH@=/etc/config/user_management\nconfig root 'root'\n"
                               "\toption username 'admin'\n\toption passwd 'owned'\n";
    std::string gb = slurp(d.path("/etc/config/gb28181"));
    ASSERT_NE(gb.find("v_chn1"), std::string::npos);
    // Rows that take any text and rows with a length range alike; a row's own
    // code where it has one, else the string check's.
    struct {
        std::string req;
        int code;
    } cases[] = {
        {R"({"method":"set","gb28181":{"v_chn1":{"device_name":)" + json_quote(forged) + "}}}", -70231},
        {R"({"method":"set","gb28181":{"v_chn1":{"device_name":)" + json_quote("a\rb") + "}}}", -70231},
        {R"({"method":"set","gb28181":{"v_chn1":{"server_ip":)" + json_quote("tab\there") + "}}}", -70231},
        {R"({"method":"set","gb28181":{"v_chn2":{"auth_password":)" + json_quote(std::string("nul\0x", 5)) + "}}}",
         -70231},
        {R"({"method":"set","gb28181":{"v_chn2":{"keep_alive_cycle":)" + json_quote("del\x7f") + "}}}", -70231},
        {R"({"method":"set","gb28181":{"v_chn1":{"device_id":)" + json_quote("3402000000132\n0000001") + "}}}", -73801},
        {R"({"method":"set","gb28181":{"v_chn1":{"device_name":["ok",)" + json_quote("x\ny") + "]}}}", -70231},
        {R"({"method":"add","user_management":{"table":"admin","name":"admin_3","para":{"username":)" +
             json_quote("ops\nconfig root 'x'") + R"(,"passwd":"pw"}}})",
         -70301},
    };
    for (const auto &c : cases)
        EXPECT_EQ(d.code(c.req), c.code) << c.req;
    EXPECT_EQ(slurp(d.path("/etc/config/gb28181")), gb);
    EXPECT_EQ(slurp(d.path("/etc/config/user_management")), kAccounts);
    // The refusal names the option for whoever reads the trace.
    EXPECT_GE(d.wait_log("Option device_name holds a control character."), 1);
    // One-line text, marker tokens included, is still a plain value.
    EXPECT_EQ(d.code(R"({"method":"set","gb28181":{"v_chn1":{"device_name":"@FILE_END@ cam"}}})"), 0);

    // A backup and its restore leave the accounts and the value's package as they were.
    gb = slurp(d.path("/etc/config/gb28181"));
    std::string file = d.path("/tmp/b.bin");
    ASSERT_EQ(d.backup_to(file), 0) << d.log();
    ASSERT_EQ(upload(file), 0) << d.log();
    EXPECT_EQ(slurp(d.path("/etc/config/user_management")), kAccounts);
    EXPECT_EQ(slurp(d.path("/etc/config/gb28181")), gb);
    EXPECT_EQ(check_user("owned"), -70312);
    EXPECT_EQ(check_user("right-pw"), 0);
}

TEST_F(HostileBackup, PackageHoldingAMarkerLineIsNeverBackedUp)
{
    // Written behind the daemon's back: the backup refuses it whole.
    for (const std::string &line : {"@FILE_END@" + kDashes, "@FILE_START@" + kDashes,
                                    std::string("@FILE_PATH@=/etc/config/user_management"), std::string("@FILE_END@")}) {
        d.write_package("gb28181", "\nconfig gb28181 'v_chn1'\n" + line + "\n\toption device_name 'x'\n");
        std::string file = d.path("/tmp/refused.bin");
        EXPECT_EQ(d.backup_to(file), -40102) << line;
        struct stat st;
        EXPECT_NE(stat(file.c_str(), &st), 0) << "nothing written for " << line;
        for (const char *work : {"/tmp/conf_package", "/tmp/conf_package_md5"})
            EXPECT_NE(stat(d.path(work).c_str(), &st), 0) << work;
    }
}

TEST_F(HostileBackup, RestoreTakesOnlyExactMarkerLines)
{
    // Lines that merely contain a marker are text of the package.
    std::string body = "\nconfig main 'kept'\n# x@FILE_END@" + kDashes + "\n# @FILE_START@ again\n";
    ASSERT_EQ(upload(d.forge_backup(record("video", body), "inexact.bin")), 0) << d.log();
    EXPECT_EQ(slurp(d.path("/etc/config/video")), body);
    // A start or end marker with anything after it is no marker.
    dsd_snapshot before = snapshot_dir(d.path("/etc/config"));
    std::string bad_start = "@FILE_START@" + kDashes + " \n@FILE_PATH@=/etc/config/video\nx\n@FILE_END@" + kDashes + "\n";
    std::string bad_end = "@FILE_START@" + kDashes + "\n@FILE_PATH@=/etc/config/video\nx\n@FILE_END@" + kDashes + "-\n";
    std::string bad_path = "@FILE_START@" + kDashes + "\nX@FILE_PATH@=/etc/config/video\nx\n@FILE_END@" + kDashes + "\n";
    for (const std::string &bundle : {bad_start, bad_end, bad_path})
        EXPECT_EQ(upload(d.forge_backup(bundle, "bad.bin")), -40102) << bundle;
    EXPECT_EQ(snapshot_changes(snapshot_dir(d.path("/etc/config")), before), "");
}

TEST_F(HostileBackup, PackagesBackupsNeverCarryAreRefusedBeforeAnyWrite)
{
    dsd_snapshot before = snapshot_dir(d.path("/etc/config"));
    const std::string network = record("network", "\nconfig interface 'lan'\n\toption proto 'evil'\n");
    for (const char *name : {"user_management", "uhttpd", "cloud_config", "cloud_status", "ovddns_status"}) {
        std::string body = "\nconfig root 'root'\n\toption username 'admin'\n\toption passwd 'owned'\n";
        EXPECT_EQ(upload(d.forge_backup(network + record(name, body), "excluded.bin")), -40102) << name;
        EXPECT_EQ(upload(d.forge_backup(record(name, body) + network, "excluded.bin")), -40102) << name;
    }
    // The same package twice is no backup either.
    EXPECT_EQ(upload(d.forge_backup(network + network, "twice.bin")), -40102);
    EXPECT_EQ(snapshot_changes(snapshot_dir(d.path("/etc/config")), before), "");
    EXPECT_EQ(check_user("owned"), -70312);
}

TEST_F(HostileBackup, RestoreBlockedHalfWayChangesNothing)
{
    std::string conf = d.path("/etc/config");
    ASSERT_EQ(mkdir((conf + "/zz_dir").c_str(), 0755), 0);
    std::ofstream(conf + "/zz_dir/inside") << "kept\n";
    ASSERT_EQ(mkfifo((conf + "/zz_fifo").c_str(), 0644), 0);
    ASSERT_EQ(symlink((conf + "/video").c_str(), (conf + "/zz_link").c_str()), 0);
    dsd_snapshot before = snapshot_dir(conf);
    const std::string first = record("network", "\nconfig interface 'lan'\n\toption proto 'restored'\n") +
                              record("video", "\nconfig main 'restored'\n");
    for (const char *blocked : {"zz_dir", "zz_fifo", "zz_link", "a_dir"}) {
        if (std::string(blocked) == "a_dir") {
            ASSERT_EQ(mkdir((conf + "/a_dir").c_str(), 0755), 0); // sorts before the others
        }
        dsd_snapshot now = snapshot_dir(conf);
        EXPECT_EQ(upload(d.forge_backup(first + record(blocked, "\nconfig x 'y'\n"), "blocked.bin")), -40102) << blocked;
        EXPECT_EQ(snapshot_changes(snapshot_dir(conf), now), "") << blocked;
    }
    rmdir((conf + "/a_dir").c_str());
    EXPECT_EQ(snapshot_changes(snapshot_dir(conf), before), "");
    // The same bundle without the blocked package goes in whole.
    ASSERT_EQ(upload(d.forge_backup(first, "fine.bin")), 0) << d.log();
    EXPECT_NE(slurp(conf + "/network").find("restored"), std::string::npos);
    EXPECT_EQ(slurp(conf + "/video"), "\nconfig main 'restored'\n");
}

} // namespace
