// ubus client layer against a real hostbus broker: reply parsing, error-field
// precedence, time-outs and the asynchronous queue.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/trace.h"
#include "platform/ubus_client.h"

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubus.h>
}

#include "bus_test_root.h"

namespace {

struct reply_holder {
    json_object *obj = nullptr;
    ~reply_holder() { json_object_put(obj); }
};

std::string text_of(json_object *o)
{
    return o ? json_object_to_json_string_ext(o, JSON_C_TO_STRING_PLAIN) : "null";
}

#ifdef DSD_REAL_BUS
// A reply as the device's library hands it over: a blobmsg table. A peer on
// that bus cannot send text that is not an object; what comes closest is a
// member the JSON formatter prints as "inf", which json-c refuses.
blob_attr *make_attr(const std::string &text)
{
    blob_buf b;
    memset(&b, 0, sizeof b);
    blob_buf_init(&b, 0);
    if (!blobmsg_add_json_from_string(&b, text.c_str()))
        blobmsg_add_double(&b, "raw", INFINITY);
    auto *a = static_cast<blob_attr *>(malloc(blob_pad_len(b.head)));
    memcpy(a, b.head, blob_pad_len(b.head));
    blob_buf_free(&b);
    return a;
}
#else
// A blob attribute carrying text, as the host library hands replies over.
blob_attr *make_attr(const std::string &text)
{
    size_t total = sizeof(blob_attr) + text.size() + 1;
    auto *a = static_cast<blob_attr *>(malloc(total));
    a->id_len = static_cast<uint32_t>(total);
    memcpy(a->data, text.c_str(), text.size() + 1);
    return a;
}
#endif

size_t thread_count()
{
    size_t n = 0;
    if (DIR *d = opendir("/proc/self/task")) {
        while (dirent *e = readdir(d))
            n += e->d_name[0] != '.';
        closedir(d);
    }
    return n;
}

} // namespace

// Several replies and refused request messages through a broker are held
// by the call tests below.
TEST(BusReplyParse, CallbackKeepsLastParsedReplyAndNullsBadOnes)
{
    reply_holder out;
    ubus_request req{};
    req.priv = &out.obj;
    blob_attr *good = make_attr(R"({"b":2})");
    ubus_call_cb(&req, UBUS_MSG_DATA, good);
    EXPECT_EQ(R"({"b":2})", text_of(out.obj));
    free(good);

    blob_attr *bad = make_attr("not json {");
    ubus_call_cb(&req, UBUS_MSG_DATA, bad); // releases the earlier reply
    EXPECT_EQ(nullptr, out.obj);
    free(bad);

    testing::internal::CaptureStdout();
    ubus_call_cb(&req, UBUS_MSG_DATA, nullptr);
#ifndef DSD_REAL_BUS
    // Only the host library hands over a reply its formatter makes no text
    // of; the device's formats every table (it fails only out of memory).
    blob_attr *empty = make_attr("");
    ubus_call_cb(&req, UBUS_MSG_DATA, empty);
    free(empty);
#endif
    std::string log = testing::internal::GetCapturedStdout();
    EXPECT_EQ(nullptr, out.obj);
    EXPECT_NE(std::string::npos, log.find("msg is NULL"));
#ifndef DSD_REAL_BUS
    EXPECT_NE(std::string::npos, log.find("ubus has not response.\n"));
#endif
}

TEST(BusNoBroker, ConnectionFailuresAreReported)
{
    test_root();
    testing::internal::CaptureStdout();
    EXPECT_EQ(nullptr, ubus_create_connection());
    EXPECT_EQ(0, ubus_object_exists("record"));
    int32_t err = 5;
    EXPECT_EQ(-1, ubus_call_get_err_code("record", "m", "{}", &err));
    EXPECT_EQ(-1, ubus_async_init());
    std::string log = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos, log.find("connect ubus error."));
    EXPECT_EQ(5, err);
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
    // ubus_call's result, the reply text and the captured trace.
    int call(const char *object, const char *method, const char *msg, std::string *reply,
             std::string *log = nullptr, int32_t timeout = 0)
    {
        ubus_req req = {.object = object, .method = method, .message = msg, .timeout = timeout};
        json_object *out = nullptr;
        testing::internal::CaptureStdout();
        int rc = ubus_call(conn, &req, &out);
        std::string captured = testing::internal::GetCapturedStdout();
        if (log)
            *log = captured;
        *reply = text_of(out);
        json_object_put(out);
        return rc;
    }
};

