// The socket protocol against the real daemon: framing, length rules, order
// rules, URL coding, a flood of malformed input, trace names, and start-up
// over a stale socket or failing (the queue limit is held by the statistics
// tests, which count its refusals).
#include <sys/socket.h>

#include <algorithm>
#include <random>

#include "harness/dsd_harness.h"

namespace {

const char kInfo[] = R"({"user": "admin", "group": 1, "client": 8})";
// A request that parses and reaches the get handler, which refuses the module.
const char kUnknownModule[] = R"({"method": "get", "no_such_module": {"name": "x"}})";

std::string info_for(int client, const std::string &user = "admin")
{
    return R"({"user": ")" + user + R"(", "group": 1, "client": )" + std::to_string(client) + "}";
}

class CoreWire : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(d.start()) << d.log(); }
    dsd_harness d;
};

TEST_F(CoreWire, TruncatedHeaderAndUnknownTypeGetMinus40101)
{
    EXPECT_EQ(d.raw(std::string("\0\0\0", 3)), R"({"error_code": -40101})");
    EXPECT_EQ(d.raw(""), R"({"error_code": -40101})");
    EXPECT_EQ(d.raw(tlv(7, "{}") + tlv(2, "{}")), R"({"error_code": -40101})");
    // The same connection shape with good records is served past the parse.
    EXPECT_EQ(d.code(R"({"method": "get", "no_such_module": {"name": "x"}})"), -40106);
}

TEST_F(CoreWire, RequestLengthLimit)
{
    auto padded = [](size_t total) {
        std::string head = R"({"method": "get", "no_such_module": {"name": ")";
        std::string tail = "\"}}";
        return head + std::string(total - head.size() - tail.size(), 'x') + tail;
    };
    std::string at_limit = padded(262144);
    ASSERT_EQ(at_limit.size(), 262144u);
    int code = error_code_of(d.raw(tlv(1, kInfo) + tlv(2, at_limit)));
    EXPECT_EQ(code, -40106); // read whole, parsed, and refused by the handler
    EXPECT_EQ(error_code_of(d.raw(tlv(1, kInfo) + tlv(2, padded(262145)))), -40202);
    // The grown buffer went back; a normal request still works on every context.
    for (int i = 0; i < 8; i++)
        EXPECT_EQ(d.code(kUnknownModule), -40106);
}

TEST_F(CoreWire, RequestUrlDecodingFollowsClientKind)
{
    // "%67et" decodes to "get": only decoded requests find the method (a
    // get naming no module answers 0 with nothing in it).
    const std::string encoded = R"({"method": "%67et"})";
    for (int client : {1, 3, 7, 13}) {
        dsd_identity who;
        who.client = client;
        EXPECT_EQ(error_code_of(d.request(encoded, who)), 0) << client;
    }
    for (int client : {2, 8, 9}) {
        dsd_identity who;
        who.client = client;
        EXPECT_EQ(error_code_of(d.request(encoded, who)), -40209) << client;
    }
    // A request that comes before the info record is decoded (kind still 0).
    EXPECT_EQ(error_code_of(d.raw(tlv(2, encoded) + tlv(1, info_for(8)))), 0);
    // A malformed escape fails decoding.
    EXPECT_EQ(error_code_of(d.request(R"({"method": "g%zzt"})", dsd_identity{"admin", 1, 3})), -40102);
}

std::string garbage(std::mt19937 &rng, size_t n)
{
    std::string s(n, '\0');
    for (auto &c : s)
        c = static_cast<char>(rng());
    return s;
}

std::string malformed(std::mt19937 &rng, int i)
{
    switch (i % 9) {
    case 0: return garbage(rng, rng() % 64);
    case 1: return tlv_header(1 + rng() % 2, 0xFFFFFFFFu) + garbage(rng, rng() % 32); // -1
    case 2: return tlv_header(1 + rng() % 2, 0) + tlv(2, "{}");
    case 3: return tlv_header(2, 0x80000000u) + "{";                                   // 2^31
    case 4: return tlv(1, kInfo) + tlv_header(2, 100) + "{\"method\"";                 // short value
    case 5: return tlv(1, kInfo) + tlv(2, "{\"method\": \"\xff\xfe\xc3\x28\"}");        // bad UTF-8
    case 6: return tlv(1, kInfo) + tlv(2, std::string(5000, '[') + std::string(5000, ']'));
    case 7: return tlv(1, garbage(rng, 1 + rng() % 100)) + tlv(2, garbage(rng, 1 + rng() % 100));
    default: return tlv(1, "{\"user\": 5, \"group\": \"x\"}") + tlv(2, "{\"method\": [\"get\"]}");
    }
}

