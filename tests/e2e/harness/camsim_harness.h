// Runs tools/camsim (a camera's web API on 127.0.0.1) for a test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

struct camsim_harness {
    std::string dir;  // scratch directory: port file, stored upload, request log
    std::string port; // as text, once started
    pid_t pid = -1;

    camsim_harness();
    ~camsim_harness();
    camsim_harness(const camsim_harness &) = delete;
    camsim_harness &operator=(const camsim_harness &) = delete;

    // Starts with extra flags (faults); waits (bounded) for the port.
    bool start(const std::vector<std::string> &flags = {});
    void stop();
    std::string stored() const;                // the raw body of the last image upload
    std::vector<std::string> requests() const; // "METHOD PATH" lines in order
};
