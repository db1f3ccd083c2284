// Commits from many contexts at once, and commits cut short by SIGKILL.
#include <gtest/gtest.h>
#include <uci.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "platform/uci_access.h"
#include "uci_test_util.h"

namespace {

using ctx_ptr = std::unique_ptr<uci_context, ctx_deleter>;

constexpr int kThreads = 6;
constexpr int kCommits = 1000;

TEST(UciConcurrency, SixWritersLoseNoCommittedChange)
{
    uci_dirs d;
    std::string text;
    for (int t = 0; t < kThreads; t++)
        text += "config writer 'w" + std::to_string(t) + "'\n";
    d.write("shared", text);

    std::vector<std::thread> threads;
    std::vector<int> failures(kThreads, 0);
    for (int t = 0; t < kThreads; t++) {
        threads.emplace_back([&, t] {
            std::string sec("w"); // appended: "w" + to_string() trips GCC 12's -Wrestrict
            sec += std::to_string(t);
            for (int i = 0; i < kCommits; i++) {
                // A fresh context per change, as each request gets.
                ctx_ptr ctx(d.context());
                std::string tuple = "shared." + sec + ".items=" + std::to_string(i);
                uci_ptr ptr{};
                if (uci_lookup_ptr(ctx.get(), &ptr, tuple.data(), true) != UCI_OK ||
                    uci_add_list(ctx.get(), &ptr) != UCI_OK || commit_package(ctx.get(), "shared") != 0)
                    failures[t]++;
            }
        });
    }
    for (auto &th : threads)
        th.join();
    for (int t = 0; t < kThreads; t++)
        EXPECT_EQ(failures[t], 0);

    EXPECT_EQ(d.changes("shared"), "");
    ctx_ptr ctx(d.context());
    uci_package *p = nullptr;
    ASSERT_EQ(uci_load(ctx.get(), "shared", &p), UCI_OK);
    for (int t = 0; t < kThreads; t++) {
        std::string tuple = "shared.w" + std::to_string(t) + ".items";
        uci_ptr ptr{};
        ASSERT_EQ(uci_lookup_ptr(ctx.get(), &ptr, tuple.data(), true), UCI_OK);
        ASSERT_TRUE(ptr.o && ptr.o->type == UCI_TYPE_LIST);
        int expect = 0;
        uci_element *e;
        uci_foreach_element(&ptr.o->v.list, e) {
            // each writer's items arrive in its own order, none missing
            EXPECT_EQ(std::to_string(expect++), e->name);
        }
        EXPECT_EQ(expect, kCommits);
    }
}

// The child commits 1, 2, 3, ... and reports each value it saw committed;
// killed at a random moment, it must leave a file that parses and holds at
// least the last value it reported.
int last_reported(int fd)
{
    int value = 0, v;
    while (read(fd, &v, sizeof v) == static_cast<ssize_t>(sizeof v))
        value = v;
    return value;
}

[[noreturn]] void commit_forever(const uci_dirs &d, int fd)
{
    for (int i = 1;; i++) {
        uci_context *ctx = d.context();
        std::string v = std::to_string(i) + std::string(200, 'x'); // make the write window wide
        if (set_opt_value(ctx, "victim", "s", "value", v.c_str()) == 0 &&
            commit_package(ctx, "victim") == 0 && write(fd, &i, sizeof i) < 0)
            _exit(1);
        uci_free_context(ctx);
    }
}

TEST(UciDurability, KilledCommitsLeaveOldOrNewFileWhole)
{
    uci_dirs d;
    std::string pad;
    for (int i = 0; i < 200; i++)
        pad += "config filler 'f" + std::to_string(i) + "'\n\toption data '" + std::string(64, 'd') + "'\n";
    d.write("victim", "config s 's'\n\toption value '0'\n" + pad);
    std::mt19937 rng(12345);
    for (int round = 0; round < 30; round++) {
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(fds[0]);
            commit_forever(d, fds[1]);
        }
        close(fds[1]);
        usleep(2000 + rng() % 20000);
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        int acked = last_reported(fds[0]);
        close(fds[0]);

        ctx_ptr ctx(d.context());
        uci_package *p = nullptr;
        ASSERT_EQ(uci_load(ctx.get(), "victim", &p), UCI_OK) << "round " << round;
        const char *v = get_opt_value(ctx.get(), "victim", "s", "value");
        ASSERT_NE(v, nullptr);
        EXPECT_GE(atoi(v), acked) << "round " << round;
        EXPECT_EQ(get_sec_type_num(ctx.get(), "victim", "filler"), 200);
    }
}

} // namespace
