// hostbus: a stand-in for the peer daemons (and, with the host libubus, for
// ubusd itself) on a development host. Shared between the bus side
// (broker.cpp or ubusd_peers.cpp) and the scenario engine (scenario.cpp).
#pragma once

#include <json-c/json.h>
#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

struct hb_state {
    std::string root;          // device root; relative scenario paths live under it
    std::string scenario_path; // "" for the built-in defaults only
    std::string log_path;      // one JSON line per call received
    // Guards everything below: connection threads share the scenario,
    // the object ids, the reply sequence positions and the log.
    std::mutex mu;
    json_object *scenario = nullptr; // owned
    std::string scenario_text;       // the text it was parsed from
    struct timespec scenario_mtime = {};
    ino_t scenario_ino = 0;
    std::vector<std::string> ids;        // object id -> name (host broker only)
    std::map<std::string, size_t> turns; // "object/method" -> calls so far
    int log_fd = -1;
};

// What holds a call before it is answered.
struct hb_hold {
    std::string wait_path;   // answer once this exists ("" for none)...
    int64_t wait_max_ms = 0; // ...or once this much time has passed
    int64_t delay_ms = 0;    // then wait this long
};

struct hb_answer {
    int status = 0;
    std::vector<std::string> data; // reply message texts, in order
    bool disconnect = false;       // drop the caller without answering
};

// Loads (or re-loads when the file changed) the scenario; *changed (if
// given) tells whether it did. 0, or -1 when the file exists but is not a
// JSON object. Takes st->mu.
int hb_load_scenario(hb_state *st, bool *changed = nullptr);
// Names of the objects present under the current scenario. Takes st->mu.
std::vector<std::string> hb_present_objects(hb_state *st);
// Object lookup for the host broker: 0 and *id, or 4 (not found).
int hb_lookup(hb_state *st, const char *path, uint32_t *id);
// Start of one call: logs it and picks the scenario step that answers it (a
// new reference, never null). Takes st->mu.
json_object *hb_begin_call(hb_state *st, const char *object, const char *method, json_object *msg);
// How long the step holds its answer back.
hb_hold hb_step_hold(const hb_state *st, json_object *step);
// The step's answer to msg (after its hold). Replies over 1 MiB are dropped.
void hb_step_answer(json_object *step, json_object *msg, hb_answer *out);
// Creates the directories above path. 0 or -1.
int hb_mkdir_parent(const std::string &path);
// Serves the peers on the bus at socket_path until the process is told to
// stop. The exit status.
int hb_serve(hb_state *st, const std::string &socket_path);
// Command-line client: argv starts at "call". The bus status as exit code.
int hb_cli_main(int argc, char **argv);
