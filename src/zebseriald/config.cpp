#include "config.h"

#include "serverkit/settings.h"

#include <iterator>
#include <strings.h>

namespace zebseriald {
namespace {

using serverkit::Settings;

constexpr double k_longest_wait = 86400;
constexpr size_t k_most_bytes = size_t{1} << 26;

// The value of a key that is one of a few words; the words' numbers count from 0.
BYTE one_of(Settings &settings, const std::string &key, std::initializer_list<const char *> words,
            const char *what) {
    const std::string value = settings.text(key.c_str(), *words.begin());
    BYTE number = 0;
    for (const char *word : words) {
        if (strcasecmp(word, value.c_str()) == 0)
            return number;
        ++number;
    }
    settings.refuse(key.c_str(), value, what);
    return 0;
}

Line read_line(Settings &settings, const std::string &stem) {
    const auto number = [&](const char *key, size_t standard, size_t lowest, size_t highest) {
        return settings.count((stem + key).c_str(), standard, lowest, highest);
    };
    Line line = k_standard_line;
    line.baud = static_cast<DWORD>(number(";Baud", line.baud, 300, 4000000));
    if (!speed_of(line.baud))
        settings.refuse((stem + ";Baud").c_str(), std::to_string(line.baud),
                        "a standard baud rate");
    line.bits = static_cast<BYTE>(number(";Bits", line.bits, 5, 8));
    line.stop_bits = static_cast<BYTE>(number(";StopBits", line.stop_bits, 1, 2));
    line.parity = one_of(settings, stem + ";Parity", {"none", "odd", "even"}, "none, odd or even");
    line.flow_cont = one_of(settings, stem + ";FlowControl", {"none", "software", "hardware"},
                            "none, software or hardware");
    return line;
}

PortConfig read_port(Settings &settings, const std::string &name, size_t most_bytes) {
    const std::string stem = "Port;" + name;
    PortConfig port;
    port.name = name;
    const std::string key = stem + ";Device";
    const std::string device = settings.text(key.c_str(), "");
    if (const auto path = device_path(device))
        port.device = *path;
    else
        settings.refuse(key.c_str(), device, "the path of a device");
    if (name.size() > sizeof(SERIALD_connect_params::port_name) - 2 || name[0] == '/')
        settings.refuse(stem.c_str(), name,
                        "a name of at most 254 characters, without \"/\" first");
    port.line = read_line(settings, stem);
    const auto size = [&](const char *what, size_t standard) {
        return settings.count((stem + what).c_str(), std::min(standard, most_bytes), 1, most_bytes);
    };
    port.buffer_size = size(";MaxBuffer", port.buffer_size);
    port.echo_size = size(";MaxEcho", port.echo_size);
    return port;
}

void read_limits(Settings &settings, Limits &limits) {
    limits.clients = settings.count("Serial;Limit;Clients", limits.clients, 1, 10000);
    limits.buffer_bytes =
        settings.count("Serial;Limit;BufferBytes", limits.buffer_bytes, 16, limits.buffer_bytes);
    limits.output_bytes =
        settings.count("Serial;Limit;OutputBytes", limits.output_bytes, 1, k_most_bytes);
    limits.queue_bytes =
        settings.count("Serial;Limit;QueueBytes", limits.queue_bytes, 2097152, k_most_bytes);
    limits.requests = settings.count("Serial;Limit;Requests", limits.requests, 1, 10000);
    limits.repeaters = settings.count("Serial;Limit;Repeaters", limits.repeaters, 0, 100);
}

} // namespace

std::optional<Config> read_config(CONF_node *root) {
    Settings settings(root);
    Config config;
    config.access.mode = settings.mode("Serial;Socket;Mode", config.access.mode);
    config.access.group = settings.text("Serial;Socket;Group", "");
    config.heartbeat_timeout = settings.seconds("Serial;Heartbeat;Timeout",
                                                config.heartbeat_timeout, 0.01, k_longest_wait);
    config.handshake_timeout = settings.seconds("Serial;Handshake;Timeout",
                                                config.handshake_timeout, 0.01, k_longest_wait);
    config.repeater_directory =
        settings.text("Serial;Repeater;Directory", config.repeater_directory.c_str());
    if (config.repeater_directory[0] != '/')
        settings.refuse("Serial;Repeater;Directory", config.repeater_directory,
                        "the full path of a directory");
    read_limits(settings, config.limits);
    CONF_node *ports = root == nullptr ? nullptr : CONF_lookup_tree(root, "Port");
    for (size_t i = 0; ports != nullptr && i < ports->n_children; ++i)
        config.ports.push_back(
            read_port(settings, ports->children[i]->name, config.limits.buffer_bytes));
    return settings.good() ? std::optional(config) : std::nullopt;
}

} // namespace zebseriald
