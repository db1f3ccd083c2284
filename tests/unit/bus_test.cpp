// The bus side against a real hostbus broker: the client's replies, refused
// calls and time-outs; the operation log with its templates, cut and flush
// call; the do handler's keyword loop over a test-only module registry
// (forward is held by the end-to-end bus tests).
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstring>

#include "bus_test_root.h"
#include "model/request.h"
#include "harness/dsd_harness.h"
#include "model/methods.h"
#include "model/registry.h"
#include "platform/msglog.h"
#include "platform/shm.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"

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

namespace {

std::string records_path()
{
    return test_root() + "/var/log/msglog/records";
}

// Every record written so far (a line that is no JSON object is a failure).
std::vector<dsd_answer> read_records()
{
    std::vector<dsd_answer> out;
    std::ifstream in(records_path());
    for (std::string line; std::getline(in, line);)
        out.emplace_back(line);
    return out;
}

class Msglog : public ::testing::Test {
protected:
    void SetUp() override
    {
        test_root();
        unlink(records_path().c_str());
    }
};

} // namespace

TEST_F(Msglog, TypeLimitsDifferBetweenEntryPoints)
{
    EXPECT_EQ(-1, dsd_msglog(6, 1, "x"));
    EXPECT_EQ(-1, dsd_msglog(3, 29, "x"));
    EXPECT_EQ(-1, dsd_msglog_with_user(5, 1, "d", "admin"));
    EXPECT_EQ(-1, dsd_msglog_with_user(3, 34, "d", "admin"));
    EXPECT_TRUE(read_records().empty());

    EXPECT_EQ(0, dsd_msglog(5, 28, "edge"));
    EXPECT_EQ(0, dsd_msglog_with_user(3, 33, "format array", "admin"));
    EXPECT_EQ(0, dsd_msglog_with_user(4, 0, nullptr, "admin"));
    auto recs = read_records();
    ASSERT_EQ(3u, recs.size());
    EXPECT_EQ(5, recs[0].num({"main_type"}));
    EXPECT_EQ(28, recs[0].num({"sub_type"}));
    EXPECT_EQ("edge\r\n", recs[0].str({"text"}));
    EXPECT_EQ(3, recs[1].num({"main_type"}));
    EXPECT_EQ(33, recs[1].num({"sub_type"}));
}

TEST_F(Msglog, NullTextWritesTwoRecords)
{
    EXPECT_EQ(0, dsd_msglog(3, 1, nullptr));
    auto recs = read_records();
    ASSERT_EQ(2u, recs.size());
    EXPECT_EQ(nullptr, recs[0].at({"text"}));
    EXPECT_EQ("(null)\r\n", recs[1].str({"text"}));
}

TEST_F(Msglog, LongDetailIsCutTo1023Bytes)
{
    std::string detail(2000, 'd');
    EXPECT_EQ(0, dsd_msglog_with_user(3, 29, detail.c_str(), "admin"));
    std::string text(3000, 't');
    EXPECT_EQ(0, dsd_msglog(3, 1, text.c_str()));
    auto recs = read_records();
    ASSERT_EQ(2u, recs.size());
    EXPECT_EQ(1023u, recs[0].str({"text"}).size());
    EXPECT_EQ(0u, recs[0].str({"text"}).rfind("用户名: admin\r\nIP地址: ", 0));
    EXPECT_EQ(1023u, recs[1].str({"text"}).size());
}

