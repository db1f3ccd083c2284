#include "harness/dsd_harness.h"

#include <fcntl.h>
#include <json-c/json.h>
#include <uci.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "crypto/des.h"
#include "crypto/md5.h"

namespace {

bool run_quiet(const std::string &cmd)
{
    return system(cmd.c_str()) == 0;
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

pid_t spawn_program(const std::vector<std::string> &argv_in, const std::string &out, int death_signal,
                    const std::vector<std::pair<std::string, std::string>> &env)
{
    pid_t pid = fork();
    if (pid != 0)
        return pid;
    // A test process that dies (an abort, a crash) takes the program along
    // instead of leaving it serving a removed root.
    prctl(PR_SET_PDEATHSIG, death_signal);
    for (const auto &[name, value] : env)
        setenv(name.c_str(), value.c_str(), 1);
    int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(fd, 1);
    dup2(fd, 2);
    std::vector<std::string> args = exec_wrapper_words();
    args.insert(args.end(), argv_in.begin(), argv_in.end());
    std::vector<char *> argv;
    for (auto &a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
}

int end_process(pid_t *pid, int wait_ms)
{
    if (*pid <= 0)
        return -1;
    kill(*pid, SIGTERM);
    int status = -1;
    if (!wait_until([&] { return waitpid(*pid, &status, WNOHANG) == *pid; }, wait_ms)) {
        kill(*pid, SIGKILL);
        waitpid(*pid, &status, 0);
    }
    *pid = -1;
    return status;
}

bool dsd_harness::start(const std::vector<std::string> &args)
{
    const char *stand_in = getenv("DSD_TEST_DAEMON"), *path = getenv("PATH");
    std::vector<std::string> argv = {stand_in && *stand_in ? stand_in : DSD_BIN};
    argv.insert(argv.end(), args.begin(), args.end());
    pid = spawn_program(argv, root + "/dsd.log", SIGKILL,
                        {{"DSD_ROOT", root}, {"PATH", root + "/bin:" + (path ? path : "/usr/bin:/bin")}});
    bool up = false;
    wait_until([&] {
        int fd = pid > 0 ? dsd_connect(socket_path()) : -1;
        if (fd >= 0)
            close(fd); // an empty connection: the daemon answers it -40101 and moves on
        // A child that died (a failed exec too) is a zombie kill() still sees.
        else if (int status = 0; pid < 0 || waitpid(pid, &status, WNOHANG) == pid)
            pid = -1;
        return (up = fd >= 0) || pid < 0;
    }, 20000);
    return up;
}

int dsd_harness::kill_now(int sig)
{
    if (pid <= 0)
        return -1;
    kill(pid, sig);
    int status = -1;
    waitpid(pid, &status, 0);
    pid = -1;
    return status;
}

int dsd_harness::stop()
{
    return end_process(&pid, 5000);
}

std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string json_quote(const std::string &text)
{
    json_object *s = json_object_new_string_len(text.data(), static_cast<int>(text.size()));
    std::string out = json_object_to_json_string_ext(s, JSON_C_TO_STRING_PLAIN);
    json_object_put(s);
    return out;
}

void write_network_stand_ins(const std::string &root)
{
    run_quiet("mkdir -p " + root + "/bin " + root + "/lib/upnpc " + root + "/etc/init.d " + root + "/var/run");
    const std::string log = root + "/calls.log";
    auto script = [&](const std::string &path, const std::string &name) {
        std::ofstream(path) << "#!/bin/sh\necho \"" << name << " $*\" >> '" << log << "'\n";
        chmod(path.c_str(), 0755);
    };
    for (const char *tool : {"sleep", "ubus", "track-reload"})
        script(root + "/bin/" + tool, tool);
    script(root + "/etc/init.d/network", "network");
    std::ofstream(root + "/lib/upnpc/upnpc.sh") << "upnpc_stop() { echo upnpc_stop >> '" << log << "'; }\n";
}

std::multiset<std::string> network_calls(const std::string &root)
{
    std::istringstream in(slurp(root + "/calls.log"));
    std::multiset<std::string> out;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("sleep", 0) != 0)
            out.insert(line);
    }
    return out;
}

dsd_snapshot snapshot_dir(const std::string &dir)
{
    dsd_snapshot s;
    for (const auto &e : std::filesystem::directory_iterator(dir)) {
        struct stat st;
        std::string p = e.path().string();
        if (lstat(p.c_str(), &st) == 0)
            s[e.path().filename().string()] = {S_ISREG(st.st_mode) ? slurp(p) : "", st.st_mode};
    }
    return s;
}

std::string snapshot_changes(const dsd_snapshot &a, const dsd_snapshot &b)
{
    std::string out;
    for (const auto &[name, entry] : a) {
        auto it = b.find(name);
        if (it == b.end() || it->second != entry)
            out += name + " ";
    }
    for (const auto &[name, entry] : b) {
        if (!a.count(name))
            out += name + " ";
    }
    return out;
}

std::string dsd_harness::forge_backup(const std::string &bundle, const std::string &name,
                                      const std::string &device) const
{
    char hex[33];
    md5_data_hex(bundle.data(), bundle.size(), hex);
    std::string plain = path("/tmp/forge.plain"), out = path("/tmp/") + name;
    std::ofstream(plain, std::ios::binary) << std::string(hex) + "," + device + "\n" + bundle;
    EXPECT_EQ(des_encrypt_file(plain.c_str(), out.c_str(), "mqwer#!^$KLPZ392"), 0);
    unlink(plain.c_str());
    return out;
}

dsd_run dsd_harness::dsdc(const std::string &words) const
{
    std::string out = path("/dsdc.out"), err = path("/dsdc.err");
    int st = system(("DSD_ROOT='" + root + "' " + tool_command("dsdc") + " " + words + " >'" + out + "' 2>'" + err + "'")
                        .c_str());
    return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, slurp(out), slurp(err)};
}

