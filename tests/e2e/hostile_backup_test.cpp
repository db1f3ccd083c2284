// Stored values and uploaded bundles against the structure of the files the
// daemon writes: forged backup records through set and add, packages a
// backup never carries, restores blocked half-way.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "crypto/des.h"
#include "crypto/md5.h"
#include "harness/dsd_harness.h"

namespace {

const char kKey[] = "mqwer#!^$KLPZ392";
const std::string kDashes(42, '-');

std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A JSON string literal of any text (control characters escaped).
std::string quoted(const std::string &text)
{
    json_object *s = json_object_new_string_len(text.data(), static_cast<int>(text.size()));
    std::string out = json_object_to_json_string_ext(s, JSON_C_TO_STRING_PLAIN);
    json_object_put(s);
    return out;
}

std::string record(const std::string &name, const std::string &body)
{
    return "@FILE_START@" + kDashes + "\n@FILE_PATH@=/etc/config/" + name + "\n" + body + "@FILE_END@" + kDashes +
           "\n";
}

// Every entry of a directory: its type and mode, and the bytes of files.
using snapshot = std::map<std::string, std::pair<std::string, mode_t>>;

// The names whose entries differ between two snapshots ("" when none).
std::string changed(const snapshot &a, const snapshot &b)
{
    std::string out;
    for (const auto &[name, entry] : a) {
        auto it = b.find(name);
        if (it == b.end() || it->second != entry)
            out += name + " ";
    }
    for (const auto &[name, entry] : b) {
        if (!a.count(name))
            out += name + " ";
    }
    return out;
}

snapshot snap(const std::string &dir)
{
    snapshot s;
    for (const auto &e : std::filesystem::directory_iterator(dir)) {
        struct stat st;
        std::string p = e.path().string();
        if (lstat(p.c_str(), &st) == 0)
            s[e.path().filename().string()] = {S_ISREG(st.st_mode) ? slurp(p) : "", st.st_mode};
    }
    return s;
}

const char kAccounts[] = "\nconfig root 'root'\n\toption username 'admin'\n\toption passwd 'right-pw'\n";

class HostileBackup : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(d.make_config(2));
        d.write_package("user_management", kAccounts);
        ASSERT_TRUE(d.start()) << d.log();
    }
    std::string request(const std::string &req) { return d.request(req); }
    int code(const std::string &req) { return error_code_of(d.request(req)); }
    int download(const std::string &path)
    {
        return code(R"({"method":"do","system":{"download_conf_gui":{"url":")" + path + "\"}}}");
    }
    int upload(const std::string &path)
    {
        return code(R"({"method":"do","system":{"upload_conf_gui":{"url":")" + path + "\"}}}");
    }
    int check_user(const std::string &pass)
    {
        std::string res = request(R"({"method":"do","user_management":{"check_user":{"username":"admin","passwd":)" +
                                  quoted(pass) + "}}}");
        json_object *obj = json_tokener_parse(res.c_str());
        json_object *v = nullptr;
        int rc = 1;
        if (json_object_object_get_ex(obj, "real_error_code", &v) && json_object_is_type(v, json_type_int))
            rc = json_object_get_int(v);
        json_object_put(obj);
        return rc;
    }
    // A backup file as this device would make it from `bundle`.
    std::string forge(const std::string &bundle, const std::string &name)
    {
        md5_ctx m;
        md5_init(&m);
        md5_update(&m, bundle.data(), bundle.size());
        uint8_t dg[16];
        md5_final(&m, dg);
        char hex[33];
        md5_hex(dg, hex);
        std::string plain = d.path("/tmp/forge.plain"), out = d.path("/tmp/") + name;
        std::ofstream(plain, std::ios::binary) << std::string(hex) + ",NVR\n" + bundle;
        EXPECT_EQ(des_encrypt_file(plain.c_str(), out.c_str(), kKey), 0);
        unlink(plain.c_str());
        return out;
    }
    dsd_harness d;
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
        {R"({"method":"set","gb28181":{"v_chn1":{"device_name":)" + quoted(forged) + "}}}", -70231},
        {R"({"method":"set","gb28181":{"v_chn1":{"device_name":)" + quoted("a\rb") + "}}}", -70231},
        {R"({"method":"set","gb28181":{"v_chn1":{"server_ip":)" + quoted("tab\there") + "}}}", -70231},
        {R"({"method":"set","gb28181":{"v_chn2":{"auth_password":)" + quoted(std::string("nul\0x", 5)) + "}}}",
         -70231},
        {R"({"method":"set","gb28181":{"v_chn2":{"keep_alive_cycle":)" + quoted("del\x7f") + "}}}", -70231},
        {R"({"method":"set","gb28181":{"v_chn1":{"device_id":)" + quoted("3402000000132\n0000001") + "}}}", -73801},
        {R"({"method":"set","gb28181":{"v_chn1":{"device_name":["ok",)" + quoted("x\ny") + "]}}}", -70231},
        {R"({"method":"add","user_management":{"table":"admin","name":"admin_3","para":{"username":)" +
             quoted("ops\nconfig root 'x'") + R"(,"passwd":"pw"}}})",
         -70301},
    };
    for (const auto &c : cases)
        EXPECT_EQ(code(c.req), c.code) << c.req;
    EXPECT_EQ(slurp(d.path("/etc/config/gb28181")), gb);
    EXPECT_EQ(slurp(d.path("/etc/config/user_management")), kAccounts);
    // The refusal names the option for whoever reads the trace.
    EXPECT_GE(d.wait_log("Option device_name holds a control character."), 1);
    // One-line text, marker tokens included, is still a plain value.
    EXPECT_EQ(code(R"({"method":"set","gb28181":{"v_chn1":{"device_name":"@FILE_END@ cam"}}})"), 0);

    // A backup and its restore leave the accounts and the value's package as they were.
    gb = slurp(d.path("/etc/config/gb28181"));
    std::string file = d.path("/tmp/b.bin");
    ASSERT_EQ(download(file), 0) << d.log();
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
        EXPECT_EQ(download(file), -40102) << line;
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
    ASSERT_EQ(upload(forge(record("video", body), "inexact.bin")), 0) << d.log();
    EXPECT_EQ(slurp(d.path("/etc/config/video")), body);
    // A start or end marker with anything after it is no marker.
    snapshot before = snap(d.path("/etc/config"));
    std::string bad_start = "@FILE_START@" + kDashes + " \n@FILE_PATH@=/etc/config/video\nx\n@FILE_END@" + kDashes + "\n";
    std::string bad_end = "@FILE_START@" + kDashes + "\n@FILE_PATH@=/etc/config/video\nx\n@FILE_END@" + kDashes + "-\n";
    std::string bad_path = "@FILE_START@" + kDashes + "\nX@FILE_PATH@=/etc/config/video\nx\n@FILE_END@" + kDashes + "\n";
    for (const std::string &bundle : {bad_start, bad_end, bad_path})
        EXPECT_EQ(upload(forge(bundle, "bad.bin")), -40102) << bundle;
    EXPECT_EQ(changed(snap(d.path("/etc/config")), before), "");
}

