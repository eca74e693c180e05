// zebctl monitor - what the station's programs tell their people, as it comes.

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "record_json.h"
#include "session.h"
#include "text.h"

namespace zebctl {
namespace {

struct Options {
    bool json = false;
    std::vector<std::string> sources;
    long count = -1;
    double timeout = -1;
    std::string config, text, name;
    unsigned int flags = 0;
};

constexpr size_t k_longest_text = sizeof(NET_LOG_MonitorMessage::msg) - 1;

std::string text_of(const NET_LOG_MonitorMessage &message) {
    std::string text(message.msg, strnlen(message.msg, sizeof message.msg));
    text.erase(text.find_last_not_of("\r\n") + 1);
    return text;
}

// Each further line of a text is indented, so that it is not taken for a message of its own.
std::string indented(const std::string &text) {
    std::string result;
    size_t begin = 0;
    for (size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
        result += visible(text.substr(begin, end - begin)) + "\n    ";
    return result + visible(text.substr(begin));
}

class Viewer {
  public:
    explicit Viewer(const Options &options) : options_(options) {}

    bool is_done() const { return broken_ || (options_.count >= 0 && shown_ >= options_.count); }

    void show(const ZEBMSG_proc_msg &message) {
        const std::string source = message.src_name != nullptr ? message.src_name : "";
        if (message.msg == nullptr || message.msg->msg != MSG_LOG_MONITOR ||
            message.pds == nullptr || is_done() || !is_wanted(source))
            return;
        ++shown_;
        const auto &monitor = *static_cast<const NET_LOG_MonitorMessage *>(message.pds);
        // Without a time of its own a message has that of its arrival.
        const FTIME time = monitor.msgtime >= 1 ? monitor.msgtime : UTIL_ftime();
        const std::string line =
            options_.json ? as_json(source, time, monitor) : as_text(source, time, monitor);
        broken_ = printf("%s\n", line.c_str()) < 0 || fflush(stdout) != 0;
    }

  private:
    bool is_wanted(const std::string &source) const {
        for (const std::string &pattern : options_.sources)
            if (UTIL_wildcard_match(source.c_str(), pattern.c_str()))
                return true;
        return options_.sources.empty();
    }

    static std::string as_json(const std::string &source, FTIME time,
                               const NET_LOG_MonitorMessage &monitor) {
        const Json line = {
            {"time", time}, {"from", source}, {"flags", monitor.flags}, {"text", text_of(monitor)}};
        return line.dump(-1, ' ', false, Json::error_handler_t::replace);
    }

    static std::string as_text(const std::string &source, FTIME time,
                               const NET_LOG_MonitorMessage &monitor) {
        return dim(iso_time(time)) + " " + bold(visible(source)) + " " + indented(text_of(monitor));
    }

    const Options &options_;
    long shown_ = 0;
    bool broken_ = false; // nobody reads what is shown any more
};

int run_monitor(const Options &options) {
    Session session(options.config);
    if (!session.is_connected())
        return k_failed;
    ZEBMSG_add_filter(session.messages(), TRUE, nullptr, nullptr, MSG_LOG_MONITOR, nullptr, nullptr,
                      nullptr);
    Viewer viewer(options);
    switch (session.listen(
        options.timeout, [&](const ZEBMSG_proc_msg &message) { viewer.show(message); },
        [&] { return viewer.is_done(); })) {
    case Session::Heard::gone:
        return k_failed;
    case Session::Heard::too_little:
        // Without a number to wait for, running out of time is how it ends.
        return options.count < 0 ? k_done : k_failed;
    case Session::Heard::enough:
    case Session::Heard::interrupted:
        break;
    }
    return k_done;
}

int run_send(const Options &options) {
    Session session(options.config, options.name);
    if (!session.is_connected())
        return k_failed;
    ZEBMSG_writemonitor(session.messages(), static_cast<BYTE>(options.flags), UTIL_ftime(), "%s",
                        options.text.c_str());
    return session.send();
}

Option add_sending(Command command, Options &options, const std::vector<Option> &showing) {
    const Option send = command.add_option("--send", options.text, "send this text instead");
    send.check([](const std::string &text) {
        return text.size() <= k_longest_text
                   ? ""
                   : "a text has at most " + std::to_string(k_longest_text) + " characters";
    });
    command.add_option("--flags", options.flags, "kind of the message that is sent")
        .check(command_line::in_range(0, 255))
        .needs(send);
    command.add_option("--name", options.name, "name on the message server to send under")
        .needs(send);
    for (const Option option : showing)
        send.excludes(option);
    return send;
}

} // namespace

void add_monitor(Command app, Run &run) {
    auto options = std::make_shared<Options>();
    const Command command =
        app.add_subcommand("monitor", "Show what programs tell the station's monitor");
    const std::vector<Option> showing = {
        command.add_flag("-j,--json", options->json, "one JSON object a line"),
        command.add_option("-f,--from", options->sources,
                           "only messages of these programs (* and ? match)"),
        command.add_option("-n,--count", options->count, "stop after so many")
            .check(command_line::positive()),
        command
            .add_option("--timeout", options->timeout,
                        "stop after so many seconds (with --count: failing when fewer came)")
            .check(command_line::non_negative())};
    const Option send = add_sending(command, *options, showing);
    command.add_option("-c,--config", options->config, "configuration file, for RemoteHost");
    command.callback([options, send, &run] {
        const bool sends = send.count() > 0;
        run = [options, sends] { return sends ? run_send(*options) : run_monitor(*options); };
    });
}

} // namespace zebctl
