// The context pool and the parse/response steps on a socket pair.
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "client/dsd_client.h"
#include "core/context.h"
#include "core/dispatch.h"
#include "core/wire.h"

namespace {

class ContextPool : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(context_init(), 0); }
    void TearDown() override { context_destroy(); }
};

TEST_F(ContextPool, SixContextsThenNone)
{
    EXPECT_EQ(context_free_count(), DS_CONTEXT_COUNT);
    ds_context *taken[DS_CONTEXT_COUNT];
    for (auto &c : taken) {
        c = context_alloc();
        ASSERT_NE(c, nullptr);
        EXPECT_EQ(c->buf_size, static_cast<uint32_t>(DS_BUF_SIZE));
        EXPECT_NE(c->uci_ctx, nullptr);
    }
    EXPECT_EQ(context_alloc(), nullptr);
    context_free(taken[3]);
    EXPECT_EQ(context_alloc(), taken[3]); // first free in array order
    for (auto *c : taken)
        context_free(c);
    EXPECT_EQ(context_free_count(), DS_CONTEXT_COUNT);
}

// The grown buffer given back on release is held by the record tests.
TEST_F(ContextPool, ReleaseClearsEverythingAndClosesTheConnection)
{
    int sv[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    ASSERT_TRUE(dsd_send_record(sv[1], 1, R"({"user": "u", "group": 1, "client": 3})"));
    ASSERT_TRUE(dsd_send_record(sv[1], 2, R"({"method": "set"})"));
    ds_context *ctx = context_alloc();
    ctx->fd = sv[0];
    ctx->error_code = -40101;
    ASSERT_EQ(ds_signal_parse(ctx), 0);
    EXPECT_STREQ(ctx->user, "u");
    context_set_mark(ctx, DS_MARK_ALARM_INPUT_BYTE, DS_MARK_ALARM_INPUT_BIT);
    EXPECT_TRUE(context_test_mark(ctx, DS_MARK_ALARM_INPUT_BYTE, DS_MARK_ALARM_INPUT_BIT));

    context_free(ctx); // closes sv[0]
    EXPECT_EQ(ctx->fd, -1);
    EXPECT_EQ(ctx->user, nullptr);
    EXPECT_EQ(ctx->req_obj, nullptr);
    EXPECT_FALSE(context_test_mark(ctx, DS_MARK_ALARM_INPUT_BYTE, DS_MARK_ALARM_INPUT_BIT));
    char c;
    EXPECT_EQ(read(sv[1], &c, 1), 0);
    close(sv[1]);
}

TEST_F(ContextPool, ReleaseWaitsWhileBusy)
{
    ds_context *ctx = context_alloc();
    context_set_busy(ctx, 1);
    auto t0 = std::chrono::steady_clock::now();
    std::thread worker([ctx] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        context_set_busy(ctx, 0);
    });
    context_free(ctx);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(150));
    worker.join();
    EXPECT_EQ(context_free_count(), DS_CONTEXT_COUNT);
}

std::string response_for(int client, const char *res_json, int code)
{
    int sv[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    ds_context *ctx = context_alloc();
    ctx->fd = sv[0];
    ctx->client = static_cast<uint8_t>(client);
    ctx->error_code = code;
    ctx->res_obj = res_json ? json_tokener_parse(res_json) : nullptr;
    ds_make_response(ctx);
    context_free(ctx);
    uint32_t type = 0;
    std::string out;
    EXPECT_TRUE(dsd_read_record(sv[1], &type, &out, 2000));
    EXPECT_EQ(type, 3u);
    close(sv[1]);
    return out;
}

TEST_F(ContextPool, ResponseFormAndUrlEncodingByClientKind)
{
    EXPECT_EQ(response_for(3, nullptr, -40106), R"({"error_code": -40106})");
    std::string enc = response_for(1, R"({"name": "a b/\u00e9"})", 0);
    EXPECT_NE(enc.find("a%20b%2F%C3%A9"), std::string::npos) << enc;
    EXPECT_NE(enc.find("\"error_code\": 0"), std::string::npos) << enc;
    EXPECT_NE(response_for(2, R"({"name": "a b"})", 0).find("a%20b"), std::string::npos);
    for (int client : {3, 8, 9})
        EXPECT_NE(response_for(client, R"({"name": "a b"})", 0).find("a b"), std::string::npos);
    // A response that is not an object cannot carry the code.
    EXPECT_EQ(response_for(3, "[1]", 0), R"({"error_code": -40101})");
}

} // namespace
