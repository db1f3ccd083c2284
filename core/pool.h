// Fixed pool of worker threads fed by one ten-slot task ring.
#pragma once

#include <pthread.h>

#include <cstdint>

using thd_task_fn = int (*)(int arg);

struct thd_task {
    thd_task_fn fn;
    int arg;
    int64_t queued_ns; // monotonic clock when it was queued
};

enum { THD_QUEUE_CAPACITY = 10 };
// How long an idle worker polls the ring before it sleeps (see pool.cpp).
enum : long { THD_POLL_NS = 100000 };

struct thd_pool {
    pthread_mutex_t mutex;   // guards head, count and shutdown
    pthread_cond_t cond;     // a task was added, or shutdown began
    thd_task *head;          // slot of the oldest task
    uint32_t capacity;
    uint32_t count;          // written under mutex, read atomically by the poller
    pthread_t *threads;
    uint32_t thread_count;
    uint32_t shutdown;
    uint32_t running;        // workers inside a task (atomic)
    uint32_t polling;        // 1 while an idle worker polls the ring (atomic)
};

// Starts n workers. The pool, or null (n < 1, allocation or thread failure).
// Main thread.
thd_pool *thd_pool_init(int n);
// Queues fn(arg); arg 0 is refused (descriptor 0 can never be queued).
// 0, or -1 when the arguments are bad or the ring is full. Any thread.
int thd_pool_add_task(thd_pool *pool, thd_task_fn fn, int arg);
// Monotonic nanoseconds at which the task the calling worker runs was
// queued (so a task can tell how long it waited); 0 outside a pool task.
int64_t thd_pool_task_queued_ns(void);
// Stops and joins the workers; queued tasks are dropped. 0, or -1 for null.
int thd_pool_destroy(thd_pool *pool);
