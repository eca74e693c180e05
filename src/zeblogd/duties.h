// duties.h - what the conductor sends at intervals: the messages, the keys and limits of their
// intervals, and the messages that change these.
#pragma once

#include <array>
#include <optional>
#include <string>

#include <zeb2/libzeb2.h>

#include "serverkit/keys.h"

namespace zeblogd {

using serverkit::parse_interval;

constexpr size_t k_duty_count = 4;

struct Duty {
    const char *name;
    const char *key;     // of the interval, in the configuration
    double shortest;     // s
    NETMSG_type setting; // changes the interval; carries a NET_LOG_SetInterval
    // Queues the message for a time: published, or to one program only.
    void (*send)(ZEBMSG_link *link, const char *to, FTIME at);
};

// In the order in which those of one time are sent. Files are switched first: a record of a time
// belongs into the file that begins at that time.
extern const std::array<Duty, k_duty_count> k_duties;

// The duty called `name`, or null.
const Duty *find_duty(const std::string &name);

// True for an interval that a duty can have: 0, which is off, or from its shortest to 31 days.
bool is_interval(const Duty &duty, double seconds);

// The intervals that a duty can have, for people.
std::string interval_limits(const Duty &duty);

// Queues a record that is published or, with a name, goes to that program only. Nothing here is
// retained: a program that starts later must not act on what was meant for an earlier time.
void queue(ZEBMSG_link *link, const char *to, NETMSG_type type, const void *record, size_t size,
           const char *record_type);

} // namespace zeblogd
