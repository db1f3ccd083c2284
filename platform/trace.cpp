#include "platform/trace.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "platform/trace_mask.h"

namespace {
// Written once at start-up before any worker exists; atomic only so that
// tests which change it between cases stay race-free under TSan.
std::atomic<int> g_threshold{2};
}  // namespace

void set_trace_level(int level) { g_threshold.store(level, std::memory_order_relaxed); }

int get_trace_level(void) { return g_threshold.load(std::memory_order_relaxed); }

// The message is formatted first and masked as a whole, so no caller can
// put a password on the trace by quoting a request, a reply or a URL.
void ds_trace(int level, const char *func, int line, const char *fmt, ...)
{
    int threshold = get_trace_level();
    if (level < threshold || level > TRACE_ERROR)
        return;
    va_list ap;
    va_start(ap, fmt);
    va_list again;
    va_copy(again, ap);
    int n = vsnprintf(nullptr, 0, fmt, ap);
    va_end(ap);
    std::string msg(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0)
        vsnprintf(msg.data(), msg.size() + 1, fmt, again);
    va_end(again);
    printf("\t [dsd] %s(%d): %s\n", func ? func : "(null)", line, trace_mask(msg).c_str());
}
