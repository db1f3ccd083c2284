// The core on socket pairs and in-process: what each record leaves in the
// context, which record decides the outcome, answers that go out whole
// through short writes or fail on a closed peer; the context pool, the
// response form by client kind, and the worker pool's task ring.
#include <sys/socket.h>

#include <condition_variable>
#include <mutex>

#include "core/context.h"
#include "core/dispatch.h"
#include "core/pool.h"
#include "core/wire.h"
#include "harness/dsd_harness.h"

namespace {

std::string info(int group, int client, const char *user = "admin")
{
    return tlv(1, std::string("{\"user\":\"") + user + "\",\"group\":" + std::to_string(group) +
                      ",\"client\":" + std::to_string(client) + "}");
}

class Records : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_NE(context_init(), 0);
        ctx = context_alloc();
        ASSERT_NE(ctx, nullptr);
    }
    void TearDown() override
    {
        context_free(ctx);
        context_destroy();
    }

    // Feeds bytes (then end of stream) to a parse on ctx; its result.
    int parse(const std::string &bytes)
    {
        int sv[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
        // Written from another thread: long records exceed the pair's buffer.
        std::thread writer([&] {
            dsd_send_record_bytes(sv[1], bytes);
            shutdown(sv[1], SHUT_WR);
        });
        ctx->fd = sv[0];
        ctx->error_code = -40101;
        int rc = ds_signal_parse(ctx);
        shutdown(sv[0], SHUT_RD); // let a writer blocked on unread bytes go
        writer.join();
        close(sv[1]);
        return rc;
    }

    ds_conn *ctx = nullptr;
};

TEST_F(Records, IdentityAndMethodAreStored)
{
    // Bytes after the two records are never parsed.
    std::string junk = tlv(2, "{") + "junk";
    ASSERT_EQ(parse(info(3, 9, "op%20one") + tlv(2, R"({"method":"forward"})") + junk), 0);
    EXPECT_STREQ(ctx->user, "op one"); // the info record is decoded whatever the kind
    EXPECT_EQ(ctx->group, 3);
    EXPECT_EQ(ctx->client, 9);
    EXPECT_EQ(ctx->method, DS_METHOD_FORWARD);
    EXPECT_EQ(ctx->error_code, -40101); // left for the handler to set
}

TEST_F(Records, OutOfRangeGroupAndClientAreReplaced)
{
    static const struct { int group, client; } rows[] = {
        {.group = 0, .client = 14}, {.group = -1, .client = 300}, {.group = 9, .client = 99}};
    for (const auto &r : rows) {
        ASSERT_EQ(parse(info(r.group, r.client) + tlv(2, R"({"method":"do"})")), 0);
        EXPECT_EQ(ctx->group, 2) << r.group;
        EXPECT_EQ(ctx->client, 13) << r.client;
        context_free(ctx);
        ctx = context_alloc();
    }
}

// A failed info before or after the request is held by the value failures
// below and the end-to-end length rows.
TEST_F(Records, TheLaterOfTwoRequestsWins)
{
    EXPECT_EQ(parse(tlv(2, R"({"method":"set"})") + tlv(2, R"({"method":"get","x":1})")), 0);
    EXPECT_EQ(ctx->method, DS_METHOD_GET);
    ASSERT_NE(ctx->req_obj, nullptr);
}

TEST_F(Records, ValueFailures)
{
    struct row {
        std::string bytes;
        int32_t code;
    };
    const row rows[] = {
        {.bytes = info(1, 3) + tlv_header(2, 50) + "{\"method\"", .code = -40101},
        {.bytes = info(1, 3) + tlv(2, "{\"method\":"), .code = -40210},
        {.bytes = info(1, 3) + tlv(2, R"({"Method":"get"})"), .code = -40210},
        {.bytes = info(1, 3) + tlv(2, R"({"method":"x","a":"%g0"})"), .code = -40102},
        {.bytes = info(1, 3) + tlv(2, R"({"method":"GET"})"), .code = -40209},
        {.bytes = info(1, 3) + tlv(2, std::string(100, '[') + std::string(100, ']')), .code = -40210},
        {.bytes = tlv(2, R"({"method":"get"})") + tlv_header(1, 40) + "{}", .code = -40101},
    };
    for (const row &r : rows) {
        EXPECT_EQ(parse(r.bytes), -1);
        EXPECT_EQ(ctx->error_code, r.code) << r.bytes.substr(8);
        context_free(ctx);
        ctx = context_alloc();
    }
}

