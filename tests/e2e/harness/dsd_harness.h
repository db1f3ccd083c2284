// End-to-end harness: a temporary device root, the real dsd started on it,
// and the client side of the socket protocol.
#pragma once

// What nearly every test uses comes with this header, so test files name
// only what is particular to them.
#include <json-c/json.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <uci.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "client/dsd_client.h"
#include "harness/bus_harness.h"
#include "harness/exec_wrapper.h"
#include "harness/scratch_dir.h"
#include "harness/tlv.h"

// A file's whole content, "" when it cannot be read.
std::string slurp(const std::string &path);

// Starts argv (through the exec wrapper) with env set and its output
// appended to out; death_signal reaches it when the test process ends.
// The pid, or -1.
pid_t spawn_program(const std::vector<std::string> &argv, const std::string &out, int death_signal,
                    const std::vector<std::pair<std::string, std::string>> &env = {});
// SIGTERM, SIGKILL after wait_ms (scaled by the harness factor), reaped: the wait status, or -1 when *pid
// names no process. *pid is -1 afterwards.
int end_process(pid_t *pid, int wait_ms);

// The integer "error_code" of a response text. An empty or unparsable
// answer, or one without an integer "error_code", records a gtest failure
// quoting the text and returns kNoErrorCode.
int error_code_of(const std::string &response);

struct dsd_harness {
    std::string root; // temporary directory standing in for "/"
    pid_t pid = -1;

    // Makes the root with etc/config, tmp, usr/bin/dsd (ftok's file), var/run,
    // and bin/ with logging stand-ins for the commands that would change the
    // machine (reboot, mkfs, ip, ...); dsd runs with bin/ first in PATH and
    // the stand-ins append their command lines to <root>/commands.log.
    dsd_harness();
    // Stops dsd (if running), removes its shared memory and the root.
    ~dsd_harness();
    dsd_harness(const dsd_harness &) = delete;
    dsd_harness &operator=(const dsd_harness &) = delete;

    // Writes <root>/etc/config/<name>.
    void write_package(const std::string &name, const std::string &text) const;
    // Runs the mkconfig tool for a device with that many channels; false when
    // the tool is missing or fails.
    bool make_config(int channels) const;
    // Starts dsd with DSD_ROOT=root and the arguments; waits (bounded) until
    // the socket accepts. Honours DSD_EXEC_WRAPPER (e.g. qemu-arm) for
    // cross-built test runs, and DSD_TEST_DAEMON naming another program to
    // start in dsd's place (a stand-in, to check that the suite fails).
    bool start(const std::vector<std::string> &args = {"-d"});
    // SIGTERM, then SIGKILL after a bounded wait. Exit status, or -1.
    int stop();
    // Sends sig (SIGKILL by default) at once and reaps the daemon; the wait
    // status, or -1 when it was not running.
    int kill_now(int sig = SIGKILL);
    bool running() const { return pid > 0 && kill(pid, 0) == 0; }

    std::string socket_path() const { return root + "/tmp/dsd_server.sock"; }
    std::string path(const std::string &rel) const { return root + rel; }
    std::string log() const { return slurp(root + "/dsd.log"); } // dsd's stdout and stderr
    // Polls the log until it contains text n times (bounded); the count seen.
    int wait_log(const std::string &text, int n = 1, int timeout_ms = 10000) const;
    // An option's value as the files under the root hold it (committed text
    // and change log, read by the test's own libuci), or "" when absent.
    // With opt empty: the section's type, "" when there is no such section.
    // committed: the text in /etc/config alone, what survives a reboot.
    std::string uci_get(const std::string &pkg, const std::string &sec, const std::string &opt,
                        bool committed = false) const;
    // Number of open descriptors of the daemon, or -1.
    int open_fds() const;

    // The codes of the backup keyword writing to url and of the restore
    // keyword reading from url (a missing code is a recorded failure).
    int backup_to(const std::string &url) const
    {
        return code(R"({"method":"do","system":{"download_conf_gui":{"url":")" + url + "\"}}}");
    }
    int restore_from(const std::string &url) const
    {
        return code(R"({"method":"do","system":{"upload_conf_gui":{"url":")" + url + "\"}}}");
    }
    // A backup file as a device named `device` would make it from `bundle`
    // (the text of its package records), written to <root>/tmp/<name>; its path.
    std::string forge_backup(const std::string &bundle, const std::string &name,
                             const std::string &device = "NVR") const;
    // Runs the dsdc tool on this root with the words (shell-quoted by the
    // caller): its exit status (-1 when it did not exit), stdout and stderr.
    struct dsd_run dsdc(const std::string &words) const;

    // A request as a given client; the response text ("" on failure).
    std::string request(const std::string &json, const dsd_identity &who = dsd_identity(),
                        int timeout_ms = 30000) const
    {
        return dsd_request(socket_path(), who, json, timeout_ms * harness_slowdown());
    }
    // The integer "error_code" of a request's answer (see error_code_of).
    int code(const std::string &json) const { return error_code_of(request(json)); }
    // A request whose answer the test needs: parsed, with failures recorded
    // when it is missing or not a JSON object (see struct dsd_answer).
    struct dsd_answer ask(const std::string &json, const dsd_identity &who = dsd_identity(),
                          int timeout_ms = 30000) const;
    // Sends raw bytes, closes the write side, reads one response record.
    // The response text, or "" when none came within timeout_ms.
    std::string raw(const std::string &bytes, int timeout_ms = 10000) const;
};

