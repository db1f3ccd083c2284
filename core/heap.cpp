#include "core/heap.h"

#include <malloc.h>

#include <atomic>

#include "core/context.h"
#include "platform/trace.h"

namespace {

// Set by any worker, cleared by the one that checks: a flag, not a count,
// so one check answers any number of large requests.
std::atomic<bool> g_trim_due{false};
// Set after every request, cleared by the settled check.
std::atomic<bool> g_settle_due{false};

#ifdef __GLIBC__
// Whether the heap holds more than `bound` free bytes; without mallinfo2
// (glibc before 2.33) every check trims, as the allocator then cannot tell.
bool heap_has_slack_over(size_t bound)
{
#if __GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 33)
    struct mallinfo2 info = mallinfo2();
    return info.fordblks > bound;
#else
    (void)bound;
    return true;
#endif
}
#endif

} // namespace

// musl (the device's C library) has neither call: its allocator hands freed
// memory back by itself.
void heap_init(void)
{
#ifdef __GLIBC__
    if (mallopt(M_ARENA_MAX, HEAP_ARENAS) != 1 || mallopt(M_MMAP_THRESHOLD, HEAP_MMAP_BYTES) != 1 ||
        mallopt(M_TRIM_THRESHOLD, HEAP_TRIM_BYTES) != 1)
        DS_ERR("mallopt failed.");
#endif
}

void heap_note_size(size_t bytes)
{
    if (bytes >= HEAP_LARGE_BYTES)
        g_trim_due.store(true, std::memory_order_relaxed);
}

void heap_trim_if_idle(void)
{
    if (!g_trim_due.load(std::memory_order_relaxed))
        return;
    if (context_free_count() != DS_CONTEXT_COUNT)
        return; // the last request to finish checks
#ifdef __GLIBC__
    if (g_trim_due.exchange(false) && heap_has_slack_over(HEAP_SLACK_BYTES))
        malloc_trim(0);
#endif
}

void heap_note_request(void)
{
    g_settle_due.store(true, std::memory_order_relaxed);
}

int heap_settle_ms(void)
{
#ifdef __GLIBC__
    return HEAP_SETTLE_MS;
#else
    return 0;
#endif
}

void heap_settled(void)
{
#ifdef __GLIBC__
    if (!g_settle_due.load(std::memory_order_relaxed))
        return;
    if (context_free_count() != DS_CONTEXT_COUNT)
        return; // still busy: the next quiet moment looks again
    g_settle_due.store(false, std::memory_order_relaxed);
    if (heap_has_slack_over(HEAP_SETTLED_SLACK_BYTES))
        malloc_trim(0);
#endif
}