TEST_F(BusCall, RepliesAndMessagesRoundTrip)
{
    start(R"({"objects":{"peer":{"methods":{
        "echo":{"echo":true},
        "two":{"replies":[{"n":1},{"n":2}]},
        "raw":{"raw":"<html>"},
        "none":{"no_reply":true},
        "huge":{"huge_bytes":2000000}}}}})");
    std::string reply;
    EXPECT_EQ(0, call("peer", "echo", R"({"k":"v","n":[1,2]})", &reply));
    EXPECT_EQ(R"({"k":"v","n":[1,2]})", reply);
    EXPECT_EQ(0, call("peer", "echo", nullptr, &reply));
    EXPECT_EQ("{}", reply);
    EXPECT_EQ(0, call("peer", "two", "{}", &reply));
    EXPECT_EQ(R"({"n":2})", reply);
    EXPECT_EQ(0, call("peer", "raw", "{}", &reply));
    EXPECT_EQ("null", reply);
    EXPECT_EQ(0, call("peer", "none", "{}", &reply));
    EXPECT_EQ("null", reply);
    EXPECT_EQ(0, call("peer", "huge", "{}", &reply));
    EXPECT_EQ("null", reply);
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
    std::string reply, log;
    EXPECT_EQ(-1, call("peer", "m", "not json", &reply, &log));
    EXPECT_NE(std::string::npos, log.find("failed to parse msg data."));
    EXPECT_EQ(-1, call("peer", "m", "[1]", &reply, &log));
    EXPECT_EQ(-1, call("missing", "m", "{}", &reply, &log));
    EXPECT_NE(std::string::npos, log.find("failed to lookup ubus object: missing."));
    EXPECT_EQ(-1, call("record", "m", "{}", &reply, &log));
    EXPECT_EQ(-1, call("peer", "bad", "{}", &reply, &log));
    EXPECT_NE(std::string::npos, log.find("ubus invoke error: peer.bad"));
    // Nothing reached a peer except the call that failed with a status.
    EXPECT_EQ(1u, bus.calls().size());

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
    std::string reply, log;
    EXPECT_EQ(-1, call("slow", "m", "{}", &reply, &log, 1));
    EXPECT_NE(std::string::npos, log.find("ubus invoke error: slow.m"));
    // The late answer to the abandoned call must not be taken for the next one.
    bus.touch("release");
    EXPECT_EQ(0, call("record", "y", R"({"z":1})", &reply));
    EXPECT_EQ("{}", reply);
}

TEST_F(BusCall, ErrCodeFieldPrecedence)
{
    start(R"({"objects":{"peer":{"methods":{
        "both":{"reply":{"error_code":3,"err_code":7}},
        "ec":{"reply":{"error_code":0}},
        "str":{"reply":{"error":"x"}},
        "int":{"reply":{"error":-9}},
        "none":{"reply":{"ok":1}},
        "arr":{"raw":"[1]"},
        "fail":{"status":9}}}}})");
    ubus_free_connection(conn);
    conn = nullptr;
    struct {
        const char *method;
        int rc;
        int32_t err;
    } const cases[] = {
        {"both", 0, 7}, {"ec", 0, 0}, {"str", -1, 99}, {"int", 0, -9},
        {"none", -1, 99}, {"arr", -1, 99}, {"fail", -1, 99},
    };
    for (const auto &c : cases) {
        int32_t err = 99;
        EXPECT_EQ(c.rc, ubus_call_get_err_code("peer", c.method, "{}", &err)) << c.method;
        EXPECT_EQ(c.err, err) << c.method;
    }
    EXPECT_EQ(0, ubus_call_get_err_code("peer", "none", nullptr, nullptr));
    EXPECT_EQ(-1, ubus_call_get_err_code(nullptr, "none", nullptr, nullptr));
    // Any name exists once the bus answers: a missing object's status is positive.
    EXPECT_EQ(1, ubus_object_exists("no_such_object"));
    EXPECT_EQ(0, ubus_object_exists(nullptr));
}