TEST_F(HostileBackup, PackagesBackupsNeverCarryAreRefusedBeforeAnyWrite)
{
    snapshot before = snap(d.path("/etc/config"));
    const std::string network = record("network", "\nconfig interface 'lan'\n\toption proto 'evil'\n");
    for (const char *name : {"user_management", "uhttpd", "cloud_config", "cloud_status", "ovddns_status"}) {
        std::string body = "\nconfig root 'root'\n\toption username 'admin'\n\toption passwd 'owned'\n";
        EXPECT_EQ(upload(forge(network + record(name, body), "excluded.bin")), -40102) << name;
        EXPECT_EQ(upload(forge(record(name, body) + network, "excluded.bin")), -40102) << name;
    }
    // The same package twice is no backup either.
    EXPECT_EQ(upload(forge(network + network, "twice.bin")), -40102);
    EXPECT_EQ(changed(snap(d.path("/etc/config")), before), "");
    EXPECT_EQ(check_user("owned"), -70312);
}

TEST_F(HostileBackup, RestoreBlockedHalfWayChangesNothing)
{
    std::string conf = d.path("/etc/config");
    ASSERT_EQ(mkdir((conf + "/zz_dir").c_str(), 0755), 0);
    std::ofstream(conf + "/zz_dir/inside") << "kept\n";
    ASSERT_EQ(mkfifo((conf + "/zz_fifo").c_str(), 0644), 0);
    ASSERT_EQ(symlink((conf + "/video").c_str(), (conf + "/zz_link").c_str()), 0);
    int sock = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::string sock_path = conf + "/zz_sock";
    ASSERT_LT(sock_path.size(), sizeof addr.sun_path);
    memcpy(addr.sun_path, sock_path.c_str(), sock_path.size() + 1);
    ASSERT_EQ(bind(sock, reinterpret_cast<sockaddr *>(&addr), sizeof addr), 0);
    snapshot before = snap(conf);
    const std::string first = record("network", "\nconfig interface 'lan'\n\toption proto 'restored'\n") +
                              record("video", "\nconfig main 'restored'\n");
    for (const char *blocked : {"zz_dir", "zz_fifo", "zz_link", "zz_sock", "a_dir"}) {
        if (std::string(blocked) == "a_dir") {
            ASSERT_EQ(mkdir((conf + "/a_dir").c_str(), 0755), 0); // sorts before the others
        }
        snapshot now = snap(conf);
        EXPECT_EQ(upload(forge(first + record(blocked, "\nconfig x 'y'\n"), "blocked.bin")), -40102) << blocked;
        EXPECT_EQ(changed(snap(conf), now), "") << blocked;
    }
    rmdir((conf + "/a_dir").c_str());
    EXPECT_EQ(changed(snap(conf), before), "");
    close(sock);
    // The same bundle without the blocked package goes in whole.
    ASSERT_EQ(upload(forge(first, "fine.bin")), 0) << d.log();
    EXPECT_NE(slurp(conf + "/network").find("restored"), std::string::npos);
    EXPECT_EQ(slurp(conf + "/video"), "\nconfig main 'restored'\n");
}

} // namespace
