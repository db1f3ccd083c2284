#include "bench_util.h"

#include <arpa/inet.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>

#include "client/dsd_client.h"

double bench_now_us(void)
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) * 1e6 + static_cast<double>(ts.tv_nsec) / 1e3;
}

bench_stats bench_time(int n, const std::function<bool()> &fn, bool *ok)
{
    return bench_time_prepared(n, [] {}, fn, ok);
}

bench_stats bench_time_prepared(int n, const std::function<void()> &prep,
                                const std::function<bool()> &fn, bool *ok)
{
    std::vector<double> t;
    *ok = bench_sample(n, prep, fn, &t);
    return *ok ? bench_summary(t) : bench_stats{0, 0};
}

bool bench_sample(int n, const std::function<void()> &prep, const std::function<bool()> &fn,
                  std::vector<double> *samples)
{
    samples->reserve(samples->size() + static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        prep();
        double start = bench_now_us();
        if (!fn())
            return false;
        samples->push_back(bench_now_us() - start);
    }
    return true;
}

bench_stats bench_summary(std::vector<double> t)
{
    if (t.empty())
        return {0, 0};
    std::sort(t.begin(), t.end());
    return {t[t.size() / 2], t[std::min(t.size() - 1, t.size() * 99 / 100)]};
}

struct bench_echo {
    pid_t pid = -1;
};

// Length of the record starting at `p` (header included) when all of it is
// among the `have` bytes, else 0.
static size_t echo_record_end(const unsigned char *p, size_t have)
{
    if (have < 8)
        return 0;
    size_t len = (size_t(p[4]) << 24) | (size_t(p[5]) << 16) | (size_t(p[6]) << 8) | p[7];
    return have - 8 >= len ? 8 + len : 0;
}

// Serves one connection as cheaply as a server can: reads until both records
// are in (usually one read), answers the second's value as a type-3 record in
// one write. Requests larger than the buffer are not served: the floor is
// measured with a small one.
static void echo_one(int fd)
{
    unsigned char buf[4096];
    size_t have = 0, first = 0, second = 0;
    while (second == 0 && have < sizeof buf) {
        ssize_t n = read(fd, buf + have, sizeof buf - have);
        if (n <= 0)
            break;
        have += static_cast<size_t>(n);
        if (first == 0)
            first = echo_record_end(buf, have);
        if (first != 0)
            second = echo_record_end(buf + first, have - first);
    }
    if (second != 0) {
        buf[first + 3] = 3;
        ssize_t ignored = write(fd, buf + first, second);
        (void)ignored;
    }
    close(fd);
}

bench_echo *bench_echo_start(const std::string &socket_path)
{
    sockaddr_un addr{};
    if (socket_path.size() >= sizeof addr.sun_path)
        return nullptr;
    addr.sun_family = AF_UNIX;
    memcpy(addr.sun_path, socket_path.c_str(), socket_path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return nullptr;
    unlink(socket_path.c_str());
    if (bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 || listen(fd, 64) != 0) {
        close(fd);
        return nullptr;
    }
    // A process of its own, as dsd is: a thread of the bench would switch
    // to the client without changing address space, a cost dsd cannot avoid.
    pid_t pid = fork();
    if (pid < 0) {
        close(fd);
        return nullptr;
    }
    if (pid == 0) {
        for (;;) {
            int c = accept(fd, nullptr, nullptr);
            if (c >= 0)
                echo_one(c);
        }
    }
    close(fd);
    return new bench_echo{pid};
}

void bench_echo_stop(bench_echo *echo)
{
    if (!echo)
        return;
    kill(echo->pid, SIGKILL);
    waitpid(echo->pid, nullptr, 0);
    delete echo;
}

bool bench_daemon_start(const std::string &dsd, const std::string &root, bench_daemon *d,
                        double *startup_us)
{
    d->socket_path = root + "/tmp/dsd_server.sock";
    unlink(d->socket_path.c_str());
    double start = bench_now_us();
    d->pid = fork();
    if (d->pid < 0)
        return false;
    if (d->pid == 0) {
        setenv("DSD_ROOT", root.c_str(), 1);
        if (!freopen("/dev/null", "w", stdout) || !freopen("/dev/null", "w", stderr))
            _exit(126);
        execl(dsd.c_str(), dsd.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    // Poll the socket; each probe is an empty connection the daemon answers
    // and forgets.
    for (int i = 0; i < 200000; ++i) {
        int fd = dsd_connect(d->socket_path);
        if (fd >= 0) {
            *startup_us = bench_now_us() - start;
            close(fd);
            return true;
        }
        if (waitpid(d->pid, nullptr, WNOHANG) == d->pid) {
            d->pid = -1;
            return false;
        }
        usleep(50);
    }
    bench_daemon_stop(d);
    return false;
}

void bench_daemon_stop(bench_daemon *d)
{
    if (d->pid <= 0)
        return;
    kill(d->pid, SIGTERM);
    for (int i = 0; i < 200; ++i) {
        if (waitpid(d->pid, nullptr, WNOHANG) == d->pid) {
            d->pid = -1;
            return;
        }
        usleep(10000);
    }
    kill(d->pid, SIGKILL);
    waitpid(d->pid, nullptr, 0);
    d->pid = -1;
}

long bench_status_kib(pid_t pid, const char *field)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line, key = std::string(field) + ":";
    while (std::getline(in, line)) {
        if (line.rfind(key, 0) == 0)
            return strtol(line.c_str() + key.size(), nullptr, 10);
    }
    return -1;
}

long bench_rss_kib(pid_t pid)
{
    return bench_status_kib(pid, "VmRSS");
}

bool bench_answered(const std::string &socket, const std::string &request, int other)
{
    std::string res = dsd_request(socket, dsd_identity(), request, 10000);
    size_t at = res.find("\"error_code\": ");
    if (at == std::string::npos)
        return false;
    int code = atoi(res.c_str() + at + 14);
    return code == 0 || code == other;
}
