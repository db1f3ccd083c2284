// Clients that hold connections without delivering their records (silent,
// dripping, announcing the largest request and sending none of it), in
// numbers up to and far beyond the workers and the queue, while a
// well-behaved client measures its answers; descriptors exhausted.
#include <sys/resource.h>
#include <sys/socket.h>

#include "harness/dsd_harness.h"

namespace {

using clock_type = std::chrono::steady_clock;

long ms_since(clock_type::time_point t)
{
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(clock_type::now() - t).count());
}

// The bound within which a well-behaved client is answered however many
// workers hostile clients hold, stretched under an emulator.
long answer_bound_ms(void)
{
    return 5000L * harness_slowdown();
}

const char kGet[] = R"({"method":"get","system":{"name":"sys"}})";

// One well-behaved request; its response code (1 when none came). The
// response is read even when the send failed: a connection refused for a
// full queue is answered and closed before the records are taken.
int ask(const dsd_harness &d)
{
    int fd = dsd_connect(d.socket_path());
    if (fd < 0)
        return 1;
    std::string records = tlv(1, R"({"user":"admin","group":1,"client":8})") + tlv(2, kGet), response;
    dsd_send_record_bytes(fd, records);
    uint32_t type = 0;
    bool ok = dsd_read_record(fd, &type, &response, 10000 * harness_slowdown()) && type == 3;
    close(fd);
    return ok ? error_code_of(response) : 1;
}

// One well-behaved request, repeated while the queue is full (-40109, an
// immediate answer that asks to come back): the time until a real answer
// and its code.
long answered_in(const dsd_harness &d, int *code)
{
    auto start = clock_type::now();
    do {
        *code = ask(d);
        if (*code != -40109)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    } while (ms_since(start) < 2 * answer_bound_ms());
    return ms_since(start);
}

enum class hostile { silent, dripping, big_header };

const char *name_of(hostile kind)
{
    return kind == hostile::silent ? "silent" : kind == hostile::dripping ? "dripping" : "big_header";
}

// Opens n hostile connections of one kind; a dripping one has sent its info
// record and the header of a request whose value it then sends one byte at
// a time.
std::vector<int> open_hostile(const dsd_harness &d, hostile kind, int n)
{
    std::string info = tlv(1, R"({"user":"admin","group":1,"client":8})");
    std::string request = kGet;
    std::vector<int> fds;
    for (int i = 0; i < n; i++) {
        int fd = dsd_connect(d.socket_path());
        EXPECT_GE(fd, 0);
        if (fd < 0)
            continue;
        if (kind == hostile::dripping)
            dsd_send_record_bytes(fd, info + tlv_header(2, static_cast<uint32_t>(request.size())));
        if (kind == hostile::big_header)
            dsd_send_record_bytes(fd, info + tlv_header(2, 262144) + "{");
        fds.push_back(fd);
    }
    return fds;
}

// Sends one byte on every dripping connection every 900 ms until stopped.
struct dripper {
    std::vector<int> fds;
    std::atomic<bool> stop{false};
    std::thread thread;
    void start()
    {
        thread = std::thread([this] {
            while (!stop) {
                for (int fd : fds)
                    send(fd, " ", 1, MSG_NOSIGNAL | MSG_DONTWAIT);
                for (int i = 0; i < 9 && !stop; i++)
                    std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
        });
    }
    ~dripper()
    {
        stop = true;
        if (thread.joinable())
            thread.join();
    }
};

// True when the daemon has closed fd (a response record, then end of stream).
bool closed_by_daemon(int fd, int timeout_ms)
{
    char buf[256];
    return wait_until([&] {
        ssize_t n = recv(fd, buf, sizeof buf, MSG_DONTWAIT);
        return n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR);
    }, timeout_ms / harness_slowdown());
}

struct HostileClients : dsd_device, ::testing::WithParamInterface<std::tuple<hostile, int>> {
    void SetUp() override { boot(2, nullptr, {}, {}); }
};

TEST_P(HostileClients, WellBehavedClientIsAnsweredInTime)
{
    auto [kind, n] = GetParam();
    dripper drip;
    drip.fds = open_hostile(d, kind, n);
    if (kind == hostile::dripping)
        drip.start();
    auto held_since = clock_type::now();
    // Answers while the hostile connections hold every worker, and after.
    for (int round = 0; round < 3; round++) {
        int code = 1;
        long ms = answered_in(d, &code);
        EXPECT_EQ(code, 0) << name_of(kind) << " x" << n << " round " << round;
        EXPECT_LT(ms, answer_bound_ms()) << name_of(kind) << " x" << n << " round " << round;
    }
    // None of them holds its connection past its deadline (a few seconds).
    int still_open = 0;
    for (int fd : drip.fds)
        still_open += !closed_by_daemon(fd, static_cast<int>(answer_bound_ms() - ms_since(held_since)) + 1000);
    EXPECT_EQ(still_open, 0) << name_of(kind) << " x" << n;
    for (int fd : drip.fds)
        close(fd);
    EXPECT_TRUE(d.running());
}

INSTANTIATE_TEST_SUITE_P(Kinds, HostileClients,
                         ::testing::Combine(::testing::Values(hostile::silent, hostile::dripping, hostile::big_header),
                                            ::testing::Values(6, 10, 100)),
                         [](const auto &info) {
                             return name_of(std::get<0>(info.param)) + ("_" + std::to_string(std::get<1>(info.param)));
                         });

// User and system CPU seconds of a process, from /proc/<pid>/stat.
double cpu_seconds(pid_t pid)
{
    std::string text = slurp("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string skip;
    for (int i = 3; i < 14; i++) // fields 3..13, then utime (14) and stime (15)
        fields >> skip;
    long utime = 0, stime = 0;
    fields >> utime >> stime;
    return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

using HostileDescriptors = dsd_device;

TEST_F(HostileDescriptors, AcceptBacksOffAndServesAgain)
{
    boot(2, nullptr, {}, {});
    ASSERT_EQ(d.code(kGet), 0);
    int open = d.open_fds();
    ASSERT_GT(open, 0);
    // A few descriptors to spare, then silent clients take them all and wait
    // in the backlog.
    rlimit low{.rlim_cur = static_cast<rlim_t>(open + 3), .rlim_max = static_cast<rlim_t>(open + 3)};
    rlimit old{};
    ASSERT_EQ(prlimit(d.pid, RLIMIT_NOFILE, nullptr, &old), 0);
    low.rlim_max = old.rlim_max;
    ASSERT_EQ(prlimit(d.pid, RLIMIT_NOFILE, &low, nullptr), 0);
    std::vector<int> fds = open_hostile(d, hostile::silent, 24);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    double before = cpu_seconds(d.pid);
    auto start = clock_type::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(2000));
    double used = cpu_seconds(d.pid) - before;
    double window = static_cast<double>(ms_since(start)) / 1000.0;
    // A spinning accept loop burns the whole window on one core.
    EXPECT_LT(used, 0.25 * window * harness_slowdown()) << used << " s of CPU in " << window << " s";
    // Descriptors free up: the backlog is served again, and so is a new client.
    for (int fd : fds)
        close(fd);
    int code = 1;
    long ms = answered_in(d, &code);
    EXPECT_EQ(code, 0);
    EXPECT_LT(ms, answer_bound_ms());
    EXPECT_TRUE(d.running());
    prlimit(d.pid, RLIMIT_NOFILE, &old, nullptr);
}

} // namespace