class Dispatch : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(context_init(), 0); }
    void TearDown() override { context_destroy(); }

    // Serves bytes through ds_signal_handle on a socket pair; *rc gets its
    // result, the answer (or "") is returned. The daemon side must be closed.
    std::string serve(const std::string &bytes, int *rc)
    {
        int sv[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
        EXPECT_TRUE(dsd_send_record_bytes(sv[1], bytes));
        shutdown(sv[1], SHUT_WR);
        *rc = ds_signal_handle(sv[0]);
        uint32_t type = 0;
        std::string out;
        if (dsd_read_record(sv[1], &type, &out, 2000)) {
            EXPECT_EQ(type, 3u);
        }
        // Closed after the one answer (reset when it left records unread).
        char extra;
        EXPECT_LE(read(sv[1], &extra, 1), 0);
        close(sv[1]);
        return out;
    }
};

TEST_F(Dispatch, NoFreeContextIsAnsweredAtOnce)
{
    ds_conn *held[DS_CONTEXT_COUNT];
    for (auto &c : held)
        c = context_alloc();
    int rc = 0;
    // The records are never read: the answer comes without waiting for them.
    EXPECT_EQ(serve(info(1, 3) + tlv(2, R"({"method":"get"})"), &rc), R"({"error_code": -40101})");
    EXPECT_EQ(rc, -1);
    for (auto *c : held)
        context_free(c);
    EXPECT_EQ(context_free_count(), DS_CONTEXT_COUNT);
}

struct Pair {
    int fd[2] = {-1, -1};
    Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fd), 0); }
    ~Pair()
    {
        for (int f : fd)
            if (f >= 0)
                close(f);
    }
};

TEST(Wire, ErrorResponseAndLargeRecordArriveWhole)
{
    Pair p;
    uint32_t type = 0;
    std::string value;
    ASSERT_EQ(make_error_response(p.fd[0], -40109), 0);
    ASSERT_TRUE(dsd_read_record(p.fd[1], &type, &value, 2000));
    EXPECT_EQ(type, 3u);
    EXPECT_EQ(value, "{\"error_code\": -40109}");
    EXPECT_EQ(make_error_response(-1, 0), -1);
    // Larger than the socket buffer: written through short writes.
    std::string big(300000, 'x');
    big.front() = '{';
    big.back() = '}';
    std::thread reader([&] { EXPECT_TRUE(dsd_read_record(p.fd[1], &type, &value, scaled_ms(10000))); });
    EXPECT_EQ(jres_tlv_write(p.fd[0], big.data(), static_cast<uint32_t>(big.size())), 0);
    reader.join();
    EXPECT_EQ(type, 3u);
    EXPECT_EQ(value, big);
    EXPECT_EQ(jres_tlv_write(p.fd[0], big.data(), 0), -1);
}

TEST(Wire, ShortReadsEndOfStreamAndClosedPeer)
{
    Pair p;
    uint8_t buf[17];
    ASSERT_EQ(write(p.fd[1], "abc", 3), 3);
    EXPECT_EQ(sock_read(p.fd[0], buf, 16), 3);  // never loops to fill
    EXPECT_EQ(std::string(reinterpret_cast<char *>(buf), 3), "abc");
    close(p.fd[1]);
    p.fd[1] = -1;
    EXPECT_EQ(sock_read(p.fd[0], buf, 16), 0);
    EXPECT_EQ(sock_read(-1, buf, 16), -1);
    EXPECT_EQ(sock_read(p.fd[0], buf, 0), -1);
    signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(make_error_response(p.fd[0], -40101), -1);
}

