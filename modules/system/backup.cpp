#include "modules/system/backup.h"

#include <dirent.h>
#include <fcntl.h>
#include <json-c/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>

#include "model/request.h"
#include "crypto/des.h"
#include "crypto/md5.h"
#include "platform/jso.h"
#include "platform/msglog.h"
#include "platform/paths.h"
#include "platform/safe_file.h"
#include "platform/shell.h"
#include "platform/trace.h"
#include "store/store.h"

namespace {

const char kKey[] = "mqwer#!^$KLPZ392";
const char kDashes[] = "------------------------------------------"; // 42
const char *const kExcluded[] = {"user_management", "uhttpd", "cloud_config", "cloud_status",
                                 "ovddns_status", nullptr};
enum { MAX_UPLOAD = 3145728, ERR_ARG = -40102, ERR_PATH = -40209, ERR_MD5 = -50914, ERR_DECRYPT = -50916 };

bool in_excluded(const std::string &name)
{
    for (const char *const *e = kExcluded; *e; e++) {
        if (name == *e)
            return true;
    }
    return false;
}

bool excluded(const char *name)
{
    if (!in_excluded(name))
        return false;
    DS_TRACE_AS("package_conf_together", TRACE_INFO, "conf (%s) is excluded.", name);
    return true;
}

// The bundle's marker lines. The restore takes only these exact lines as
// markers, and a backup refuses a package holding a line that begins with
// a marker's token, so no package text can end its record early or start
// another one, whatever reader meets the bundle.
const char kStartToken[] = "@FILE_START@";
const char kPathToken[] = "@FILE_PATH@";
const char kEndToken[] = "@FILE_END@";
const char kPathPrefix[] = "@FILE_PATH@=/etc/config/";

std::string start_line(void)
{
    return std::string(kStartToken) + kDashes;
}

std::string end_line(void)
{
    return std::string(kEndToken) + kDashes;
}

bool begins_with(const std::string &line, const char *token)
{
    return line.compare(0, strlen(token), token) == 0;
}

// True when a line of text could be taken for a marker line.
bool holds_marker_line(const std::string &text)
{
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (begins_with(line, kStartToken) || begins_with(line, kPathToken) || begins_with(line, kEndToken))
            return true;
    }
    return false;
}

// A package name as a file in the config directory: no path, no dot file.
bool plain_name(const std::string &name)
{
    if (name.empty() || name.size() > 64 || name[0] == '.')
        return false;
    for (unsigned char c : name) {
        if (!isalnum(c) && c != '_' && c != '-')
            return false;
    }
    return true;
}

// Where uploads and downloads may live: the web server's /tmp, plain
// characters only, no way back up. Keeps request paths away from the shell
// and from the rest of the file system.
bool path_ok(const std::string &path)
{
    std::string tmp = dsd_path("/tmp/");
    if (path.compare(0, tmp.size(), tmp) != 0 || path.find("..") != std::string::npos)
        return false;
    for (unsigned char c : path.substr(tmp.size())) {
        if (!isalnum(c) && c != '_' && c != '-' && c != '.' && c != '/')
            return false;
    }
    return true;
}

// The historical escaping of '$' and '`' (a backslash before each), kept for
// the trace; the copy itself never goes through a shell.
std::string escape_for_trace(const std::string &s)
{
    std::string out;
    for (char c : s) {
        if (c == '$' || c == '`')
            out += '\\';
        out += c;
    }
    return out.substr(0, 1024);
}

std::string device_name(ds_context *ctx)
{
    store_opt name_opt = store_read_opt(ctx->uci_ctx, "device_info", "info", "device_name");
    const char *name = name_opt.text;
    return name ? name : "";
}

std::string md5_of(const std::string &data)
{
    char hex[33];
    md5_data_hex(data.data(), data.size(), hex);
    return hex;
}

// "/tmp/<name>_<local time>_config.bin".
std::string backup_file_name(const std::string &name)
{
    char stamp[32];
    time_t now = time(nullptr);
    struct tm tm {};
    localtime_r(&now, &tm);
    strftime(stamp, sizeof stamp, "%Y-%m-%d_%H.%M.%S", &tm);
    char buf[512];
    snprintf(buf, sizeof buf, "%s/%s_%s_%s", dsd_path("/tmp").c_str(), name.c_str(), stamp, "config.bin");
    return buf;
}