TEST_F(Msglog, UserTemplatesCarryClientAddressFromSharedMemory)
{
    key_t key = ftok((test_root() + "/usr/bin/dsd").c_str(), 54);
    ASSERT_GT(key, 0);
    int id = shmget(key, 80, IPC_CREAT | 0600);
    ASSERT_GE(id, 0);
    char *block = static_cast<char *>(shmat(id, nullptr, 0));
    ASSERT_NE(reinterpret_cast<char *>(-1), block);
    memset(block, 0, 80);
    strcpy(block + 64, "192.168.1.23");
    dsd_shm_init();

    EXPECT_STREQ("192.168.1.23", get_client_ip());
    EXPECT_EQ(0, dsd_msglog_with_user(3, 29, "创建阵列", "admin"));
    EXPECT_EQ(0, dsd_msglog_with_user(2, 1, nullptr, "guest"));
    auto recs = read_records();
    ASSERT_EQ(2u, recs.size());
    EXPECT_EQ("用户名: admin\r\nIP地址: 192.168.1.23\r\n创建阵列\r\n", recs[0].str({"text"}));
    EXPECT_EQ("用户名: guest\r\nIP地址: 192.168.1.23\r\n", recs[1].str({"text"}));

    shmdt(block);
    shmctl(id, IPC_RMID, nullptr);
}

TEST_F(Msglog, SyncAsksLogServiceToFlush)
{
    EXPECT_EQ(-70101, dsd_sync(0));

    bus_harness bus(test_root());
    ASSERT_TRUE(bus.start("{}"));
    EXPECT_EQ(0, dsd_sync(5));
    auto calls = bus.calls_to("msglog_v2", "msglog_sync");
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ("{}", calls[0].message);

    bus.set_scenario(R"({"objects":{"msglog_v2":{"methods":{"msglog_sync":{"status":9}}}}})");
    EXPECT_EQ(-70102, dsd_sync(0));
    bus.set_scenario(R"({"objects":{"msglog_v2":{"absent":true}}})");
    EXPECT_EQ(-70102, dsd_sync(0));
    bus.stop();
    unlink(bus.log_path().c_str());
}

namespace {

// What the test handlers saw, in call order. Tests run one at a time.
std::vector<std::string> g_seen;

int act_record(ds_context *ctx, json_object *arg)
{
    g_seen.push_back(arg ? json_object_to_json_string_ext(arg, JSON_C_TO_STRING_PLAIN) : "null");
    json_object_object_add(ctx->res_obj, ("r" + std::to_string(g_seen.size())).c_str(),
                           json_object_new_int((int)g_seen.size()));
    return 0;
}

// Fails with the integer it is given.
int act_fail(ds_context *, json_object *arg)
{
    g_seen.push_back("fail");
    return json_object_get_int(arg);
}

const ds_action alpha_actions[] = {
    {.keyword = "first", .fn = act_fail},
    {.keyword = "record", .fn = act_record},
    {.keyword = "nofn", .fn = nullptr},
    {.keyword = "record", .fn = act_fail}, // shadowed: the first row wins
    {.keyword = nullptr, .fn = nullptr},
};
const ds_action beta_actions[] = {
    {.keyword = "only_beta", .fn = act_record},
    {.keyword = nullptr, .fn = nullptr},
};

ds_module g_alpha = {.name = "alpha", .package = nullptr,
                     .sections = nullptr, .sec_types = nullptr, .actions = alpha_actions, .ch = 0, .lock_actions = 0};
ds_module g_beta = {.name = "beta", .package = nullptr,
                    .sections = nullptr, .sec_types = nullptr, .actions = beta_actions, .ch = 0, .lock_actions = 0};
ds_module g_bare = {.name = "bare", .package = nullptr,
                    .sections = nullptr, .sec_types = nullptr, .actions = nullptr, .ch = 0, .lock_actions = 0};

class MethodDo : public ::testing::Test {
protected:
    ds_context ctx{};
    ds_model_root *root = nullptr;