struct dsd_run {
    int status = -1;
    std::string out, err;
};


// A JSON string literal of any text (quotes, control characters and NUL escaped).
std::string json_quote(const std::string &text);

// Stand-ins for what the network appliers run (sleep, ubus, track-reload,
// <root>/etc/init.d/network, upnpc_stop): each appends its command line to
// <root>/calls.log. They are in <root>/bin, first in dsd's PATH.
void write_network_stand_ins(const std::string &root);
// The lines of <root>/calls.log but the pauses ("sleep"), as a set: their
// order is the script's business, not the effect.
std::multiset<std::string> network_calls(const std::string &root);

// Every entry of a directory (not recursive): its mode, and the bytes of
// regular files.
using dsd_snapshot = std::map<std::string, std::pair<std::string, mode_t>>;
dsd_snapshot snapshot_dir(const std::string &dir);
// The names whose entries differ between two snapshots ("" when none).
std::string snapshot_changes(const dsd_snapshot &a, const dsd_snapshot &b);

// Owns a parsed JSON value.
struct dsd_json_put {
    void operator()(json_object *o) const { json_object_put(o); }
};
using dsd_json = std::unique_ptr<json_object, dsd_json_put>;

// What error_code_of answers when there is no integer "error_code": a value
// no daemon answer carries, so no EXPECT_EQ/EXPECT_NE on a real code passes
// by accident (the failure is recorded as well).
constexpr int kNoErrorCode = INT_MIN;

// A parsed answer (or any JSON object text, e.g. a logged bus message). obj
// is null when nothing came or the text is not a JSON object; the
// constructor records a gtest failure then.
struct dsd_answer {
    std::string text;
    dsd_json obj;

    explicit dsd_answer(std::string response);
    // The integer "error_code"; kNoErrorCode (and a recorded failure) if absent.
    int code() const { return error_code_of(text); }
    // The member at a path of keys ("#n" indexes an array), or null when any
    // step is missing.
    json_object *at(std::initializer_list<const char *> path) const;
    // The member at a path when it has the type; null and a recorded failure
    // otherwise.
    json_object *typed(std::initializer_list<const char *> path, json_type type) const;
    // The integer at a path (kNoErrorCode when missing), the length of the
    // array at a path (-1), the string at a path (""); a missing member or
    // one of another type is a recorded failure.
    int num(std::initializer_list<const char *> path) const
    {
        json_object *v = typed(path, json_type_int);
        return v ? json_object_get_int(v) : kNoErrorCode;
    }
    int len(std::initializer_list<const char *> path) const
    {
        json_object *v = typed(path, json_type_array);
        return v ? static_cast<int>(json_object_array_length(v)) : -1;
    }
    std::string str(std::initializer_list<const char *> path) const
    {
        json_object *v = typed(path, json_type_string);
        return v ? json_object_get_string(v) : "";
    }
};

// True when path leads to a string member equal to want (gtest message otherwise).
::testing::AssertionResult has_string(const dsd_answer &a, std::initializer_list<const char *> path,
                                      const std::string &want);

// The same without recording a failure, for answers that may legitimately
// be missing (a daemon killed under the request): kNoErrorCode when absent.
int error_code_or_none(const std::string &response);

// Polls cond every 10 ms until it holds or timeout_ms (scaled by the harness
// factor) passed; whether it held.
template <typename F> bool wait_until(F cond, int timeout_ms = 10000)
{
    for (int waited = 0; waited <= scaled_ms(timeout_ms); waited += 10) {
        if (cond())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// How many times text occurs in a haystack.
int count_of(const std::string &haystack, const std::string &text);

// The usual test device: `channels` channels written by mkconfig, then the
// packages given (name, text) over them, hostbus running `scenario` (none
// when null), dsd started with `args`.
struct dsd_device : ::testing::Test {
    dsd_harness d;
    bus_harness bus{d.root};

    void boot(int channels, const char *scenario = nullptr,
              std::initializer_list<std::pair<const char *, std::string>> packages = {},
              const std::vector<std::string> &args = {"-d"})
    {
        ASSERT_TRUE(d.make_config(channels));
        for (const auto &[name, text] : packages)
            d.write_package(name, text);
        if (scenario) {
            ASSERT_TRUE(bus.start(scenario));
        }
        ASSERT_TRUE(d.start(args)) << d.log();
    }
};