// The destination (and optional name) of a download request: a path, or
// {"url": path, "name": text}.
bool download_target(json_object *arg, std::string *dest, std::string *name)
{
    if (arg && jso_is_string(arg)) {
        *dest = jso_get_string_origin(arg);
        return true;
    }
    if (!arg || !jso_is_obj(arg) || !jso_obj_get_string_origin(arg, "url"))
        return false;
    *dest = jso_obj_get_string_origin(arg, "url");
    const char *n = jso_obj_get_string_origin(arg, "name");
    *name = n ? n : "";
    return true;
}

// Replaces one package (all-or-nothing writer of the uci store).
bool install_package(const std::string &name, const std::string &body)
{
    return uci_install_packages({{name, body}}) == 0;
}

// /tmp is writable by other programs: every work file there is made fresh
// (exclusively, mode 0600, never through a planted link) and removed by a
// guard on every path.
enum : mode_t { WORK_MODE = 0600, UNPACK_DIR_MODE = 0700 };

// Writes data as the work file name in dirfd. False when it cannot.
bool write_work_file(int dirfd, const char *name, const std::string &data)
{
    sf_fd f(sf_create_at(dirfd, name, WORK_MODE));
    return f.ok() && sf_write_all(f.fd, data) == 0;
}

// Unpacks into the fresh directory unpack_fd, then installs. Every package
// is written beside its target before the first one is renamed into place,
// so a full /tmp or any other failure leaves the configuration as it was.
int restore_files(int unpack_fd, const std::vector<std::pair<std::string, std::string>> &files)
{
    for (const auto &[name, body] : files) {
        if (!write_work_file(unpack_fd, name.c_str(), body))
            return ERR_ARG;
    }
    uci_flush_logged();
    if (uci_install_packages(files) != 0)
        return ERR_ARG;
    sf_empty_dir(unpack_fd);
    shell_run("uc_convert -t 1 >/dev/null 2>&1");
    return 0;
}

int fail_restore(int code)
{
    DS_TRACE_AS("upload_conf_gui", TRACE_ERROR, "parse conf error");
    return code;
}

// Opens the caller-named file under /tmp for reading: its directory must
// really be inside /tmp, no component below /tmp may be a link, and the
// file itself must be a regular file, not a link. fd, or an error code.
int open_upload(const char *url, int tmp_fd, struct stat *st)
{
    std::string rel, dir, name;
    int rc = sf_resolve_inside(url, dsd_path("/tmp"), &rel);
    if (rc == -ENOENT)
        return ERR_ARG;
    if (rc != 0 || !path_ok(url) || !sf_split(rel, &dir, &name))
        return ERR_PATH;
    sf_fd d(sf_open_dir_below(tmp_fd, dir));
    if (!d.ok())
        return ERR_PATH;
    int fd = sf_open_read_at(d.fd, name.c_str());
    if (fd == -ELOOP)
        return ERR_PATH;
    if (fd < 0)
        return ERR_ARG;
    if (fstat(fd, st) != 0) {
        close(fd);
        return ERR_ARG;
    }
    return fd;
}

// Header line "<md5>,<device name>\n" then the bundle; false when the line,
// the name or the digest is wrong.
bool check_md5_header(const std::string &plain, const std::string &device, std::string *bundle)
{
    size_t eol = plain.find('\n');
    if (eol == std::string::npos) {
        DS_ERR("fgets error.");
        return false;
    }
    std::string first = plain.substr(0, eol);
    if (device.empty()) {
        DS_ERR("get device name error");
        DS_ERR("parse first line error");
        return false;
    }
    size_t comma = first.find(',');
    if (comma == std::string::npos || first.substr(comma + 1) != device) {
        DS_ERR("dev name error");
        DS_ERR("parse first line error");
        return false;
    }
    *bundle = plain.substr(eol + 1);
    if (md5_of(*bundle) != first.substr(0, comma)) {
        DS_ERR("md5 error.");
        return false;
    }
    return true;
}

// Packages only: no hidden or temporary files (a commit's or an editor's),
// no symbolic links or other non-regular entries, no excluded package.
bool backup_entry(const std::string &path, const char *name)
{
    size_t len = strlen(name);
    bool temporary = strchr(name, '.') || name[len - 1] == '~' || strstr(name, "-opkg");
    struct stat st;
    return name[0] != '.' && !temporary && lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) &&
           !excluded(name);
}

} // namespace

