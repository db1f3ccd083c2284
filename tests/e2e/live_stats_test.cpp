// The statistics keyword and the commands that look at a running daemon:
// counts move exactly with a known sequence of requests (a refused queue
// slot and a deadline cut included), `dsdc stats` prints them, and
// `dsdc get MODULE` reads a whole module of the sample root.
#include "harness/dsd_harness.h"

namespace {

// The integer at a path of member names; -1 when any step is missing or not
// an integer (counts are never negative).
int64_t int_at(json_object *o, std::initializer_list<const char *> path)
{
    for (const char *key : path) {
        if (!json_object_object_get_ex(o, key, &o))
            return -1;
    }
    return json_object_is_type(o, json_type_int) ? json_object_get_int64(o) : -1;
}

class LiveStats : public dsd_device {
protected:
    void SetUp() override
    {
        boot(2, "{}");
        // The harness's start-up probe (no method) is counted first: it is
        // counted just after its answer, so wait for the count itself.
        ASSERT_TRUE(wait_until([&] {
            dsd_json s = stats();
            return s && int_at(s.get(), {"requests", "by_method", "none"}) == 1;
        }, 5000)) << "the start-up probe was never counted";
    }
    dsd_json stats() const
    {
        dsd_json res(json_tokener_parse(d.request(R"({"method":"do","statistics":{"get_stats":{}}})").c_str()));
        json_object *s = nullptr;
        if (!res || !json_object_object_get_ex(res.get(), "statistics", &s))
            return nullptr;
        return dsd_json(json_object_get(s));
    }
    dsd_run dsdc(const std::string &words) const { return d.dsdc(words); }
};

TEST_F(LiveStats, CountsFollowAKnownSequenceExactly)
{
    dsd_json before = stats();
    ASSERT_TRUE(before);
    const struct {
        const char *request;
        int code;
    } sequence[] = {
        {R"({"method":"get","video":{"name":"chn1_main"}})", 0},
        {R"({"method":"get","video":{"name":"chn2_minor"}})", 0},
        {R"({"method":"get","no_such_module":{"name":"x"}})", -40106},
        {R"({"method":"set","video":{"chn1_main":{"main_bitrate":"2000"}}})", 0},
        {R"({"method":"set","video":{"chn1_main":{"main_bitrate":"9000"}}})", -71713},
    };
    for (const auto &step : sequence)
        ASSERT_EQ(d.code(step.request), step.code) << step.request;
    dsd_json after = stats();
    ASSERT_TRUE(after);
    auto delta = [&](std::initializer_list<const char *> path) {
        return int_at(after.get(), path) - std::max<int64_t>(0, int_at(before.get(), path));
    };
    EXPECT_EQ(delta({"requests", "total"}), 6); // the sequence and the first stats read
    EXPECT_EQ(delta({"requests", "by_method", "get"}), 3);
    EXPECT_EQ(delta({"requests", "by_method", "set"}), 2);
    EXPECT_EQ(delta({"requests", "by_method", "do"}), 1);
    EXPECT_EQ(int_at(after.get(), {"requests", "by_method", "none"}), 1);
    EXPECT_EQ(delta({"requests", "by_code", "0"}), 4);
    EXPECT_EQ(delta({"requests", "by_code", "-40106"}), 1);
    EXPECT_EQ(delta({"requests", "by_code", "-71713"}), 1);
    EXPECT_EQ(int_at(after.get(), {"latency_us", "set", "count"}), 2);
    EXPECT_GT(int_at(after.get(), {"latency_us", "set", "p99"}), 0);
    EXPECT_GE(int_at(after.get(), {"latency_us", "set", "p99"}), int_at(after.get(), {"latency_us", "set", "p50"}));
    EXPECT_GT(int_at(after.get(), {"resident_bytes"}), 0);
    EXPECT_GE(int_at(after.get(), {"uptime_s"}), 0);
}

TEST_F(LiveStats, RefusedQueueSlotAndDeadlineCutAreCounted)
{
    // Six silent clients hold the workers, ten fill the queue, one is refused.
    const int started = d.wait_log("##dsd_parse thread_id", 1, 0);
    const int answered = d.wait_log("##Time cost", 1, 0);
    std::vector<int> held;
    for (int i = 0; i < 6; i++)
        held.push_back(dsd_connect(d.socket_path()));
    ASSERT_EQ(d.wait_log("##dsd_parse thread_id", started + 6), started + 6) << d.log();
    for (int i = 0; i < 10; i++)
        held.push_back(dsd_connect(d.socket_path()));
    int extra = dsd_connect(d.socket_path());
    uint32_t type = 0;
    std::string response;
    ASSERT_TRUE(dsd_read_record(extra, &type, &response, 10000 * harness_slowdown()));
    EXPECT_EQ(error_code_of(response), -40109);
    close(extra);
    // Kept silent, every held connection is cut by its read deadline.
    ASSERT_GE(d.wait_log("##Time cost", answered + 16, 20000), answered + 16) << d.log();
    // The count above may include the set-up's last answer, traced just
    // after it went out: the held connections stay open until all sixteen
    // cuts are counted.
    dsd_json s;
    wait_until([&] { return (s = stats()) && int_at(s.get(), {"connections", "deadline_cut"}) >= 16; }, 20000);
    for (int fd : held)
        close(fd);
    ASSERT_TRUE(s);
    EXPECT_EQ(int_at(s.get(), {"connections", "queue_refused"}), 1);
    EXPECT_EQ(int_at(s.get(), {"connections", "deadline_cut"}), 16);
}

TEST_F(LiveStats, DsdcStatsPrintsTableOrJson)
{
    dsd_run table = dsdc("stats");
    EXPECT_EQ(table.status, 0);
    for (const char *row : {"uptime", "requests", "latency", "cache", "flush", "bus", "events"})
        EXPECT_NE(table.out.find(row), std::string::npos) << row << "\n" << table.out;
    dsd_run raw = dsdc("stats --json");
    ASSERT_EQ(raw.status, 0);
    dsd_json s(json_tokener_parse(raw.out.c_str()));
    ASSERT_TRUE(s) << raw.out;
    EXPECT_GE(int_at(s.get(), {"requests", "by_method", "do"}), 1);
    d.stop();
    EXPECT_EQ(dsdc("stats").status, 3);
}

TEST_F(LiveStats, GetModuleReadsEveryStoredSection)
{
    dsd_run r = dsdc("--compact get video");
    ASSERT_EQ(r.status, 0);
    dsd_answer res(r.out);
    json_object *video = res.at({"video"});
    ASSERT_TRUE(json_object_is_type(video, json_type_object)) << r.out;
    EXPECT_EQ(json_object_object_length(video), 8); // four streams rows of two channels
    // The sample root's streams are configured within their rows' limits.
    for (const char *sec : {"chn1_main", "chn2_main"}) {
        int bitrate = atoi(res.str({"video", sec, "main_bitrate"}).c_str());
        EXPECT_TRUE(bitrate >= 32 && bitrate <= 8192) << bitrate;
        int rate = atoi(res.str({"video", sec, "main_frame_rate"}).c_str());
        EXPECT_TRUE(rate >= 65537 && rate <= 65561) << rate;
        EXPECT_NE(res.str({"video", sec, "resolution"}), "") << sec;
    }
    EXPECT_EQ(dsdc("get no_such_module").status, 2);
}

} // namespace
