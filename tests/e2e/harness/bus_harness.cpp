#include "harness/bus_harness.h"
#include "harness/dsd_harness.h"
#include "harness/exec_wrapper.h"

#include <gtest/gtest.h>
#include <json-c/json.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

namespace {

bool socket_accepts(const std::string &path)
{
    int fd = dsd_connect(path);
    if (fd >= 0)
        close(fd);
    return fd >= 0;
}

void write_file_atomically(const std::string &path, const std::string &text)
{
    std::string tmp = path + ".tmp";
    std::ofstream(tmp, std::ios::binary | std::ios::trunc) << text;
    rename(tmp.c_str(), path.c_str());
}

// Polls (bounded) until ready() holds; false when it did not or pid ended
// (left for end_process to reap).
template <typename F> bool wait_ready(pid_t pid, F ready)
{
    bool ok = false;
    wait_until([&] {
        siginfo_t info{};
        return (ok = ready()) ||
               (waitid(P_PID, (id_t)pid, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid);
    });
    return ok;
}

#ifdef DSD_REAL_BUS
constexpr bool kRealBus = true;
#else
constexpr bool kRealBus = false;
#endif

} // namespace

bus_harness::bus_harness(const std::string &root_dir) : root(root_dir) {}

bus_harness::~bus_harness()
{
    stop();
}

std::string bus_harness::socket_path() const { return root + "/var/run/ubus.sock"; }
std::string bus_harness::scenario_path() const { return root + "/var/run/hostbus.json"; }
std::string bus_harness::log_path() const { return root + "/var/log/hostbus/calls.jsonl"; }

void bus_harness::set_scenario(const std::string &scenario_json) const
{
    std::system(("mkdir -p " + root + "/var/run").c_str());
    // hostbus on a real bus applies a scenario from its own timer and then
    // writes the text it applied here.
    std::string applied = scenario_path() + ".applied";
    unlink(applied.c_str());
    write_file_atomically(scenario_path(), scenario_json);
    if (!kRealBus || pid <= 0)
        return;
    if (!wait_ready(pid, [&] { return slurp(applied) == scenario_json; }))
        ADD_FAILURE() << "hostbus did not apply the scenario " << scenario_json;
}

bool bus_harness::start(const std::string &scenario_json)
{
    if (pid > 0 || ubusd_pid > 0)
        stop();
    set_scenario(scenario_json);
    unlink(socket_path().c_str());
    std::string out = root + "/var/run/hostbus.out";
    if (kRealBus) {
#ifdef DSD_REAL_BUS
        ubusd_pid = spawn_program({DSD_UBUSD_BIN, "-s", socket_path()}, root + "/var/run/ubusd.out", SIGTERM);
#endif
        if (ubusd_pid < 0 || !wait_ready(ubusd_pid, [&] { return socket_accepts(socket_path()); })) {
            stop();
            return false;
        }
    }
    pid = spawn_program({std::string(DSD_TOOLS_DIR) + "/hostbus", "--root", root, "--scenario", scenario_path(),
                         "--log", log_path(), "--socket", socket_path()},
                        out, SIGTERM);
    if (pid < 0)
        return false;
    std::string applied = scenario_path() + ".applied";
    bool up = wait_ready(pid, [&] {
        return kRealBus ? slurp(applied) == scenario_json : socket_accepts(socket_path());
    });
    if (!up)
        stop();
    return up;
}

int bus_harness::stop()
{
    int status = end_process(&pid, 5000);
    end_process(&ubusd_pid, 5000);
    return status;
}

std::vector<bus_call> bus_harness::calls() const
{
    std::vector<bus_call> out;
    std::ifstream in(log_path());
    std::string line;
    while (std::getline(in, line)) {
        json_object *obj = json_tokener_parse(line.c_str());
        if (!obj)
            continue; // a line still being written
        json_object *o = nullptr, *m = nullptr, *msg = nullptr;
        json_object_object_get_ex(obj, "object", &o);
        json_object_object_get_ex(obj, "method", &m);
        json_object_object_get_ex(obj, "message", &msg);
        out.push_back({o ? json_object_get_string(o) : "", m ? json_object_get_string(m) : "",
                       msg ? json_object_to_json_string_ext(msg, JSON_C_TO_STRING_PLAIN) : "{}"});
        json_object_put(obj);
    }
    return out;
}

std::vector<bus_call> bus_harness::calls_to(const std::string &object,
                                            const std::string &method) const
{
    std::vector<bus_call> out;
    for (const bus_call &c : calls()) {
        if (c.object == object && (method.empty() || c.method == method))
            out.push_back(c);
    }
    return out;
}

int bus_harness::wait_calls(const std::string &object, const std::string &method, int n,
                            int timeout_ms) const
{
    int seen = 0;
    wait_until([&] { return (seen = (int)calls_to(object, method).size()) >= n; }, timeout_ms);
    return seen;
}

void bus_harness::touch(const std::string &rel) const
{
    std::ofstream(root + "/" + rel) << "";
}
