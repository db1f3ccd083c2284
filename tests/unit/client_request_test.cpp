// The client's whole exchange against a one-shot server that answers the way
// a slow or broken daemon might: the response split at any byte, larger than
// one read, followed by junk, cut short, of the wrong type or announcing more
// than the client accepts.
#include "harness/dsd_harness.h"

extern "C" {
#include <libubox/usock.h>
}

namespace {

std::string record(uint32_t type, uint32_t announced, const std::string &value)
{
    return tlv_header(type, announced) + value;
}

// Listens on a fresh socket path, takes one connection, reads the two
// request records, then writes `answer` cut at `cuts` with a pause between
// the pieces, and closes.
struct one_shot_server {
    scratch_dir dir{"dsd-client"};
    std::string path;
    int fd = -1;
    std::thread thread;
    std::string request; // the bytes the client sent

    one_shot_server(std::string answer, std::vector<size_t> cuts)
    {
        path = dir / "s.sock";
        fd = usock(USOCK_UNIX | USOCK_SERVER, path.c_str(), "0");
        EXPECT_GE(fd, 0);
        thread = std::thread([this, answer, cuts] { serve(answer, cuts); });
    }
    ~one_shot_server()
    {
        thread.join();
        close(fd);
    }
    void serve(const std::string &answer, std::vector<size_t> cuts)
    {
        int c = accept(fd, nullptr, nullptr);
        if (c < 0)
            return;
        uint32_t type = 0;
        std::string info, req;
        if (dsd_read_record(c, &type, &info, scaled_ms(5000)) && dsd_read_record(c, &type, &req, scaled_ms(5000)))
            request = req;
        cuts.push_back(answer.size());
        size_t at = 0;
        for (size_t cut : cuts) {
            if (cut > at && !dsd_send_record_bytes(c, answer.substr(at, cut - at)))
                break;
            at = cut;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        close(c);
    }
};

TEST(ClientRequest, ResponseSplitAnywhereAndLargerThanOneReadArrivesWhole)
{
    std::string value = "{\"error_code\": 0, \"big\": \"" + std::string(100000, 'x') + "\"}";
    std::string answer = record(3, static_cast<uint32_t>(value.size()), value);
    one_shot_server server(answer, {1, 7, 9, 20000, 20001, 70000});
    std::string error;
    std::string got = dsd_request(server.path, dsd_identity(), "{\"method\":\"get\"}", scaled_ms(5000), &error);
    EXPECT_EQ(got, value) << error;
}

TEST(ClientRequest, BytesAfterTheRecordAreIgnored)
{
    std::string answer = record(3, 17, "{\"error_code\": 0}") + "trailing junk";
    one_shot_server server(answer, {});
    EXPECT_EQ(dsd_request(server.path, dsd_identity(), "{}", scaled_ms(5000)), "{\"error_code\": 0}");
    EXPECT_EQ(server.request, "{}");
}

TEST(ClientRequest, ShortWrongOrOversizedAnswersFail)
{
    struct bad {
        std::string answer;
        const char *why;
    } cases[] = {
        {record(3, 40, "{\"error_code\": 0}"), "no response"},        // cut short
        {record(3, 0, "").substr(0, 5), "no response"},                // header cut
        {record(2, 17, "{\"error_code\": 0}"), "unexpected record type"},
        {record(3, (16u << 20) + 1, "{}"), "no response"},              // announces too much
    };
    for (const bad &c : cases) {
        one_shot_server server(c.answer, {});
        std::string error;
        EXPECT_EQ(dsd_request(server.path, dsd_identity(), "{}", scaled_ms(5000), &error), "");
        EXPECT_EQ(error, c.why);
    }
}

} // namespace
