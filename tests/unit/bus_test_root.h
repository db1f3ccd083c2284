// Device root of the unit tests that talk to a host bus. dsd_path reads
// DSD_ROOT once per process, so every test of a file shares one root, made on
// first use (with the file the shared-memory key is made from) and removed at
// exit.
#pragma once

#include "harness/dsd_harness.h"
#include "platform/trace.h"

inline const std::string &test_root()
{
    static const std::string root = [] {
        char tmpl[] = "/tmp/dsd-busunit-XXXXXX";
        std::string r = mkdtemp(tmpl);
        setenv("DSD_ROOT", r.c_str(), 1);
        if (std::system(("mkdir -p " + r + "/usr/bin && touch " + r + "/usr/bin/dsd").c_str()) != 0)
            abort();
        set_trace_level(1);
        atexit([] { (void)!std::system(("rm -rf " + std::string(getenv("DSD_ROOT"))).c_str()); });
        return r;
    }();
    return root;
}
