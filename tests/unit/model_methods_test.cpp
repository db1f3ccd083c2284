// get, set, add and delete over a fixture module on a scratch root: data
// read back, what reaches the file, the codes of each refusal.
#include "model/request.h"
#include "model/checkers.h"
#include "model/methods.h"
#include "model/registry.h"
#include "model_test_util.h"
#include "store/store.h"

namespace {

model_scratch_root scratch;

int srv_calls = 0;
int before_calls = 0;
int before_result = 0;
int hook_calls = 0;
int srv_cb(ds_context *) { ++srv_calls; return 0; }
int hook_cb(ds_context *) { ++hook_calls; return 0; }
int before_cb(ds_context *) { ++before_calls; return before_result; }
json_object *dyn_status(ds_context *, const ds_sec *) { return json_object_new_string("up"); }

const ds_int_range rate_range{1, 30};
const ds_len_range name_len{1, 8};
const ds_opt cam_opts[] = {
    {.name = "enabled", .checker = check_enum_type, .arg = ds_enum_on_off, .err_code = -73701},
    {.name = "rate", .checker = check_int_type, .arg = &rate_range, .err_code = 0},
    {.name = "title", .checker = check_string_type, .arg = &name_len, .err_code = 0},
    {.name = "list", .checker = check_any_type, .arg = nullptr, .err_code = 0},
    {.name = "note", .checker = nullptr, .arg = nullptr, .err_code = 0},
    {},
};
ds_sec fx_sections[] = {
    {.name = "chn1_cam", .data_kind = 0, .max_sec = 255, .options = cam_opts,
     .beforesavecb = before_cb, .srvcb = srv_cb, .dynamic = nullptr, .flags = DS_SEC_AFTER_COMMIT},
    {.name = "chn2_cam", .data_kind = 0, .max_sec = 255, .options = cam_opts,
     .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr, .flags = DS_SEC_AFTER_COMMIT},
    {.name = "status", .data_kind = 1, .max_sec = 0, .options = nullptr,
     .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = dyn_status},
    {.name = "broken", .data_kind = 1, .max_sec = 0, .options = nullptr,
     .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr},
    {.name = "ghost", .data_kind = 0, .max_sec = 0, .options = cam_opts,
     .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr},
    {},
};
const ds_sec fx_types[] = {
    {.name = "rule", .data_kind = 0, .max_sec = 3, .options = cam_opts,
     .beforesavecb = before_cb, .srvcb = srv_cb, .dynamic = nullptr},
    {.name = "zone", .data_kind = 0, .max_sec = 255, .options = nullptr,
     .beforesavecb = nullptr, .srvcb = nullptr, .dynamic = nullptr},
    {},
};
ds_module fixture = {.name = "fixture", .package = "fixture",
                     .sections = fx_sections, .sec_types = fx_types, .actions = nullptr, .ch = 0, .lock_actions = 0};
ds_module chfix = {.name = "chfix", .package = "chfix",
                   .sections = fx_sections, .sec_types = fx_types, .actions = nullptr, .ch = 1, .lock_actions = 0,
                   .after_commit = hook_cb};

const char *const base_pkg =
    "config cam 'chn1_cam'\n"
    "\toption enabled 'off'\n"
    "\toption rate '10'\n"
    "\tlist list 'a'\n"
    "\tlist list 'b'\n"
    "\n"
    "config cam 'chn2_cam'\n"
    "\toption enabled 'on'\n"
    "\n"
    "config rule 'rule_1'\n"
    "\toption enabled 'on'\n"
    "\n"
    "config rule 'rule_2'\n"
    "\toption enabled 'off'\n";

struct Methods : testing::Test {
    ds_model_root *root = nullptr;
    ds_context ctx{};

