#include "config.h"

#include <algorithm>

namespace zebseriald {
namespace {

using serverkit::count, serverkit::mode, serverkit::seconds, serverkit::tested, serverkit::text,
    serverkit::word;
using serverkit::Default, serverkit::Settings;

constexpr double k_shortest_wait = 0.01, k_longest_wait = 86400;
constexpr double k_most_bytes = size_t{1} << 26;
constexpr double k_most_buffer = 1048570; // as much as one answer holds

std::optional<std::string> fault_of_directory(const std::string &value) {
    return value[0] == '/' ? std::nullopt : std::optional("the full path of a directory");
}

std::optional<std::string> fault_of_baud(const std::string &value) {
    const auto baud = serverkit::parse_whole(value);
    const bool standard = baud && speed_of(static_cast<DWORD>(*baud));
    return standard ? std::nullopt : std::optional("a standard baud rate");
}

std::optional<std::string> fault_of_device(const std::string &value) {
    return device_path(value) ? std::nullopt : std::optional("the path of a device");
}

size_t most_buffer(const Settings &settings) {
    return static_cast<size_t>(
        serverkit::parse_whole(settings.usable("Serial;Limit;BufferBytes")).value_or(0));
}

// The usual size, as far as it is allowed.
template <size_t Usual> Default within_limit(const Settings &settings) {
    return {std::to_string(std::min(Usual, most_buffer(settings)))};
}

constexpr serverkit::Key k_table[] = {
    mode("Serial;Socket;Mode", "660", "mode of the local socket, octal"),
    text("Serial;Socket;Group", "", "group of the local socket; none for the server's own"),
    seconds("Serial;Heartbeat;Timeout", "30", k_shortest_wait, k_longest_wait,
            "seconds until a client that says nothing is dropped"),
    seconds("Serial;Handshake;Timeout", "10", k_shortest_wait, k_longest_wait,
            "seconds within which a connection must name a port"),
    tested(text("Serial;Repeater;Directory", "/var/log/zeb",
                "directory below which repeaters may write files"),
           fault_of_directory),
    count("Serial;Limit;Clients", "256", 1, 10000, "most clients"),
    count("Serial;Limit;BufferBytes", "1048570", 16, k_most_buffer,
          "most bytes that a client may ask for as a buffer of a port"),
    count("Serial;Limit;OutputBytes", "1048576", 1, k_most_bytes,
          "most bytes that wait to go out on a port"),
    count("Serial;Limit;QueueBytes", "4194304", 2097152, k_most_bytes,
          "most bytes that wait for one client"),
    count("Serial;Limit;Requests", "256", 1, 10000, "most requests of one client that wait"),
    count("Serial;Limit;Repeaters", "8", 0, 100, "most repeaters of a port"),
    tested(
        text("Port;*;Device", "", "device of the port of this name, which a daemon opens as =NAME"),
        fault_of_device),
    tested(count("Port;*;Baud", "9600", 300, 4000000, "baud rate"), fault_of_baud),
    count("Port;*;Bits", "8", 5, 8, "data bits"),
    word("Port;*;Parity", "none", "none|odd|even", "parity: none, odd or even"),
    count("Port;*;StopBits", "1", 1, 2, "stop bits"),
    word("Port;*;FlowControl", "none", "none|software|hardware",
         "flow control: none, software or hardware"),
    derived(count("Port;*;MaxBuffer", "", 1, k_most_buffer,
                  "bytes of the line's input that are kept: 65536, or Serial;Limit;BufferBytes "
                  "when that is less"),
            within_limit<65536>),
    derived(count("Port;*;MaxEcho", "", 1, k_most_buffer,
                  "bytes written to the line that are kept: 16384, or Serial;Limit;BufferBytes "
                  "when that is less"),
            within_limit<16384>)};

Line read_line(Settings &settings, const std::string &stem) {
    Line line = k_standard_line;
    line.baud = static_cast<DWORD>(settings.count(stem + ";Baud"));
    line.bits = static_cast<BYTE>(settings.count(stem + ";Bits"));
    line.stop_bits = static_cast<BYTE>(settings.count(stem + ";StopBits"));
    line.parity = static_cast<BYTE>(settings.word(stem + ";Parity"));
    line.flow_cont = static_cast<BYTE>(settings.word(stem + ";FlowControl"));
    return line;
}

size_t read_size(Settings &settings, const std::string &key, size_t most) {
    const size_t size = settings.count(key);
    if (size > most)
        settings.refuse(key, std::to_string(size),
                        "a whole number from 1 to " + std::to_string(most));
    return size;
}

PortConfig read_port(Settings &settings, const std::string &name, size_t most_bytes) {
    const std::string stem = "Port;" + name;
    const std::string device = stem + ";Device";
    PortConfig port;
    port.name = name;
    if (settings.written(device).empty())
        settings.refuse(device, "", "the path of a device");
    port.device = device_path(settings.text(device)).value_or("");
    if (name.size() > sizeof(SERIALD_connect_params::port_name) - 2 || name[0] == '/')
        settings.refuse(stem, name, "a name of at most 254 characters, without \"/\" first");
    port.line = read_line(settings, stem);
    port.buffer_size = read_size(settings, stem + ";MaxBuffer", most_bytes);
    port.echo_size = read_size(settings, stem + ";MaxEcho", most_bytes);
    return port;
}

void read_limits(Settings &settings, Limits &limits) {
    limits.clients = settings.count("Serial;Limit;Clients");
    limits.buffer_bytes = settings.count("Serial;Limit;BufferBytes");
    limits.output_bytes = settings.count("Serial;Limit;OutputBytes");
    limits.queue_bytes = settings.count("Serial;Limit;QueueBytes");
    limits.requests = settings.count("Serial;Limit;Requests");
    limits.repeaters = settings.count("Serial;Limit;Repeaters");
}

} // namespace

const serverkit::ProgramKeys k_keys = {
    "zebseriald", {k_table}, [](Settings &settings) { read_config(settings); },
    true};

std::optional<Config> read_config(CONF_node *root) {
    const serverkit::Keys keys(k_keys);
    Settings settings(keys, root);
    return read_config(settings);
}

std::optional<Config> read_config(Settings &settings) {
    Config config;
    config.access.mode = settings.mode("Serial;Socket;Mode");
    config.access.group = settings.text("Serial;Socket;Group");
    config.heartbeat_timeout = settings.number("Serial;Heartbeat;Timeout");
    config.handshake_timeout = settings.number("Serial;Handshake;Timeout");
    config.repeater_directory = settings.text("Serial;Repeater;Directory");
    read_limits(settings, config.limits);
    CONF_node *ports =
        settings.root() == nullptr ? nullptr : CONF_lookup_tree(settings.root(), "Port");
    for (size_t i = 0; ports != nullptr && i < ports->n_children; ++i)
        config.ports.push_back(
            read_port(settings, ports->children[i]->name, config.limits.buffer_bytes));
    return settings.good() ? std::optional(config) : std::nullopt;
}

} // namespace zebseriald
