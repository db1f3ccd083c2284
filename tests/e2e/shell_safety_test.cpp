// Shell injection: the usual payloads through every option the model knows
// and every keyword argument, against the real daemon. Any command that the
// payload smuggles in would create the canary file; none may.
#include "harness/dsd_harness.h"
#include "model/registry.h"
#include "modules/module_table.h"

namespace {

std::vector<std::string> payloads(const std::string &canary)
{
    const std::string touch = "touch " + canary;
    return {
        "'; " + touch + "; '",  "\"; " + touch + "; \"", "$(" + touch + ")",
        "`" + touch + "`",      "x; " + touch,            "x | " + touch,
        "x && " + touch,        "x\n" + touch + "\n",     "x' '$(" + touch + ")",
    };
}

// One section per option table: the options of channel 2 and channel 3 rows
// run the same code.
struct target {
    std::string module, section, option;
};

std::vector<target> option_targets(ds_model_root *root)
{
    std::vector<target> out;
    std::set<const ds_opt *> seen;
    for (uint32_t i = 0; i < root->count; ++i) {
        const ds_module *m = root->in_order[i];
        for (const ds_sec *s = m->sections; s && s->name; s++) {
            if (!s->options || !seen.insert(s->options).second)
                continue;
            for (const ds_opt *o = s->options; o->name; o++)
                out.push_back({m->name, s->name, o->name});
        }
    }
    return out;
}

struct action_target {
    std::string module, keyword;
};

std::vector<action_target> action_targets(ds_model_root *root)
{
    std::vector<action_target> out;
    for (uint32_t i = 0; i < root->count; ++i) {
        const ds_module *m = root->in_order[i];
        for (const ds_action *a = m->actions; a && a->keyword; a++)
            out.push_back({m->name, a->keyword});
    }
    return out;
}

TEST(ShellSafety, NoPayloadReachesAShell)
{
    dsd_harness d;
    ASSERT_TRUE(d.make_config(2));
    // The model as the daemon builds it, from the same root.
    setenv("DSD_ROOT", d.root.c_str(), 1);
    ds_model_root *root = model_init();
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(model_register(root), 0);
    ASSERT_TRUE(d.start({}));

    const std::string canary = d.path("/tmp/pwned");
    const auto bad = payloads(canary);
    // Every request is answered with an integer code (the daemon lived
    // through it); which code depends on the option, so it is not compared.
    size_t requests = 0;
    auto answered = [&](const std::string &req, const std::string &what) {
        requests++;
        if (error_code_or_none(d.request(req, dsd_identity(), 15000)) == kNoErrorCode)
            ADD_FAILURE() << what << ": no answer to " << req;
    };
    for (const target &t : option_targets(root)) {
        for (const std::string &p : bad) {
            answered("{\"method\": \"set\", \"" + t.module + "\": {\"" + t.section + "\": {\"" +
                         t.option + "\": " + json_quote(p) + "}}}",
                     t.module + "." + t.section + "." + t.option);
        }
    }
    for (const action_target &a : action_targets(root)) {
        for (const std::string &p : bad) {
            std::string v = json_quote(p);
            std::string arg = "{\"channel\": " + v + ", \"name\": " + v + ", \"url\": " + v +
                              ", \"path\": " + v + ", \"ip\": " + v + ", \"user\": " + v +
                              ", \"password\": " + v + ", \"content\": " + v + "}";
            std::string what = a.module + " " + a.keyword;
            answered("{\"method\": \"do\", \"" + a.module + "\": {\"" + a.keyword + "\": " + arg + "}}", what);
            answered("{\"method\": \"do\", \"" + a.module + "\": {\"" + a.keyword + "\": " + v + "}}", what);
        }
    }
    usleep(scaled_ms(300) * 1000); // detached shell commands run after the answer
    // The daemon that answered all that still serves: a plain change lands.
    EXPECT_EQ(d.code(R"({"method":"set","motion_detection":{"chn1_motion_det":{"digital_sensitivity":"55"}}})"), 0);
    EXPECT_EQ(d.uci_get("motion_detection", "chn1_motion_det", "digital_sensitivity"), "55");
    EXPECT_TRUE(d.running());
    EXPECT_NE(access(canary.c_str(), F_OK), 0) << "an injected command ran";
    RecordProperty("requests", static_cast<int>(requests));
    model_destory(root);
}

} // namespace
