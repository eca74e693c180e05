// message_choice.h - which messages a command is about: the options --type and --from.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "command.h"

namespace zebctl {

struct MessageChoice {
    std::vector<std::string> types, sources; // patterns; empty: all

    void add_options(Command command);
    bool matches(std::string_view type, std::string_view source) const;
};

// Whether a message is between the server and one client only: handshakes, heartbeats, farewells,
// filters. It is no part of the station's traffic.
bool is_of_the_link(std::string_view type);

} // namespace zebctl
