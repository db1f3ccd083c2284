// The cost of the live statistics and the change events: the same requests
// timed on daemons started with them on and off (DSD_STATS=0 DSD_EVENTS=0).
#pragma once

#include <string>

#include "bench_util.h"

enum { SWITCH_ROWS = 5 };

// One timed row: medians over all rounds, and per pair of rounds (one on,
// one off, next to each other) the ratio on / off of the rounds' medians.
struct switch_row {
    const char *what;
    double on_us, off_us;            // median of all samples
    double ratio_median;             // median over the pairs of on / off
    double ratio_min, ratio_max;
};

struct switch_figures {
    int pairs;
    switch_row rows[SWITCH_ROWS];
};

// Alternates daemons with the switches on and off, `pairs` pairs of short
// rounds on the bench's root (the order inside a pair alternating), each
// round timing every row in turns. False when a daemon did not start or a
// request failed.
bool bench_switches(const std::string &dsd, const std::string &root, int pairs, switch_figures *out);
