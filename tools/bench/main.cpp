// bench <dsd binary> <mkconfig binary> [scratch parent dir]: measures a real
// dsd on a scratch 128-channel root (made under /tmp unless a parent is
// given, e.g. /dev/shm to take the disk's fsync out of the commit), one
// connection per request as real clients make them, and prints a Markdown
// table. BENCH_MIXED sets how many mixed requests the memory check sends
// between its two readings (10,000 unless set), BENCH_SWITCH_PAIRS how many
// pairs of rounds compare statistics and events on and off (50), and
// BENCH_SWITCHES_ONLY=1 runs that comparison alone. See docs/benchmarks.md.
#include <dirent.h>
#include <sched.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <uci.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "bench_util.h"
#include "switches.h"
#include "client/dsd_client.h"

namespace {

const char kGetOne[] = R"({"method":"get","record_control":{"name":"chn3_record"}})";

bool make_root(const std::string &parent, std::string *root)
{
    std::string tmpl = parent + "/dsd-bench-XXXXXX";
    if (!mkdtemp(tmpl.data()))
        return false;
    *root = tmpl;
    std::string cmd = "mkdir -p " + *root + "/etc/config " + *root + "/tmp/.uci " + *root +
                      "/usr/bin " + *root + "/var/run && touch " + *root + "/usr/bin/dsd";
    return system(cmd.c_str()) == 0;
}

// Every named section of the image package: the largest per-channel package.
std::string whole_package_request(int channels)
{
    static const char *const kinds[] = {"switch", "common", "day", "night", "image_list",
                                        "expose", "supplement_lamp", "clear_licence",
                                        "smart_white_lamp"};
    std::string names;
    for (int ch = 1; ch <= channels; ++ch) {
        for (const char *k : kinds)
            names += (names.empty() ? "\"chn" : ",\"chn") + std::to_string(ch) + "_" + k + "\"";
    }
    return R"({"method":"get","image":{"name":[)" + names + "]}}";
}

void row(const char *what, const std::string &value, const char *target)
{
    printf("| %-44s | %-22s | %-16s |\n", what, value.c_str(), target);
}

std::string us(const bench_stats &s)
{
    char buf[64];
    snprintf(buf, sizeof buf, "%.0f us (p99 %.0f)", s.median_us, s.p99_us);
    return buf;
}

// Requests per second with `clients` threads sharing `total` requests.
double throughput(const std::string &socket, int clients, int total, bool *ok)
{
    std::atomic<int> left{total};
    std::atomic<bool> failed{false};
    double start = bench_now_us();
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c) {
        threads.emplace_back([&] {
            while (left.fetch_sub(1) > 0) {
                if (!bench_answered(socket, kGetOne))
                    failed.store(true);
            }
        });
    }
    for (auto &t : threads)
        t.join();
    *ok = !failed.load();
    return total / ((bench_now_us() - start) / 1e6);
}

double median_startup(const std::string &dsd, const std::string &root, int runs)
{
    std::vector<double> t;
    for (int i = 0; i < runs; ++i) {
        bench_daemon d;
        double us_taken = 0;
        if (!bench_daemon_start(dsd, root, &d, &us_taken))
            return -1;
        bench_daemon_stop(&d);
        t.push_back(us_taken);
    }
    return bench_summary(t).median_us;
}

// The largest package of the root, by file size.
std::string largest_package(const std::string &confdir, off_t *bytes)
{
    std::string best;
    *bytes = 0;
    DIR *dir = opendir(confdir.c_str());
    while (dirent *e = dir ? readdir(dir) : nullptr) {
        struct stat st;
        if (e->d_name[0] == '.' || stat((confdir + "/" + e->d_name).c_str(), &st) != 0)
            continue;
        if (st.st_size > *bytes) {
            *bytes = st.st_size;
            best = e->d_name;
        }
    }
    if (dir)
        closedir(dir);
    return best;
}

// What one uci_load of `package` costs in this process: the work every
// uncached read does.
bench_stats uci_load_time(const std::string &root, const std::string &package, bool *ok)
{
    return bench_time(50, [&] {
        uci_context *ctx = uci_alloc_context();
        uci_set_confdir(ctx, (root + "/etc/config").c_str());
        uci_set_savedir(ctx, (root + "/tmp/.uci").c_str());
        uci_package *p = nullptr;
        bool loaded = uci_load(ctx, package.c_str(), &p) == UCI_OK;
        uci_free_context(ctx);
        return loaded;
    }, ok);
}

