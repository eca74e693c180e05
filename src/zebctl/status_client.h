// status_client.h - the status document of the message server.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>

namespace zebctl {

// Fetches the document from the socket beside the server's main one; nothing after a report.
std::optional<nlohmann::json> fetch_status();

} // namespace zebctl
