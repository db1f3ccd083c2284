// hostbus: listens where ubusd would (<root>/var/run/ubus.sock) and answers
// lookups and calls from a scenario file, logging every call. See
// docs/hostbus.md.
#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "hostbus.h"

namespace {

struct json_put {
    void operator()(json_object *o) const { json_object_put(o); }
};
using json_ptr = std::unique_ptr<json_object, json_put>;

constexpr uint32_t kMaxFrame = 16u << 20;

struct hb_options {
    std::string root, scenario, log, socket;
};

} // namespace

static int write_all(int fd, const void *buf, size_t len)
{
    const char *p = (const char *)buf;
    while (len > 0) {
        ssize_t n = send(fd, p, len, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return -1;
        p += n;
        len -= (size_t)n;
    }
    return 0;
}

static int read_all(int fd, void *buf, size_t len)
{
    char *p = (char *)buf;
    while (len > 0) {
        ssize_t n = recv(fd, p, len, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return -1;
        p += n;
        len -= (size_t)n;
    }
    return 0;
}

// One frame: 4-byte big-endian length, JSON text. Null at end of stream.
static json_object *read_frame(int fd)
{
    uint32_t be = 0;
    if (read_all(fd, &be, sizeof be) != 0)
        return nullptr;
    uint32_t len = ntohl(be);
    if (len > kMaxFrame)
        return nullptr;
    std::string body(len, '\0');
    if (read_all(fd, body.data(), len) != 0)
        return nullptr;
    json_object *obj = json_tokener_parse(body.c_str());
    return obj ? obj : json_object_new_object();
}

static int write_frame(int fd, json_object *obj)
{
    std::string text = json_object_to_json_string_ext(obj, JSON_C_TO_STRING_PLAIN);
    uint32_t be = htonl((uint32_t)text.size());
    if (write_all(fd, &be, sizeof be) != 0)
        return -1;
    return write_all(fd, text.data(), text.size());
}

static json_object *get(json_object *obj, const char *key)
{
    json_object *v = nullptr;
    json_object_object_get_ex(obj, key, &v);
    return v;
}

// Answers one request frame. 0 to go on, -1 to drop the connection.
static int serve_frame(hb_state *st, int fd, json_object *frame)
{
    const char *op = json_object_get_string(get(frame, "op"));
    json_ptr ans(json_object_new_object());
    json_object_object_add(ans.get(), "seq", json_object_get(get(frame, "seq")));
    if (op && !strcmp(op, "lookup")) {
        uint32_t id = 0;
        int status = hb_lookup(st, json_object_get_string(get(frame, "path")), &id);
        json_object_object_add(ans.get(), "status", json_object_new_int(status));
        json_object_object_add(ans.get(), "id", json_object_new_int64(id));
    } else if (op && !strcmp(op, "invoke")) {
        hb_answer out;
        hb_invoke(st, (uint32_t)json_object_get_int64(get(frame, "id")),
                  json_object_get_string(get(frame, "method")), get(frame, "msg"), &out);
        if (out.disconnect)
            return -1;
        json_object *data = json_object_new_array();
        for (const std::string &text : out.data)
            json_object_array_add(data, json_object_new_string_len(text.data(), (int)text.size()));
        json_object_object_add(ans.get(), "status", json_object_new_int(out.status));
        json_object_object_add(ans.get(), "data", data);
    } else {
        json_object_object_add(ans.get(), "status", json_object_new_int(1));
    }
    return write_frame(fd, ans.get());
}

// Connection thread: requests are answered one at a time, in order.
static void serve_connection(hb_state *st, int fd)
{
    for (;;) {
        json_ptr frame(read_frame(fd));
        if (!frame || serve_frame(st, fd, frame.get()) != 0)
            break;
    }
    close(fd);
}

static int mkdir_p(const std::string &dir)
{
    for (size_t i = 1; i <= dir.size(); i++) {
        if (i == dir.size() || dir[i] == '/') {
            std::string part = dir.substr(0, i);
            if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
                return -1;
        }
    }
    return 0;
}

static std::string parent_of(const std::string &path)
{
    size_t slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? "/" : path.substr(0, slash);
}

static int listen_on(const std::string &path)
{
    struct sockaddr_un sun;
    memset(&sun, 0, sizeof sun);
    sun.sun_family = AF_UNIX;
    if (path.size() >= sizeof sun.sun_path || mkdir_p(parent_of(path)) != 0)
        return -1;
    strcpy(sun.sun_path, path.c_str());
    unlink(path.c_str());
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (bind(fd, (struct sockaddr *)&sun, sizeof sun) != 0 || listen(fd, 64) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

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
    if (mkdir_p(parent_of(opt.log)) != 0 ||
        (st.log_fd = open(opt.log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)) < 0) {
        fprintf(stderr, "hostbus: cannot open call log %s\n", opt.log.c_str());
        return 1;
    }
    int lfd = listen_on(opt.socket);
    if (lfd < 0) {
        fprintf(stderr, "hostbus: cannot listen on %s: %s\n", opt.socket.c_str(), strerror(errno));
        return 1;
    }
    for (;;) {
        int fd = accept4(lfd, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            break;
        }
        std::thread(serve_connection, &st, fd).detach();
    }
    close(lfd);
    return 1;
}
