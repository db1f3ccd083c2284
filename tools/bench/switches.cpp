#include "switches.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <vector>

#include "client/dsd_client.h"

namespace {

std::string names_of_image(void)
{
    std::string names;
    static const char *const kinds[] = {"switch", "common", "day", "night", "image_list",
                                        "expose", "supplement_lamp", "clear_licence",
                                        "smart_white_lamp"};
    for (int ch = 1; ch <= 128; ++ch) {
        for (const char *k : kinds)
            names += (names.empty() ? "\"chn" : ",\"chn") + std::to_string(ch) + "_" + k + "\"";
    }
    return R"({"method":"get","image":{"name":[)" + names + "]}}";
}

struct row_def {
    const char *what;
    int per_turn; // requests per turn; each round takes TURNS turns of every row
    std::function<bool(const std::string &socket, int serial)> call;
};

enum { TURNS = 5 };

std::vector<row_def> row_defs(void)
{
    static const std::string pkg = names_of_image();
    return {
        {"warm get", 40, [](const std::string &s, int) {
             return bench_answered(s, R"({"method":"get","record_control":{"name":"chn3_record"}})");
         }},
        {"get whole 128-channel package", 6, [](const std::string &s, int) { return bench_answered(s, pkg); }},
        {"set one option + commit", 30, [](const std::string &s, int n) {
             return bench_answered(s, R"({"method":"set","record_control":{"chn3_record":{"bench":")" +
                                    std::to_string(n) + "\"}}}");
         }},
        {"set writing in 512-section package + light", 20, [](const std::string &s, int n) {
             return bench_answered(s, R"({"method":"set","motion_detection":{"chn3_motion_det":)"
                                R"({"digital_sensitivity":")" + std::to_string(1 + n % 100) + "\"}}}");
         }},
        {"the same with a service callback (switches)", 20, [](const std::string &s, int n) {
             return bench_answered(s, R"({"method":"set","motion_detection":{"chn3_motion_notif_list":)"
                                R"({"light_alarm_enabled":")" + std::string(n % 2 ? "on" : "off") + "\"}}}",
                             -10000);
         }},
    };
}

// One round on a daemon started with the switches as given: appends the
// times of every row's requests to samples[row].
bool one_round(const std::string &dsd, const std::string &root, bool on, int *serial,
               std::vector<double> samples[SWITCH_ROWS])
{
    if (!on) {
        setenv("DSD_STATS", "0", 1);
        setenv("DSD_EVENTS", "0", 1);
    }
    bench_daemon d;
    double startup = 0;
    bool ok = bench_daemon_start(dsd, root, &d, &startup);
    unsetenv("DSD_STATS");
    unsetenv("DSD_EVENTS");
    std::vector<row_def> rows = row_defs();
    // One untimed call of each fills the cache as a running daemon has it.
    for (size_t r = 0; ok && r < rows.size(); ++r)
        ok = rows[r].call(d.socket_path, ++*serial);
    for (int turn = 0; ok && turn < TURNS; ++turn) {
        for (size_t r = 0; ok && r < rows.size(); ++r)
            ok = bench_sample(rows[r].per_turn, [] {}, [&] { return rows[r].call(d.socket_path, ++*serial); },
                              &samples[r]);
    }
    bench_daemon_stop(&d);
    return ok;
}

} // namespace

bool bench_switches(const std::string &dsd, const std::string &root, int pairs, switch_figures *out)
{
    // The bench's own environment may carry the switches: each round sets its own.
    unsetenv("DSD_STATS");
    unsetenv("DSD_EVENTS");
    std::vector<double> all[2][SWITCH_ROWS], warm_up[SWITCH_ROWS];
    std::vector<double> ratios[SWITCH_ROWS];
    int serial = 1000000;
    // A first round, not counted, takes what a fresh root costs once.
    if (!one_round(dsd, root, true, &serial, warm_up))
        return false;
    for (int p = 0; p < pairs; ++p) {
        std::vector<double> round[2][SWITCH_ROWS];
        // The order inside a pair alternates, so a drift of the machine's
        // load falls on both sides alike.
        for (int k = 0; k < 2; ++k) {
            bool on = (p + k) % 2 == 1;
            if (!one_round(dsd, root, on, &serial, round[on]))
                return false;
        }
        for (int r = 0; r < SWITCH_ROWS; ++r) {
            ratios[r].push_back(bench_summary(round[1][r]).median_us / bench_summary(round[0][r]).median_us);
            for (int on = 0; on < 2; ++on)
                all[on][r].insert(all[on][r].end(), round[on][r].begin(), round[on][r].end());
        }
    }
    std::vector<row_def> defs = row_defs();
    out->pairs = pairs;
    for (int r = 0; r < SWITCH_ROWS; ++r) {
        std::sort(ratios[r].begin(), ratios[r].end());
        size_t n = ratios[r].size();
        out->rows[r] = switch_row{
            .what = defs[r].what,
            .on_us = bench_summary(all[1][r]).median_us,
            .off_us = bench_summary(all[0][r]).median_us,
            .ratio_median = n % 2 ? ratios[r][n / 2] : (ratios[r][n / 2 - 1] + ratios[r][n / 2]) / 2,
            .ratio_min = ratios[r].front(),
            .ratio_max = ratios[r].back(),
        };
    }
    return true;
}
