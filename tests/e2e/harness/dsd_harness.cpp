#include "harness/dsd_harness.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <json-c/json.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

bool run_quiet(const std::string &cmd)
{
    return system(cmd.c_str()) == 0;
}

void sleep_ms(int ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

// Commands a handler could run that must never touch the test machine: each
// is replaced by a stand-in that only appends its command line to
// <root>/commands.log. "date" passes through unless asked to set the clock.
const char *const kStandIns[] = {
    "reboot", "poweroff", "halt", "shutdown", "init", "telinit", "sysupgrade", "mtd",
    "mkfs", "mkfs.ext4", "mkfs.vfat", "fdisk", "parted", "mdadm", "killall", "pkill",
    "ifconfig", "ip", "udhcpc", "route", "iptables", "mount", "umount", "swapoff",
    "hdparm", "smartctl", "ntpd", "hwclock", "wifi", nullptr,
};

void write_stand_ins(const std::string &root)
{
    std::string bin = root + "/bin";
    run_quiet("mkdir -p " + bin);
    for (const char *const *name = kStandIns; *name; name++) {
        std::string path = bin + "/" + *name;
        std::ofstream(path) << "#!/bin/sh\necho \"" << *name << " $*\" >> '" << root
                            << "/commands.log'\nexit 0\n";
        chmod(path.c_str(), 0755);
    }
    std::string date = bin + "/date";
    std::ofstream(date) << "#!/bin/sh\ncase \"$*\" in *-s*|*--set*) echo \"date $*\" >> '" << root
                        << "/commands.log'; exit 0;; esac\nexec /bin/date \"$@\"\n";
    chmod(date.c_str(), 0755);
}

} // namespace

dsd_harness::dsd_harness()
{
    char tmpl[] = "/tmp/dsd-e2e-XXXXXX";
    root = mkdtemp(tmpl);
    run_quiet("mkdir -p " + root + "/etc/config " + root + "/tmp/.uci " + root + "/usr/bin " + root +
              "/var/run " + root + "/var/log");
    std::ofstream(root + "/usr/bin/dsd") << "";
    write_stand_ins(root);
    write_package("system", "\nconfig system 'sys'\n\toption debug_mode '0'\n");
}

dsd_harness::~dsd_harness()
{
    stop();
    key_t key = ftok((root + "/usr/bin/dsd").c_str(), 54);
    int id = key > 0 ? shmget(key, 0, 0) : -1;
    if (id >= 0)
        shmctl(id, IPC_RMID, nullptr);
    if (!getenv("DSD_KEEP_ROOT"))
        run_quiet("rm -rf " + root);
}

void dsd_harness::write_package(const std::string &name, const std::string &text) const
{
    std::ofstream(root + "/etc/config/" + name, std::ios::binary) << text;
}

bool dsd_harness::make_config(int channels) const
{
    std::string tool = std::string(DSD_TOOLS_DIR) + "/mkconfig";
    if (access(tool.c_str(), X_OK) != 0)
        return false;
    return run_quiet(tool_command("mkconfig") + " " + root + "/etc/config " +
                     std::to_string(channels) + " >/dev/null");
}

std::string dsd_harness::path(const std::string &rel) const
{
    return root + rel;
}

std::string dsd_harness::socket_path() const
{
    return root + "/tmp/dsd_server.sock";
}

bool dsd_harness::running() const
{
    return pid > 0 && kill(pid, 0) == 0;
}

bool dsd_harness::start(const std::vector<std::string> &args)
{
    std::vector<std::string> argv = exec_wrapper_words();
    argv.push_back(DSD_BIN);
    argv.insert(argv.end(), args.begin(), args.end());
    std::string log_path = root + "/dsd.log";
    pid = fork();
    if (pid < 0)
        return false;
    if (pid == 0) {
        setenv("DSD_ROOT", root.c_str(), 1);
        const char *path = getenv("PATH");
        setenv("PATH", (root + "/bin:" + (path ? path : "/usr/bin:/bin")).c_str(), 1);
        int fd = open(log_path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        dup2(fd, 1);
        dup2(fd, 2);
        std::vector<char *> cargv;
        for (auto &a : argv)
            cargv.push_back(a.data());
        cargv.push_back(nullptr);
        execvp(cargv[0], cargv.data());
        _exit(127);
    }
    for (int waited = 0; waited < 20000 * harness_slowdown(); waited += 10) {
        int fd = dsd_connect(socket_path());
        if (fd >= 0) {
            close(fd); // an empty connection: the daemon answers it -40101 and moves on
            return true;
        }
        // A child that died (a failed exec too) is a zombie kill() still sees.
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid) {
            pid = -1;
            return false;
        }
        sleep_ms(10);
    }
    return false;
}

int dsd_harness::stop()
{
    if (pid <= 0)
        return -1;
    kill(pid, SIGTERM);
    int status = -1;
    for (int waited = 0; waited < 5000; waited += 10) {
        if (waitpid(pid, &status, WNOHANG) == pid) {
            pid = -1;
            return status;
        }
        sleep_ms(10);
    }
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    pid = -1;
    return status;
}

std::string dsd_harness::log() const
{
    std::ifstream in(root + "/dsd.log", std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

int dsd_harness::wait_log(const std::string &text, int n, int timeout_ms) const
{
    int seen = 0;
    for (int waited = 0; waited <= timeout_ms * harness_slowdown(); waited += 10) {
        std::string l = log();
        seen = 0;
        for (size_t at = l.find(text); at != std::string::npos; at = l.find(text, at + 1))
            seen++;
        if (seen >= n)
            return seen;
        sleep_ms(10);
    }
    return seen;
}

int dsd_harness::open_fds() const
{
    std::string dir = "/proc/" + std::to_string(pid) + "/fd";
    DIR *d = opendir(dir.c_str());
    if (!d)
        return -1;
    int n = 0;
    while (readdir(d))
        n++;
    closedir(d);
    return n - 2;
}

std::string dsd_harness::request(const std::string &json, const dsd_identity &who, int timeout_ms) const
{
    return dsd_request(socket_path(), who, json, timeout_ms * harness_slowdown());
}

std::string dsd_harness::raw(const std::string &bytes, int timeout_ms) const
{
    int fd = dsd_connect(socket_path());
    if (fd < 0)
        return "";
    // The daemon may answer and close before reading everything (a refused
    // length): a failed send still leaves its response to read.
    if (!bytes.empty())
        dsd_send_record_bytes(fd, bytes);
    shutdown(fd, SHUT_WR);
    uint32_t type = 0;
    std::string response;
    bool ok = dsd_read_record(fd, &type, &response, timeout_ms * harness_slowdown()) && type == 3;
    close(fd);
    return ok ? response : "";
}

std::string tlv_header(uint32_t type, uint32_t len)
{
    uint32_t h[2] = {htonl(type), htonl(len)};
    return std::string(reinterpret_cast<const char *>(h), sizeof h);
}

std::string tlv(uint32_t type, const std::string &value)
{
    return tlv_header(type, static_cast<uint32_t>(value.size())) + value;
}

int error_code_of(const std::string &response)
{
    json_object *obj = json_tokener_parse(response.c_str());
    json_object *code = nullptr;
    int result = 1;
    if (obj && json_object_object_get_ex(obj, "error_code", &code) &&
        json_object_is_type(code, json_type_int))
        result = json_object_get_int(code);
    json_object_put(obj);
    return result;
}
