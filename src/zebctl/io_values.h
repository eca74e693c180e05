// io_values.h - the station's shared variables as `zebctl io` shows and takes them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <zeb2/io.h>

#include "record_json.h"

namespace zebctl {

constexpr size_t k_longest_io_name = sizeof(NET_IO_Real::name) - 1;

// What a message says of one variable.
struct IoEvent {
    const char *what; // "value", "average", "running", "state"; "set" for a request
    std::string name;
    Json value; // a number or, of a digital, true or false; null when it is missing
    FTIME time; // as the publisher states it; -1.0 when it does not
};

// One event for each variable with a name; none for messages that are not about variables.
std::vector<IoEvent> io_events(const ZEBMSG_proc_msg &message);

// A variable that somebody publishes, from the library's tables.
struct IoVariable {
    std::string name;
    std::string from; // empty for the built-in ones
    bool digital;
    Json value;
    Json average, running; // null for a digital
};

// All of them, reals first; without the built-in ones.
std::vector<IoVariable> published_io();
// The one of a name, reals before digitals.
std::optional<IoVariable> find_io(const std::string &name);

// For people: as other values, but what JSON lacks without its quotes.
std::string io_text(const Json &value);

// What an output may be asked for: a finite number, or "true"/"on"/"false"/"off".
struct IoRequest {
    bool digital;
    double value;
    bool on;
};
std::optional<IoRequest> parse_io_request(const std::string &text);

// Case does not matter in names; in patterns * and ? match.
bool same_io_name(const std::string &a, const std::string &b);
bool matches_io_name(const std::string &pattern, const std::string &name);

} // namespace zebctl