    void SetUp() override
    {
        test_root();
        root = model_init();
        ASSERT_NE(nullptr, root);
        ASSERT_EQ(0, model_add(root, &g_alpha));
        ASSERT_EQ(0, model_add(root, &g_beta));
        ASSERT_EQ(0, model_add(root, &g_bare));
        ctx.error_code = -40101;
        g_seen.clear();
    }
    void TearDown() override
    {
        json_object_put(ctx.req_obj);
        json_object_put(ctx.res_obj);
        model_destory(root);
    }
    // The method's code lands in the context as the dispatcher stores it;
    // 0, or -1 for any error code.
    int run(int32_t (*method)(ds_context *), const char *request)
    {
        json_object_put(ctx.req_obj);
        json_object_put(ctx.res_obj);
        ctx.res_obj = nullptr;
        ctx.req_obj = request ? json_tokener_parse(request) : nullptr;
        ctx.error_code = method(&ctx);
        return ctx.error_code == 0 ? 0 : -1;
    }
    std::string response() const
    {
        return ctx.res_obj ? json_object_to_json_string_ext(ctx.res_obj, JSON_C_TO_STRING_PLAIN)
                           : "null";
    }
};

} // namespace

TEST_F(MethodDo, KeywordsRunInOrderWithArgumentsUnchanged)
{
    EXPECT_EQ(0, run(ds_do,
                     R"({"method":"do","alpha":{"record":"s","record":[1,{"a":null}]},
                         "beta":{"only_beta":{"x":1}},"skipped":5})"));
    EXPECT_EQ(0, ctx.error_code);
    // A repeated key keeps json-c's last value; arguments reach handlers as sent.
    EXPECT_EQ((std::vector<std::string>{R"([1,{"a":null}])", R"({"x":1})"}), g_seen);
    EXPECT_EQ(R"({"r1":1,"r2":2})", response());

    for (const char *arg : {"null", "0", "-1.5", "true", "\"\"", "[]", "{}"}) {
        g_seen.clear();
        std::string req = std::string(R"({"alpha":{"record":)") + arg + "}}";
        EXPECT_EQ(0, run(ds_do, req.c_str())) << arg;
        ASSERT_EQ(1u, g_seen.size()) << arg;
        EXPECT_EQ(arg, g_seen[0]);
    }
}

TEST_F(MethodDo, FirstFailureStopsTheRest)
{
    EXPECT_EQ(-1, run(ds_do, R"({"alpha":{"first":-71001,"record":1}})"));
    EXPECT_EQ(-71001, ctx.error_code);
    EXPECT_EQ(std::vector<std::string>{"fail"}, g_seen);
    EXPECT_EQ("{}", response()); // created before the first action

    g_seen.clear();
    EXPECT_EQ(-1, run(ds_do, R"({"alpha":{"record":1},"beta":{"nope":1},"alpha2":{}})"));
    EXPECT_EQ(-40106, ctx.error_code);
    EXPECT_EQ(1u, g_seen.size());
}

TEST_F(MethodDo, UnknownModulesKeywordsAndRowsWithoutHandler)
{
    EXPECT_EQ(-1, run(ds_do, R"({"gamma":{"record":1}})"));
    EXPECT_EQ(-40106, ctx.error_code);

    EXPECT_EQ(-1, run(ds_do, R"({"alpha":{"only_beta":1}})"));
    EXPECT_EQ(-40106, ctx.error_code);

    EXPECT_EQ(-1, run(ds_do, R"({"bare":{"x":1}})"));
    EXPECT_EQ(-40106, ctx.error_code);

    EXPECT_EQ(-1, run(ds_do, R"({"alpha":{"nofn":1}})"));
    EXPECT_EQ(-40101, ctx.error_code);
    EXPECT_TRUE(g_seen.empty());
}

TEST_F(MethodDo, BadContextsAndRequests)
{
    EXPECT_EQ(-1, run(ds_do, "{}"));
    EXPECT_EQ(-40209, ctx.error_code);

    // Members that are not objects are not modules: nothing runs.
    EXPECT_EQ(0, run(ds_do, R"({"method":"do","alpha":"first","beta":[1]})"));
    EXPECT_EQ(0, ctx.error_code);
    EXPECT_TRUE(g_seen.empty());
}
