// The scenario engine: which objects exist and how each method answers.
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "hostbus.h"

namespace {

struct json_put {
    void operator()(json_object *o) const { json_object_put(o); }
};
using json_ptr = std::unique_ptr<json_object, json_put>;

// Peers present unless a scenario marks them absent.
const char *const kBuiltinObjects[] = {
    "record", "chm_dev_manager", "chm_cascade", "chm_event_detect", "chm_slp",
    "msglog_v2", "msg_push", "preview", "ipc_update", "network.interface.wan",
    nullptr,
};

// Replies larger than this are dropped, as the bus daemon drops them.
constexpr size_t kMaxReply = 1u << 20;
constexpr int kDefaultWaitMaxMs = 30000;

} // namespace

static json_object *member(json_object *obj, const char *key)
{
    json_object *v = nullptr;
    if (!obj || !json_object_is_type(obj, json_type_object) ||
        !json_object_object_get_ex(obj, key, &v))
        return nullptr;
    return v;
}

static bool flag(json_object *obj, const char *key)
{
    json_object *v = member(obj, key);
    return v && json_object_get_boolean(v);
}

// The whole file as text; false when it cannot be read.
static bool read_text(const std::string &path, std::string *out)
{
    FILE *f = fopen(path.c_str(), "rb");
    if (!f)
        return false;
    char buf[4096];
    size_t n;
    out->clear();
    while ((n = fread(buf, 1, sizeof buf, f)) > 0)
        out->append(buf, n);
    bool ok = !ferror(f);
    fclose(f);
    return ok;
}

int hb_load_scenario(hb_state *st, bool *changed)
{
    if (changed)
        *changed = false;
    if (st->scenario_path.empty())
        return 0;
    struct stat sb;
    std::lock_guard<std::mutex> lock(st->mu);
    if (stat(st->scenario_path.c_str(), &sb) != 0)
        return 0; // no file: built-in defaults
    if (st->scenario && sb.st_ino == st->scenario_ino && sb.st_mtim.tv_sec == st->scenario_mtime.tv_sec &&
        sb.st_mtim.tv_nsec == st->scenario_mtime.tv_nsec)
        return 0;
    std::string text;
    json_object *obj = read_text(st->scenario_path, &text) ? json_tokener_parse(text.c_str()) : nullptr;
    if (!obj || !json_object_is_type(obj, json_type_object)) {
        json_object_put(obj);
        fprintf(stderr, "hostbus: scenario %s is not a JSON object\n", st->scenario_path.c_str());
        return -1;
    }
    json_object_put(st->scenario);
    st->scenario = obj;
    st->scenario_text = text;
    st->scenario_mtime = sb.st_mtim;
    st->scenario_ino = sb.st_ino;
    st->turns.clear();
    if (changed)
        *changed = true;
    return 0;
}

static bool object_present(hb_state *st, const char *name)
{
    json_object *entry = member(member(st->scenario, "objects"), name);
    if (entry)
        return !flag(entry, "absent");
    for (const char *const *b = kBuiltinObjects; *b; b++) {
        if (!strcmp(*b, name))
            return true;
    }
    return false;
}

std::vector<std::string> hb_present_objects(hb_state *st)
{
    std::lock_guard<std::mutex> lock(st->mu);
    std::vector<std::string> named;
    for (const char *const *b = kBuiltinObjects; *b; b++)
        named.push_back(*b);
    json_object *objects = member(st->scenario, "objects");
    if (objects && json_object_is_type(objects, json_type_object)) {
        json_object_object_foreach(objects, name, entry) {
            (void)entry;
            if (std::find(named.begin(), named.end(), name) == named.end())
                named.push_back(name);
        }
    }
    std::vector<std::string> present;
    for (const std::string &name : named) {
        if (object_present(st, name.c_str()))
            present.push_back(name);
    }
    return present;
}

int hb_lookup(hb_state *st, const char *path, uint32_t *id)
{
    hb_load_scenario(st);
    std::lock_guard<std::mutex> lock(st->mu);
    if (!path || !object_present(st, path))
        return 4;
    for (size_t i = 0; i < st->ids.size(); i++) {
        if (st->ids[i] == path) {
            *id = (uint32_t)i + 1;
            return 0;
        }
    }
    st->ids.push_back(path);
    *id = (uint32_t)st->ids.size();
    return 0;
}

// Appends {"object","method","message"} as one line. Caller holds st->mu.
static void log_call(hb_state *st, const char *object, const char *method, json_object *msg)
{
    if (st->log_fd < 0)
        return;
    json_ptr line(json_object_new_object());
    json_object_object_add(line.get(), "object", json_object_new_string(object));
    json_object_object_add(line.get(), "method", json_object_new_string(method));
    json_object_object_add(line.get(), "message",
                           msg ? json_object_get(msg) : json_object_new_object());
    std::string text = json_object_to_json_string_ext(line.get(), JSON_C_TO_STRING_PLAIN);
    text += '\n';
    if (write(st->log_fd, text.data(), text.size()) != (ssize_t)text.size())
        fprintf(stderr, "hostbus: short write to the call log\n");
}

