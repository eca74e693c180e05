#include "config.h"

#include <zeb2/util.h>

namespace zebmsgd {
namespace {

using serverkit::count, serverkit::mode, serverkit::seconds, serverkit::text;

constexpr double k_shortest_wait = 0.01, k_longest_wait = 86400;
constexpr double k_most_bytes = size_t{1} << 30;

constexpr serverkit::Key k_table[] = {
    mode("Server;Socket;Mode", "660", "mode of the local sockets, octal"),
    text("Server;Socket;Group", "", "group of the local sockets; none for the server's own"),
    count("Server;TCP;Port", "0", 0, 65535, "port of the TCP socket, 8567 as a rule; 0 for none"),
    text("Server;TCP;Bind", "127.0.0.1", "numeric address of the TCP socket"),
    text("Server;TCP;Allow", "",
         "numeric addresses and networks that may connect, between \";\"; none for all"),
    seconds("Server;Heartbeat;Interval", "5", k_shortest_wait, k_longest_wait,
            "seconds between heartbeats"),
    seconds("Server;Heartbeat;Timeout", "30", k_shortest_wait, k_longest_wait,
            "seconds until a client that answers no heartbeat is dropped"),
    seconds("Server;Handshake;Timeout", "10", k_shortest_wait, k_longest_wait,
            "seconds within which a connection must say its name"),
    count("Server;Limit;Clients", "256", 1, 10000, "most clients"),
    count("Server;Limit;QueueBytes", "8388608", 4096, k_most_bytes,
          "most bytes that wait for one client"),
    count("Server;Limit;Filters", "256", 0, 10000, "most filters of one client"),
    count("Server;Limit;Retained", "1024", 0, 100000, "most retained messages of one client"),
    count("Server;Limit;RetainedBytes", "2097152", 0, k_most_bytes,
          "most bytes of the retained messages of one client")};

// "192.0.2.7; 10.0.0.0/8": fields without the blanks around them.
void read_allowed(serverkit::Settings &settings, serverkit::AddressList &list) {
    const char *const key = "Server;TCP;Allow";
    const std::string value = settings.text(key);
    char field[256];
    for (int i = 0; UTIL_stringfield(value.c_str(), ";", i, field, sizeof field); ++i) {
        UTIL_strip_lead_trail_space(field);
        if (*field != '\0' && !list.add(field))
            settings.refuse(key, field, "a numeric address or network");
    }
    // Separators alone would admit everybody where somebody meant to admit few.
    if (!value.empty() && list.empty())
        settings.refuse(key, value, "a list of numeric addresses or networks");
}

void read_limits(serverkit::Settings &settings, Limits &limits) {
    limits.clients = settings.count("Server;Limit;Clients");
    limits.queue_bytes = settings.count("Server;Limit;QueueBytes");
    limits.filters = settings.count("Server;Limit;Filters");
    limits.retained = settings.count("Server;Limit;Retained");
    limits.retained_bytes = settings.count("Server;Limit;RetainedBytes");
}

} // namespace

const serverkit::ProgramKeys k_keys = {
    "zebmsgd", {k_table}, [](serverkit::Settings &settings) { read_config(settings); },
    true};

std::optional<Config> read_config(CONF_node *root) {
    const serverkit::Keys keys(k_keys);
    serverkit::Settings settings(keys, root);
    return read_config(settings);
}

std::optional<Config> read_config(serverkit::Settings &settings) {
    Config config;
    config.access.mode = settings.mode("Server;Socket;Mode");
    config.access.group = settings.text("Server;Socket;Group");
    config.tcp_port = static_cast<int>(settings.count("Server;TCP;Port"));
    config.tcp_address = settings.text("Server;TCP;Bind");
    read_allowed(settings, config.tcp_allow);
    config.heartbeat_interval = settings.number("Server;Heartbeat;Interval");
    config.heartbeat_timeout = settings.number("Server;Heartbeat;Timeout");
    config.handshake_timeout = settings.number("Server;Handshake;Timeout");
    read_limits(settings, config.limits);
    return settings.good() ? std::optional(config) : std::nullopt;
}

} // namespace zebmsgd
