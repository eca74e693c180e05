// zebctl watch - shows what passes through the message server.

#include <algorithm>
#include <cstdio>
#include <string>
#include <unistd.h>

#include "command.h"
#include "daemon.h"
#include "message_choice.h"
#include "record_json.h"
#include "record_text.h"
#include "text.h"

namespace zebctl {
namespace {

constexpr double k_look = 0.02; // s between looks for what has come

struct Options {
    bool json = false;
    MessageChoice choice;
    long count = -1;
    double timeout = -1;
    std::string config;
};

class Watcher {
  public:
    explicit Watcher(const Options &options) : options_(options) {}

    static void received(ZEBMSG_proc_msg *message, void *self) {
        static_cast<Watcher *>(self)->show(*message);
    }
    bool is_done() const { return broken_ || (options_.count >= 0 && shown_ >= options_.count); }

  private:
    void show(const ZEBMSG_proc_msg &message) {
        const char *source = message.src_name != nullptr ? message.src_name : "";
        if (message.msg == nullptr || is_done() ||
            !options_.choice.matches(message.msg->name, source))
            return;
        ++shown_;
        const Json record = message.dsd != nullptr && message.pds != nullptr
                                ? to_json(*message.dsd, message.pds)
                                : Json(nullptr);
        const std::string line =
            options_.json ? as_json(message, record) : as_text(message, record);
        broken_ = printf("%s\n", line.c_str()) < 0 || fflush(stdout) != 0;
    }

    static std::string as_json(const ZEBMSG_proc_msg &message, const Json &record) {
        Json line;
        line["time"] = UTIL_ftime();
        line["type"] = message.msg->name;
        line["from"] = message.src_name != nullptr ? Json(message.src_name) : Json(nullptr);
        line["to"] = message.dest_name != nullptr ? Json(message.dest_name) : Json(nullptr);
        line["flags"] = message.flags;
        line["record_type"] = message.dsd != nullptr ? Json(message.dsd->name) : Json(nullptr);
        line["record"] = record;
        return line.dump(-1, ' ', false, Json::error_handler_t::replace);
    }

    static std::string as_text(const ZEBMSG_proc_msg &message, const Json &record) {
        std::string line = dim(iso_time(UTIL_ftime()).substr(11, 12)) + " " +
                           (message.src_name != nullptr ? visible(message.src_name) : "-");
        if (message.dest_name != nullptr)
            line += " > " + visible(message.dest_name);
        line += " " + bold(message.msg->name);
        for (const auto &[name, text] : fields_for_people(message.dsd, record))
            line += " " + dim(name + "=") + text;
        return line;
    }

    const Options &options_;
    long shown_ = 0;
    bool broken_ = false; // nobody reads what is shown any more
};

int run_watch(const Options &options) {
    const daemon_kit::Options daemon{"zebctl-" + std::to_string(getpid()), options.config};
    const daemon_kit::Configuration configuration(daemon,
                                                  daemon_kit::Configuration::Missing::allowed);
    daemon_kit::Station station;
    if (configuration.is_refused() || !station.connect(daemon.name, configuration))
        return k_failed;
    Watcher watcher(options);
    const FTIME started = UTIL_ftime();
    while (!watcher.is_done()) {
        const double left = options.timeout < 0 ? k_look : started + options.timeout - UTIL_ftime();
        if (left <= 0)
            // Without a number to wait for, running out of time is how a watch ends.
            return options.count < 0 ? k_done : k_failed;
        if (!station.wait(std::min(left, k_look)))
            return station.result();
        ZEBMSG_process_messages(station.messages(), Watcher::received, &watcher);
    }
    return k_done;
}

} // namespace

void add_watch(Command app, Run &run) {
    auto options = std::make_shared<Options>();
    const Command command = app.add_subcommand("watch", "Show messages as they pass");
    command.add_flag("-j,--json", options->json,
                     "one JSON object a line, as `zebctl send` takes them");
    options->choice.add_options(command);
    command.add_option("-n,--count", options->count, "stop after so many")
        .check(command_line::positive());
    command
        .add_option("--timeout", options->timeout,
                    "stop after so many seconds (with --count: failing when fewer came)")
        .check(command_line::non_negative());
    command.add_option("-c,--config", options->config, "configuration file, for RemoteHost");
    command.callback([options, &run] { run = [options] { return run_watch(*options); }; });
}

} // namespace zebctl
