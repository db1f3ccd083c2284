#include "platform/trace.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace {
// Written once at start-up before any worker exists; atomic only so that
// tests which change it between cases stay race-free under TSan.
std::atomic<int> g_threshold{2};
}  // namespace

void set_trace_level(int level) { g_threshold.store(level, std::memory_order_relaxed); }

int get_trace_level(void) { return g_threshold.load(std::memory_order_relaxed); }

void ds_trace(int level, const char *func, int line, const char *fmt, ...)
{
    int threshold = get_trace_level();
    if (level < threshold || level > TRACE_ERROR)
        return;
    printf("\t [dsd] %s(%d): ", func ? func : "(null)", line);
    va_list ap;
    va_start(ap, fmt);
    vprintf(fmt, ap);
    va_end(ap);
    putchar('\n');
}
