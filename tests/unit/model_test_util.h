// Scratch device root for the model's unit tests: DSD_ROOT must be set before
// the first path is resolved (it is read once per process), so the root is
// made by a static initialiser of the including test file.
#pragma once

#include <json-c/json.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "harness/dsd_harness.h"
#include "harness/scratch_dir.h"

struct model_scratch_root {
    scratch_dir dir{"dsd-model"};
    std::string root = dir.path;

    model_scratch_root()
    {
        for (const char *sub : {"/etc", "/etc/config", "/tmp", "/tmp/.uci"})
            mkdir((root + sub).c_str(), 0755);
        setenv("DSD_ROOT", root.c_str(), 1);
    }
    std::string conf(const std::string &pkg) const { return root + "/etc/config/" + pkg; }
    void write(const std::string &pkg, const std::string &text) const
    {
        std::ofstream(conf(pkg), std::ios::binary) << text;
        std::string rm = "rm -f '" + root + "/tmp/.uci/" + pkg + "'";
        if (system(rm.c_str()) != 0)
            abort();
    }
    std::string read(const std::string &pkg) const { return slurp(conf(pkg)); }
};

struct jso_del {
    void operator()(json_object *o) const { json_object_put(o); }
};
