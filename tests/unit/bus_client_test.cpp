// ubus client layer against a real hostbus broker: reply parsing, refused
// calls and time-outs.
#include <gtest/gtest.h>
#include <json-c/json.h>

#include <string>

#include "platform/trace.h"
#include "platform/ubus_client.h"

#include "bus_test_root.h"

namespace {

std::string text_of(json_object *o)
{
    return o ? json_object_to_json_string_ext(o, JSON_C_TO_STRING_PLAIN) : "null";
}

} // namespace

TEST(BusNoBroker, ConnectionFailuresAreReported)
{
    test_root();
    EXPECT_EQ(nullptr, ubus_create_connection());
}

class BusCall : public ::testing::Test {
protected:
    bus_harness bus{test_root()};
    ubus_context *conn = nullptr;

    void start(const std::string &scenario)
    {
        ASSERT_TRUE(bus.start(scenario));
        conn = ubus_create_connection();
        ASSERT_NE(nullptr, conn);
    }
    void TearDown() override
    {
        ubus_free_connection(conn);
        bus.stop();
        unlink(bus.log_path().c_str());
    }
    // ubus_call's result and the reply text.
    int call(const char *object, const char *method, const char *msg, std::string *reply,
             int32_t timeout = 0)
    {
        ubus_req req = {.object = object, .method = method, .message = msg, .timeout = timeout};
        json_object *out = nullptr;
        int rc = ubus_call(conn, &req, &out);
        *reply = text_of(out);
        json_object_put(out);
        return rc;
    }
};

TEST_F(BusCall, RepliesAndMessagesRoundTrip)
{
    start(R"({"objects":{"peer":{"methods":{"echo":{"echo":true},"two":{"replies":[{"n":1},{"n":2}]},)"
          R"("raw":{"raw":"<html>"},"none":{"no_reply":true},"huge":{"huge_bytes":2000000}}}}})");
    std::string reply;
    EXPECT_EQ(0, call("peer", "echo", R"({"k":"v","n":[1,2]})", &reply));
    EXPECT_EQ(R"({"k":"v","n":[1,2]})", reply);
    EXPECT_EQ(0, call("peer", "echo", nullptr, &reply));
    EXPECT_EQ("{}", reply);
    EXPECT_EQ(0, call("peer", "two", "{}", &reply));
    EXPECT_EQ(R"({"n":2})", reply);
    // Text that is not JSON, no reply and a reply too large are no reply.
    for (const char *method : {"raw", "none", "huge"}) {
        EXPECT_EQ(0, call("peer", method, "{}", &reply)) << method;
        EXPECT_EQ("null", reply) << method;
    }
    // Unknown methods of a built-in peer answer {}.
    EXPECT_EQ(0, call("record", "anything", "{}", &reply));
    EXPECT_EQ("{}", reply);
    auto calls = bus.calls();
    ASSERT_EQ(7u, calls.size());
    EXPECT_EQ("peer", calls[0].object);
    EXPECT_EQ("echo", calls[0].method);
    EXPECT_EQ(R"({"k":"v","n":[1,2]})", calls[0].message);
}

TEST_F(BusCall, FailuresTraceAndReturnMinusOne)
{
    start(R"({"objects":{"peer":{"methods":{"bad":{"status":2}}},
              "record":{"absent":true}}})");
    std::string reply;
    EXPECT_EQ(-1, call("peer", "m", "not json", &reply));
    EXPECT_EQ(-1, call("peer", "m", "[1]", &reply));
    EXPECT_EQ(-1, call("missing", "m", "{}", &reply));
    EXPECT_EQ(-1, call("record", "m", "{}", &reply));
    EXPECT_EQ(-1, call("peer", "bad", "{}", &reply));
    EXPECT_EQ("null", reply);
    // Nothing reached a peer except the call that failed with a status.
    auto calls = bus.calls();
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ("bad", calls[0].method);

    ubus_req nulls = {.object = nullptr, .method = "m", .message = nullptr, .timeout = 0};
    json_object *out = nullptr;
    EXPECT_EQ(-1, ubus_call(conn, &nulls, &out));
    nulls = {.object = "peer", .method = nullptr, .message = nullptr, .timeout = 0};
    EXPECT_EQ(-1, ubus_call(conn, &nulls, &out));
    EXPECT_EQ(-1, ubus_call(nullptr, &nulls, &out));
    EXPECT_EQ(-1, ubus_call(conn, nullptr, &out));
}

TEST_F(BusCall, TimeoutBelowOneBecomesThirtyAndSlowPeersTimeOut)
{
    start(R"({"objects":{"slow":{"methods":{"m":{"wait_file":"release","wait_max_ms":20000}}}}})");
    for (int32_t t : {0, -5}) {
        ubus_req req = {.object = "record", .method = "x", .message = nullptr, .timeout = t};
        json_object *out = nullptr;
        EXPECT_EQ(0, ubus_call(conn, &req, &out));
        json_object_put(out);
        EXPECT_EQ(30, req.timeout);
    }
    std::string reply;
    EXPECT_EQ(-1, call("slow", "m", "{}", &reply, 1));
    EXPECT_EQ(1, bus.wait_calls("slow", "m", 1)); // it reached the peer, which did not answer in time
    // The late answer to the abandoned call must not be taken for the next one.
    bus.touch("release");
    EXPECT_EQ(0, call("record", "y", R"({"z":1})", &reply));
    EXPECT_EQ("{}", reply);
}

