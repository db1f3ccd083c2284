// Pieces of the dsd benchmark: a bare echo server as the floor, a daemon
// started on a scratch root, timing and statistics.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct bench_stats {
    double median_us;
    double p99_us;
};

// Runs fn `n` times and returns the median and 99th percentile in
// microseconds; false from fn aborts with ok = false.
bench_stats bench_time(int n, const std::function<bool()> &fn, bool *ok);

// The same with `prep` run untimed before each timed call of fn.
bench_stats bench_time_prepared(int n, const std::function<void()> &prep,
                                const std::function<bool()> &fn, bool *ok);

// Appends the times of `n` calls of fn (prep untimed before each) to
// *samples; false as soon as fn fails.
bool bench_sample(int n, const std::function<void()> &prep, const std::function<bool()> &fn,
                  std::vector<double> *samples);

// Median and 99th percentile of samples in microseconds ({0, 0} when empty).
bench_stats bench_summary(std::vector<double> samples);

// Monotonic clock in microseconds.
double bench_now_us(void);

// Echo server on a Unix socket: per connection reads two records and answers
// one type-3 record holding the second's value, in a child process that
// bench_echo_stop kills.
struct bench_echo;
bench_echo *bench_echo_start(const std::string &socket_path);
void bench_echo_stop(bench_echo *echo);

// A daemon started with DSD_ROOT=root and its output discarded.
struct bench_daemon {
    pid_t pid = -1;
    std::string socket_path;
};
// Starts dsd and polls (bounded) until its socket accepts; the time from
// fork to the first accepted connection in *startup_us. true on success.
bool bench_daemon_start(const std::string &dsd, const std::string &root, bench_daemon *d,
                        double *startup_us);
void bench_daemon_stop(bench_daemon *d);
// Sends `request` and reads the answer's error code: true when it is 0 or
// `other` (a code the request carries by design, e.g. the callback set's bus
// call failing when no bus runs); false without an answer.
bool bench_answered(const std::string &socket, const std::string &request, int other = 0);
// VmRSS of a process in KiB, -1 when unreadable.
long bench_rss_kib(pid_t pid);
// Any "<field>:" line of /proc/<pid>/status in KiB (RssAnon: the process's
// own memory, without the pages of the shared libraries), -1 when unreadable.
long bench_status_kib(pid_t pid, const char *field);