// A request of `objects` empty objects, each a module of its own, just under
// the 256 KiB request limit for 20,000: the parser's worst case per byte.
std::string worst_request(int objects)
{
    std::string req = R"({"method":"get")";
    for (int i = 0; i < objects; ++i)
        req += ",\"m" + std::to_string(i) + "\":{}";
    return req + "}";
}

// Six such requests at once, as six clients would send them; every one is
// answered (with an error: no such module).
bool worst_case_burst(const std::string &socket)
{
    std::string req = worst_request(20000);
    std::vector<std::thread> threads;
    std::atomic<int> answered{0};
    for (int c = 0; c < 6; ++c) {
        threads.emplace_back([&] {
            if (!dsd_request(socket, dsd_identity(), req, 30000).empty())
                answered.fetch_add(1);
        });
    }
    for (auto &t : threads)
        t.join();
    return answered.load() == 6;
}

struct rss_reading {
    long total, anon;
};

// BENCH_PROBE, when set, is a command run with the daemon's pid and the
// reading's name at each memory reading (e.g. one printing the allocator's
// figures through a debugger), and the daemon's cache figures are printed
// beside it, on stderr: where the memory of a reading went.
void probe(pid_t pid, const std::string &socket, const char *when)
{
    const char *cmd = getenv("BENCH_PROBE");
    if (!cmd || !*cmd)
        return;
    fprintf(stderr, "probe %s:\n", when);
    fflush(stderr);
    std::string line = std::string(cmd) + " " + std::to_string(pid) + " '" + when + "' >&2";
    if (system(line.c_str()) != 0)
        fprintf(stderr, "probe: %s failed\n", cmd);
    std::string res = dsd_request(socket, dsd_identity(), R"({"method":"do","statistics":{"get_stats":{}}})", 10000);
    size_t at = res.find("\"cache\"");
    fprintf(stderr, "%s\n", at == std::string::npos ? "no cache figures" : res.substr(at, 160).c_str());
}

// Resident memory once the daemon has settled after the last answer (the
// last worker trims the heap after it has answered).
rss_reading settled_rss(pid_t pid, const std::string &socket, const char *when)
{
    usleep(300000);
    rss_reading r{bench_rss_kib(pid), bench_status_kib(pid, "RssAnon")};
    probe(pid, socket, when);
    return r;
}

struct figures {
    bench_stats floor, cold, warm, pkg, set, light, light_write, callback, load;
    bench_stats floor_one_cpu, warm_one_cpu; // {0, 0} when pinning is refused
    double tp[3];
    double startup;
    rss_reading rss_start, rss_mix, rss_more, rss_worst;
    int mixed;
    std::string load_pkg;
    off_t load_bytes;
};

// Makes the next read of record_control a miss: a new change time on its
// file is an external change as far as the daemon can tell.
void touch_record_control(const std::string &root)
{
    std::string path = root + "/etc/config/record_control";
    utimensat(AT_FDCWD, path.c_str(), nullptr, 0);
}

// The floor and the warm get alternate in short rounds, so that whatever
// else the machine does meanwhile (on a shared host the floor alone can
// double for seconds) weighs on both alike.
bool floor_and_warm(const std::string &echo_path, const std::string &socket, bench_stats *floor,
                    bench_stats *warm)
{
    std::vector<double> floor_t, warm_t;
    auto echo_get = [&] { return !dsd_request(echo_path, dsd_identity(), kGetOne, 10000).empty(); };
    auto dsd_get = [&] { return bench_answered(socket, kGetOne); };
    for (int round = 0; round < 40; ++round) {
        if (!bench_sample(50, [] {}, echo_get, &floor_t) || !bench_sample(50, [] {}, dsd_get, &warm_t))
            return false;
    }
    *floor = bench_summary(floor_t);
    *warm = bench_summary(warm_t);
    return true;
}

