#include "modules/system/login.h"

#include <fcntl.h>
#include <json-c/json.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "model/request.h"
#include "platform/jso.h"
#include "platform/msglog.h"
#include "platform/paths.h"
#include "platform/safe_file.h"
#include "platform/trace.h"
#include "platform/ubus_client.h"
#include "store/store.h"

namespace {

enum { LOCK_SECONDS = 1800, UNLIMITED_TRIES = 999 };

long system_uptime(void)
{
    struct sysinfo si {};
    return sysinfo(&si) == 0 ? si.uptime : 0;
}

// Written only by tests, before any request runs.
login_clock_fn g_clock = system_uptime;

// The record's file name is the user name itself, unless the name could
// leave the directory ('/', ".", ".."); such names are stored hex-encoded so
// they still count and lock like any other.
std::string record_name(const char *user)
{
    if (!strchr(user, '/') && strcmp(user, ".") != 0 && strcmp(user, "..") != 0)
        return user;
    std::string out = "hex-";
    char byte[3];
    for (const char *p = user; *p; p++) {
        snprintf(byte, sizeof byte, "%02x", static_cast<unsigned>(static_cast<unsigned char>(*p)));
        out += byte;
    }
    return out;
}

std::string record_path(const char *user)
{
    char buf[512];
    snprintf(buf, sizeof buf, "%s/%s", dsd_path("/tmp/luci-pwderr").c_str(), record_name(user).c_str());
    return buf;
}

// Every check's read-decide-write of a failure record runs under this one
// mutex, so parallel wrong passwords each count and nobody reads a count
// that another check is about to raise. One mutex rather than one per user:
// the section is a few microseconds of tmpfs I/O, logins are rare, and the
// slow part (reporting a lock on the bus) runs after it is released.
std::mutex g_records;

// Owner-only, whatever the umask: the records and sessions say who may log
// in, so nobody else may add, remove or replace a file in them.
enum : mode_t { STATE_DIR_MODE = 0700 };

// An existing state directory of ours is brought back to owner-only (an
// older daemon made them group-writable). False when it cannot be.
bool owner_only(int fd)
{
    struct stat st;
    if (fstat(fd, &st) != 0 || st.st_uid != geteuid())
        return false;
    return (st.st_mode & 07777) == STATE_DIR_MODE || fchmod(fd, STATE_DIR_MODE) == 0;
}

// The failure-record directory, opened without following a link; one that
// is a link or belongs to someone else is replaced. fd or -errno.
int open_state_dir(const char *path)
{
    std::string dir, name;
    if (!sf_split(dsd_path(path), &dir, &name))
        return -EINVAL;
    sf_fd parent(sf_open_dir(dir.c_str()));
    if (!parent.ok())
        return parent.fd;
    int fd = openat(parent.fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0 && owner_only(fd))
        return fd;
    if (fd >= 0)
        close(fd);
    return sf_fresh_dir(parent.fd, name.c_str(), STATE_DIR_MODE);
}

// The stored "time/count"; false when missing, empty or malformed.
bool read_record(const char *user, long *time, int *count, bool trace_bad)
{
    sf_fd dir(open_state_dir("/tmp/luci-pwderr"));
    sf_fd f(dir.ok() ? sf_open_read_at(dir.fd, record_name(user).c_str()) : -1);
    std::string text;
    if (!f.ok() || sf_read_all(f.fd, &text, 63) != 0 || text.empty())
        return false;
    int t = 0, c = 0;
    if (sscanf(text.c_str(), "%d/%d", &t, &c) != 2) {
        if (trace_bad)
            DS_TRACE_AS("is_locked", TRACE_ERROR, "err_file data (%s) is wrong", text.c_str());
        return false;
    }
    *time = t;
    *count = c;
    return true;
}

// Written beside the record and renamed over it: a reader never sees half
// a record, and a link planted at the name is replaced, not followed.
bool write_record(const char *user, long time, int count)
{
    sf_fd dir(open_state_dir("/tmp/luci-pwderr"));
    if (!dir.ok())
        return false;
    std::string name = record_name(user), tmp = "." + name + ".new";
    sf_work_file guard(dir.fd, tmp);
    sf_fd f(sf_create_at(dir.fd, tmp.c_str(), 0600));
    char line[64];
    snprintf(line, sizeof line, "%ld/%d", time, count);
    return f.ok() && sf_write_all(f.fd, line) == 0 && renameat(dir.fd, tmp.c_str(), dir.fd, name.c_str()) == 0;
}

bool record_exists(const char *user)
{
    sf_fd dir(open_state_dir("/tmp/luci-pwderr"));
    struct stat st;
    return dir.ok() && fstatat(dir.fd, record_name(user).c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
}

void add(json_object *res, const char *key, int v)
{
    jso_obj_add_int(res, key, v);
}

// The sessions directory belongs to the web server: it is only made when
// missing (a link at its name is removed first), never replaced; one of
// ours is kept owner-only.
void make_dirs(void)
{
    sf_fd records(open_state_dir("/tmp/luci-pwderr"));
    std::string dir, name;
    if (!sf_split(dsd_path("/tmp/luci-sessions"), &dir, &name))
        return;
    sf_fd parent(sf_open_dir(dir.c_str()));
    if (!parent.ok())
        return;
    sf_fd sessions(openat(parent.fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (sessions.ok()) {
        owner_only(sessions.fd);
        return;
    }
    sf_fd fresh(sf_fresh_dir(parent.fd, name.c_str(), STATE_DIR_MODE));
}

// The lock settings, read at every check.
struct login_policy {
    int max;
    bool enabled;
};

login_policy read_policy(ds_context *ctx)
{
    int max = get_opt_int_value(ctx->uci_ctx, "unusual_detection", "login_error", "max_times");
    max = max < 0 ? 0 : max;
    store_opt en_opt = store_read_opt(ctx->uci_ctx, "unusual_detection", "login_error", "enabled");
    const char *en = en_opt.text;
    std::string enabled = en ? en : "on";
    DS_TRACE_AS("check_username_passwd", TRACE_INFO, "max_log_time is :%d, enable is :%s", max, enabled.c_str());
    return {.max = max, .enabled = enabled == "on"};
}

// The package's account for a user name: the first section whose
// "username" matches, with its section name; null when none.
json_object *find_account(json_object *pkg, const char *user, std::string *section)
{
    json_object_object_foreach(pkg, name, sec) {
        const char *u = jso_obj_get_string_origin(sec, "username");
        if (u && !strcmp(u, user)) {
            *section = name;
            return sec;
        }
    }
    return nullptr;
}

std::string group_of(const std::string &section)
{
    if (section.find("admin") != std::string::npos)
        return "admin";
    if (section.find("guest") != std::string::npos)
        return "guest";
    return section;
}

// A lock seen by a check: reported, then answered -40404 (or the report's code).
void answer_locked(json_object *res, const char *user)
{
    int rc = call_login_error(user);
    if (rc != 0)
        DS_TRACE_AS("check_username_passwd", TRACE_ERROR, "ubus call record.login_error.result is not zero");
    add(res, "real_error_code", rc == 0 ? -40404 : rc);
    add(res, "time", 0);
}

// Counts one failure unless the user is locked already; true when the user
// is (now) locked, else the attempts used in *count.
bool record_failure(const char *user, int max, int *count)
{
    std::lock_guard<std::mutex> hold(g_records);
    int code = 0;
    if (is_locked(user, max, &code))
        return true;
    DS_TRACE_AS("check_username_passwd", TRACE_INFO, "start to write log_error info");
    log_errinfo(user, count, max);
    if (is_locked(user, max, &code)) {
        DS_TRACE_AS("check_username_passwd", TRACE_INFO, "error count up to limit");
        return true;
    }
    return false;
}

void answer_wrong_password(json_object *res, const char *user, int max)
{
    int count = 0;
    if (record_failure(user, max, &count)) {
        answer_locked(res, user);
        return;
    }
    add(res, "time", max - count);
    add(res, "real_error_code", -70312);
}

// True when the user is locked; otherwise a standing record is cleared.
bool locked_or_cleared(const char *user, int max)
{
    std::lock_guard<std::mutex> hold(g_records);
    int code = 0;
    if (is_locked(user, max, &code))
        return true;
    if (record_exists(user))
        write_record(user, g_clock(), 0);
    return false;
}

void answer_good_password(json_object *res, const char *user, int max, bool enabled, json_object *acct,
                          const std::string &section)
{
    DS_TRACE_AS("check_username_passwd", TRACE_INFO, "username and passwd are all correct");
    if (enabled && locked_or_cleared(user, max)) {
        answer_locked(res, user);
        return;
    }
    const char *authority = jso_obj_get_string_origin(acct, "authority");
    jso_obj_add_string(res, "authority", authority ? authority : "");
    jso_obj_add_string(res, "group", group_of(section).c_str());
}

} // namespace

void login_set_clock(login_clock_fn fn)
{
    g_clock = fn ? fn : system_uptime;
}

int is_locked(const char *user, int max, int *code)
{
    DS_TRACE_AS("is_locked", TRACE_INFO, "pwderr file is:%s", record_path(user).c_str());
    long time = 0;
    int count = 0;
    if (!read_record(user, &time, &count, true))
        return 0;
    if (count >= max && time + LOCK_SECONDS - 1 >= g_clock()) {
        *code = -40404;
        char line[64];
        return snprintf(line, sizeof line, "%ld/%d", time, count);
    }
    return 0;
}

// The reset test uses 1800 while the lock test uses 1799: at exactly 1800 s
// the user is free but the count still stands.
int log_errinfo(const char *user, int *count, int max)
{
    long time = 0;
    int n = 0;
    if (read_record(user, &time, &n, false) && time + LOCK_SECONDS < g_clock())
        n = 0;
    n = n + 1 > max ? max : n + 1;
    *count = n;
    if (!write_record(user, g_clock(), n)) {
        DS_ERR("open pwd_err file error");
        return -1;
    }
    return 0;
}

int call_login_error(const char *user)
{
    ubus_context *conn = ubus_create_connection();
    if (!conn)
        return -70101;
    ubus_req req{.object = "record", .method = "login_error", .message = "{}", .timeout = 0};
    json_object *reply = nullptr;
    int rc = 0;
    if (ubus_call(conn, &req, &reply) != 0) {
        DS_ERR("ubus call record get_exception fail");
        rc = -70102;
    } else {
        int32_t result = 0;
        if (reply && jso_obj_get_int(reply, "result", &result) == 0 && result != 0)
            rc = -72211;
    }
    json_object_put(reply);
    ubus_free_connection(conn);
    if (rc != 0)
        return rc;
    char text[256];
    snprintf(text, sizeof text, "用户名: %s\r\n用户已被锁定", user);
    dsd_msglog(2, 1, text);
    dsd_sync(500); // the lock record is stored before the refusal goes out
    return 0;
}

int check_username_passwd(ds_context *ctx, json_object *arg)
{
    if (!ctx)
        return 0;
    make_dirs();
    login_policy policy = read_policy(ctx);
    int max = policy.max;
    json_object *pkg = get_uci_package(ctx->uci_ctx, "user_management");
    if (!pkg) {
        DS_ERR("get uci user_management fail");
        return 0;
    }
    const char *user = arg && jso_is_obj(arg) ? jso_obj_get_string_origin(arg, "username") : nullptr;
    const char *pass = arg && jso_is_obj(arg) ? jso_obj_get_string_origin(arg, "passwd") : nullptr;
    std::string u = user ? user : "";
    if (!ctx->res_obj)
        ctx->res_obj = jso_new_obj();
    json_object *res = ctx->res_obj;
    jso_obj_add_string(res, "username", u.c_str());
    add(res, "max_time", max);
    add(res, "time", max);
    add(res, "real_error_code", 0);
    std::string section;
    json_object *acct = find_account(pkg, u.c_str(), &section);
    const char *stored = acct ? jso_obj_get_string_origin(acct, "passwd") : nullptr;
    if (!acct) {
        add(res, "time", 0);
        add(res, "real_error_code", -70302);
    } else if (pass && stored && !strcmp(pass, stored)) {
        answer_good_password(res, u.c_str(), max, policy.enabled, acct, section);
    } else if (!policy.enabled) {
        add(res, "time", UNLIMITED_TRIES);
        add(res, "real_error_code", -70312);
    } else {
        answer_wrong_password(res, u.c_str(), max);
    }
    json_object_put(pkg);
    return 0;
}

int login_password_verdict(ds_context *ctx, const char *user, bool matches)
{
    if (!ctx || !user)
        return -40101;
    make_dirs();
    login_policy policy = read_policy(ctx);
    if (!policy.enabled)
        return matches ? 0 : -70312;
    int count = 0;
    if (matches ? !locked_or_cleared(user, policy.max) : !record_failure(user, policy.max, &count))
        return matches ? 0 : -70312;
    int rc = call_login_error(user);
    if (rc != 0)
        DS_TRACE_AS("check_username_passwd", TRACE_ERROR, "ubus call record.login_error.result is not zero");
    return rc == 0 ? -40404 : rc;
}

int login_end_sessions(void)
{
    // The web server owns the sessions directory; a link at its name is
    // left alone rather than followed into whatever it points at.
    sf_fd d(sf_open_dir(dsd_path("/tmp/luci-sessions").c_str()));
    if (!d.ok())
        return d.fd == -ENOENT ? 0 : -1;
    return sf_empty_dir(d.fd) == 0 ? 0 : -1;
}

int login_forget_failures(const char *user)
{
    if (!user || !*user)
        return -1;
    std::lock_guard<std::mutex> hold(g_records);
    sf_fd dir(open_state_dir("/tmp/luci-pwderr"));
    return dir.ok() && sf_remove_at(dir.fd, record_name(user).c_str()) == 0 ? 0 : -1;
}

int rm_pwd_err_file(ds_context *, json_object *arg)
{
    if (!arg)
        return -40101;
    if (login_end_sessions() != 0)
        DS_ERR("rm SESSION_PATH fail.");
    return 0;
}
