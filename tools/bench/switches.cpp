#include "switches.h"

#include <cstdlib>
#include <vector>

#include "client/dsd_client.h"

namespace {

enum { ROUNDS = 10, GETS = 300, SETS = 200 };

bool ok_answer(const std::string &socket, const std::string &request)
{
    std::string res = dsd_request(socket, dsd_identity(), request, 10000);
    return res.find("\"error_code\": 0") != std::string::npos;
}

// One round on a daemon started with the switches as given: appends the
// times of its warm gets and sets.
bool one_round(const std::string &dsd, const std::string &root, bool on, int *serial,
               std::vector<double> *gets, std::vector<double> *sets)
{
    if (on) {
        unsetenv("DSD_STATS");
        unsetenv("DSD_EVENTS");
    } else {
        setenv("DSD_STATS", "0", 1);
        setenv("DSD_EVENTS", "0", 1);
    }
    bench_daemon d;
    double startup = 0;
    bool ok = bench_daemon_start(dsd, root, &d, &startup);
    unsetenv("DSD_STATS");
    unsetenv("DSD_EVENTS");
    if (!ok)
        return false;
    const std::string get = R"({"method":"get","record_control":{"name":"chn3_record"}})";
    auto noop = [] {};
    ok = ok_answer(d.socket_path, get) &&
         bench_sample(GETS, noop, [&] { return ok_answer(d.socket_path, get); }, gets) &&
         bench_sample(SETS, noop, [&] {
             return ok_answer(d.socket_path, R"({"method":"set","record_control":{"chn3_record":{"bench":")" +
                                                 std::to_string(++*serial) + "\"}}}");
         }, sets);
    bench_daemon_stop(&d);
    return ok;
}

} // namespace

bool bench_switches(const std::string &dsd, const std::string &root, switch_figures *out)
{
    std::vector<double> get[2], set[2], warm_up;
    int serial = 1000000;
    // A first round, not counted, takes what a fresh root costs once.
    if (!one_round(dsd, root, true, &serial, &warm_up, &warm_up))
        return false;
    for (int r = 0; r < ROUNDS; ++r) {
        // On and off take turns, so a drift of the machine's load falls on both.
        bool on = r % 2 == 1;
        if (!one_round(dsd, root, on, &serial, &get[on], &set[on]))
            return false;
    }
    out->get_on = bench_summary(get[1]);
    out->get_off = bench_summary(get[0]);
    out->set_on = bench_summary(set[1]);
    out->set_off = bench_summary(set[0]);
    return true;
}
