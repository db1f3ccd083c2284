// The backup bundle: what a configuration directory packs into and what the
// splitter accepts back; backups and restores from several workers at once,
// whose fixed work files must never mix two operations.
#include "model/request.h"
#include "harness/dsd_harness.h"
#include "model_test_util.h"
#include "modules/system/backup.h"
#include "platform/paths.h"
#include "store/store.h"

namespace {

const std::string kDashes(42, '-');

std::string record(const std::string &path, const std::string &body)
{
    return "@FILE_START@" + kDashes + "\n@FILE_PATH@=" + path + "\n" + body + "@FILE_END@" + kDashes + "\n";
}

using Files = std::vector<std::pair<std::string, std::string>>;

class BackupBundle : public ::testing::Test {
protected:
    void put(const std::string &name, const std::string &body)
    {
        std::ofstream(dir + "/" + name, std::ios::binary) << body;
    }
    scratch_dir scratch{"dsd-bundle"};
    std::string dir = scratch.path;
};

TEST_F(BackupBundle, PacksPlainPackagesAndSplitsBackToTheSameFiles)
{
    put("network", "\nconfig interface 'lan'\n\toption proto 'static'\n");
    put("video", "\nconfig main 'main'\n\toption fps '25'\n\n");
    put("unterminated", "config x 'y'"); // last line without newline
    for (const char *secret : {"user_management", "uhttpd", "cloud_config", "cloud_status", "ovddns_status"})
        put(secret, "config secret 's'\n");
    put(".hidden", "config h 'h'\n");
    // Temporary files (an editor's, a commit's, the daemon's) and links never travel.
    for (const char *temp : {"network.tmp", "video~", ".dsd-tmp-video", ".video.uci-a1b2"})
        put(temp, "config temp 't'\n");
    ASSERT_EQ(symlink("/etc/passwd", (dir + "/passwd").c_str()), 0);
    ASSERT_EQ(mkdir((dir + "/subdir").c_str(), 0700), 0);

    std::string bundle;
    ASSERT_TRUE(backup_bundle(dir, &bundle));
    EXPECT_NE(bundle.find(record("/etc/config/network", "\nconfig interface 'lan'\n\toption proto 'static'\n")),
              std::string::npos);
    EXPECT_EQ(bundle.find("secret"), std::string::npos);
    EXPECT_EQ(bundle.find("hidden"), std::string::npos);
    EXPECT_EQ(bundle.find("subdir"), std::string::npos);
    EXPECT_EQ(bundle.find("temp"), std::string::npos);
    EXPECT_EQ(bundle.find("passwd"), std::string::npos);

    Files files;
    ASSERT_TRUE(backup_split(bundle, &files));
    ASSERT_EQ(files.size(), 3u);
    for (const auto &[name, body] : files) {
        if (name == "video")
            EXPECT_EQ(body, "\nconfig main 'main'\n\toption fps '25'\n\n");
        else if (name == "unterminated")
            EXPECT_EQ(body, "config x 'y'\n");
        else
            EXPECT_EQ(name, "network");
    }
}

TEST_F(BackupBundle, EmptyDirectoryPacksNothing)
{
    put("uhttpd", "config x 'y'\n");
    std::string bundle;
    EXPECT_FALSE(backup_bundle(dir, &bundle));
    EXPECT_FALSE(backup_bundle(dir + "/missing", &bundle));
}

TEST(BackupSplit, HostileNamesRefuseTheWholeBundle)
{
    std::string good = record("/etc/config/video", "config main 'm'\n");
    for (const char *path : {"/etc/config/../../etc/passwd", "/etc/config/", "/etc/config/sub/file", "/etc/passwd",
                             "../../etc/passwd", "/etc/config/.uci", "/etc/config/a b", "/etc/config/$(reboot)"}) {
        Files files{{"stale", "x"}};
        EXPECT_FALSE(backup_split(good + record(path, "root::0:0\n"), &files)) << path;
        EXPECT_FALSE(backup_split(record(path, "root::0:0\n") + good, &files)) << path;
        EXPECT_EQ(files.size(), 1u) << "nothing handed back for " << path;
    }
}

TEST(BackupSplit, TruncatedOrMalformedBundlesAreRefused)
{
    std::string two = record("/etc/config/video", "config main 'm'\n") + record("/etc/config/osd", "config o 'o'\n");
    Files files;
    ASSERT_TRUE(backup_split(two, &files));
    EXPECT_EQ(files.size(), 2u);
    // Cut anywhere inside the second record: no end line, no path, or a
    // start line alone.
    size_t second = two.find("@FILE_START@", 1);
    size_t last_end = two.rfind("@FILE_END@");
    for (size_t cut = second + 1; cut < last_end + 10; cut++)
        EXPECT_FALSE(backup_split(two.substr(0, cut), &files)) << cut;
    EXPECT_FALSE(backup_split("", &files));
    EXPECT_FALSE(backup_split("config main 'm'\n" + two, &files));                 // text before a start line
    EXPECT_FALSE(backup_split("@FILE_START@" + kDashes + "\nconfig x\n", &files)); // path line missing
}

} // namespace

namespace {

// DSD_ROOT is read once per process: set before any test runs.
model_scratch_root root_dir;
const std::string &g_root = root_dir.root;

// One keyword call on a context of its own, as a worker would make it.
int call(int (*fn)(ds_context *, json_object *), const std::string &url)
{
    ds_context ctx{};
    ctx.uci_ctx = dsd_uci_alloc();
    json_object *arg = json_object_new_object();
    json_object_object_add(arg, "url", json_object_new_string(url.c_str()));
    int rc = fn(&ctx, arg);
    json_object_put(arg);
    json_object_put(ctx.res_obj);
    uci_free_context(ctx.uci_ctx);
    return rc;
}

TEST(BackupThreads, ConcurrentBackupsAndRestoresNeverMix)
{
    ASSERT_EQ(dsd_root(), g_root) << "DSD_ROOT was read before this test";
    std::string cmd = "mkdir -p " + g_root + "/tmp/out";
    ASSERT_EQ(system(cmd.c_str()), 0);
    std::ofstream(g_root + "/etc/config/device_info") << "\nconfig info 'info'\n\toption device_name 'NVR'\n";
    const std::string saved = "\nconfig main 'main'\n\toption fps '25'\n";
    std::ofstream(g_root + "/etc/config/video") << saved;
    std::string backup = g_root + "/tmp/out/saved.bin";
    ASSERT_EQ(call(download_conf_gui, backup), 0);

    std::vector<std::thread> workers;
    std::vector<int> results(8, -1);
    for (int w = 0; w < 8; w++) {
        workers.emplace_back([w, &results, &backup] {
            int bad = 0;
            for (int round = 0; round < 5; round++) {
                std::string dest = g_root + "/tmp/out/w" + std::to_string(w) + "_" + std::to_string(round);
                bad += w % 2 ? call(upload_conf_gui, backup) != 0 : call(download_conf_gui, dest) != 0;
            }
            results[w] = bad;
        });
    }
    for (auto &t : workers)
        t.join();
    for (int w = 0; w < 8; w++)
        EXPECT_EQ(results[w], 0) << "worker " << w;
    EXPECT_EQ(slurp(g_root + "/etc/config/video"), saved);
    // Every download made in between restores cleanly.
    EXPECT_EQ(call(upload_conf_gui, g_root + "/tmp/out/w0_4"), 0);
}

} // namespace
