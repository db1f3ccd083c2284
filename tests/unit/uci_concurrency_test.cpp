// Commits from many contexts at once, and commits cut short by SIGKILL. The
// host library is as weak as the device's here (stale lock after a rename,
// change log emptied before the new file is in place): what these tests see
// is the daemon's own protection.
#include <random>

#include "store/store.h"
#include "uci_test_util.h"

namespace {

constexpr int kThreads = 6;
// Every ordinary commit syncs the file and its directory: fewer of those.
constexpr int kCommits = 40;
constexpr int kLightCommits = 100;

std::vector<std::string> items(const uci_dirs &d, const std::string &pkg, const std::string &sec)
{
    return uci_list(ctx_ptr(d.context()).get(), pkg + "." + sec + ".items");
}

bool append(const uci_dirs &d, const std::string &sec, int i, bool light)
{
    // A fresh context per change, as each request gets.
    ctx_ptr ctx(d.context());
    std::string tuple = "shared." + sec + ".items=" + std::to_string(i);
    uci_ptr ptr{};
    if (uci_lookup_ptr(ctx.get(), &ptr, tuple.data(), true) != UCI_OK ||
        uci_add_list(ctx.get(), &ptr) != UCI_OK)
        return false;
    return (light ? commit_in(ctx.get(), "shared", true) : commit_in(ctx.get(), "shared")) == 0;
}

// Six writers append to one list each (or all to one section's list); with
// the light commit a seventh thread flushes all the while.
void run_writers(bool light, bool one_section)
{
    const int kCommits = light ? kLightCommits : ::kCommits;
    uci_dirs d;
    std::string text;
    for (int t = 0; t < kThreads; t++)
        text += "config writer 'w" + std::to_string(t) + "'\n";
    d.write("shared", text);
    uci_store_dirs dirs{d.conf, d.save};
    std::atomic<int> running{kThreads};
    std::vector<std::thread> threads;
    std::vector<int> failures(kThreads, 0);
    for (int t = 0; t < kThreads; t++) {
        threads.emplace_back([&, t] {
            std::string sec("w"); // appended: "w" + to_string() trips GCC 12's -Wrestrict
            sec += one_section ? std::string("0") : std::to_string(t);
            for (int i = 0; i < kCommits; i++)
                failures[t] += !append(d, sec, t * kCommits + i, light);
            running--;
        });
    }
    if (light) {
        threads.emplace_back([&] {
            while (running > 0)
                EXPECT_EQ(uci_flush_package_at(dirs, "shared"), 0);
        });
    }
    for (auto &th : threads)
        th.join();
    ASSERT_EQ(uci_flush_package_at(dirs, "shared"), 0);
    EXPECT_EQ(d.changes("shared"), "");
    size_t total = 0;
    for (int t = 0; t < kThreads; t++) {
        EXPECT_EQ(failures[t], 0);
        if (one_section && t > 0)
            continue;
        std::vector<std::string> got = items(d, "shared", "w" + std::to_string(t));
        total += got.size();
        if (one_section)
            continue;
        ASSERT_EQ(got.size(), static_cast<size_t>(kCommits)) << "writer " << t;
        for (int i = 0; i < kCommits; i++) // each writer's items in its own order
            EXPECT_EQ(got[i], std::to_string(t * kCommits + i));
    }
    EXPECT_EQ(total, static_cast<size_t>(one_section ? kThreads * kCommits : kThreads * kCommits));
}

TEST(UciConcurrency, SixWritersLoseNoCommittedChange)
{
    run_writers(false, false);
    run_writers(false, true);
}

TEST(UciConcurrency, SixLightWritersAndAFlusherLoseNothing)
{
    run_writers(true, false);
    run_writers(true, true);
}

// The child appends 1, 2, 3, ... to a list, commits each and reports it;
// killed at a random moment (mostly inside a flush), then recovered, the
// list must hold every reported value once, in order, and nothing else
// but possibly the one in flight.
int last_reported(int fd)
{
    int value = 0, v;
    while (read(fd, &v, sizeof v) == static_cast<ssize_t>(sizeof v))
        value = v;
    return value;
}

[[noreturn]] void commit_forever(const uci_dirs &d, int fd, bool light)
{
    uci_store_dirs dirs{d.conf, d.save};
    for (int i = 1;; i++) {
        uci_context *ctx = d.context();
        std::string tuple = "victim.s.items=" + std::to_string(i);
        uci_ptr ptr{};
        bool ok = uci_lookup_ptr(ctx, &ptr, tuple.data(), true) == UCI_OK &&
                  uci_add_list(ctx, &ptr) == UCI_OK &&
                  commit_in(ctx, "victim", light) == 0;
        if (ok && write(fd, &i, sizeof i) < 0)
            _exit(1);
        if (light && i % 3 == 0)
            uci_flush_package_at(dirs, "victim");
        uci_free_context(ctx);
    }
}

void kill_rounds(bool light)
{
    uci_dirs d;
    std::string pad;
    for (int i = 0; i < 200; i++)
        pad += "config filler 'f" + std::to_string(i) + "'\n\toption data '" + std::string(64, 'd') + "'\n";
    d.write("victim", "config s 's'\n" + pad);
    uci_store_dirs dirs{d.conf, d.save};
    std::mt19937 rng(12345);
    for (int round = 0; round < 20; round++) {
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(fds[0]);
            commit_forever(d, fds[1], light);
        }
        close(fds[1]);
        usleep(2000 + rng() % 20000);
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        int acked = last_reported(fds[0]);
        close(fds[0]);

        ASSERT_EQ(uci_flush_package_at(dirs, "victim"), 0) << "round " << round;
        std::vector<std::string> got = items(d, "victim", "s");
        ASSERT_GE(got.size(), static_cast<size_t>(acked)) << "round " << round;
        ASSERT_LE(got.size(), static_cast<size_t>(acked) + 1) << "round " << round;
        for (size_t i = 0; i < got.size(); i++)
            ASSERT_EQ(got[i], std::to_string(i + 1)) << "round " << round;
        ctx_ptr ctx(d.context());
        EXPECT_EQ(get_sec_type_num(ctx.get(), "victim", "filler"), 200);
        EXPECT_EQ(access((d.conf + "/.dsd-tmp-victim").c_str(), F_OK), -1);
        // The next round starts from what this one kept.
        d.write("victim", "config s 's'\n" + pad);
        unlink((d.save + "/victim").c_str());
    }
}

TEST(UciDurability, KilledCommitsAndFlushesLoseAndRepeatNothing)
{
    kill_rounds(false);
    kill_rounds(true);
}

} // namespace
