// Transactions: what a caller may rely on. A dropped transaction, or one
// whose commit failed, leaves the package's file and change log byte for
// byte as they were and nothing of it visible; two transactions on one
// package take turns; two taking packages in opposite orders give up
// instead of deadlocking.
#include <sys/resource.h>

#include "store/store.h"
#include "uci_test_util.h"

namespace {

// What a reader sees of the package: every section of a view, in order.
std::string seen(const uci_dirs &d)
{
    ctx_ptr ctx(d.context());
    json_object *pkg = get_uci_package(ctx.get(), "pkg");
    std::string out = pkg ? json_object_to_json_string(pkg) : "(none)";
    json_object_put(pkg);
    return out;
}

// A change light-committed before: it must survive every drop below.
void stage_earlier(const uci_dirs &d)
{
    ctx_ptr ctx(d.context());
    store_txn t(ctx.get());
    ASSERT_EQ(set_opt_value(&t, "pkg", "full", "earlier", "kept"), 0);
    ASSERT_EQ(store_txn_commit(&t, "pkg", true), 0);
}

TEST(UciTxn, DroppedLeavesFileAndChangeLogByteIdentical)
{
    uci_dirs d;
    d.write("pkg", kEditPackage);
    stage_earlier(d);
    const std::string file = d.read("pkg"), log = d.changes("pkg"), view = seen(d);
    for (const edit_row *e = kEdits; e->name; e++) {
        ctx_ptr ctx(d.context());
        {
            store_txn t(ctx.get());
            ASSERT_EQ(e->apply(&t), 0) << e->name;
            EXPECT_NE(seen(d), view) << e->name << ": staged edits are visible";
        } // dropped
        EXPECT_EQ(d.read("pkg"), file) << e->name;
        EXPECT_EQ(d.changes("pkg"), log) << e->name;
        EXPECT_EQ(seen(d), view) << e->name;
        // The context holds nothing of it either: a commit through it
        // writes only what was staged before.
        ASSERT_EQ(commit_in(ctx.get(), "pkg", true), 0);
        EXPECT_EQ(d.changes("pkg"), log) << e->name;
    }
}

// A commit that cannot write the configuration file (here a file size
// limit, as a full flash would) is refused, and the refused change is
// nowhere: not in the file, not in the change log, not in a later commit.
TEST(UciTxn, FailedCommitLeavesNothingStaged)
{
    uci_dirs d;
    d.write("pkg", kEditPackage + std::string("config pad 'pad'\n\toption p '") + std::string(4000, 'p') + "'\n");
    stage_earlier(d);
    const std::string file = d.read("pkg"), log = d.changes("pkg"), view = seen(d);
    ctx_ptr ctx(d.context());
    store_txn t(ctx.get());
    ASSERT_EQ(set_opt_value(&t, "pkg", "full", "a", "refused"), 0);
    struct rlimit old{}, small{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    small = old;
    small.rlim_cur = 1000;
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    int rc = store_txn_commit(&t, "pkg", false);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(d.read("pkg"), file);
    EXPECT_EQ(d.changes("pkg"), log);
    EXPECT_EQ(seen(d), view);

    ASSERT_EQ(set_opt_value(&t, "pkg", "bare", "later", "1"), 0);
    ASSERT_EQ(store_txn_commit(&t, "pkg", false), 0);
    EXPECT_EQ(d.read("pkg").find("refused"), std::string::npos);
    EXPECT_NE(d.read("pkg").find("option later '1'"), std::string::npos);
    EXPECT_NE(d.read("pkg").find("option earlier 'kept'"), std::string::npos);
    EXPECT_EQ(d.changes("pkg"), "");
}

TEST(UciTxn, TwoOnOnePackageTakeTurns)
{
    uci_dirs d;
    d.write("pkg", kEditPackage);
    std::atomic<bool> first_holds{false}, first_done{false}, second_saw_done{false};
    std::thread first([&] {
        ctx_ptr ctx(d.context());
        store_txn t(ctx.get());
        ASSERT_EQ(store_txn_lock(&t, {"pkg"}), 0);
        first_holds = true;
        ASSERT_EQ(set_opt_value(&t, "pkg", "full", "a", "first"), 0);
        ASSERT_EQ(store_txn_commit(&t, "pkg", false), 0);
        first_done = true;
    });
    while (!first_holds)
        std::this_thread::yield();
    std::thread second([&] {
        ctx_ptr ctx(d.context());
        store_txn t(ctx.get());
        ASSERT_EQ(store_txn_lock(&t, {"pkg"}), 0);
        second_saw_done = first_done.load();
        // Reads inside the transaction start from the first one's commit.
        std::string a;
        ASSERT_TRUE(get_opt_text(ctx.get(), "pkg", "full", "a", &a));
        EXPECT_EQ(a, "first");
    });
    first.join();
    second.join();
    EXPECT_TRUE(second_saw_done);
}

TEST(UciTxn, OppositeOrdersGiveUpInsteadOfDeadlocking)
{
    uci_dirs d;
    d.write("one", kEditPackage);
    d.write("two", kEditPackage);
    std::atomic<int> holding{0};
    int results[2] = {0, 0};
    auto run = [&](int k, const char *mine, const char *theirs) {
        ctx_ptr ctx(d.context());
        store_txn t(ctx.get());
        ASSERT_EQ(store_txn_lock(&t, {mine}), 0);
        holding++;
        while (holding < 2)
            std::this_thread::yield();
        // Nested: the second package is waited for at most the bound.
        results[k] = set_opt_value(&t, theirs, "bare", "n", "1");
    };
    std::thread a(run, 0, "one", "two"), b(run, 1, "two", "one");
    a.join();
    b.join();
    EXPECT_TRUE(results[0] == -1 || results[1] == -1);
    EXPECT_EQ(d.changes("one").find("n='1'") == std::string::npos ||
                  d.changes("two").find("n='1'") == std::string::npos,
              true); // the one that gave up staged nothing
}

} // namespace
