// The peers on a real ubusd: built when the daemon links the device's
// libubus. Every object the scenario makes present is registered on the bus
// with one catch-all method; each call is logged and answered by the same
// scenario engine as the host broker's. Calls are deferred and finished from
// uloop timers, so a held answer never holds up another caller.
//
// Limits of a real bus, played as closely as it allows:
// - a reply is always a blobmsg table, so a reply text that is not a JSON
//   object ("raw" or a string "reply") goes out as a member that the bus's
//   JSON formatter prints as text json-c refuses: the caller gets a reply it
//   cannot parse, as a non-JSON answer would be;
// - a peer cannot close its caller's connection (ubusd sits between them), so
//   "disconnect" is a peer that died mid-call: the answer never comes and
//   the caller's wait runs out.
#ifdef DSD_REAL_BUS
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <list>
#include <memory>
#include <string>
#include <vector>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
#include <libubus.h>
}

#include "hostbus.h"

namespace {

struct json_put {
    void operator()(json_object *o) const { json_object_put(o); }
};
using json_ptr = std::unique_ptr<json_object, json_put>;

struct ubus_free_del {
    void operator()(ubus_context *c) const { ubus_free(c); }
};

constexpr int kPollMs = 10;         // scenario file and wait_file polling
constexpr int kConnectTries = 500;  // ubusd may still be starting
constexpr size_t kMaxBusMsg = 1u << 20;

struct real_bus;
struct pending_call;

// A uloop timer that knows what it is for (uloop hands back only the timer).
template <typename T> struct owned_timer {
    uloop_timeout t;
    T *owner;
};

// One registered object; obj comes first so the handler finds the rest.
struct peer_object {
    ubus_object obj;
    ubus_object_type type;
    ubus_method any;
    real_bus *bus;
};

// One deferred call, from its arrival to its answer.
struct pending_call {
    owned_timer<pending_call> timer;
    real_bus *bus;
    ubus_request_data req;
    json_ptr step, msg;
    hb_hold hold;
    int64_t waited_ms = 0;
    bool delayed = false;
};

struct real_bus {
    hb_state *st = nullptr;
    ubus_context *ctx = nullptr;
    std::list<std::pair<std::string, peer_object>> objects; // stable addresses
    std::list<std::unique_ptr<pending_call>> calls;
    owned_timer<real_bus> reload{};
    std::string ack_path;
};

} // namespace

// The call's message as JSON ({} when empty or unreadable). A new reference.
static json_object *message_json(blob_attr *msg)
{
    char *text = msg ? blobmsg_format_json(msg, true) : nullptr;
    json_object *obj = text ? json_tokener_parse(text) : nullptr;
    free(text);
    return obj ? obj : json_object_new_object();
}

// Sends one reply text: a JSON object as it is; anything else as a member
// the bus prints as "inf", which no JSON parser takes. 0 or a bus status.
static int send_text(ubus_context *ctx, ubus_request_data *req, const std::string &text)
{
    blob_buf b;
    memset(&b, 0, sizeof b);
    blob_buf_init(&b, 0);
    json_ptr obj(json_tokener_parse(text.c_str()));
    if (obj && json_object_is_type(obj.get(), json_type_object))
        blobmsg_add_object(&b, obj.get());
    else
        blobmsg_add_double(&b, "raw", INFINITY);
    // ubusd refuses a message over 1 MiB (headers included).
    int rc = blob_pad_len(b.head) + 64 > kMaxBusMsg ? UBUS_STATUS_NO_MEMORY
                                                    : ubus_send_reply(ctx, req, b.head);
    blob_buf_free(&b);
    return rc;
}

static void forget_call(real_bus *bus, pending_call *call)
{
    uloop_timeout_cancel(&call->timer.t);
    bus->calls.remove_if([call](const std::unique_ptr<pending_call> &p) { return p.get() == call; });
}

// Plays what is left of the call's hold, then answers it.
static void advance_call(uloop_timeout *t)
{
    pending_call *call = reinterpret_cast<owned_timer<pending_call> *>(t)->owner;
    const hb_hold &h = call->hold;
    if (!h.wait_path.empty() && call->waited_ms < h.wait_max_ms && access(h.wait_path.c_str(), F_OK) != 0) {
        call->waited_ms += kPollMs;
        uloop_timeout_set(&call->timer.t, kPollMs);
        return;
    }
    if (h.delay_ms > 0 && !call->delayed) {
        call->delayed = true;
        uloop_timeout_set(&call->timer.t, (int)h.delay_ms);
        return;
    }
    hb_answer out;
    hb_step_answer(call->step.get(), call->msg.get(), &out);
    if (!out.disconnect) {
        for (const std::string &text : out.data) {
            int rc = send_text(call->bus->ctx, &call->req, text);
            if (rc != 0)
                fprintf(stderr, "hostbus: reply of %zu bytes not sent: %s\n", text.size(), ubus_strerror(rc));
        }
        ubus_complete_deferred_request(call->bus->ctx, &call->req, out.status);
    }
    forget_call(call->bus, call);
}