    void SetUp() override
    {
        root = model_init();
        ASSERT_EQ(model_add(root, &fixture), 0);
        ASSERT_EQ(model_add(root, &chfix), 0);
        scratch.write("fixture", base_pkg);
        scratch.write("chfix", base_pkg);
        srv_calls = before_calls = before_result = hook_calls = 0;
    }
    void TearDown() override
    {
        release_context(&ctx);
        model_destory(root);
    }
    int run(int method, const char *request) { return serve_request(&ctx, method, request); }
    // The response as a client parses it (sections served from the read
    // cache are pre-serialised text), printed compactly.
    std::string res() const
    {
        if (!ctx.res_obj)
            return "null";
        json_object *parsed = json_tokener_parse(json_object_to_json_string(ctx.res_obj));
        std::string out = json_object_to_json_string_ext(parsed, JSON_C_TO_STRING_PLAIN);
        json_object_put(parsed);
        return out;
    }
};

TEST_F(Methods, GetByNameTypeAndArray)
{
    ASSERT_EQ(run(DS_METHOD_GET, R"({"fixture":{"name":"chn2_cam"}})"), 0);
    EXPECT_EQ(res(), R"({"fixture":{"chn2_cam":{".name":"chn2_cam",".type":"cam","enabled":"on"}}})");
    EXPECT_EQ(ctx.error_code, 0);
    ASSERT_EQ(run(DS_METHOD_GET, R"({"fixture":{"table":["rule","zone"]}})"), 0);
    EXPECT_EQ(res(), R"({"fixture":{"rule":[{"rule_1":{".name":"rule_1",".type":"rule",)"
                     R"("enabled":"on"}},{"rule_2":{".name":"rule_2",".type":"rule",)"
                     R"("enabled":"off"}}],"zone":[]}})");
    ASSERT_EQ(run(DS_METHOD_GET, R"({"x":1,"fixture":{"name":["status"],"table":"zone"}})"), 0);
    EXPECT_EQ(res(), R"({"fixture":{"status":"up","zone":[]}})");
    // A named section outside the table resolves through its stored type.
    ASSERT_EQ(run(DS_METHOD_GET, R"({"fixture":{"name":"rule_2"}})"), 0);
    ASSERT_EQ(run(DS_METHOD_GET, R"({"a":1,"b":"x"})"), 0);
    EXPECT_EQ(res(), "{}");
}

TEST_F(Methods, GetRefusals)
{
    // Nothing read before a refusal inside the module is answered.
    static const struct { const char *request; int32_t code; } rows[] = {
        {.request = "{}", .code = -40209},
        {.request = R"({"fixture":{"names":"chn1_cam"}})", .code = -40210},
        {.request = R"({"fixture":{"name":["chn1_cam","nope"]}})", .code = -40106},
        {.request = R"({"fixture":{"name":["chn1_cam",3]}})", .code = -40210},
        {.request = R"({"fixture":{"name":7}})", .code = -40210},
        {.request = R"({"fixture":{"table":"nope"}})", .code = -40106},
        {.request = R"({"fixture":{"name":"ghost"}})", .code = -40101}, // not in uci
        {.request = R"({"fixture":{"name":"broken"}})", .code = -40101},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(run(DS_METHOD_GET, r.request), -1) << r.request;
        EXPECT_EQ(ctx.error_code, r.code) << r.request;
        EXPECT_EQ(res(), "null") << r.request;
    }
    // Unknown module: what was read before it stays in the response.
    EXPECT_EQ(run(DS_METHOD_GET, R"({"fixture":{"name":"status"},"nomod":{"name":"a"}})"), -1);
    EXPECT_EQ(ctx.error_code, -40106);
    EXPECT_EQ(res(), R"({"fixture":{"status":"up"},"nomod":{}})");
}

TEST_F(Methods, SetWritesOnlyChangesAndRunsCallbacks)
{
    ASSERT_EQ(run(DS_METHOD_SET,
                  R"({"fixture":{"chn1_cam":{"enabled":"on","rate":10,"note":"x"},)"
                  R"("chn2_cam":{"enabled":"on"}}})"),
              0);
    EXPECT_EQ(ctx.error_code, 0);
    EXPECT_EQ(stored("fixture", "chn1_cam", "enabled"), "on");
    EXPECT_EQ(stored("fixture", "chn1_cam", "note"), "<none>");  // no checker: dropped
    // The request now holds only the change; unchanged chn2_cam is gone.
    EXPECT_STREQ(json_object_to_json_string_ext(ctx.req_obj, JSON_C_TO_STRING_PLAIN),
                 R"({"fixture":{"chn1_cam":{"enabled":"on"}}})");
    EXPECT_EQ(before_calls, 1);
    EXPECT_EQ(srv_calls, 1);
    ASSERT_EQ(run(DS_METHOD_SET, R"({"fixture":{"chn1_cam":{"rate":25,"list":["x",1]}}})"), 0);
    EXPECT_EQ(stored("fixture", "chn1_cam", "rate"), "25");
    json_object *list = get_uci_option(ctx.uci_ctx, "fixture", "chn1_cam", "list");
    ASSERT_NE(list, nullptr);
    EXPECT_STREQ(json_object_to_json_string_ext(list, JSON_C_TO_STRING_PLAIN), R"(["x","1"])");
    json_object_put(list);
}

TEST_F(Methods, DroppedOnlyChangeStillSavesAndNotifies)
{
    ASSERT_EQ(run(DS_METHOD_SET, R"({"fixture":{"chn1_cam":{"note":"x"}}})"), 0);
    EXPECT_EQ(stored("fixture", "chn1_cam", "note"), "<none>");
    EXPECT_EQ(before_calls, 1);
    EXPECT_EQ(srv_calls, 1);
}

TEST_F(Methods, SetUnchangedWritesNothing)
{
    std::string before = scratch.read("fixture");
    ASSERT_EQ(run(DS_METHOD_SET, R"({"fixture":{"chn1_cam":{"enabled":"off","rate":"10",)"
                                 R"("list":["b","a","b"],"title":""}}})"),
              0);
    EXPECT_EQ(ctx.error_code, 0);
    EXPECT_EQ(srv_calls + before_calls, 0);
    EXPECT_EQ(scratch.read("fixture"), before);
    EXPECT_STREQ(json_object_to_json_string(ctx.req_obj), "{ }");
}

TEST_F(Methods, SetRefusals)
{
    std::string before = scratch.read("fixture");
    // Checker codes, the row's own code, and diff failures that keep the
    // request's initial code.
    static const struct { const char *request; int32_t code; } rows[] = {
        {.request = R"({"fixture":{"chn1_cam":{"enabled":"yes"}}})", .code = -73701},
        {.request = R"({"fixture":{"chn1_cam":{"rate":"31"}}})", .code = -70222},
        {.request = R"({"fixture":{"chn1_cam":{"title":"123456789"}}})", .code = -70233},
        {.request = R"({"fixture":{"ghost":{"enabled":"on"}}})", .code = -40101},
        {.request = R"({"fixture":{"chn1_cam":{"enabled":true}}})", .code = -40101},
        {.request = R"({"fixture":{"chn1_cam":{"list":[]}}})", .code = -40101},
        {.request = R"({"nomod":{"chn1_cam":{"enabled":"on"}}})", .code = -40101},
        {.request = "{}", .code = -40209},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(run(DS_METHOD_SET, r.request), -1) << r.request;
        EXPECT_EQ(ctx.error_code, r.code) << r.request;
        ctx.error_code = -40101;
    }
    before_result = -555;
    EXPECT_EQ(run(DS_METHOD_SET, R"({"fixture":{"chn1_cam":{"enabled":"on"}}})"), -1);
    EXPECT_EQ(ctx.error_code, -555);
    EXPECT_EQ(srv_calls, 0);
    EXPECT_EQ(scratch.read("fixture"), before);
    EXPECT_EQ(stored("fixture", "chn1_cam", "enabled"), "off");
}

TEST_F(Methods, AddChecksNameRoomAndOptions)
{
    ASSERT_EQ(run(DS_METHOD_ADD,
                  R"({"fixture":{"table":"rule","name":"rule_7","para":{"enabled":"on","x":"1"}}})"),
              0);
    EXPECT_EQ(stored("fixture", "rule_7", "enabled"), "on");
    EXPECT_EQ(stored("fixture", "rule_7", "x"), "<none>");
    EXPECT_EQ(before_calls, 1);
    EXPECT_EQ(srv_calls, 1);
    // Three rules now: the type is full; a taken name is refused before the count.
    static const struct { const char *request; int32_t code; } rows[] = {
        {.request = R"({"fixture":{"table":"rule","name":"rule_3","para":{}}})", .code = -40207},
        {.request = R"({"fixture":{"table":"rule","name":"rule_1","para":{}}})", .code = -40203},
        {.request = R"({"fixture":{"table":"zone","name":"zone_1x","para":{}}})", .code = -70204},
        {.request = R"({"fixture":{"table":"zone","name":"zone_","para":{}}})", .code = -70204},
        {.request = R"({"fixture":{"table":"zone","name":"rule_4","para":{}}})", .code = -70204},
        {.request = R"({"fixture":{"table":"zone","name":"zone_%d","para":{}}})", .code = -70204},
        {.request = R"({"fixture":{"table":"cam","name":"cam_1","para":{}}})", .code = -40106},
        {.request = R"({"fixture":{"table":"zone","name":"zone_1"}})", .code = -40210},
        {.request = R"({"fixture":{"table":"zone","name":1,"para":{}}})", .code = -40210},
        {.request = R"({"fixture":{"table":"zone","name":"zone_1","para":"x"}})", .code = -40210},
        {.request = R"({"nomod":{"table":"t","name":"t_1","para":{}}})", .code = -40101},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(run(DS_METHOD_ADD, r.request), -1) << r.request;
        EXPECT_EQ(ctx.error_code, r.code) << r.request;
    }
    EXPECT_EQ(run(DS_METHOD_ADD, R"({"method":"add"})"), 0); // no module: nothing to do
    EXPECT_EQ(run(DS_METHOD_ADD, R"({"fixture":{"table":"zone","name":"zone_2","para":{}}})"), 0);
    EXPECT_EQ(section_exist(ctx.uci_ctx, "fixture", "zone_2"), 1);
}

TEST_F(Methods, AfterCommitHookRunsOncePerRequest)
{
    // Two flagged sections changed: the hook runs once, after the commit.
    ASSERT_EQ(run(DS_METHOD_SET, R"({"chfix":{"chn1_cam":{"enabled":"on"},"chn2_cam":{"enabled":"off"}}})"), 0);
    EXPECT_EQ(hook_calls, 1);
    EXPECT_EQ(stored("chfix", "chn2_cam", "enabled"), "off");
    // Nothing changed, or a module without a hook: not due.
    ASSERT_EQ(run(DS_METHOD_SET, R"({"chfix":{"chn2_cam":{"enabled":"off"}}})"), 0);
    ASSERT_EQ(run(DS_METHOD_SET, R"({"fixture":{"chn2_cam":{"enabled":"off"}}})"), 0);
    EXPECT_EQ(hook_calls, 1);
}

TEST_F(Methods, UnsupportedMethodCode)
{
    EXPECT_EQ(run(DS_METHOD_FORWARD + 1, R"({"fixture":{"chn1_cam":{"enabled":"on"}}})"), -1);
    EXPECT_EQ(ctx.error_code, -40105);
}

} // namespace
