#include "core/pool.h"

#include "platform/trace.h"

#include <unistd.h>

#include <cstdlib>

// The ring is process-wide rather than part of the pool record: the daemon
// only ever has one pool.
static thd_task g_ring[THD_QUEUE_CAPACITY];

static uint32_t head_index(const thd_pool *pool)
{
    return static_cast<uint32_t>(pool->head - g_ring);
}

// Caller holds pool->mutex.
static int queue_add(thd_pool *pool, thd_task_fn fn, int arg)
{
    if (pool->count >= pool->capacity) {
        DS_TRACE_AS("queue_add", TRACE_ERROR, "Thread pool task queue is full.");
        return -1;
    }
    uint32_t slot = (head_index(pool) + pool->count) % THD_QUEUE_CAPACITY;
    g_ring[slot] = {.fn = fn, .arg = arg};
    pool->count++;
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
    pool->count--;
    pool->head = &g_ring[(head_index(pool) + 1) % THD_QUEUE_CAPACITY];
    return 0;
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
        pthread_mutex_unlock(&pool->mutex);
        if (rc != 0) {
            DS_ERR("Get task from queue failed.");
            usleep(10000);
            continue;
        }
        if (task.fn)
            task.fn(task.arg);
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
    pthread_mutex_lock(&pool->mutex);
    int rc = queue_add(pool, fn, arg);
    pthread_mutex_unlock(&pool->mutex);
    if (rc != 0) {
        DS_ERR("Add task to queue failed.");
        return -1;
    }
    // Signalled after the unlock: a worker woken under the lock would only
    // block again on the mutex this thread still holds. The waiters re-test
    // the count, so a task queued before they sleep is never missed.
    pthread_cond_signal(&pool->cond);
    return 0;
}

int thd_pool_destroy(thd_pool *pool)
{
    if (!pool) {
        DS_INFO("Invalid param.");
        return -1;
    }
    pthread_mutex_lock(&pool->mutex);
    pool->shutdown = 1;
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