TEST_F(BusCall, QueueRefusesThirtyThirdWhileWorkerBlocked)
{
    start(R"({"objects":{"q":{"methods":{"m":{"sequence":[
        {"wait_file":"go","wait_max_ms":20000},{"reply":{}}]}}}}})");
    ubus_req bad = {.object = "q", .method = "m", .message = nullptr, .timeout = 0};
    testing::internal::CaptureStdout();
    EXPECT_EQ(-1, ubus_add_call(&bad)); // no queue yet
    ASSERT_EQ(0, ubus_async_init());
    EXPECT_EQ(-1, ubus_async_init());
    EXPECT_EQ(-1, ubus_add_call(&bad));
    std::string log = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos, log.find("ubus add call invalid arg."));

    ubus_req req = {.object = "q", .method = "m", .message = R"({"i":0})", .timeout = 0};
    ASSERT_EQ(0, ubus_add_call(&req));
    ASSERT_EQ(1, bus.wait_calls("q", "m", 1)); // the worker holds entry 0 in the call
    for (int i = 1; i <= 32; i++) {
        std::string msg = "{\"i\":" + std::to_string(i) + "}";
        req.message = msg.c_str();
        ASSERT_EQ(0, ubus_add_call(&req)) << i;
    }
    testing::internal::CaptureStdout();
    req.message = R"({"i":33})";
    EXPECT_EQ(-1, ubus_add_call(&req));
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStdout().find("ubus queue full."));

    bus.touch("go");
    ASSERT_LE(2, bus.wait_calls("q", "m", 2)); // one entry taken: room again
    EXPECT_EQ(0, ubus_add_call(&req));
    EXPECT_EQ(34, bus.wait_calls("q", "m", 34));
    ubus_async_deinit();
    auto calls = bus.calls_to("q", "m");
    ASSERT_EQ(34u, calls.size());
    for (int i = 0; i < 34; i++)
        EXPECT_EQ("{\"i\":" + std::to_string(i) + "}", calls[i].message); // in queue order
}

TEST_F(BusCall, QueueCutsLongFieldsAndDropsUnsentOnDeinit)
{
    start(R"({"objects":{"q":{"methods":{"m":{"wait_file":"go2","wait_max_ms":20000}}}}})");
    ASSERT_EQ(0, ubus_async_init());
    std::string long_msg = "{\"s\":\"" + std::string(4000, 'x') + "\"}";
    ubus_req req = {.object = "q", .method = "m", .message = "{}", .timeout = 0};
    ASSERT_EQ(0, ubus_add_call(&req));
    ASSERT_EQ(1, bus.wait_calls("q", "m", 1));
    req.message = long_msg.c_str(); // cut to 3071 bytes: no longer JSON, never sent
    ASSERT_EQ(0, ubus_add_call(&req));
    req.message = "{}";
    ASSERT_EQ(0, ubus_add_call(&req));
    bus.touch("go2");
    ubus_async_deinit(); // the worker ends after its current call
    EXPECT_GE(2u, bus.calls_to("q", "m").size());
}

TEST_F(BusCall, FireAndForgetCallsGoThroughTheCommandLineTool)
{
    start(R"({"objects":{"cloud":{"default":{"reply":{"ok":1}}}}})");
    std::string bin = bus.install_cli();
    ASSERT_FALSE(bin.empty());
    std::string path = bin + ":" + (getenv("PATH") ? getenv("PATH") : "/usr/bin:/bin");
    setenv("PATH", path.c_str(), 1);

    size_t threads_before = thread_count();
    EXPECT_EQ(-1, ubus_call_by_shell(nullptr, "m", nullptr));
    EXPECT_EQ(-1, ubus_call_by_shell("o", nullptr, nullptr));
    EXPECT_EQ(-1, run_shell_async(nullptr));
    EXPECT_EQ(0, ubus_call_by_shell("cloud", "bind", R"({"a": "b c"})"));
    EXPECT_EQ(0, ubus_call_by_shell("cloud", "status", nullptr));
    ASSERT_EQ(2, bus.wait_calls("cloud", "", 2));
    std::vector<std::string> seen;
    for (const bus_call &c : bus.calls_to("cloud"))
        seen.push_back(c.method + " " + c.message);
    std::sort(seen.begin(), seen.end()); // the two threads race
    EXPECT_EQ((std::vector<std::string>{R"(bind {"a":"b c"})", "status {}"}), seen);
    // The detached threads end (and free their command copies) on their own.
    // ThreadSanitizer starts a background thread of its own meanwhile.
#if defined(__SANITIZE_THREAD__)
    threads_before += 1;
#endif
    for (int waited = 0; waited < 10000 && thread_count() > threads_before; waited += 10)
        bus_sleep_ms(10);
    EXPECT_GE(threads_before, thread_count());
}

