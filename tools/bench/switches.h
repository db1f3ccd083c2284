// The cost of the live statistics and the change events: the same requests
// timed on daemons started with them on and off (DSD_STATS=0 DSD_EVENTS=0).
#pragma once

#include <string>

#include "bench_util.h"

struct switch_figures {
    bench_stats get_on, get_off;   // warm get of one section
    bench_stats set_on, set_off;   // set one option + commit (an event each)
};

// Alternates daemons with the switches on and off, several rounds each,
// on the bench's root; the medians of all rounds. False when a daemon did
// not start or a request failed.
bool bench_switches(const std::string &dsd, const std::string &root, switch_figures *out);
