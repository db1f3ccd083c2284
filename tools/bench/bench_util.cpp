#include "bench_util.h"

#include <arpa/inet.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <thread>

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
    t.reserve(static_cast<size_t>(n));
    *ok = true;
    for (int i = 0; i < n; ++i) {
        prep();
        double start = bench_now_us();
        if (!fn()) {
            *ok = false;
            return {0, 0};
        }
        t.push_back(bench_now_us() - start);
    }
    std::sort(t.begin(), t.end());
    return {t[t.size() / 2], t[std::min(t.size() - 1, t.size() * 99 / 100)]};
}

struct bench_echo {
    int listen_fd = -1;
    std::atomic<bool> stop{false};
    std::thread thread;
};

// Serves one connection: two records in, the second's value back as type 3.
static void echo_one(int fd)
{
    uint32_t type = 0;
    std::string info, request;
    if (dsd_read_record(fd, &type, &info, 5000) && dsd_read_record(fd, &type, &request, 5000))
        dsd_send_record(fd, 3, request);
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
    auto *echo = new bench_echo;
    echo->listen_fd = fd;
    echo->thread = std::thread([echo] {
        while (!echo->stop.load()) {
            int c = accept(echo->listen_fd, nullptr, nullptr);
            if (c >= 0)
                echo_one(c);
        }
    });
    return echo;
}

void bench_echo_stop(bench_echo *echo)
{
    if (!echo)
        return;
    echo->stop.store(true);
    shutdown(echo->listen_fd, SHUT_RDWR);
    echo->thread.join();
    close(echo->listen_fd);
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
