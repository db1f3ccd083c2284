// mkconfig <confdir> [channels]: writes the uci packages of a fresh device
// with the given channel count (1..128, default 128) into <confdir>, normally
// <root>/etc/config of a host root. The family writers go first; then the
// model is registered against the new root (its constructors read the
// channel count from it) and every package still missing gets one section
// per registered named section.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "families.h"
#include "generic_defaults.h"
#include "model/registry.h"
#include "modules/module_table.h"

// The root whose /etc/config is confdir. DSD_ROOT must name it before the
// first path is resolved, so the model reads the new basic_info. A confdir
// not ending in /etc/config gets a scratch root whose etc/config links to it.
static int point_root_at(const std::string &confdir, std::string *scratch)
{
    const std::string tail = "/etc/config";
    std::string dir = confdir;
    while (dir.size() > 1 && dir.back() == '/')
        dir.pop_back();
    if (dir.size() > tail.size() && dir.compare(dir.size() - tail.size(), tail.size(), tail) == 0)
        return setenv("DSD_ROOT", dir.substr(0, dir.size() - tail.size()).c_str(), 1);
    char tmpl[] = "/tmp/mkconfig-XXXXXX";
    if (!mkdtemp(tmpl))
        return -1;
    *scratch = tmpl;
    char *abs = realpath(dir.c_str(), nullptr);
    if (!abs)
        return -1;
    std::string etc = *scratch + "/etc";
    int rc = mkdir(etc.c_str(), 0755) == 0 && symlink(abs, (etc + "/config").c_str()) == 0 ? 0 : -1;
    free(abs);
    return rc == 0 ? setenv("DSD_ROOT", scratch->c_str(), 1) : -1;
}

static void remove_scratch(const std::string &scratch)
{
    if (scratch.empty())
        return;
    unlink((scratch + "/etc/config").c_str());
    rmdir((scratch + "/etc").c_str());
    rmdir(scratch.c_str());
}

static int parse_channels(int argc, char **argv)
{
    if (argc < 3)
        return DS_MAX_CHANNELS;
    char *end = nullptr;
    long n = strtol(argv[2], &end, 10);
    if (end == argv[2] || *end != '\0' || n < 1 || n > DS_MAX_CHANNELS)
        return -1;
    return static_cast<int>(n);
}

static int write_families(const char *confdir, int channels)
{
    std::string basic = "\nconfig basic_info 'basic_info'\n\toption chan_amount '" +
                        std::to_string(channels) + "'\n\n";
    if (mkconfig_write_package(confdir, "basic_info", basic) != 0)
        return -1;
    if (mkconfig_write_event(confdir, channels) != 0 || mkconfig_write_chm(confdir, channels) != 0 ||
        mkconfig_write_network(confdir, channels) != 0 ||
        mkconfig_write_system(confdir, channels) != 0 || mkconfig_write_video(confdir, channels) != 0)
        return -1;
    // The trace threshold is read from system.sys.debug_mode at start-up.
    if (!mkconfig_package_exists(confdir, "system"))
        return mkconfig_write_package(confdir, "system",
                                      "\nconfig system 'sys'\n\toption debug_mode '0'\n\n");
    return 0;
}

static int write_from_model(const char *confdir)
{
    ds_model_root *root = model_init();
    if (!root)
        return -1;
    int rc = model_register(root) == 0 ? mkconfig_write_generic(confdir, root) : -1;
    model_destory(root);
    return rc;
}

int main(int argc, char **argv)
{
    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: mkconfig <confdir> [channels]\n");
        return 2;
    }
    int channels = parse_channels(argc, argv);
    if (channels < 0) {
        fprintf(stderr, "mkconfig: channels must be 1..%d\n", DS_MAX_CHANNELS);
        return 2;
    }
    const char *confdir = argv[1];
    std::string cmd_dir = confdir;
    std::error_code ec;
    std::filesystem::create_directories(confdir, ec);
    if (ec) {
        fprintf(stderr, "mkconfig: cannot create %s: %s\n", confdir, ec.message().c_str());
        return 1;
    }
    std::string scratch;
    int rc = -1;
    if (point_root_at(cmd_dir, &scratch) == 0 && write_families(confdir, channels) == 0)
        rc = write_from_model(confdir);
    remove_scratch(scratch);
    if (rc != 0) {
        fprintf(stderr, "mkconfig: writing %s failed\n", confdir);
        return 1;
    }
    return 0;
}
