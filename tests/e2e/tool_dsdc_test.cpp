// dsdc against a running dsd: each uci-like command sends the request its
// words describe, the exit status follows "error_code", and the checked
// options of motion detection refuse what the device documents.
#include <algorithm>

#include "harness/dsd_harness.h"

namespace {

class ToolDsdc : public dsd_device {
protected:
    void SetUp() override { boot(2, "{}"); }
    dsd_run dsdc(const std::string &words) const { return d.dsdc(words); }
    // The request dsd logged (its -d trace), as sent.
    bool received(const std::string &request) const
    {
        return d.wait_log("Request: " + request + ".", 1, 5000 * harness_slowdown()) >= 1;
    }
};

TEST_F(ToolDsdc, CommandsSendTheirRequestAndExitByErrorCode)
{
    struct {
        const char *words, *request;
        int status;
    } cases[] = {
        {"get system sys", R"({"method":"get","system":{"name":"sys"}})", 0},
        {"get system sys --type nosuch", R"({"method":"get","system":{"name":"sys","table":"nosuch"}})", 1},
        {"set system.sys.debug_mode=2 system.sys.dsd_trace=1",
         R"({"method":"set","system":{"sys":{"debug_mode":"2","dsd_trace":"1"}}})", 0},
        {"set system.sys.debug_mode=9", R"({"method":"set","system":{"sys":{"debug_mode":"9"}}})", 1},
        {"add user_management guest guest_7 username=bob authority=2",
         R"({"method":"add","user_management":{"table":"guest","name":"guest_7","para":{"username":"bob","authority":"2"}}})",
         0},
        {"delete user_management guest_7", R"({"method":"delete","user_management":{"name":"guest_7"}})", 0},
        {"delete user_management guest_7", R"({"method":"delete","user_management":{"name":"guest_7"}})", 1},
        {"do nosuch start '{\"a\":[1]}'", R"({"method":"do","nosuch":{"start":{"a":[1]}}})", 1},
        {"'{\"method\":\"get\",\"system\":{\"name\":[\"sys\"]}}'", R"({"method":"get","system":{"name":["sys"]}})", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.words);
        dsd_run r = dsdc(c.words);
        EXPECT_EQ(r.status, c.status) << r.out << r.err;
        EXPECT_TRUE(received(c.request));
        int code = dsd_answer(r.out).code();
        // Not a terminal: one line; a failure names its code and meaning.
        EXPECT_EQ(r.out.find('\n'), r.out.size() - 1) << r.out;
        if (c.status == 0)
            EXPECT_EQ(code, 0);
        else
            EXPECT_NE(r.err.find("error_code " + std::to_string(code) + ": "), std::string::npos) << r.err;
    }
    EXPECT_TRUE(has_string(dsd_answer(dsdc("get system sys").out), {"system", "sys", "debug_mode"}, "2"));
    std::string pretty = dsdc("--pretty get system sys").out;
    EXPECT_GT(std::count(pretty.begin(), pretty.end(), '\n'), 3) << pretty;
}

TEST_F(ToolDsdc, BadWordsAndNoDaemonHaveTheirOwnStatus)
{
    EXPECT_EQ(dsdc("frobnicate").status, 2);
    EXPECT_EQ(dsdc("set system.sys=1").status, 2);
    EXPECT_EQ(dsdc("do system").status, 2);
    EXPECT_EQ(dsdc("do system x 'not json'").status, 2);
    dsd_run help = dsdc("--help");
    EXPECT_EQ(help.status, 0);
    for (const char *word : {"get ", "set ", "add ", "delete ", "do ", "schema ", "codes ", "--type"})
        EXPECT_NE(help.out.find(word), std::string::npos) << word;
    EXPECT_EQ(dsdc("-s '" + d.root + "/none.sock' get system sys").status, 3);
    EXPECT_EQ(dsdc("get system sys").status, 0); // the same words to the running daemon
}

// A few checked options as the device documents them (the full rows are
// probed in model_test, the schema's text by docs_current): a set
// through dsdc is refused with the documented code or accepted.
struct option_row {
    const char *section, *option, *refused, *accepted;
    int code;
};
const option_row kRows[] = {
    {.section = "chn1_motion_det", .option = "enabled", .refused = "yes", .accepted = "off", .code = -70702},
    {.section = "chn1_motion_det", .option = "digital_sensitivity", .refused = "101", .accepted = "0", .code = -70703},
    {.section = "chn1_motion_notif_list", .option = "screenwarn_enabled", .refused = "1", .accepted = "on", .code = -70706},
    {.section = "chn1_motion_notif_list", .option = "sound_alarm_enabled", .refused = "", .accepted = "off", .code = -40209},
    {.section = nullptr, .option = nullptr, .refused = nullptr, .accepted = nullptr, .code = 0},
};

TEST_F(ToolDsdc, SetsCarryTheDocumentedCodes)
{
    for (const option_row *r = kRows; r->section; r++) {
        std::string key = std::string("motion_detection.") + r->section + "." + r->option;
        SCOPED_TRACE(key);
        EXPECT_EQ(error_code_of(dsdc("--compact set " + key + "='" + r->refused + "'").out), r->code);
        EXPECT_EQ(dsdc("set " + key + "=" + r->accepted).status, 0);
        EXPECT_EQ(d.uci_get("motion_detection", r->section, r->option), r->accepted);
    }
}

} // namespace
