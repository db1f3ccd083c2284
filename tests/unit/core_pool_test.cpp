#include "core/pool.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace {

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

struct PoolTest : testing::Test {
    void SetUp() override
    {
        std::lock_guard<std::mutex> lk(g_mu);
        g_open = false;
        g_blocked = 0;
        g_order.clear();
    }
    // Blocks every one of `workers` workers on the gate.
    void block(thd_pool *pool, int workers)
    {
        for (int i = 0; i < workers; i++)
            ASSERT_EQ(thd_pool_add_task(pool, gate_task, 1), 0);
        std::unique_lock<std::mutex> lk(g_mu);
        ASSERT_TRUE(g_cv.wait_for(lk, std::chrono::seconds(10), [&] { return g_blocked == workers; }));
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
        ASSERT_TRUE(g_cv.wait_for(lk, std::chrono::seconds(10), [&] { return g_order.size() == n; }));
    }
};

TEST_F(PoolTest, RefusesBadArguments)
{
    EXPECT_EQ(thd_pool_init(0), nullptr);
    EXPECT_EQ(thd_pool_add_task(nullptr, record_task, 1), -1);
    EXPECT_EQ(thd_pool_destroy(nullptr), -1);
    thd_pool *pool = thd_pool_init(1);
    ASSERT_NE(pool, nullptr);
    EXPECT_EQ(thd_pool_add_task(pool, nullptr, 1), -1);
    EXPECT_EQ(thd_pool_add_task(pool, record_task, 0), -1);  // descriptor 0 is never queued
    EXPECT_EQ(thd_pool_destroy(pool), 0);
}

TEST_F(PoolTest, FullRingRefusesTheEleventhTask)
{
    thd_pool *pool = thd_pool_init(6);
    ASSERT_NE(pool, nullptr);
    block(pool, 6);
    for (int i = 1; i <= THD_QUEUE_CAPACITY; i++)
        EXPECT_EQ(thd_pool_add_task(pool, record_task, i), 0);
    EXPECT_EQ(thd_pool_add_task(pool, record_task, 99), -1);
    open_gate();
    wait_recorded(THD_QUEUE_CAPACITY);
    EXPECT_EQ(thd_pool_destroy(pool), 0);
}

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

}  // namespace
