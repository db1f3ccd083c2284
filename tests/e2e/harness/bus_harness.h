// Bus side of the end-to-end harness: runs tools/hostbus on a device root
// with a scenario and reads back the calls it received. Built against the
// device's libubus (DSD_REAL_BUS), it first starts the device's ubusd on the
// root's socket and hostbus registers the peers there as bus objects.
//
// Typical use with dsd_harness:
//   dsd_harness d;  bus_harness bus(d.root);
//   ASSERT_TRUE(bus.start(R"({"objects":{"chm_slp":{"default":{"reply":{}}}}})"));
//   ASSERT_TRUE(d.start());  ... requests ...
//   auto calls = bus.calls();
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

struct bus_call {
    std::string object;
    std::string method;
    std::string message; // compact JSON text of the call's message
};

struct bus_harness {
    std::string root; // device root; the socket is <root>/var/run/ubus.sock
    pid_t pid = -1;        // hostbus
    pid_t ubusd_pid = -1;  // the device's ubusd (real bus only)

    // Uses an existing root (for example dsd_harness::root).
    explicit bus_harness(const std::string &root_dir);
    // Stops hostbus.
    ~bus_harness();
    bus_harness(const bus_harness &) = delete;
    bus_harness &operator=(const bus_harness &) = delete;

    // Writes the scenario (JSON text), starts hostbus (after ubusd on a real
    // bus) and waits (bounded) until the peers are on the bus. False when it
    // did not come up.
    bool start(const std::string &scenario_json = "{}");
    // Replaces the scenario of a running broker; it takes effect at the
    // next lookup or call, and sequences start again. On a real bus it
    // returns once hostbus has put the objects on or off the bus.
    void set_scenario(const std::string &scenario_json) const;
    // SIGTERM, SIGKILL after a bounded wait; hostbus's exit status or -1.
    // Stops ubusd too.
    int stop();

    std::string socket_path() const;
    std::string scenario_path() const;
    std::string log_path() const;
    // Every call logged so far, in arrival order.
    std::vector<bus_call> calls() const;
    // Calls to object (and method unless empty) so far.
    std::vector<bus_call> calls_to(const std::string &object, const std::string &method = "") const;
    // Polls until n calls to object/method were logged (bounded); the count seen.
    int wait_calls(const std::string &object, const std::string &method, int n = 1,
                   int timeout_ms = 10000) const;
    // Creates <root>/<rel> (releases a step held with "wait_file").
    void touch(const std::string &rel) const;
};