// One package's record of the bundle; false (and a trace) when its text
// holds a line a reader could take for a marker.
static bool append_conf(std::string *bundle, const char *name, std::string body)
{
    if (holds_marker_line(body)) {
        DS_TRACE_AS("append_conf", TRACE_ERROR, "conf (%s) holds a marker line, not packed.", name);
        return false;
    }
    if (!body.empty() && body.back() != '\n')
        body += '\n';
    *bundle += start_line() + "\n" + kPathPrefix + name + "\n" + body + end_line() + "\n";
    return true;
}

bool backup_bundle(const std::string &confdir, std::string *bundle)
{
    DIR *dir = opendir(confdir.c_str());
    if (!dir) {
        DS_TRACE_AS("package_conf_together", TRACE_ERROR, "open dir error\n");
        return false;
    }
    int packed = 0;
    bool refused = false;
    while (dirent *e = readdir(dir)) {
        std::string path = confdir + "/" + e->d_name;
        if (!backup_entry(path, e->d_name))
            continue;
        std::string body;
        if (!store_read_config(confdir, e->d_name, &body)) { // whole, never half-committed
            DS_TRACE_AS("append_conf", TRACE_ERROR, "open file (%s) error\n", path.c_str());
            continue;
        }
        if (!append_conf(bundle, e->d_name, std::move(body)))
            refused = true;
        else
            packed++;
    }
    closedir(dir);
    if (refused)
        bundle->clear();
    return packed > 0 && !refused;
}

// The package name of a path line, or "" when the line is not exactly the
// marker with a plain package name a backup may carry.
static std::string restorable_name(const std::string &line)
{
    if (!begins_with(line, kPathPrefix)) {
        DS_TRACE_AS("split_conf", TRACE_ERROR, "file path line error.");
        return "";
    }
    std::string name = line.substr(strlen(kPathPrefix));
    if (!plain_name(name)) {
        DS_TRACE_AS("split_conf", TRACE_ERROR, "new conf path error.");
        return "";
    }
    if (in_excluded(name)) {
        DS_TRACE_AS("split_conf", TRACE_ERROR, "conf (%s) is never restored.", name.c_str());
        return "";
    }
    return name;
}

bool backup_split(const std::string &bundle, std::vector<std::pair<std::string, std::string>> *files)
{
    std::istringstream in(bundle);
    std::string line;
    std::vector<std::pair<std::string, std::string>> out;
    std::set<std::string> seen;
    while (std::getline(in, line)) {
        if (line != start_line()) {
            DS_TRACE_AS("split_conf", TRACE_ERROR, "start line error.");
            return false;
        }
        std::string name = std::getline(in, line) ? restorable_name(line) : "";
        if (name.empty() || !seen.insert(name).second) {
            DS_TRACE_AS("split_conf", TRACE_ERROR, "file path line error.");
            return false;
        }
        std::string body;
        bool ended = false;
        while (!ended && std::getline(in, line)) {
            ended = line == end_line();
            if (!ended)
                body += line + "\n";
        }
        if (!ended) {
            DS_TRACE_AS("split_conf", TRACE_ERROR, "write error.");
            return false;
        }
        out.emplace_back(name, body);
    }
    *files = std::move(out);
    return !files->empty();
}

