// zebctl log - what the conductor tells the station's loggers, told by hand; and its intervals.

#include <memory>
#include <string>

#include "command.h"
#include "session.h"
#include "zeblogd/duties.h"

namespace zebctl {
namespace {

using zeblogd::Duty;

struct Options {
    std::string to, config, duty, interval;

    const char *destination() const { return to.empty() ? nullptr : to.c_str(); }
};

using Shared = std::shared_ptr<Options>;

int run_duty(const Options &options, const Duty &duty) {
    Session session(options.config);
    if (!session.is_connected())
        return k_failed;
    duty.send(session.messages(), options.destination(), UTIL_ftime());
    return session.send();
}

int run_enable(const Options &options, bool enable) {
    Session session(options.config);
    if (!session.is_connected())
        return k_failed;
    const NET_LOG_SetState state = {static_cast<BOOL>(enable ? TRUE : FALSE)};
    zeblogd::queue(session.messages(), options.destination(), MSG_LOG_SET_STATE, &state,
                   sizeof state, "NET_LOG_SetState");
    return session.send();
}

int run_interval(const Options &options, const Duty &duty, double seconds) {
    Session session(options.config);
    if (!session.is_connected())
        return k_failed;
    const NET_LOG_SetInterval setting = {seconds};
    zeblogd::queue(session.messages(), options.destination(), duty.setting, &setting,
                   sizeof setting, "NET_LOG_SetInterval");
    return session.send();
}

std::string duty_names() {
    std::string names;
    for (const Duty &duty : zeblogd::k_duties)
        names += (names.empty() ? "" : ", ") + std::string(duty.name);
    return names;
}

Command add(Command log, const char *name, const char *help, const Shared &options) {
    const Command command = log.add_subcommand(name, help);
    command.add_option("--to", options->to, "tell this program only (default: everybody)");
    command.add_option("-c,--config", options->config, "configuration file, for RemoteHost");
    return command;
}

void add_duty(Command log, Run &run, const char *name, const char *help) {
    const auto options = std::make_shared<Options>();
    const Duty *duty = zeblogd::find_duty(name);
    add(log, name, help, options).callback([options, duty, &run] {
        run = [options, duty] { return run_duty(*options, *duty); };
    });
}

void add_enable(Command log, Run &run, const char *name, const char *help, bool enable) {
    const auto options = std::make_shared<Options>();
    add(log, name, help, options).callback([options, enable, &run] {
        run = [options, enable] { return run_enable(*options, enable); };
    });
}

void choose_interval(const Shared &options, Run &run) {
    const Duty *duty = zeblogd::find_duty(options->duty);
    if (duty == nullptr)
        throw UsageError("what", "\"" + options->duty + "\" is none of " + duty_names());
    const auto seconds = zeblogd::parse_interval(options->interval);
    if (!seconds || !zeblogd::is_interval(*duty, *seconds))
        throw UsageError("interval",
                         "\"" + options->interval + "\" is not " + zeblogd::interval_limits(*duty));
    run = [options, duty, seconds] { return run_interval(*options, *duty, *seconds); };
}

void add_interval(Command log, Run &run) {
    const auto options = std::make_shared<Options>();
    const Command command = add(log, "interval", "Set an interval of zeblogd", options);
    command.add_option("what", options->duty, "of these: " + duty_names()).required();
    command
        .add_option("interval", options->interval,
                    "seconds, or 1:30, or 24:00:00; 0 switches it off")
        .required();
    command.callback([options, &run] { choose_interval(options, run); });
}

} // namespace

void add_log(Command app, Run &run) {
    const Command log = app.add_subcommand("log", "Command the station's loggers");
    log.require_subcommand();
    add_duty(log, run, "average", "End the averages now and begin the next");
    add_duty(log, run, "monitor", "Have monitor records written now");
    add_duty(log, run, "flush", "Have the log files written to the disk now");
    add_duty(log, run, "switch", "Begin new log files now");
    add_enable(log, run, "on", "Have log files written", true);
    add_enable(log, run, "off", "Have no log files written until \"on\"", false);
    add_interval(log, run);
}

} // namespace zebctl
