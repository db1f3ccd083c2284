// More of the socket protocol against the real daemon: refused record
// lengths, trace names, start-up over a stale socket or failing, and the
// client CLI.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "harness/dsd_harness.h"

namespace {

// Reaches the get handler, which refuses the module whatever the device's
// configuration: proof that the parse succeeded.
const char kServed[] = R"({"method": "get", "no_such_module": {"name": "x"}})";
const int kServedCode = -40106;

std::string info_json(int group, int client, const std::string &user = "admin")
{
    return "{\"user\": \"" + user + "\", \"group\": " + std::to_string(group) +
           ", \"client\": " + std::to_string(client) + "}";
}

class CoreProtocol : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(d.start()) << d.log(); }
    dsd_harness d;
};

TEST_F(CoreProtocol, RefusedInfoLengthStillLetsTheRequestRun)
{
    // The refused record's value is not read: the request header follows at once.
    for (uint32_t len : {0u, 32769u, 0xFFFFFFFFu})
        EXPECT_EQ(error_code_of(d.raw(tlv_header(1, len) + tlv(2, kServed))), kServedCode) << len;
    // The largest info record is read whole.
    std::string big_user(32768 - info_json(1, 8, "").size(), 'u');
    std::string big_info = info_json(1, 8, big_user);
    ASSERT_EQ(big_info.size(), 32768u);
    EXPECT_EQ(error_code_of(d.raw(tlv(1, big_info) + tlv(2, kServed))), kServedCode);
    // One byte more is refused and, unread, taken for the next header.
    EXPECT_EQ(error_code_of(d.raw(tlv_header(1, 32769) + tlv(2, kServed))), kServedCode);
}

TEST_F(CoreProtocol, NegativeOrShortRequestLengths)
{
    const std::string info = tlv(1, info_json(1, 8));
    EXPECT_EQ(error_code_of(d.raw(info + tlv_header(2, 0xFFFFFFFFu))), -40101);
    EXPECT_EQ(error_code_of(d.raw(info + tlv_header(2, 0x80000000u))), -40101);
    EXPECT_EQ(error_code_of(d.raw(info + tlv_header(2, 0x7FFFFFFFu))), -40202);
    EXPECT_EQ(error_code_of(d.raw(info + tlv_header(2, 30) + "{\"method\": \"get\"")), -40101);
}

// Refusals are traced under the step that refused: a log reader finds the
// cause by the function name on the line, so the trace is what is checked.
TEST_F(CoreProtocol, TracesNameTheirSteps)
{
    EXPECT_EQ(error_code_of(d.raw(tlv(1, info_json(1, 8)) + tlv(2, R"({"method": "GET"})"))), -40209);
    EXPECT_EQ(error_code_of(d.raw(tlv(1, info_json(1, 8)) + tlv(1, info_json(1, 8)))), -40105);
    EXPECT_GE(d.wait_log("jreq_tlv_data_handle("), 1);
    EXPECT_GE(d.wait_log("Unsupport method type: GET."), 1);
    EXPECT_GE(d.wait_log("ds_signal_handle("), 1);
    EXPECT_GE(d.wait_log("): Signal method is illegal."), 1);
    std::string log = d.log();
    EXPECT_NE(log.find("ds_signal_handle("), std::string::npos);
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
    EXPECT_EQ(error_code_of(h.request(kServed)), kServedCode);
    EXPECT_GE(h.wait_log("SIGPIPE ignore."), 1);
    EXPECT_GE(h.wait_log("SIGCHLD capture."), 1);
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