int count_of(const std::string &haystack, const std::string &text)
{
    int seen = 0;
    for (size_t at = haystack.find(text); at != std::string::npos; at = haystack.find(text, at + 1))
        seen++;
    return seen;
}

int dsd_harness::wait_log(const std::string &text, int n, int timeout_ms) const
{
    int seen = 0;
    wait_until([&] { return (seen = count_of(log(), text)) >= n; }, timeout_ms);
    return seen;
}

int dsd_harness::open_fds() const
{
    std::error_code ec;
    std::filesystem::directory_iterator it("/proc/" + std::to_string(pid) + "/fd", ec);
    return ec ? -1 : static_cast<int>(std::distance(it, std::filesystem::directory_iterator()));
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

int error_code_or_none(const std::string &response)
{
    dsd_json obj(json_tokener_parse(response.c_str()));
    json_object *code = nullptr;
    if (obj && json_object_object_get_ex(obj.get(), "error_code", &code) &&
        json_object_is_type(code, json_type_int))
        return json_object_get_int(code);
    return kNoErrorCode;
}

int error_code_of(const std::string &response)
{
    int code = error_code_or_none(response);
    if (code == kNoErrorCode)
        ADD_FAILURE() << "no integer error_code in the answer: \"" << response << "\"";
    return code;
}

dsd_answer::dsd_answer(std::string response) : text(std::move(response)), obj(json_tokener_parse(text.c_str()))
{
    if (!obj || !json_object_is_type(obj.get(), json_type_object)) {
        ADD_FAILURE() << "the answer is not a JSON object: \"" << text << "\"";
        obj.reset();
    }
}

json_object *dsd_answer::at(std::initializer_list<const char *> path) const
{
    json_object *cur = obj.get();
    for (const char *key : path) {
        if (key[0] == '#' && cur && json_object_is_type(cur, json_type_array)) {
            cur = json_object_array_get_idx(cur, static_cast<size_t>(atoi(key + 1)));
            continue;
        }
        if (!cur || !json_object_is_type(cur, json_type_object) ||
            !json_object_object_get_ex(cur, key, &cur))
            return nullptr;
    }
    return cur;
}

namespace {

std::string path_text(std::initializer_list<const char *> path)
{
    std::string out;
    for (const char *key : path)
        out += std::string(out.empty() ? "" : ".") + key;
    return out;
}

} // namespace

json_object *dsd_answer::typed(std::initializer_list<const char *> path, json_type type) const
{
    json_object *v = at(path);
    if (v && json_object_is_type(v, type))
        return v;
    ADD_FAILURE() << "no " << json_type_to_name(type) << " at " << path_text(path) << " in \"" << text << "\"";
    return nullptr;
}

std::string dsd_harness::uci_get(const std::string &pkg, const std::string &sec, const std::string &opt,
                                 bool committed) const
{
    std::unique_ptr<uci_context, void (*)(uci_context *)> ctx(uci_alloc_context(), uci_free_context);
    if (!ctx)
        return "";
    uci_set_confdir(ctx.get(), path("/etc/config").c_str());
    uci_set_savedir(ctx.get(), path(committed ? "/no-change-log" : "/tmp/.uci").c_str());
    std::string tuple = pkg + "." + sec + (opt.empty() ? "" : "." + opt);
    uci_ptr ptr{};
    if (uci_lookup_ptr(ctx.get(), &ptr, tuple.data(), false) != UCI_OK || !(ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE))
        return "";
    if (opt.empty())
        return ptr.s ? ptr.s->type : "";
    return ptr.o && ptr.o->type == UCI_TYPE_STRING ? ptr.o->v.string : "";
}

::testing::AssertionResult has_string(const dsd_answer &a, std::initializer_list<const char *> path,
                                      const std::string &want)
{
    json_object *v = a.at(path);
    if (!v)
        return ::testing::AssertionFailure() << "no member " << path_text(path) << " in \"" << a.text << "\"";
    if (!json_object_is_type(v, json_type_string))
        return ::testing::AssertionFailure() << path_text(path) << " is not a string in \"" << a.text << "\"";
    if (want != json_object_get_string(v))
        return ::testing::AssertionFailure() << path_text(path) << " is \"" << json_object_get_string(v)
                                             << "\", not \"" << want << "\"";
    return ::testing::AssertionSuccess();
}

dsd_answer dsd_harness::ask(const std::string &json, const dsd_identity &who, int timeout_ms) const
{
    return dsd_answer(request(json, who, timeout_ms));
}
