// Host stand-in for the platform's closed log library: every record is
// appended as one JSON line to <root>/var/log/msglog/records,
//   {"main_type":3,"sub_type":29,"text":"..."}   ("text" is null for a null text)
// so tests and developers can read what the log service would have stored.
#include <fcntl.h>
#include <json-c/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>

#include "platform/msglog.h"
#include "platform/paths.h"

namespace {

struct json_put {
    void operator()(json_object *o) const { json_object_put(o); }
};

} // namespace

// Creates every missing directory of dir. 0 or -1.
static int make_dirs(const std::string &dir)
{
    for (size_t i = 1; i <= dir.size(); i++) {
        if (i == dir.size() || dir[i] == '/') {
            if (mkdir(dir.substr(0, i).c_str(), 0755) != 0 && errno != EEXIST)
                return -1;
        }
    }
    return 0;
}

// Appends the record. 0, or -1 when it could not be stored. Any thread: each
// record is one O_APPEND write, which the kernel keeps whole, so concurrent
// workers need no lock.
extern "C" int msglog_write_log(uint32_t main_type, uint32_t sub_type, const char *text)
{
    std::unique_ptr<json_object, json_put> rec(json_object_new_object());
    if (!rec)
        return -1;
    json_object_object_add(rec.get(), "main_type", json_object_new_int64(main_type));
    json_object_object_add(rec.get(), "sub_type", json_object_new_int64(sub_type));
    json_object_object_add(rec.get(), "text", text ? json_object_new_string(text) : nullptr);
    std::string line = json_object_to_json_string_ext(
        rec.get(), JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
    line += '\n';
    std::string dir = dsd_path("/var/log/msglog");
    if (make_dirs(dir) != 0)
        return -1;
    int fd = open((dir + "/records").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
        return -1;
    ssize_t n = write(fd, line.data(), line.size());
    close(fd);
    return n == (ssize_t)line.size() ? 0 : -1;
}