// Where the backup goes: the caller's path (an existing directory receives
// the file under its own name, like "cp -f"), resolved inside /tmp with no
// link followed on the way. Opens the directory; 0 or an error code.
static int open_destination(const std::string &dest, int tmp_fd, const std::string &file, sf_fd *dir,
                            std::string *name)
{
    struct stat st;
    std::string target = dest, rel, sub;
    // A link at the destination is only taken where it leads inside /tmp.
    if (lstat(dest.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
        std::unique_ptr<char, decltype(&free)> real(realpath(dest.c_str(), nullptr), free);
        if (!real || sf_resolve_inside(real.get(), dsd_path("/tmp"), &rel) != 0)
            target.clear();
    }
    if (target.empty()) {
        DS_ERR("Backup destination %s is outside /tmp.", dest.c_str());
        return ERR_PATH;
    }
    if (stat(dest.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        target += file.substr(file.rfind('/'));
    if (sf_resolve_inside(target, dsd_path("/tmp"), &rel) != 0 || !sf_split(rel, &sub, name)) {
        DS_ERR("Backup destination %s is outside /tmp.", dest.c_str());
        return ERR_PATH;
    }
    *dir = sf_fd(sf_open_dir_below(tmp_fd, sub));
    if (!dir->ok()) {
        DS_ERR("Backup destination %s is outside /tmp.", dest.c_str());
        return ERR_PATH;
    }
    return 0;
}

// Places data at dir/name: written beside it under a private name, then
// renamed over it, so a link standing at the name is replaced, not followed.
static bool place_backup(int dirfd, const std::string &name, const std::string &data)
{
    std::string tmp = "." + name + ".dsd-part";
    sf_work_file guard(dirfd, tmp);
    sf_fd f(sf_create_at(dirfd, tmp.c_str(), 0644));
    return f.ok() && sf_write_all(f.fd, data) == 0 && fsync(f.fd) == 0 &&
           renameat(dirfd, tmp.c_str(), dirfd, name.c_str()) == 0;
}

// The header file and the enciphered backup as work files in /tmp, both
// removed when this returns. The enciphered text in *cipher; 0 or -40102.
static int build_conf_file(int tmp_fd, const std::string &plain, const std::string &file, std::string *cipher)
{
    sf_work_file header(tmp_fd, "conf_package_md5");
    std::vector<uint8_t> data(plain.begin(), plain.end());
    if (!write_work_file(tmp_fd, "conf_package_md5", plain) || des_encrypt_data(&data, kKey) != 0) {
        DS_ERR("add md5 header error.");
        return ERR_ARG;
    }
    cipher->assign(data.begin(), data.end());
    std::string base = file.substr(file.rfind('/') + 1);
    sf_work_file keep(tmp_fd, base);
    return write_work_file(tmp_fd, base.c_str(), *cipher) ? 0 : ERR_ARG;
}

static int make_backup(ds_context *ctx, json_object *arg)
{
    std::string dest, name;
    if (!ctx || !download_target(arg, &dest, &name))
        return ERR_ARG;
    struct stat st;
    std::string parent = dest.substr(0, dest.rfind('/') + 1);
    if (stat(parent.empty() ? dest.c_str() : parent.c_str(), &st) != 0) {
        DS_ERR("gui_conf_gui url:%s is not correct", dest.c_str());
        return ERR_ARG;
    }
    if (!path_ok(dest) || !plain_name(name.empty() ? "x" : name))
        return ERR_PATH;
    std::string bundle, device = device_name(ctx);
    if (uci_flush_logged() != 0)
        DS_ERR("flush before backup failed");
    if (!backup_bundle(dsd_path("/etc/config"), &bundle)) {
        DS_ERR("package conf error.");
        DS_ERR("merge conf file error");
        return ERR_ARG;
    }
    if (device.empty()) {
        DS_ERR("get device name error.");
        return ERR_ARG;
    }
    sf_fd tmp(sf_open_dir(dsd_path("/tmp").c_str()));
    std::string file = backup_file_name(name), cipher, target;
    sf_fd dir;
    int rc = tmp.ok() ? open_destination(dest, tmp.fd, file, &dir, &target) : ERR_ARG;
    if (rc != 0)
        return rc;
    rc = build_conf_file(tmp.fd, md5_of(bundle) + "," + device + "\n" + bundle, file, &cipher);
    if (rc != 0)
        return rc;
    DS_INFO("<1>url:%s ", dest.c_str());
    DS_INFO("<2>url:%s ", escape_for_trace(dest).c_str());
    return place_backup(dir.fd, target, cipher) ? 0 : ERR_ARG;
}

// Deciphers the upload (read through open_upload) into the work file
// /tmp/decrypt_conf and checks its header; the bundle in *bundle.
static int decipher_upload(ds_context *ctx, int tmp_fd, int unpack_fd, const std::string &upload,
                           std::string *bundle)
{
    sf_work_file copy(unpack_fd, "tmp_conf_final.bin");
    sf_work_file plainf(tmp_fd, "decrypt_conf");
    std::vector<uint8_t> data(upload.begin(), upload.end());
    if (!write_work_file(unpack_fd, "tmp_conf_final.bin", upload) || des_decrypt_data(&data, kKey) != 0 ||
        !write_work_file(tmp_fd, "decrypt_conf", std::string(data.begin(), data.end()))) {
        DS_ERR("decrypt error.");
        return ERR_DECRYPT;
    }
    if (!check_md5_header(std::string(data.begin(), data.end()), device_name(ctx), bundle)) {
        DS_ERR("check md5 header error");
        return ERR_MD5;
    }
    return 0;
}

static int restore_backup(ds_context *ctx, json_object *arg)
{
    const char *url = arg && jso_is_obj(arg) ? jso_obj_get_string_origin(arg, "url") : nullptr;
    if (!ctx || !url) {
        DS_ERR("valid param");
        return fail_restore(ERR_PATH);
    }
    sf_fd tmp(sf_open_dir(dsd_path("/tmp").c_str()));
    struct stat st;
    sf_fd in(tmp.ok() ? open_upload(url, tmp.fd, &st) : ERR_ARG);
    if (!in.ok())
        return fail_restore(in.fd);
    std::string upload, bundle;
    if (st.st_size > MAX_UPLOAD || sf_read_all(in.fd, &upload, MAX_UPLOAD) != 0) {
        DS_ERR("conf_file_size is wrong");
        return fail_restore(ERR_ARG);
    }
    sf_work_file unpack_guard(tmp.fd, "restore");
    sf_fd unpack(sf_fresh_dir(tmp.fd, "restore", UNPACK_DIR_MODE));
    if (!unpack.ok()) {
        DS_ERR("dir error");
        return fail_restore(ERR_ARG);
    }
    int rc = decipher_upload(ctx, tmp.fd, unpack.fd, upload, &bundle);
    if (rc != 0)
        return fail_restore(rc);
    std::vector<std::pair<std::string, std::string>> files;
    if (!backup_split(bundle, &files)) {
        DS_ERR("split conf error");
        return fail_restore(ERR_ARG);
    }
    rc = restore_files(unpack.fd, files);
    return rc == 0 ? 0 : fail_restore(rc);
}

// The work files and the unpack directory have fixed names, so two requests
// building or restoring a backup at once would overwrite each other's files
// (and a restore could install a half-unpacked set). One backup operation at
// a time; both are rare and short.
static std::mutex g_backup_files;

int download_conf_gui(ds_context *ctx, json_object *arg)
{
    std::lock_guard<std::mutex> hold(g_backup_files);
    return make_backup(ctx, arg);
}

int upload_conf_gui(ds_context *ctx, json_object *arg)
{
    std::lock_guard<std::mutex> hold(g_backup_files);
    return restore_backup(ctx, arg);
}

int download_conf(ds_context *ctx, json_object *)
{
    if (!ctx)
        return -40101;
    if (!ctx->res_obj)
        ctx->res_obj = jso_new_obj();
    jso_obj_add_string(ctx->res_obj, "url", "/admin/system/download_conf");
    dsd_msglog_with_user(3, 22, nullptr, ctx->user);
    dsd_sync(500); // the record is stored before the transfer starts
    return 0;
}

int upload_conf(ds_context *ctx, json_object *)
{
    if (!ctx)
        return -40101;
    if (!ctx->res_obj)
        ctx->res_obj = jso_new_obj();
    jso_obj_add_string(ctx->res_obj, "url", "/admin/system/upload_conf");
    dsd_msglog_with_user(3, 23, nullptr, ctx->user);
    dsd_sync(500); // the record is stored before the transfer starts
    return 0;
}

// {"config_name": name}: the package back from the read-only factory copy.
int config_recovery(ds_context *ctx, json_object *arg)
{
    const char *name = arg && jso_is_obj(arg) ? jso_obj_get_string_origin(arg, "config_name") : nullptr;
    if (!ctx || !name || !plain_name(name))
        return ERR_PATH;
    std::string body;
    sf_fd rom(open((dsd_path("/rom/etc/config/") + name).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!rom.ok() || sf_read_all(rom.fd, &body, MAX_UPLOAD) != 0 || !install_package(name, body)) {
        DS_ERR("replace config error.");
        return ERR_ARG;
    }
    return 0;
}
