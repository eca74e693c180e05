// records.h - the few records that the server itself reads and writes.
#pragma once

#include "filters.h"
#include "wire.h"

#include <optional>
#include <string>

namespace zebmsgd {

// Each is nothing when the payload does not carry its record, whole; the library says why.
std::optional<std::string> read_handshake(std::string_view payload);
std::optional<NET_SERVER_FilterAdd> read_filter_add(std::string_view payload);
std::optional<NET_SERVER_FilterDelete> read_filter_delete(std::string_view payload);
std::optional<Announcement> read_announcement(std::string_view payload);

// Frames with an empty source name, unless one is given; empty when memory is short.
Frame make_server_handshake(unsigned index);
Frame make_heartbeat(unsigned index);
Frame make_terminate();
Frame make_client_left(const std::string &name);

} // namespace zebmsgd
