// status.h - the server's state as one JSON document.
#pragma once

#include "client.h"

#include <string>
#include <vector>

namespace zebmsgd {

struct Totals {
    std::string version;
    double uptime = 0; // seconds
    unsigned heartbeat = 0;
    Traffic gone;             // of clients that have left
    uint64_t connections = 0; // accepted since the start
    uint64_t refused = 0;     // turned away: over the limit, or not on the list
    uint64_t cut_off = 0;     // disconnected for a fault of theirs
    uint64_t failed_accepts = 0;
    size_t retained = 0;
};

// Text that is not UTF-8 comes out with replacement characters.
std::string status_document(const Totals &totals, const std::vector<const Client *> &clients,
                            double now);

} // namespace zebmsgd
