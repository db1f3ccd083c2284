// The do handler on a hand-made context: the keyword loop over a test-only
// module registry (forward is held by the end-to-end bus tests).
#include <gtest/gtest.h>
#include <json-c/json.h>

#include <string>
#include <vector>

#include "core/context.h"
#include "model/methods.h"
#include "model/registry.h"
#include "platform/trace.h"

#include "bus_test_root.h"

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
    std::vector<uint8_t> buf = std::vector<uint8_t>(DS_BUF_SIZE);

    void SetUp() override
    {
        test_root();
        root = model_init();
        ASSERT_NE(nullptr, root);
        ASSERT_EQ(0, model_add(root, &g_alpha));
        ASSERT_EQ(0, model_add(root, &g_beta));
        ASSERT_EQ(0, model_add(root, &g_bare));
        ctx.fd = 0;
        ctx.buf = buf.data();
        ctx.buf_size = DS_BUF_SIZE;
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
