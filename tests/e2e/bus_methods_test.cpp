// do and forward through the running daemon with hostbus as the bus: answers,
// peers that are absent, broken or hung, and requests of the wrong shape.
#include <future>

#include "harness/dsd_harness.h"

namespace {

const char kForward[] = R"({"method":"forward","destination":"ipc","channel":5,"content":{"cmd":"get"}})";

// Member of an answer as compact JSON ("" when absent; no answer is a failure).
std::string member_of(const std::string &response, const char *key)
{
    dsd_answer a(response);
    json_object *v = a.at({key});
    return v ? json_object_to_json_string_ext(v, JSON_C_TO_STRING_PLAIN) : "";
}

class BusMethods : public dsd_device {
protected:
    void SetUp() override
    {
        // A hung peer costs 2 s instead of the default 30 s (with the host
        // libubus only: the device's has no such cap).
        setenv("DSD_UBUS_MAX_TIMEOUT_MS", "2000", 1);
        ASSERT_TRUE(bus.start("{}"));
        ASSERT_TRUE(d.start()) << d.log();
    }
    void TearDown() override { unsetenv("DSD_UBUS_MAX_TIMEOUT_MS"); }
    void peer(const std::string &step)
    {
        bus.set_scenario(R"({"objects":{"chm_slp":{"methods":{"chm_slp_passthrough":)" + step +
                         "}}}}");
    }
};

} // namespace

TEST_F(BusMethods, ForwardReturnsCameraAnswer)
{
    peer(R"({"reply":{"result":[{"chn_id":5,"command":"{\"ok\":\"yes%20sir\"}"}]}})");
    std::string res = d.request(kForward);
    EXPECT_EQ(0, error_code_of(res)) << res;
    EXPECT_EQ(R"({"ok":"yes sir"})", member_of(res, "content"));
    EXPECT_EQ("5", member_of(res, "channel"));
    auto calls = bus.calls_to("chm_slp", "chm_slp_passthrough");
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(R"({"device_list":[{"chn_id":5,"command":{"cmd":"get"}}]})", calls[0].message);
}

// Replies that are not JSON, absent or too large reach the handler as no
// reply at all (held by the client tests); a reply without a command too.
TEST_F(BusMethods, ForwardWithoutUsableAnswerKeepsChannel)
{
    peer(R"({"reply":{"result":[{"chn_id":5}]}})");
    std::string res = d.request(kForward);
    EXPECT_EQ(-40108, error_code_of(res)) << res;
    EXPECT_EQ("5", member_of(res, "channel"));
    EXPECT_EQ("", member_of(res, "content"));
    // A camera that answered with text did answer.
    peer(R"({"reply":{"result":[{"command":"{broken"}]}})");
    res = d.request(kForward);
    EXPECT_EQ(0, error_code_of(res)) << res;
    EXPECT_EQ("5", member_of(res, "channel"));
    EXPECT_EQ("", member_of(res, "content"));
}

TEST_F(BusMethods, ForwardToAbsentBrokenOrHungPeer)
{
    bus.set_scenario(R"({"objects":{"chm_slp":{"absent":true}}})");
    std::string res = d.request(kForward);
    EXPECT_EQ(-40108, error_code_of(res)) << res;
    EXPECT_EQ("", member_of(res, "channel"));
    EXPECT_TRUE(bus.calls_to("chm_slp").empty()); // no object: nothing was called

    // The device's libubus has no cap on the wait: the daemon waits its full
    // 30 s for a peer that never answers, so the requests below wait longer.
    const int kHungMs = 45000;
    peer(R"({"disconnect":true})");
    EXPECT_EQ(-40108, error_code_of(d.request(kForward, dsd_identity(), kHungMs)));

    // A peer that never answers: the call times out, the request is still
    // answered, and while it waits other workers keep serving.
    peer(R"({"wait_file":"never","wait_max_ms":60000})");
    auto hung = std::async(std::launch::async, [&] { return d.request(kForward, dsd_identity(), kHungMs); });
    ASSERT_EQ(2, bus.wait_calls("chm_slp", "chm_slp_passthrough", 2)); // absent: no call
    EXPECT_EQ(-40106, d.code(R"({"method":"do","nosuch":{"a":1}})"));
    std::string late = hung.get();
    EXPECT_EQ(-40108, error_code_of(late)) << late;
    bus.touch("never");
    // Every context came back: six requests in a row all get served.
    peer(R"({"reply":{"result":[{"command":"{}"}]}})");
    for (int i = 0; i < 7; i++)
        EXPECT_EQ(0, d.code(kForward)) << i;
}

TEST_F(BusMethods, ForwardRequestShapes)
{
    struct {
        const char *request;
        int code;
    } const cases[] = {
        {R"({"method":"forward","destination":"cloud","channel":1,"content":{}})", -40106},
        {R"({"method":"forward","channel":1,"content":{}})", -40106},
        {R"({"method":"forward","destination":["ipc"],"channel":1,"content":{}})", -40106},
        {R"({"method":"forward","destination":"ipc","channel":"1","content":{}})", -40209},
        {R"({"method":"forward","destination":"ipc","channel":null,"content":{}})", -40209},
        {R"({"method":"forward","destination":"ipc","channel":1,"content":"x"})", -40209},
        {R"({"method":"forward","destination":"ipc","channel":1,"content":[]})", -40209},
        {R"({"method":"forward","destination":"ipc","channel":1})", -40209},
    };
    for (const auto &c : cases)
        EXPECT_EQ(c.code, d.code(c.request)) << c.request;
    EXPECT_TRUE(bus.calls().empty());
}

