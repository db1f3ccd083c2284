// End-to-end harness: a temporary device root, the real dsd started on it,
// and the client side of the socket protocol.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "client/dsd_client.h"
#include "harness/exec_wrapper.h"

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
    // cross-built test runs.
    bool start(const std::vector<std::string> &args = {"-d"});
    // SIGTERM, then SIGKILL after a bounded wait. Exit status, or -1.
    int stop();
    bool running() const;

    std::string socket_path() const;
    std::string path(const std::string &rel) const; // root + rel
    std::string log() const;                         // dsd's stdout and stderr
    // Polls the log until it contains text n times (bounded); the count seen.
    int wait_log(const std::string &text, int n = 1, int timeout_ms = 10000) const;
    // Number of open descriptors of the daemon, or -1.
    int open_fds() const;

    // A request as a given client; the response text ("" on failure).
    std::string request(const std::string &json, const dsd_identity &who = dsd_identity(),
                        int timeout_ms = 30000) const;
    // Sends raw bytes, closes the write side, reads one response record.
    // The response text, or "" when none came within timeout_ms.
    std::string raw(const std::string &bytes, int timeout_ms = 10000) const;
};

// A TLV record as bytes (for building raw requests).
std::string tlv(uint32_t type, const std::string &value);
std::string tlv_header(uint32_t type, uint32_t len);
// The integer "error_code" of a response text, or a sentinel (1) when absent.
int error_code_of(const std::string &response);