TEST_F(CoreWire, MalformedFloodLeavesDaemonServing)
{
    ASSERT_EQ(d.code(kUnknownModule), -40106);
    // The connection just answered may still be closing: take the lowest count.
    int fds_before = d.open_fds();
    for (int i = 0; i < 30; i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        fds_before = std::min(fds_before, d.open_fds());
    }
    std::mt19937 rng(2026);
    const int count = 2000 / harness_slowdown();
    for (int i = 0; i < count; i++) {
        std::string response = d.raw(malformed(rng, i));
        if (!response.empty()) {
            ASSERT_LT(error_code_of(response), 0) << i;
        }
        ASSERT_TRUE(d.running()) << "request " << i;
    }
    EXPECT_EQ(d.code(R"({"method": "GET"})"), -40209);
    // The last connection is closed just after its answer: give it a moment.
    int fds_after = d.open_fds();
    for (int i = 0; i < 500 && fds_after > fds_before; i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        fds_after = d.open_fds();
    }
    EXPECT_LE(fds_after, fds_before);
}

TEST(CoreTrace, DebugModeAndOptionSetTheThreshold)
{
    struct { const char *mode; bool d; bool errors; bool info; } cases[] = {
        {"0", false, false, false}, {"1", false, false, false}, {"2", false, true, false},
        {"1", true, true, true},
    };
    for (const auto &c : cases) {
        dsd_harness h;
        h.write_package("system", std::string("\nconfig system 'sys'\n\toption debug_mode '") + c.mode + "'\n");
        ASSERT_TRUE(h.start(c.d ? std::vector<std::string>{"-d"} : std::vector<std::string>{}));
        h.raw("xx"); // a parse failure: an error-level line
        h.request(R"({"method": "get"})");
        h.stop();
        std::string log = h.log();
        EXPECT_NE(log.find(std::string("dsd load debug mode is ") + c.mode + "\n"), std::string::npos);
        EXPECT_EQ(log.find("Failed to parse signal.") != std::string::npos, c.errors) << c.mode << log;
        EXPECT_EQ(log.find("\t [dsd] main(") != std::string::npos, c.info) << c.mode;
    }
}

// Lengths refused or cut short. A refused info record's value (one byte over
// the limit, too) is not read: the request header follows at once, and the
// largest info record is read whole.
TEST_F(CoreWire, RecordLengthsAtAndBeyondTheirLimits)
{
    const std::string info = tlv(1, info_for(8)), request = tlv(2, kUnknownModule);
    const std::string big_info = info_for(8, std::string(32768 - info_for(8, "").size(), 'u'));
    ASSERT_EQ(big_info.size(), 32768u);
    const struct { std::string bytes; int code; } rows[] = {
        {tlv_header(1, 0) + request, -40106},
        {tlv_header(1, 32769) + request, -40106},
        {tlv_header(1, 0xFFFFFFFFu) + request, -40106},
        {tlv(1, big_info) + request, -40106},
        {info + tlv_header(2, 0xFFFFFFFFu), -40101},
        {info + tlv_header(2, 0x80000000u), -40101},
        {info + tlv_header(2, 0x7FFFFFFFu), -40202},
        {info + tlv_header(2, 30) + "{\"method\": \"get\"", -40101},
    };
    for (const auto &r : rows)
        EXPECT_EQ(error_code_of(d.raw(r.bytes)), r.code) << &r - rows;
}

// Refusals are traced under the step that refused: a log reader finds the
// cause by the function name on the line, so the trace is what is checked.
TEST_F(CoreWire, TracesNameTheirSteps)
{
    EXPECT_EQ(error_code_of(d.raw(tlv(1, info_for(8)) + tlv(2, R"({"method": "GET"})"))), -40209);
    EXPECT_EQ(error_code_of(d.raw(tlv(1, info_for(8)) + tlv(1, info_for(8)))), -40105);
    EXPECT_GE(d.wait_log("jreq_tlv_data_handle("), 1);
    EXPECT_GE(d.wait_log("Unsupport method type: GET."), 1);
    EXPECT_GE(d.wait_log("): Signal method is illegal."), 1);
    std::string log = d.log();
    size_t illegal = log.find("Signal method is illegal.");
    ASSERT_NE(illegal, std::string::npos);
    size_t line = log.rfind('\n', illegal);
    EXPECT_NE(log.substr(line + 1, illegal - line).find("ds_signal_handle("), std::string::npos);
}

TEST(CoreStart, StaleSocketFileIsReplaced)
{
    dsd_harness h;
    {
        std::ofstream stale(h.socket_path());
        stale << "left over by an earlier run";
    }
    ASSERT_TRUE(h.start()) << h.log();
    EXPECT_EQ(error_code_of(h.request(kUnknownModule)), -40106);
}

// A start-up step that fails ends the process, reported under its entry's name.
TEST(CoreStart, FailedStartIsTracedUnderMain)
{
    dsd_harness h;
    ASSERT_EQ(0, mkdir(h.socket_path().c_str(), 0755)); // nothing can be bound there
    EXPECT_FALSE(h.start());
    std::string log = h.log();
    size_t at = log.find("Init Unix domain socket failed.");
    ASSERT_NE(std::string::npos, at);
    EXPECT_NE(std::string::npos, log.substr(log.rfind('\n', at) + 1, at).find("main(")) << log;
}

} // namespace
