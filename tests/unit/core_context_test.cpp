// The context pool, the parse/response steps on a socket pair, and the
// worker pool's task ring.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "harness/dsd_harness.h"
#include "client/dsd_client.h"
#include "core/context.h"
#include "core/dispatch.h"
#include "core/pool.h"
#include "core/wire.h"

namespace {

class ContextPool : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(context_init(), 0); }
    void TearDown() override { context_destroy(); }
};

TEST_F(ContextPool, SixContextsThenNone)
{
    EXPECT_EQ(context_free_count(), DS_CONTEXT_COUNT);
    ds_context *taken[DS_CONTEXT_COUNT];
    for (auto &c : taken) {
        c = context_alloc();
        ASSERT_NE(c, nullptr);
        EXPECT_EQ(c->buf_size, static_cast<uint32_t>(DS_BUF_SIZE));
        EXPECT_NE(c->uci_ctx, nullptr);
    }
    EXPECT_EQ(context_alloc(), nullptr);
    context_free(taken[3]);
    EXPECT_EQ(context_alloc(), taken[3]); // first free in array order
    for (auto *c : taken)
        context_free(c);
    EXPECT_EQ(context_free_count(), DS_CONTEXT_COUNT);
}

std::string response_for(int client, const char *res_json, int code)
{
    int sv[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    ds_context *ctx = context_alloc();
    ctx->fd = sv[0];
    ctx->client = static_cast<uint8_t>(client);
    ctx->error_code = code;
    ctx->res_obj = res_json ? json_tokener_parse(res_json) : nullptr;
    ds_make_response(ctx);
    context_free(ctx);
    uint32_t type = 0;
    std::string out;
    EXPECT_TRUE(dsd_read_record(sv[1], &type, &out, 2000));
    EXPECT_EQ(type, 3u);
    close(sv[1]);
    return out;
}

// The "name" and "error_code" of a response (a missing one is a failure).
std::pair<std::string, int> name_and_code(const std::string &text)
{
    dsd_answer a(text);
    return {a.str({"name"}), a.num({"error_code"})};
}

TEST_F(ContextPool, ResponseFormAndUrlEncodingByClientKind)
{
    EXPECT_EQ(response_for(3, nullptr, -40106), R"({"error_code": -40106})");
    using nc = std::pair<std::string, int>;
    EXPECT_EQ(name_and_code(response_for(1, R"({"name": "a b/\u00e9"})", 0)), nc("a%20b%2F%C3%A9", 0));
    EXPECT_EQ(name_and_code(response_for(2, R"({"name": "a b"})", -5)), nc("a%20b", -5));
    for (int client : {3, 8, 9})
        EXPECT_EQ(name_and_code(response_for(client, R"({"name": "a b"})", 0)), nc("a b", 0)) << client;
    // A response that is not an object cannot carry the code.
    EXPECT_EQ(response_for(3, "[1]", 0), R"({"error_code": -40101})");
}

// Tasks take only an int, so the test's shared state is file-scope.
std::mutex g_mu;
std::condition_variable g_cv;
bool g_open = false;
int g_blocked = 0;
std::vector<int> g_order;

int gate_task(int)
{
    std::unique_lock<std::mutex> lk(g_mu);
    g_blocked++;
    g_cv.notify_all();
    g_cv.wait(lk, [] { return g_open; });
    return 0;
}

int record_task(int arg)
{
    std::lock_guard<std::mutex> lk(g_mu);
    g_order.push_back(arg);
    g_cv.notify_all();
    return 0;
}

// Each of two tasks waits (bounded) until the other has started: they meet
// only when two workers run them at once.
int g_met = 0;
int meet_task(int arg)
{
    std::unique_lock<std::mutex> lk(g_mu);
    g_met++;
    g_cv.notify_all();
    bool met = g_cv.wait_for(lk, std::chrono::milliseconds(scaled_ms(5000)), [] { return g_met >= 2; });
    g_order.push_back(met ? arg : -arg);
    g_cv.notify_all();
    return 0;
}

struct PoolTest : testing::Test {
    void SetUp() override
    {
        std::lock_guard<std::mutex> lk(g_mu);
        g_open = false;
        g_blocked = 0;
        g_met = 0;
        g_order.clear();
    }
    // Blocks every one of `workers` workers on the gate.
    void block(thd_pool *pool, int workers)
    {
        for (int i = 0; i < workers; i++)
            ASSERT_EQ(thd_pool_add_task(pool, gate_task, 1), 0);
        std::unique_lock<std::mutex> lk(g_mu);
        ASSERT_TRUE(g_cv.wait_for(lk, std::chrono::milliseconds(scaled_ms(10000)), [&] { return g_blocked == workers; }));
    }
    void open_gate()
    {
        std::lock_guard<std::mutex> lk(g_mu);
        g_open = true;
        g_cv.notify_all();
    }
    void wait_recorded(size_t n)
    {
        std::unique_lock<std::mutex> lk(g_mu);
        ASSERT_TRUE(g_cv.wait_for(lk, std::chrono::milliseconds(scaled_ms(10000)), [&] { return g_order.size() == n; }));
    }
};

TEST_F(PoolTest, TasksRunFirstInFirstOutAcrossTheWrap)
{
    thd_pool *pool = thd_pool_init(1);
    ASSERT_NE(pool, nullptr);
    // Move the head to slot 7 so the next ten tasks wrap from slot 9 to 0.
    for (int i = 1; i <= 7; i++)
        ASSERT_EQ(thd_pool_add_task(pool, record_task, i), 0);
    wait_recorded(7);
    block(pool, 1);
    for (int i = 100; i < 100 + THD_QUEUE_CAPACITY; i++)
        ASSERT_EQ(thd_pool_add_task(pool, record_task, i), 0);
    open_gate();
    wait_recorded(7 + THD_QUEUE_CAPACITY);
    for (int i = 0; i < THD_QUEUE_CAPACITY; i++)
        EXPECT_EQ(g_order[7 + i], 100 + i);
    EXPECT_EQ(thd_pool_destroy(pool), 0);
}

// An idle worker polls the ring for a short while before it sleeps, and an
// add that finds it polling sends no wake-up. Tasks arriving just before,
// during and just after that window must all run.
TEST_F(PoolTest, TasksAroundTheIdlePollWindowAllRun)
{
    thd_pool *pool = thd_pool_init(6);
    ASSERT_NE(pool, nullptr);
    const long gaps_ns[] = {0, THD_POLL_NS / 5, THD_POLL_NS * 9 / 10, THD_POLL_NS,
                            THD_POLL_NS * 11 / 10, THD_POLL_NS * 2};
    const int n = 1200;
    for (int i = 1; i <= n; i++) {
        ASSERT_EQ(thd_pool_add_task(pool, record_task, i), 0);
        wait_recorded(static_cast<size_t>(i));
        std::this_thread::sleep_for(std::chrono::nanoseconds(gaps_ns[i % 6]));
    }
    EXPECT_EQ(thd_pool_destroy(pool), 0);
}

// The one task a polling worker will take needs no wake-up; a second one
// queued behind it does, or it would wait for the first to finish.
TEST_F(PoolTest, SecondTaskQueuedWhileAWorkerPollsRunsAtOnce)
{
    thd_pool *pool = thd_pool_init(6);
    ASSERT_NE(pool, nullptr);
    for (int round = 0; round < 40; round++) {
        {
            std::lock_guard<std::mutex> lk(g_mu);
            g_order.clear();
            g_met = 0;
        }
        // The worker that ran this one is now polling.
        ASSERT_EQ(thd_pool_add_task(pool, record_task, 1), 0);
        wait_recorded(1);
        ASSERT_EQ(thd_pool_add_task(pool, meet_task, 2), 0);
        ASSERT_EQ(thd_pool_add_task(pool, meet_task, 3), 0);
        wait_recorded(3);
        std::lock_guard<std::mutex> lk(g_mu);
        ASSERT_GT(g_order[1], 0) << "round " << round;
        ASSERT_GT(g_order[2], 0) << "round " << round;
    }
    EXPECT_EQ(thd_pool_destroy(pool), 0);
}

} // namespace
