#include "core/pool.h"

#include "platform/trace.h"

#include <sched.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

// The ring is process-wide rather than part of the pool record: the daemon
// only ever has one pool.
static thd_task g_ring[THD_QUEUE_CAPACITY];

static uint32_t head_index(const thd_pool *pool)
{
    return static_cast<uint32_t>(pool->head - g_ring);
}

static int64_t monotonic_ns(void)
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// The queueing time of the task this worker runs; see thd_pool_task_queued_ns.
static thread_local int64_t t_task_queued_ns;

// Caller holds pool->mutex.
static int queue_add(thd_pool *pool, thd_task_fn fn, int arg, int64_t now_ns)
{
    if (pool->count >= pool->capacity) {
        DS_TRACE_AS("queue_add", TRACE_ERROR, "Thread pool task queue is full.");
        return -1;
    }
    uint32_t slot = (head_index(pool) + pool->count) % THD_QUEUE_CAPACITY;
    g_ring[slot] = {.fn = fn, .arg = arg, .queued_ns = now_ns};
    __atomic_store_n(&pool->count, pool->count + 1, __ATOMIC_RELEASE);
    return 0;
}

// Caller holds pool->mutex.
static int queue_del(thd_pool *pool, thd_task *out)
{
    if (pool->count == 0) {
        DS_TRACE_AS("queue_del", TRACE_ERROR, "Thread pool task queue is empty.");
        return -1;
    }
    *out = *pool->head;
    __atomic_store_n(&pool->count, pool->count - 1, __ATOMIC_RELAXED);
    pool->head = &g_ring[(head_index(pool) + 1) % THD_QUEUE_CAPACITY];
    return 0;
}

// Clients often send requests back to back, one connection after the
// other. A worker that sleeps between them costs each request a wake-up on
// the other core, which on a loaded or virtualised machine is as much as
// the rest of a cached read. So the last
// worker to go idle polls the ring for a short while before it sleeps, and
// yields the core at every turn so that the accepting thread or a client
// waiting for it is never held off. Only one worker polls, and only while no
// other one is running: under load the ring is rarely empty anyway and a
// poller would only take a core from real work.
static void poll_briefly(thd_pool *pool)
{
    uint32_t expected = 0;
    if (__atomic_load_n(&pool->running, __ATOMIC_RELAXED) != 0 ||
        !__atomic_compare_exchange_n(&pool->polling, &expected, 1, false, __ATOMIC_ACQUIRE,
                                     __ATOMIC_RELAXED))
        return;
    int64_t until = monotonic_ns() + THD_POLL_NS;
    while (__atomic_load_n(&pool->count, __ATOMIC_ACQUIRE) == 0 &&
           !__atomic_load_n(&pool->shutdown, __ATOMIC_RELAXED) && monotonic_ns() < until)
        sched_yield();
    // Cleared before this worker takes the pool lock again. An add reads the
    // flag after its own unlock; had its queueing come after our next lock,
    // it would have seen this clear. So an add that saw the flag set queued
    // its task before that lock, and our test of the count there finds the
    // task it left without a signal.
    __atomic_store_n(&pool->polling, 0, __ATOMIC_RELEASE);
}

static void *thd_pool_func(void *arg)
{
    thd_pool *pool = static_cast<thd_pool *>(arg);
    if (!pool) {
        DS_ERR("Invalid param.");
        return nullptr;
    }
    for (;;) {
        pthread_mutex_lock(&pool->mutex);
        while (pool->count == 0 && !pool->shutdown)
            pthread_cond_wait(&pool->cond, &pool->mutex);
        if (pool->shutdown) {
            pthread_mutex_unlock(&pool->mutex);
            pthread_exit(nullptr);
        }
        thd_task task{};
        int rc = queue_del(pool, &task);
        if (rc == 0)
            __atomic_add_fetch(&pool->running, 1, __ATOMIC_RELAXED);
        pthread_mutex_unlock(&pool->mutex);
        if (rc != 0) {
            DS_ERR("Get task from queue failed.");
            usleep(10000);
            continue;
        }
        t_task_queued_ns = task.queued_ns;
        if (task.fn)
            task.fn(task.arg);
        t_task_queued_ns = 0;
        if (__atomic_sub_fetch(&pool->running, 1, __ATOMIC_RELAXED) == 0)
            poll_briefly(pool);
    }
}

thd_pool *thd_pool_init(int n)
{
    if (n < 1) {
        DS_ERR("Invalid param.");
        return nullptr;
    }
    thd_pool *pool = static_cast<thd_pool *>(calloc(1, sizeof(thd_pool)));
    if (!pool) {
        DS_ERR("Malloc thread pool failed.");
        return nullptr;
    }
    pthread_mutex_init(&pool->mutex, nullptr);
    pthread_cond_init(&pool->cond, nullptr);
    pool->head = &g_ring[0];
    pool->capacity = THD_QUEUE_CAPACITY;
    pool->thread_count = static_cast<uint32_t>(n);
    pool->threads = static_cast<pthread_t *>(calloc(n, sizeof(pthread_t)));
    if (!pool->threads) {
        DS_ERR("Malloc thread id failed.");
        thd_pool_destroy(pool);
        return nullptr;
    }
    for (int i = 0; i < n; i++) {
        if (pthread_create(&pool->threads[i], nullptr, thd_pool_func, pool) != 0) {
            DS_ERR("Create task thread failed.");
            pool->threads[i] = 0;
            thd_pool_destroy(pool);
            return nullptr;
        }
        DS_INFO("Create task thread (tid: %d) successed.", static_cast<int>(pool->threads[i]));
    }
    return pool;
}

int thd_pool_add_task(thd_pool *pool, thd_task_fn fn, int arg)
{
    if (!pool || !fn || arg == 0) {
        DS_ERR("Invalid params.");
        return -1;
    }
    int64_t now = monotonic_ns();
    pthread_mutex_lock(&pool->mutex);
    bool was_empty = pool->count == 0;
    int rc = queue_add(pool, fn, arg, now);
    pthread_mutex_unlock(&pool->mutex);
    if (rc != 0) {
        DS_ERR("Add task to queue failed.");
        return -1;
    }
    // Signalled after the unlock: a worker woken under the lock would only
    // block again on the mutex this thread still holds. The waiters re-test
    // the count, so a task queued before they sleep is never missed. The one
    // task a polling worker is about to take needs no sleeper woken (it
    // would find the ring empty again); a second one does.
    if (!(was_empty && __atomic_load_n(&pool->polling, __ATOMIC_ACQUIRE)))
        pthread_cond_signal(&pool->cond);
    return 0;
}

int64_t thd_pool_task_queued_ns(void)
{
    return t_task_queued_ns;
}

int thd_pool_destroy(thd_pool *pool)
{
    if (!pool) {
        DS_INFO("Invalid param.");
        return -1;
    }
    pthread_mutex_lock(&pool->mutex);
    __atomic_store_n(&pool->shutdown, 1, __ATOMIC_RELAXED);
    pthread_cond_broadcast(&pool->cond);
    pthread_mutex_unlock(&pool->mutex);
    if (pool->threads) {
        for (uint32_t i = 0; i < pool->thread_count; i++) {
            if (pool->threads[i] == 0)
                continue;
            DS_INFO("Destory thread (tid: %d).", static_cast<int>(pool->threads[i]));
            pthread_join(pool->threads[i], nullptr);
        }
        free(pool->threads);
    }
    pthread_mutex_destroy(&pool->mutex);
    pthread_cond_destroy(&pool->cond);
    free(pool);
    return 0;
}
