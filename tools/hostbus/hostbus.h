// hostbus: a stand-in for ubusd and the peer daemons on a development host.
// Shared between the broker's socket loop and its scenario engine.
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
    struct timespec scenario_mtime = {};
    ino_t scenario_ino = 0;
    std::vector<std::string> ids;        // object id -> name
    std::map<std::string, size_t> turns; // "object/method" -> calls so far
    int log_fd = -1;
};

struct hb_answer {
    int status = 0;
    std::vector<std::string> data; // reply message texts, in order
    bool disconnect = false;       // drop the caller without answering
};

// Loads (or re-loads when the file changed) the scenario. 0, or -1 when the
// file exists but is not a JSON object. Takes st->mu.
int hb_load_scenario(hb_state *st);
// Object lookup: 0 and *id, or 4 (not found).
int hb_lookup(hb_state *st, const char *path, uint32_t *id);
// One call: logs it, then plays the scenario step (which may sleep). Any thread.
void hb_invoke(hb_state *st, uint32_t id, const char *method, json_object *msg,
               hb_answer *out);
