#include "core/wire.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <thread>

namespace {

struct Pair {
    int fd[2] = {-1, -1};
    Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fd), 0); }
    ~Pair()
    {
        for (int f : fd)
            if (f >= 0)
                close(f);
    }
};

// Reads one whole response record from fd: (type, value).
std::pair<uint32_t, std::string> read_record(int fd)
{
    uint32_t head[2];
    EXPECT_EQ(read(fd, head, sizeof(head)), 8);
    std::string value(ntohl(head[1]), '\0');
    size_t off = 0;
    while (off < value.size()) {
        ssize_t n = read(fd, value.data() + off, value.size() - off);
        if (n <= 0)
            break;
        off += static_cast<size_t>(n);
    }
    return {ntohl(head[0]), value};
}

TEST(Wire, ErrorResponseIsExactText)
{
    Pair p;
    ASSERT_EQ(make_error_response(p.fd[0], -40109), 0);
    auto [type, value] = read_record(p.fd[1]);
    EXPECT_EQ(type, 3u);
    EXPECT_EQ(value, "{\"error_code\": -40109}");
    EXPECT_EQ(make_error_response(-1, 0), -1);
}

TEST(Wire, LargeRecordArrivesWholeThroughShortWrites)
{
    Pair p;
    std::string big(300000, 'x');
    big.front() = '{';
    big.back() = '}';
    std::pair<uint32_t, std::string> got;
    std::thread reader([&] { got = read_record(p.fd[1]); });
    EXPECT_EQ(jres_tlv_write(p.fd[0], big.data(), static_cast<uint32_t>(big.size())), 0);
    reader.join();
    EXPECT_EQ(got.first, 3u);
    EXPECT_EQ(got.second, big);
    EXPECT_EQ(jres_tlv_write(p.fd[0], big.data(), 0), -1);
}

TEST(Wire, ReadReturnsShortReadsAndEndOfStream)
{
    Pair p;
    uint8_t buf[17];
    ASSERT_EQ(write(p.fd[1], "abc", 3), 3);
    EXPECT_EQ(sock_read(p.fd[0], buf, 16), 3);  // never loops to fill
    EXPECT_STREQ(reinterpret_cast<char *>(buf), "abc");
    close(p.fd[1]);
    p.fd[1] = -1;
    EXPECT_EQ(sock_read(p.fd[0], buf, 16), 0);
    EXPECT_EQ(sock_read(-1, buf, 16), -1);
    EXPECT_EQ(sock_read(p.fd[0], buf, 0), -1);
}

TEST(Wire, WriteToClosedPeerFails)
{
    Pair p;
    signal(SIGPIPE, SIG_IGN);
    close(p.fd[1]);
    p.fd[1] = -1;
    EXPECT_EQ(make_error_response(p.fd[0], -40101), -1);
}

}  // namespace