// True when every member of want is in msg with the same JSON value.
static bool message_matches(json_object *want, json_object *msg)
{
    if (!want || !json_object_is_type(want, json_type_object))
        return false;
    json_object_object_foreach(want, key, val) {
        json_object *have = member(msg, key);
        if (!have && !val)
            continue;
        if (!have || !val ||
            strcmp(json_object_to_json_string_ext(have, JSON_C_TO_STRING_PLAIN),
                   json_object_to_json_string_ext(val, JSON_C_TO_STRING_PLAIN)) != 0)
            return false;
    }
    return true;
}

// The first of the rule's "cases" whose "when" matches the message, else the rule.
// *tag names the choice for the sequence counters.
static json_object *pick_case(json_object *rule, json_object *msg, std::string *tag)
{
    json_object *cases = member(rule, "cases");
    if (!cases || !json_object_is_type(cases, json_type_array))
        return rule;
    for (size_t i = 0; i < json_object_array_length(cases); i++) {
        json_object *c = json_object_array_get_idx(cases, i);
        if (message_matches(member(c, "when"), msg)) {
            // Appended, not "#" + to_string(i): GCC 12 at -O2 reports a false
            // -Wrestrict overlap in the inlined insert of a one-letter prefix.
            *tag = '#';
            *tag += std::to_string(i);
            return c;
        }
    }
    return rule;
}

// The step for this call: the method's rule, object default, scenario default, or
// {"reply": {}}; "cases" choose by message; a "sequence" advances one element
// per call and then repeats its last. A new reference. Caller holds st->mu.
static json_object *pick_step(hb_state *st, const std::string &object, const char *method,
                              json_object *msg)
{
    json_object *obj = member(member(st->scenario, "objects"), object.c_str());
    json_object *rule = member(member(obj, "methods"), method);
    if (!rule)
        rule = member(obj, "default");
    if (!rule)
        rule = member(st->scenario, "default");
    if (!rule)
        return json_tokener_parse("{\"reply\":{}}");
    std::string tag;
    rule = pick_case(rule, msg, &tag);
    json_object *seq = member(rule, "sequence");
    if (!seq || !json_object_is_type(seq, json_type_array) || json_object_array_length(seq) == 0)
        return json_object_get(rule);
    size_t turn = st->turns[object + "/" + method + tag]++;
    size_t n = json_object_array_length(seq);
    return json_object_get(json_object_array_get_idx(seq, turn < n ? turn : n - 1));
}

hb_hold hb_step_hold(const hb_state *st, json_object *step)
{
    hb_hold hold;
    json_object *v = member(step, "wait_file");
    if (v) {
        hold.wait_path = json_object_get_string(v);
        if (hold.wait_path.empty() || hold.wait_path[0] != '/')
            hold.wait_path = st->root + "/" + hold.wait_path;
        json_object *max = member(step, "wait_max_ms");
        hold.wait_max_ms = max ? json_object_get_int64(max) : kDefaultWaitMaxMs;
    }
    if ((v = member(step, "delay_ms")))
        hold.delay_ms = json_object_get_int64(v);
    return hold;
}

static std::string reply_text(json_object *v)
{
    if (json_object_is_type(v, json_type_string))
        return json_object_get_string(v);
    return json_object_to_json_string_ext(v, JSON_C_TO_STRING_PLAIN);
}

// The reply texts a step produces.
static void step_data(json_object *step, json_object *msg, hb_answer *out)
{
    json_object *v;
    if (flag(step, "no_reply"))
        return;
    if ((v = member(step, "raw")))
        out->data.push_back(json_object_get_string(v));
    if ((v = member(step, "reply")))
        out->data.push_back(reply_text(v));
    if ((v = member(step, "replies")) && json_object_is_type(v, json_type_array)) {
        for (size_t i = 0; i < json_object_array_length(v); i++)
            out->data.push_back(reply_text(json_object_array_get_idx(v, i)));
    }
    if (flag(step, "echo"))
        out->data.push_back(msg ? reply_text(msg) : "{}");
    if ((v = member(step, "huge_bytes")))
        out->data.push_back("{\"data\":\"" + std::string((size_t)json_object_get_int64(v), 'a') +
                            "\"}");
}

json_object *hb_begin_call(hb_state *st, const char *object, const char *method, json_object *msg)
{
    std::lock_guard<std::mutex> lock(st->mu);
    log_call(st, object, method, msg);
    return pick_step(st, object, method, msg);
}

void hb_step_answer(json_object *step, json_object *msg, hb_answer *out)
{
    if (flag(step, "disconnect")) {
        out->disconnect = true;
        return;
    }
    json_object *status = member(step, "status");
    out->status = status ? json_object_get_int(status) : 0;
    step_data(step, msg, out);
    for (auto it = out->data.begin(); it != out->data.end();) {
        if (it->size() > kMaxReply) {
            fprintf(stderr, "hostbus: reply of %zu bytes dropped\n", it->size());
            it = out->data.erase(it);
        } else {
            ++it;
        }
    }
}

int hb_mkdir_parent(const std::string &path)
{
    size_t end = path.rfind('/');
    for (size_t i = 1; end != std::string::npos && i <= end; i++) {
        if (i == end || path[i] == '/') {
            std::string part = path.substr(0, i);
            if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
                return -1;
        }
    }
    return 0;
}
