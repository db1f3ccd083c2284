// hostbus: the bus peers of a development host, answering from a scenario
// file and logging every call. With the host libubus it is the bus itself
// (broker.cpp); with the device's libubus it registers the peers on a real
// ubusd (ubusd_peers.cpp). See docs/hostbus.md.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "hostbus.h"

namespace {

struct hb_options {
    std::string root, scenario, log, socket;
};

} // namespace

static int parse_args(int argc, char **argv, hb_options *o)
{
    const char *env = getenv("DSD_ROOT");
    o->root = env ? env : "";
    for (int i = 1; i < argc; i++) {
        std::string a = argv[i];
        if (i + 1 >= argc) {
            fprintf(stderr, "usage: hostbus [--root DIR] [--scenario FILE] [--log FILE] [--socket PATH]\n");
            return -1;
        }
        std::string v = argv[++i];
        if (a == "--root")
            o->root = v;
        else if (a == "--scenario")
            o->scenario = v;
        else if (a == "--log")
            o->log = v;
        else if (a == "--socket")
            o->socket = v;
        else
            return -1;
    }
    if (o->socket.empty())
        o->socket = o->root + "/var/run/ubus.sock";
    if (o->log.empty())
        o->log = o->root + "/var/log/hostbus/calls.jsonl";
    return 0;
}

int main(int argc, char **argv)
{
    const char *base = strrchr(argv[0], '/');
    base = base ? base + 1 : argv[0];
    if (!strcmp(base, "ubus"))
        return hb_cli_main(argc - 1, argv + 1);
    if (argc > 1 && !strcmp(argv[1], "call"))
        return hb_cli_main(argc - 1, argv + 1);
    hb_options opt;
    if (parse_args(argc, argv, &opt) != 0)
        return 2;
    signal(SIGPIPE, SIG_IGN);
    hb_state st;
    st.root = opt.root;
    st.scenario_path = opt.scenario;
    st.log_path = opt.log;
    if (hb_load_scenario(&st) != 0)
        return 1;
    if (hb_mkdir_parent(opt.log) != 0 ||
        (st.log_fd = open(opt.log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)) < 0) {
        fprintf(stderr, "hostbus: cannot open call log %s\n", opt.log.c_str());
        return 1;
    }
    return hb_serve(&st, opt.socket);
}