// The catch-all method of every peer object.
static int peer_method(ubus_context *ctx, ubus_object *obj, ubus_request_data *req,
                       const char *method, blob_attr *msg)
{
    real_bus *bus = reinterpret_cast<peer_object *>(obj)->bus;
    auto call = std::make_unique<pending_call>();
    call->bus = bus;
    call->msg.reset(message_json(msg));
    call->step.reset(hb_begin_call(bus->st, obj->name, method, call->msg.get()));
    call->hold = hb_step_hold(bus->st, call->step.get());
    call->timer.t.cb = advance_call;
    call->timer.owner = call.get();
    ubus_defer_request(ctx, req, &call->req);
    pending_call *p = call.get();
    bus->calls.push_back(std::move(call));
    advance_call(&p->timer.t);
    return 0;
}

// Registers name on the bus. 0 or a bus status.
static int add_peer(real_bus *bus, const std::string &name)
{
    bus->objects.emplace_back(name, peer_object{});
    peer_object &p = bus->objects.back().second;
    p.bus = bus;
    p.any.name = nullptr; // matches every method name
    p.any.handler = peer_method;
    p.type.name = bus->objects.back().first.c_str();
    p.obj.name = p.type.name;
    p.obj.type = &p.type;
    p.obj.methods = &p.any;
    p.obj.n_methods = 1;
    int rc = ubus_add_object(bus->ctx, &p.obj);
    if (rc != 0) {
        fprintf(stderr, "hostbus: cannot add object %s: %s\n", name.c_str(), ubus_strerror(rc));
        bus->objects.pop_back();
    }
    return rc;
}

// Makes the registered objects those the scenario wants present.
static int sync_objects(real_bus *bus)
{
    std::vector<std::string> want = hb_present_objects(bus->st);
    for (auto it = bus->objects.begin(); it != bus->objects.end();) {
        bool keep = false;
        for (const std::string &w : want)
            keep = keep || w == it->first;
        if (keep) {
            ++it;
            continue;
        }
        ubus_remove_object(bus->ctx, &it->second.obj);
        it = bus->objects.erase(it);
    }
    int rc = 0;
    for (const std::string &w : want) {
        bool have = false;
        for (const auto &o : bus->objects)
            have = have || o.first == w;
        if (!have && add_peer(bus, w) != 0)
            rc = -1;
    }
    return rc;
}

// Tells the test harness which scenario text is in force: it waits for this
// file before relying on a new scenario. 0 or -1.
static int write_ack(const real_bus *bus)
{
    std::string tmp = bus->ack_path + ".tmp";
    FILE *f = fopen(tmp.c_str(), "wb");
    if (!f)
        return -1;
    bool ok = fwrite(bus->st->scenario_text.data(), 1, bus->st->scenario_text.size(), f) ==
              bus->st->scenario_text.size();
    ok = fclose(f) == 0 && ok;
    return ok && rename(tmp.c_str(), bus->ack_path.c_str()) == 0 ? 0 : -1;
}

static void reload_tick(uloop_timeout *t)
{
    real_bus *bus = reinterpret_cast<owned_timer<real_bus> *>(t)->owner;
    bool changed = false;
    if (hb_load_scenario(bus->st, &changed) == 0 && changed &&
        (sync_objects(bus) != 0 || write_ack(bus) != 0))
        fprintf(stderr, "hostbus: scenario applied only in part\n");
    uloop_timeout_set(t, kPollMs);
}

static ubus_context *connect_bus(const std::string &socket_path)
{
    for (int i = 0; i < kConnectTries; i++) {
        ubus_context *ctx = ubus_connect(socket_path.c_str());
        if (ctx)
            return ctx;
        usleep(kPollMs * 1000);
    }
    return nullptr;
}

int hb_serve(hb_state *st, const std::string &socket_path)
{
    std::unique_ptr<ubus_context, ubus_free_del> ctx(connect_bus(socket_path));
    if (!ctx) {
        fprintf(stderr, "hostbus: no ubusd at %s\n", socket_path.c_str());
        return 1;
    }
    real_bus bus;
    bus.st = st;
    bus.ctx = ctx.get();
    bus.ack_path = st->scenario_path.empty() ? "" : st->scenario_path + ".applied";
    if (sync_objects(&bus) != 0 || (!bus.ack_path.empty() && write_ack(&bus) != 0))
        return 1;
    ubus_add_uloop(ctx.get());
    bus.reload.t.cb = reload_tick;
    bus.reload.owner = &bus;
    if (!bus.ack_path.empty())
        uloop_timeout_set(&bus.reload.t, kPollMs);
    uloop_run(); // until SIGTERM or SIGINT
    uloop_timeout_cancel(&bus.reload.t);
    bus.calls.clear();
    uloop_done();
    return 0;
}
#endif
