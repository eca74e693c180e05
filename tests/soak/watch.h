// watch.h - what a process takes, as /proc tells it, and whether it takes ever more.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace soak {

struct Usage {
    double resident = 0;    // KiB
    double descriptors = 0; // open
    double threads = 0;
    double processor = 0; // seconds used since its start
};

// Nothing when the process has ended.
std::optional<Usage> usage_of(pid_t pid);

struct Point {
    double time, value;
};

// How much a series has risen from its first to its last point. What counts is the lowest of each
// twelfth of the time: a burst of traffic or a queue that grows and empties again is no rise, a
// leak lifts the lows as well. The slope is the median of those between all pairs of lows, which a
// few odd ones cannot move. Nothing for less than three lows.
std::optional<double> rise_of(const std::vector<Point> &points);

} // namespace soak