// The read-ahead must hand out what a plain read would have: a value split
// across its edge comes whole from one call when the rest has arrived, and
// no call waits for bytes that have not.
TEST(Wire, ReadAheadHandsOutWhatHasArrived)
{
    Pair p;
    sock_reader rd;
    sock_reader_init(&rd, p.fd[0]);
    static uint8_t buf[SOCK_READAHEAD + 1];
    auto text = [&](size_t n) { return std::string(reinterpret_cast<char *>(buf), n); };
    ASSERT_EQ(write(p.fd[1], "headerABvalue", 13), 13);
    ASSERT_EQ(sock_reader_read(&rd, buf, 8), 8);
    ASSERT_EQ(write(p.fd[1], "-rest", 5), 5);
    ASSERT_EQ(sock_reader_read(&rd, buf, 10), 10);
    EXPECT_EQ(text(11), std::string("value-rest\0", 11));
    ASSERT_EQ(write(p.fd[1], "xy", 2), 2);
    EXPECT_EQ(sock_reader_read(&rd, buf, 16), 2);
    ASSERT_EQ(write(p.fd[1], "big", 3), 3);
    EXPECT_EQ(sock_reader_read(&rd, buf, SOCK_READAHEAD), 3); // straight into buf
    EXPECT_EQ(text(4), std::string("big\0", 4));
    close(p.fd[1]);
    p.fd[1] = -1;
    EXPECT_EQ(sock_reader_read(&rd, buf, 8), 0);
}

class ContextPool : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(context_init(), 0); }
    void TearDown() override { context_destroy(); }
};