// Puts every thread of `pid` (0: this process) on the CPUs of `set`.
bool pin_threads(pid_t pid, const cpu_set_t &set)
{
    std::string dir = "/proc/" + (pid ? std::to_string(pid) : std::string("self")) + "/task";
    DIR *tasks = opendir(dir.c_str());
    bool all = tasks != nullptr;
    while (dirent *e = tasks ? readdir(tasks) : nullptr) {
        if (e->d_name[0] != '.')
            all = sched_setaffinity(atoi(e->d_name), sizeof set, &set) == 0 && all;
    }
    if (tasks)
        closedir(tasks);
    return all;
}

// floor_and_warm with the client, a floor server of its own and every
// thread of dsd on one CPU. On a virtual machine a wake-up on the other CPU
// can cost more than a whole cached read; this pair shows what is left
// without it. dsd's threads go back to the CPUs they had afterwards.
bool floor_and_warm_one_cpu(const std::string &root, const bench_daemon &d, figures *f)
{
    cpu_set_t before, one;
    if (sched_getaffinity(0, sizeof before, &before) != 0)
        return true;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu() < 0 ? 0 : sched_getcpu(), &one);
    bool ok = true;
    if (pin_threads(0, one) && pin_threads(d.pid, one)) {
        std::string path = root + "/tmp/echo1.sock";
        bench_echo *echo = bench_echo_start(path);
        ok = echo && floor_and_warm(path, d.socket_path, &f->floor_one_cpu, &f->warm_one_cpu);
        bench_echo_stop(echo);
    }
    pin_threads(d.pid, before);
    pin_threads(0, before);
    return ok;
}

// Requests per second with 1, 2 and 6 clients, taken in turns over five
// rounds; the median round of each.
void throughputs(const std::string &socket, figures *f, bool ok[3])
{
    const int clients[3] = {1, 2, 6};
    std::vector<double> rounds[3];
    for (int round = 0; round < 5; ++round) {
        for (int i = 0; i < 3; ++i) {
            bool fine = false;
            rounds[i].push_back(throughput(socket, clients[i], 2000, &fine));
            ok[i] = ok[i] && fine;
        }
    }
    for (int i = 0; i < 3; ++i)
        f->tp[i] = bench_summary(rounds[i]).median_us;
}

// `n` requests of the mix: mostly one-section gets, sets with both commits,
// and every 50th a whole-package get.
bool mixed_requests(const std::string &socket, int n, const std::string &pkg_req)
{
    for (int i = 0; i < n; ++i) {
        std::string req = kGetOne;
        if (i % 50 == 49)
            req = pkg_req;
        else if (i % 10 == 3)
            req = R"({"method":"set","image":{"chn5_day":{"bench":")" + std::to_string(i) + "\"}}}";
        else if (i % 10 == 7)
            req = R"({"method":"set","record_control":{"chn5_record":{"bench":")" +
                  std::to_string(i) + "\"}}}";
        if (!bench_answered(socket, req))
            return false;
    }
    return true;
}

