// The host broker: listens where ubusd would and speaks compat/ubus's own
// frames (see the comment at the top of compat/ubus/ubus.cpp). Built when the
// daemon links the host libubus; against the device's libubus the peers are
// registered on a real ubusd instead (ubusd_peers.cpp).
#ifndef DSD_REAL_BUS
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
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

} // namespace

static void sleep_ms(int64_t ms)
{
    struct timespec ts = {.tv_sec = (time_t)(ms / 1000), .tv_nsec = (long)(ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0) {
    }
}

// One call on the connection's own thread: the step's hold is slept through,
// which holds up this caller only.
static void invoke(hb_state *st, uint32_t id, const char *method, json_object *msg, hb_answer *out)
{
    hb_load_scenario(st);
    std::string object;
    {
        std::lock_guard<std::mutex> lock(st->mu);
        if (id == 0 || id > st->ids.size() || !method) {
            out->status = 4;
            return;
        }
        object = st->ids[id - 1];
    }
    json_ptr step(hb_begin_call(st, object.c_str(), method, msg));
    hb_hold hold = hb_step_hold(st, step.get());
    for (int64_t left = hold.wait_max_ms;
         !hold.wait_path.empty() && access(hold.wait_path.c_str(), F_OK) != 0 && left > 0; left -= 10)
        sleep_ms(10);
    if (hold.delay_ms > 0)
        sleep_ms(hold.delay_ms);
    hb_step_answer(step.get(), msg, out);
}

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
        invoke(st, (uint32_t)json_object_get_int64(get(frame, "id")),
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

static int listen_on(const std::string &path)
{
    struct sockaddr_un sun;
    memset(&sun, 0, sizeof sun);
    sun.sun_family = AF_UNIX;
    if (path.size() >= sizeof sun.sun_path || hb_mkdir_parent(path) != 0)
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

int hb_serve(hb_state *st, const std::string &socket_path)
{
    int lfd = listen_on(socket_path);
    if (lfd < 0) {
        fprintf(stderr, "hostbus: cannot listen on %s: %s\n", socket_path.c_str(), strerror(errno));
        return 1;
    }
    for (;;) {
        int fd = accept4(lfd, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            break;
        }
        std::thread(serve_connection, st, fd).detach();
    }
    close(lfd);
    return 1;
}
#endif
