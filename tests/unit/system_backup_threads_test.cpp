// Backups and restores from several workers at once: the fixed work files
// must never mix two operations, so every one of them succeeds and the
// configuration ends as one of the saved states.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <uci.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "harness/dsd_harness.h"
#include "harness/scratch_dir.h"
#include "core/context.h"
#include "modules/system/backup.h"
#include "platform/paths.h"
#include "store/store.h"

namespace {

std::string g_root;

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
    scratch_dir scratch("dsd-backup-threads");
    g_root = scratch.path;
    setenv("DSD_ROOT", g_root.c_str(), 1);
    ASSERT_EQ(dsd_root(), g_root) << "DSD_ROOT was read before this test";
    std::string cmd = "mkdir -p " + g_root + "/etc/config " + g_root + "/tmp/out";
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
