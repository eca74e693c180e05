#include "config.h"

#include "serverkit/settings.h"

#include <zeb2/util.h>

namespace zebmsgd {
namespace {

constexpr double k_longest_wait = 86400;
constexpr size_t k_most_bytes = size_t{1} << 30;
constexpr const char *k_allow = "Server;TCP;Allow";

// "192.0.2.7; 10.0.0.0/8": fields without the blanks around them.
void read_allowed(serverkit::Settings &settings, serverkit::AddressList &list) {
    const std::string value = settings.text(k_allow, "");
    char field[256];
    for (int i = 0; UTIL_stringfield(value.c_str(), ";", i, field, sizeof field); ++i) {
        UTIL_strip_lead_trail_space(field);
        if (*field != '\0' && !list.add(field))
            settings.refuse(k_allow, field, "a numeric address or network");
    }
    // Separators alone would admit everybody where somebody meant to admit few.
    if (!value.empty() && list.empty())
        settings.refuse(k_allow, value, "a list of numeric addresses or networks");
}

void read_limits(serverkit::Settings &settings, Limits &limits) {
    limits.clients = settings.count("Server;Limit;Clients", limits.clients, 1, 10000);
    limits.queue_bytes =
        settings.count("Server;Limit;QueueBytes", limits.queue_bytes, 4096, k_most_bytes);
    limits.filters = settings.count("Server;Limit;Filters", limits.filters, 0, 10000);
    limits.retained = settings.count("Server;Limit;Retained", limits.retained, 0, 100000);
    limits.retained_bytes =
        settings.count("Server;Limit;RetainedBytes", limits.retained_bytes, 0, k_most_bytes);
}

} // namespace

std::optional<Config> read_config(CONF_node *root) {
    serverkit::Settings settings(root);
    Config config;
    config.access.mode = settings.mode("Server;Socket;Mode", config.access.mode);
    config.access.group = settings.text("Server;Socket;Group", "");
    config.tcp_port = static_cast<int>(settings.count("Server;TCP;Port", 0, 0, 65535));
    config.tcp_address = settings.text("Server;TCP;Bind", config.tcp_address.c_str());
    read_allowed(settings, config.tcp_allow);
    config.heartbeat_interval = settings.seconds("Server;Heartbeat;Interval",
                                                 config.heartbeat_interval, 0.01, k_longest_wait);
    config.heartbeat_timeout = settings.seconds("Server;Heartbeat;Timeout",
                                                config.heartbeat_timeout, 0.01, k_longest_wait);
    config.handshake_timeout = settings.seconds("Server;Handshake;Timeout",
                                                config.handshake_timeout, 0.01, k_longest_wait);
    read_limits(settings, config.limits);
    return settings.good() ? std::optional(config) : std::nullopt;
}

} // namespace zebmsgd
