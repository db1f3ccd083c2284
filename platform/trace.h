// Diagnostic trace on standard output, filtered by a process-wide threshold.
#pragma once

enum { TRACE_INFO = 1, TRACE_ERROR = 2 };

// Prints "\t [dsd] <func>(<line>): <message>\n" when threshold <= level <= 2.
// Any thread; lines of concurrent requests may interleave (accepted).
void ds_trace(int level, const char *func, int line, const char *fmt, ...)
    __attribute__((format(printf, 4, 5)));

// Threshold: written at start-up only (main thread), read everywhere.
void set_trace_level(int level);
int get_trace_level(void);

// Reads "system.sys.debug_mode" once with a private uci context and prints
// "dsd load debug mode is %d\n" (always, outside the trace). Main thread.
void load_debug_mode(void);
int get_debug_mode(void);

#define DS_TRACE(level, ...) ds_trace((level), __func__, __LINE__, __VA_ARGS__)
#define DS_INFO(...) ds_trace(TRACE_INFO, __func__, __LINE__, __VA_ARGS__)
#define DS_ERR(...) ds_trace(TRACE_ERROR, __func__, __LINE__, __VA_ARGS__)
// For the messages that carry another name than the enclosing function's.
#define DS_TRACE_AS(name, level, ...) ds_trace((level), (name), __LINE__, __VA_ARGS__)
