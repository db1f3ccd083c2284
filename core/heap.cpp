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

// Once `due` is set and no request is in progress, clears it and hands
// freed memory back when more than `bound` bytes lie free. A request still
// running leaves `due` set: the last one to finish, or the next quiet
// moment, looks again.
void trim_when_quiet(std::atomic<bool> *due, size_t bound)
{
#ifdef __GLIBC__
    if (!due->load(std::memory_order_relaxed) || context_free_count() != DS_CONTEXT_COUNT)
        return;
    if (due->exchange(false) && heap_has_slack_over(bound))
        malloc_trim(0);
#else
    (void)due;
    (void)bound;
#endif
}

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
    trim_when_quiet(&g_trim_due, HEAP_SLACK_BYTES);
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
    trim_when_quiet(&g_settle_due, HEAP_SETTLED_SLACK_BYTES);
}
