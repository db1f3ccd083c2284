#include "harness/camsim_harness.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "harness/dsd_harness.h"

camsim_harness::camsim_harness()
{
    char tmpl[] = "/tmp/dsd-camsim-XXXXXX";
    dir = mkdtemp(tmpl);
}

camsim_harness::~camsim_harness()
{
    stop();
    std::string cmd = "rm -rf " + dir;
    if (system(cmd.c_str()) != 0) {
    }
}

bool camsim_harness::start(const std::vector<std::string> &flags)
{
    std::vector<std::string> args = {std::string(DSD_TOOLS_DIR) + "/camsim"};
    for (const char *a : {"--port-file", "--store", "--log"})
        args.push_back(a), args.push_back(dir + (std::string(a) == "--port-file" ? "/port" : a == std::string("--store") ? "/image" : "/requests"));
    args.insert(args.end(), flags.begin(), flags.end());
    pid = spawn_program(args, dir + "/camsim.out", SIGKILL);
    return pid > 0 && wait_until([&] { return bool(std::ifstream(dir + "/port") >> port); });
}

void camsim_harness::stop()
{
    end_process(&pid, 0);
}

std::string camsim_harness::stored() const
{
    return slurp(dir + "/image");
}

std::vector<std::string> camsim_harness::requests() const
{
    std::vector<std::string> out;
    std::ifstream in(dir + "/requests");
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}