std::string response_for(int client, const char *res_json, int code)
{
    int sv[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    ds_conn *ctx = context_alloc();
    ctx->fd = sv[0];
    ctx->client = static_cast<uint8_t>(client);
    ctx->error_code = code;
    ctx->res_obj = res_json ? json_tokener_parse(res_json) : nullptr;
    ds_make_response(ctx);
    context_free(ctx);
    uint32_t type = 0;
    std::string out;
    EXPECT_TRUE(dsd_read_record(sv[1], &type, &out, 2000));
    EXPECT_EQ(type, 3u);
    close(sv[1]);
    return out;
}

// The "name" and "error_code" of a response (a missing one is a failure).
std::pair<std::string, int> name_and_code(const std::string &text)
{
    dsd_answer a(text);
    return {a.str({"name"}), a.num({"error_code"})};
}

TEST_F(ContextPool, ResponseFormAndUrlEncodingByClientKind)
{
    EXPECT_EQ(response_for(3, nullptr, -40106), R"({"error_code": -40106})");
    using nc = std::pair<std::string, int>;
    EXPECT_EQ(name_and_code(response_for(1, R"({"name": "a b/\u00e9"})", 0)), nc("a%20b%2F%C3%A9", 0));
    EXPECT_EQ(name_and_code(response_for(2, R"({"name": "a b"})", -5)), nc("a%20b", -5));
    for (int client : {3, 8, 9})
        EXPECT_EQ(name_and_code(response_for(client, R"({"name": "a b"})", 0)), nc("a b", 0)) << client;
    // A response that is not an object cannot carry the code.
    EXPECT_EQ(response_for(3, "[1]", 0), R"({"error_code": -40101})");
}

// Tasks take only an int, so the test's shared state is file-scope.
std::mutex g_mu;
std::condition_variable g_cv;
bool g_open = false;
int g_blocked = 0;
std::vector<int> g_order;

int gate_task(int)
{
    std::unique_lock<std::mutex> lk(g_mu);
    g_blocked++;
    g_cv.notify_all();
    g_cv.wait(lk, [] { return g_open; });
    return 0;
}

int record_task(int arg)
{
    std::lock_guard<std::mutex> lk(g_mu);
    g_order.push_back(arg);
    g_cv.notify_all();
    return 0;
}

// Each of two tasks waits (bounded) until the other has started: they meet
// only when two workers run them at once.
int g_met = 0;
int meet_task(int arg)
{
    std::unique_lock<std::mutex> lk(g_mu);
    g_met++;
    g_cv.notify_all();
    bool met = g_cv.wait_for(lk, std::chrono::milliseconds(scaled_ms(5000)), [] { return g_met >= 2; });
    g_order.push_back(met ? arg : -arg);
    g_cv.notify_all();
    return 0;
}

struct PoolTest : testing::Test {
    void SetUp() override
    {
        std::lock_guard<std::mutex> lk(g_mu);
        g_open = false;
        g_blocked = 0;
        g_met = 0;
        g_order.clear();
    }
    // Blocks every one of `workers` workers on the gate.
    void block(thd_pool *pool, int workers)
    {
        for (int i = 0; i < workers; i++)
            ASSERT_EQ(thd_pool_add_task(pool, gate_task, 1), 0);
        std::unique_lock<std::mutex> lk(g_mu);
        ASSERT_TRUE(g_cv.wait_for(lk, std::chrono::milliseconds(scaled_ms(10000)), [&] { return g_blocked == workers; }));
    }
    void open_gate()
    {
        std::lock_guard<std::mutex> lk(g_mu);
        g_open = true;
        g_cv.notify_all();
    }
    void wait_recorded(size_t n)
    {
        std::unique_lock<std::mutex> lk(g_mu);
        ASSERT_TRUE(g_cv.wait_for(lk, std::chrono::milliseconds(scaled_ms(10000)), [&] { return g_order.size() == n; }));
    }
};

TEST_F(PoolTest, TasksRunFirstInFirstOutAcrossTheWrap)
{
    thd_pool *pool = thd_pool_init(1);
    ASSERT_NE(pool, nullptr);
    // Move the head to slot 7 so the next ten tasks wrap from slot 9 to 0.
    for (int i = 1; i <= 7; i++)
        ASSERT_EQ(thd_pool_add_task(pool, record_task, i), 0);
    wait_recorded(7);
    block(pool, 1);
    for (int i = 100; i < 100 + THD_QUEUE_CAPACITY; i++)
        ASSERT_EQ(thd_pool_add_task(pool, record_task, i), 0);
    open_gate();
    wait_recorded(7 + THD_QUEUE_CAPACITY);
    for (int i = 0; i < THD_QUEUE_CAPACITY; i++)
        EXPECT_EQ(g_order[7 + i], 100 + i);
    EXPECT_EQ(thd_pool_destroy(pool), 0);
}

// An idle worker polls the ring for a short while before it sleeps, and an
// add that finds it polling sends no wake-up. Tasks arriving just before,
// during and just after that window must all run.
TEST_F(PoolTest, TasksAroundTheIdlePollWindowAllRun)
{
    thd_pool *pool = thd_pool_init(6);
    ASSERT_NE(pool, nullptr);
    const long gaps_ns[] = {0, THD_POLL_NS / 5, THD_POLL_NS * 9 / 10, THD_POLL_NS,
                            THD_POLL_NS * 11 / 10, THD_POLL_NS * 2};
    const int n = 1200;
    for (int i = 1; i <= n; i++) {
        ASSERT_EQ(thd_pool_add_task(pool, record_task, i), 0);
        wait_recorded(static_cast<size_t>(i));
        std::this_thread::sleep_for(std::chrono::nanoseconds(gaps_ns[i % 6]));
    }
    EXPECT_EQ(thd_pool_destroy(pool), 0);
}

// The one task a polling worker will take needs no wake-up; a second one
// queued behind it does, or it would wait for the first to finish.
TEST_F(PoolTest, SecondTaskQueuedWhileAWorkerPollsRunsAtOnce)
{
    thd_pool *pool = thd_pool_init(6);
    ASSERT_NE(pool, nullptr);
    for (int round = 0; round < 40; round++) {
        {
            std::lock_guard<std::mutex> lk(g_mu);
            g_order.clear();
            g_met = 0;
        }
        // The worker that ran this one is now polling.
        ASSERT_EQ(thd_pool_add_task(pool, record_task, 1), 0);
        wait_recorded(1);
        ASSERT_EQ(thd_pool_add_task(pool, meet_task, 2), 0);
        ASSERT_EQ(thd_pool_add_task(pool, meet_task, 3), 0);
        wait_recorded(3);
        std::lock_guard<std::mutex> lk(g_mu);
        ASSERT_GT(g_order[1], 0) << "round " << round;
        ASSERT_GT(g_order[2], 0) << "round " << round;
    }
    EXPECT_EQ(thd_pool_destroy(pool), 0);
}

} // namespace