bool measure_requests(const std::string &root, const std::string &echo_path, const bench_daemon &d,
                      figures *f)
{
    bool ok[10] = {};
    f->rss_start = settled_rss(d.pid, d.socket_path, "start-up");
    f->cold = bench_time_prepared(300, [&] { touch_record_control(root); },
                                  [&] { return bench_answered(d.socket_path, kGetOne); }, &ok[0]);
    // A file changed in the last 30 ms is read but not kept: let the last
    // touch settle, or the first warm reads are cold ones.
    usleep(100000);
    ok[1] = floor_and_warm(echo_path, d.socket_path, &f->floor, &f->warm) &&
            floor_and_warm_one_cpu(root, d, f);
    std::string pkg_req = whole_package_request(128);
    f->pkg = bench_time(200, [&] { return bench_answered(d.socket_path, pkg_req); }, &ok[2]);
    int n = 0;
    f->set = bench_time(300, [&] {
        return bench_answered(d.socket_path, R"({"method":"set","record_control":{"chn3_record":{"bench":")" +
                                              std::to_string(++n) + "\"}}}");
    }, &ok[3]);
    f->light = bench_time(300, [&] {
        return bench_answered(d.socket_path, R"({"method":"set","image":{"chn3_day":{"bench":")" +
                                              std::to_string(++n) + "\"}}}");
    }, &ok[4]);
    // The image package's options have no model rows, so the set above is
    // answered after its diff without writing; this one writes a change line.
    f->light_write = bench_time(300, [&] {
        return bench_answered(d.socket_path, R"({"method":"set","motion_detection":{"chn3_motion_det":)"
                                          R"({"digital_sensitivity":")" + std::to_string(1 + ++n % 100) + "\"}}}");
    }, &ok[8]);
    // The same package, a section whose service callback reads the switches
    // back and tells the event daemon. The bench runs no bus, so that call
    // fails at once and the answer carries -10000 after the commit.
    f->callback = bench_time(300, [&] {
        return bench_answered(d.socket_path, R"({"method":"set","motion_detection":{"chn3_motion_notif_list":)"
                                            R"({"light_alarm_enabled":")" + std::string(++n % 2 ? "on" : "off") +
                                            "\"}}}", -10000);
    }, &ok[9]);
    bool ok_tp[3] = {true, true, true};
    throughputs(d.socket_path, f, ok_tp);
    ok[5] = mixed_requests(d.socket_path, 2000, pkg_req);
    f->rss_mix = settled_rss(d.pid, d.socket_path, "after the mix");
    ok[6] = mixed_requests(d.socket_path, f->mixed, pkg_req);
    f->rss_more = settled_rss(d.pid, d.socket_path, "after more mixed");
    ok[7] = worst_case_burst(d.socket_path);
    f->rss_worst = settled_rss(d.pid, d.socket_path, "after six large");
    bool all = ok_tp[0] && ok_tp[1] && ok_tp[2];
    for (bool b : ok)
        all = all && b;
    if (!all)
        fprintf(stderr, "bench: some requests failed (cold %d warm %d pkg %d set %d light %d "
                        "tp %d%d%d mix %d %d worst %d light write %d callback %d)\n",
                ok[0], ok[1], ok[2], ok[3], ok[4], ok_tp[0], ok_tp[1], ok_tp[2], ok[5], ok[6], ok[7], ok[8],
                ok[9]);
    return all;
}

void print_figures(const figures &f)
{
    char buf[96];
    printf("| %-44s | %-22s | %-16s |\n", "Measure", "Result", "Target");
    printf("|%s|%s|%s|\n", std::string(46, '-').c_str(), std::string(24, '-').c_str(),
           std::string(18, '-').c_str());
    row("echo server round trip (floor)", us(f.floor), "-");
    snprintf(buf, sizeof buf, "%s, %.1fx floor", us(f.cold).c_str(), f.cold.median_us / f.floor.median_us);
    row("get one section, cold (first read)", buf, "-");
    snprintf(buf, sizeof buf, "%s, %.1fx floor", us(f.warm).c_str(), f.warm.median_us / f.floor.median_us);
    row("get one section, warm", buf, "<= 1.5x floor");
    if (f.floor_one_cpu.median_us > 0) {
        row("floor, all on one CPU", us(f.floor_one_cpu), "-");
        snprintf(buf, sizeof buf, "%s, %.1fx", us(f.warm_one_cpu).c_str(),
                 f.warm_one_cpu.median_us / f.floor_one_cpu.median_us);
        row("get one section, warm, all on one CPU", buf, "-");
    }
    row("get whole 128-channel package (1152 sect.)", us(f.pkg), "<= 600 us");
    row("set one option + commit", us(f.set), "< 2000 us");
    row("set in 1152-section package + light commit", us(f.light), "<= 500 us");
    row("set writing in 512-section package + light", us(f.light_write), "-");
    row("the same with a service callback (switches)", us(f.callback), "<= 1.5x row above");
    snprintf(buf, sizeof buf, "%.0f / %.0f / %.0f, %.2fx", f.tp[0], f.tp[1], f.tp[2], f.tp[2] / f.tp[0]);
    row("requests/s with 1 / 2 / 6 clients", buf, "6 >= 2x 1");
    snprintf(buf, sizeof buf, "%.1f ms", f.startup / 1000);
    row("start-up to first accept (128 channels)", buf, "< 50 ms");
    snprintf(buf, sizeof buf, "uci_load %s (%lld B)", f.load_pkg.c_str(), static_cast<long long>(f.load_bytes));
    row(buf, us(f.load), "-");
    snprintf(buf, sizeof buf, "%ld KiB (%ld own)", f.rss_start.total, f.rss_start.anon);
    row("VmRSS (RssAnon) after start-up", buf, "-");
    snprintf(buf, sizeof buf, "%ld KiB (%ld own)", f.rss_mix.total, f.rss_mix.anon);
    row("VmRSS (RssAnon) after the mix", buf, "<= 8 MB");
    snprintf(buf, sizeof buf, "%ld KiB (%ld own)", f.rss_more.total, f.rss_more.anon);
    char what[64];
    snprintf(what, sizeof what, "VmRSS (RssAnon) after %d more mixed", f.mixed);
    row(what, buf, "flat");
    snprintf(buf, sizeof buf, "%ld KiB (%ld own)", f.rss_worst.total, f.rss_worst.anon);
    row("VmRSS (RssAnon) after six 229 KB requests", buf, "<= 8 MB");
}

