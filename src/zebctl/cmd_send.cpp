// zebctl send - sends a message, its record checked against the catalogue.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "command.h"
#include "daemon.h"
#include "record_json.h"

namespace zebctl {
namespace {

struct Options {
    std::string type, to, config, name;
    std::vector<std::string> fields;
    unsigned int flags = 1;
    bool json = false;
};

constexpr double k_patience = 5.0;              // s for a message to leave
constexpr size_t k_max_line = 16 * 1024 * 1024; // as JSON, of the largest message
constexpr size_t k_batch = 1024 * 1024;         // bytes of records queued at a time

struct FreeDeleter {
    void operator()(void *block) const { free(block); }
};

// A message ready to be queued.
struct Outgoing {
    const NETMSG_entry *message = nullptr;
    std::string to;
    DWORD flags = 0;
    std::unique_ptr<void, FreeDeleter> record;
    size_t size = 0;
};

bool fail(const std::string &text) {
    fprintf(stderr, "zebctl: %s\n", text.c_str());
    return false;
}

bool begin(const std::string &type, Outgoing &out) {
    out.message = NETPACK_find_msg_by_name(type.c_str());
    if (out.message == nullptr)
        return fail("the catalogue has no message \"" + type + "\" (see zebctl describe --list)");
    if (out.message->ds_tie == nullptr)
        return true;
    const NETDSD_entry *description = NETPACK_find_ds(out.message->ds_tie);
    if (description == nullptr)
        return fail(std::string("the catalogue has no record ") + out.message->ds_tie);
    out.size = description->total_size;
    out.record.reset(calloc(1, out.size));
    if (out.record == nullptr)
        return fail("no memory for the record");
    NETPACK_fill_mvc(out.record.get(), description->name, out.size);
    return true;
}

bool from_arguments(const Options &options, Outgoing &out) {
    out.to = options.to;
    out.flags = !options.to.empty() && options.flags == 1 ? 0 : options.flags;
    if (!begin(options.type, out))
        return false;
    if (out.record == nullptr && !options.fields.empty())
        return fail(options.type + " carries no record, so it takes no fields");
    for (const std::string &assignment : options.fields) {
        std::string error;
        if (!set_field(*NETPACK_find_ds(out.message->ds_tie), out.record.get(), assignment, error))
            return fail(error);
    }
    return true;
}

// A line as `zebctl watch --json` prints it.
bool from_line(const std::string &line, Outgoing &out) {
    const Json object = Json::parse(line, nullptr, false);
    if (!object.is_object() || !object.contains("type") || !object["type"].is_string())
        return fail("not a JSON object with a \"type\": " + line.substr(0, 60));
    if (object.contains("to") && object["to"].is_string())
        out.to = object["to"].get<std::string>();
    const Json flags = object.contains("flags") ? object["flags"] : Json(1);
    if (!flags.is_number_integer() || flags < 0 || flags > 3)
        return fail("\"flags\" is 0 to 3, not " + flags.dump());
    out.flags = flags.get<DWORD>();
    if (!begin(object["type"].get<std::string>(), out))
        return false;
    std::string error;
    if (out.record == nullptr || !object.contains("record") || object["record"].is_null())
        return true;
    return from_json(*NETPACK_find_ds(out.message->ds_tie), out.record.get(), object["record"],
                     error) ||
           fail(error);
}

void queue(daemon_kit::Station &station, const Outgoing &out) {
    ZEBMSG_queue_message(station.messages(), out.message->msg, out.flags, out.to.c_str(),
                         out.record.get(), out.size, out.message->ds_tie);
}

// Cuts what comes on standard input into lines and sends each.
class LineSender {
  public:
    explicit LineSender(daemon_kit::Station &station) : station_(station) {}

    // Reads once; false at the end of the input or after a report.
    bool read_some() {
        char block[65536];
        const ssize_t got = read(STDIN_FILENO, block, sizeof block);
        if (got < 0 && errno == EINTR)
            return true;
        pending_.append(block, got > 0 ? static_cast<size_t>(got) : 0);
        if (got <= 0)
            pending_ += '\n';
        good_ = send_complete_lines() && drain();
        return good_ && got > 0;
    }
    bool good() const { return good_; }

  private:
    bool send_complete_lines() {
        for (size_t end; (end = pending_.find('\n')) != std::string::npos;) {
            const std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            if (!line.empty() && !send(line))
                return false;
        }
        return pending_.size() <= k_max_line || fail("a line is longer than any message");
    }

    bool send(const std::string &line) {
        Outgoing out;
        if (!from_line(line, out))
            return false;
        queue(station_, out);
        waiting_ += out.size;
        return waiting_ < k_batch || drain();
    }

    bool drain() {
        waiting_ = 0;
        return station_.drain(k_patience) || fail("the message server does not take the messages");
    }

    daemon_kit::Station &station_;
    std::string pending_;
    size_t waiting_ = 0; // bytes of the records queued since the last drain
    bool good_ = true;
};

// Whether there is input, within a moment.
bool input_is_ready() {
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 250) > 0;
}

// The server is looked after while the next line is waited for, so that a quiet input does not hide
// that it is gone.
bool send_lines(daemon_kit::Station &station) {
    LineSender sender(station);
    while (station.wait(0)) {
        ZEBMSG_process_messages(
            station.messages(), [](ZEBMSG_proc_msg *, void *) {}, nullptr);
        if (input_is_ready() && !sender.read_some())
            return sender.good();
    }
    return station.result() == 0;
}

int run_send(const Options &options) {
    Outgoing out;
    if (!options.json && !from_arguments(options, out))
        return k_failed;
    const daemon_kit::Options daemon{
        options.name.empty() ? "zebctl-" + std::to_string(getpid()) : options.name, options.config};
    const daemon_kit::Configuration configuration(daemon,
                                                  daemon_kit::Configuration::Missing::allowed);
    daemon_kit::Station station;
    if (configuration.is_refused() || !station.connect(daemon.name, configuration))
        return k_failed;
    if (options.json)
        return send_lines(station) ? k_done : k_failed;
    queue(station, out);
    return station.drain(k_patience) ? k_done : k_failed;
}

} // namespace

void add_send(Command app, Run &run) {
    auto options = std::make_shared<Options>();
    const Command command = app.add_subcommand("send", "Send a message");
    const Option type = command.add_option("type", options->type, "message, such as MSG_LOG_FLUSH");
    command.add_option("fields", options->fields,
                       "fields of its record as name=value (in.X.3=1.5)");
    command.add_option("--to", options->to, "to this program only (default: published)");
    command.add_option("--flags", options->flags, "1 publish, 2 retained, 3 both")
        .check(command_line::in_range(0, 3));
    command.add_option("--name", options->name, "name on the message server");
    const Option json = command.add_flag("-j,--json", options->json,
                                         "read lines as `zebctl watch --json` prints them");
    json.excludes(type);
    command.add_option("-c,--config", options->config, "configuration file, for RemoteHost");
    command.callback([options, &run] {
        if (!options->json && options->type.empty())
            throw UsageError("type", "name a message, or give lines with --json");
        run = [options] { return run_send(*options); };
    });
}

} // namespace zebctl
