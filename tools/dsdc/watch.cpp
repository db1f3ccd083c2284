// `dsdc watch`: listens on the bus for dsd's configuration change events
// and prints each as it comes. A lost bus (restarted ubusd) is waited for
// and listened to again; SIGINT or SIGTERM ends the watch.
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
#include <libubus.h>
}

#include "tools/dsdc/dsdc.h"

namespace {

volatile sig_atomic_t g_stop;

void on_stop(int)
{
    g_stop = 1;
}

// Ours between loops (on_stop), the default while the loop runs: the loop
// takes over only signals left at their default, and then tells of them by
// its result.
void take_signals(void (*handler)(int) = on_stop)
{
    struct sigaction sa {};
    sigemptyset(&sa.sa_mask);
    sa.sa_handler = handler;
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

struct watch_state {
    ubus_event_handler handler;
    std::set<std::string> modules;
    bool json;
};

// The one watch of the process, for the event callback.
watch_state *g_watch;

// "a,b" of an array of strings.
std::string joined(json_object *arr)
{
    std::string out;
    size_t n = json_object_is_type(arr, json_type_array) ? json_object_array_length(arr) : 0;
    for (size_t i = 0; i < n; ++i)
        out += (i ? "," : "") + std::string(json_object_get_string(json_object_array_get_idx(arr, i)));
    return out;
}

const char *text_of(json_object *ev, const char *key)
{
    json_object *v = nullptr;
    return json_object_object_get_ex(ev, key, &v) ? json_object_get_string(v) : "";
}

// HH:MM:SS method module/package by user #change: section[options] ...
void print_line(json_object *ev)
{
    time_t now = time(nullptr);
    char clock[16];
    strftime(clock, sizeof clock, "%H:%M:%S", localtime(&now));
    std::string line = std::string(clock) + " " + text_of(ev, "method") + " " + text_of(ev, "module") + "/" +
                       text_of(ev, "package") + " by " + text_of(ev, "user") + " #" + text_of(ev, "change") + ":";
    json_object *sections = nullptr, *options = nullptr, *keyword = nullptr;
    json_object_object_get_ex(ev, "options", &options);
    if (json_object_object_get_ex(ev, "sections", &sections)) {
        for (size_t i = 0; i < json_object_array_length(sections); ++i) {
            const char *name = json_object_get_string(json_object_array_get_idx(sections, i));
            json_object *opts = nullptr;
            line += std::string(" ") + name;
            if (options && json_object_object_get_ex(options, name, &opts))
                line += "[" + joined(opts) + "]";
        }
    }
    if (json_object_object_get_ex(ev, "keyword", &keyword))
        line += std::string(" (") + json_object_get_string(keyword) + ")";
    // A package a callback or hook committed has no sections of the
    // request's own to name.
    else if (!sections || json_object_array_length(sections) == 0)
        line += " (whole package)";
    printf("%s\n", line.c_str());
}

void on_event(ubus_context *, ubus_event_handler *, const char *, blob_attr *msg)
{
    watch_state *st = g_watch;
    char *text = msg ? blobmsg_format_json_with_cb(msg, true, nullptr, nullptr, -1) : nullptr;
    dsdc_json obj(text ? json_tokener_parse(text) : nullptr);
    free(text);
    if (!obj)
        return;
    if (!st->modules.empty() && !st->modules.count(text_of(obj.get(), "module")))
        return;
    if (st->json)
        printf("%s\n", json_object_to_json_string_ext(obj.get(), JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE));
    else
        print_line(obj.get());
}

// The library's default does not end the loop when the bus hangs up (the
// socket has left the loop by then): end it, to listen again.
void on_lost(ubus_context *)
{
    uloop_end();
}

ubus_context *connect_bus(void)
{
    std::string path = dsd_path("/var/run/ubus.sock");
    bool present = access(path.c_str(), F_OK) == 0;
    return ubus_connect(present ? path.c_str() : nullptr);
}

// One listening session: DSDC_OK after a signal, -1 when the bus was lost
// (or could not be reached), so the caller listens again.
int listen_once(watch_state *st, bool *ever)
{
    ubus_context *ctx = connect_bus();
    take_signals();
    if (!ctx)
        return -1;
    ctx->connection_lost = on_lost;
    // A handler keeps the object id of the bus it was registered on: start
    // afresh on a new connection.
    st->handler = ubus_event_handler{};
    st->handler.cb = on_event;
    int rc = -1;
    if (ubus_register_event_handler(ctx, &st->handler, "dsd.config") == 0) {
        *ever = true;
        fprintf(stderr, "dsdc: listening for %s\n", "dsd.config");
        ubus_add_uloop(ctx);
        take_signals(SIG_DFL);
        rc = uloop_run() != 0 || g_stop ? DSDC_OK : -1;
    }
    take_signals();
    ubus_free(ctx);
    return rc;
}

} // namespace

int dsdc_watch(const dsdc_options &o, int argc, char **argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    watch_state st{};
    g_watch = &st;
    st.json = o.json;
    for (int i = 0; i < argc; ++i)
        st.modules.insert(argv[i]);
    uloop_init();
    take_signals();
    bool ever = false;
    while (!g_stop) {
        if (listen_once(&st, &ever) == DSDC_OK)
            break;
        if (!ever) {
            fprintf(stderr, "dsdc: cannot listen on the bus\n");
            return DSDC_NO_RESPONSE;
        }
        usleep(200 * 1000); // the bus restarts: listen again when it is back
    }
    uloop_done();
    return DSDC_OK;
}