// Rows of the statistics/events comparison: the medians with them on and
// off, and the median (and range) of the per-pair ratios.
void print_switches(const switch_figures &s)
{
    printf("\nStatistics and change events on / off, %d pairs of rounds:\n\n", s.pairs);
    printf("| %-44s | %-9s | %-9s | %-14s | %-18s |\n", "Measure", "on", "off", "on/off, median", "range of pairs");
    printf("|%s|%s|%s|%s|%s|\n", std::string(46, '-').c_str(), std::string(11, '-').c_str(),
           std::string(11, '-').c_str(), std::string(16, '-').c_str(), std::string(20, '-').c_str());
    for (const switch_row &r : s.rows) {
        char range[48];
        snprintf(range, sizeof range, "%+.1f%% to %+.1f%%", 100 * (r.ratio_min - 1), 100 * (r.ratio_max - 1));
        printf("| %-44s | %6.0f us | %6.0f us | %+13.1f%% | %-18s |\n", r.what, r.on_us, r.off_us,
               100 * (r.ratio_median - 1), range);
    }
}

int run(const std::string &dsd, const std::string &mkconfig, const std::string &root)
{
    if (system((mkconfig + " " + root + "/etc/config 128 >/dev/null").c_str()) != 0) {
        fprintf(stderr, "bench: mkconfig failed\n");
        return 1;
    }
    const char *pairs = getenv("BENCH_SWITCH_PAIRS");
    switch_figures sw{};
    if (const char *only = getenv("BENCH_SWITCHES_ONLY"); only && strcmp(only, "1") == 0) {
        bool ok_sw = bench_switches(dsd, root, pairs ? atoi(pairs) : 50, &sw);
        print_switches(sw);
        return ok_sw ? 0 : 1;
    }
    figures f{};
    const char *mixed = getenv("BENCH_MIXED");
    f.mixed = mixed ? atoi(mixed) : 10000;
    bool ok_load = false;
    f.load_pkg = largest_package(root + "/etc/config", &f.load_bytes);
    f.load = uci_load_time(root, f.load_pkg, &ok_load);
    f.startup = median_startup(dsd, root, 5);
    bench_daemon d;
    double ignored = 0;
    if (f.startup < 0 || !bench_daemon_start(dsd, root, &d, &ignored)) {
        fprintf(stderr, "bench: dsd did not start\n");
        return 1;
    }
    std::string echo_path = root + "/tmp/echo.sock";
    bench_echo *echo = bench_echo_start(echo_path);
    bool ok = echo && measure_requests(root, echo_path, d, &f) && ok_load;
    bench_echo_stop(echo);
    bench_daemon_stop(&d);
    bool ok_sw = bench_switches(dsd, root, pairs ? atoi(pairs) : 50, &sw);
    print_figures(f);
    print_switches(sw);
    if (!ok_sw)
        fprintf(stderr, "bench: the statistics/events comparison failed\n");
    return ok && ok_sw ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3 && argc != 4) {
        fprintf(stderr, "usage: bench <dsd binary> <mkconfig binary> [scratch parent dir]\n");
        return 2;
    }
    std::string root;
    if (!make_root(argc == 4 ? argv[3] : "/tmp", &root)) {
        fprintf(stderr, "bench: cannot make a scratch root\n");
        return 1;
    }
    int rc = run(argv[1], argv[2], root);
    if (system(("rm -rf " + root).c_str()) != 0)
        rc = 1;
    return rc;
}
