// zebctl io - the variables that the station's programs share: what they are, asking for outputs.

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "command.h"
#include "io_values.h"
#include "session.h"
#include "text.h"

namespace zebctl {
namespace {

struct Options {
    std::string name, value, config;
    std::vector<std::string> names;
    bool json = false, average = false, running = false;
    long count = -1;
    double timeout = -1;
};

std::string seconds_text(double seconds) {
    char text[64];
    snprintf(text, sizeof text, "%g s", seconds);
    return text;
}

using Listener = std::function<void(const ZEBMSG_proc_msg &)>;

// A session with the library's tables of variables.
class IoSession : public Session {
  public:
    explicit IoSession(const Options &options) : Session(options.config) {
        IO_init();
        if (is_connected())
            IO_register_link(messages());
    }
    ~IoSession() { IO_cleanup(); }
};

std::string sender_of(const ZEBMSG_proc_msg &message) {
    return message.src_name != nullptr ? message.src_name : "";
}

void print_json(const Json &document, int indent) {
    printf("%s\n", document.dump(indent, ' ', false, Json::error_handler_t::replace).c_str());
}

// ---- get ----

Json as_json(const IoVariable &variable) {
    Json object = {{"name", variable.name},
                   {"kind", variable.digital ? "digital" : "real"},
                   {"from", variable.from},
                   {"value", variable.value}};
    if (!variable.digital) {
        object["average"] = variable.average;
        object["running"] = variable.running;
    }
    return object;
}

const Json &wanted(const Options &options, const IoVariable &variable) {
    if (options.average)
        return variable.average;
    return options.running ? variable.running : variable.value;
}

int explain_missing(const Options &options) {
    const char *what = options.average   ? " average"
                       : options.running ? " running average"
                                         : " value";
    const auto variable = find_io(options.name);
    const std::string within = " within " + seconds_text(options.timeout);
    if (!variable)
        return fail("nobody published \"" + options.name + "\"" + within);
    if (variable->digital)
        return fail("\"" + variable->name + "\" is a digital, which has no" + what);
    return fail("\"" + variable->name + "\" of " + variable->from + " had no" + what + within);
}

int run_get(const Options &options) {
    IoSession session(options);
    if (!session.is_connected())
        return k_failed;
    const auto is_known = [&] {
        const auto variable = find_io(options.name);
        return variable && !wanted(options, *variable).is_null();
    };
    switch (session.listen(
        options.timeout, [](const ZEBMSG_proc_msg &) {}, is_known)) {
    case Session::Heard::too_little:
        return explain_missing(options);
    case Session::Heard::gone:
    case Session::Heard::interrupted:
        return k_failed;
    case Session::Heard::enough:
        break;
    }
    const IoVariable variable = *find_io(options.name);
    if (options.json)
        print_json(as_json(variable), 2);
    else
        printf("%s\n", io_text(wanted(options, variable)).c_str());
    return k_done;
}

// ---- list ----

struct Output {
    std::string name, by;
    Json value;
};

// The last request of each program for each output.
void remember(std::vector<Output> &outputs, const ZEBMSG_proc_msg &message) {
    const std::string by = sender_of(message);
    for (const IoEvent &event : io_events(message)) {
        if (std::string("set") != event.what)
            continue;
        const auto known = std::find_if(outputs.begin(), outputs.end(), [&](const Output &output) {
            return output.by == by && same_io_name(output.name, event.name) &&
                   output.value.is_boolean() == event.value.is_boolean();
        });
        if (known != outputs.end())
            known->value = event.value;
        else
            outputs.push_back({event.name, by, event.value});
    }
}

void print_tables(const std::vector<IoVariable> &variables, const std::vector<Output> &outputs) {
    std::vector<std::vector<std::string>> rows = {
        {"variable", "value", "average", "running", "published by"}};
    for (const IoVariable &variable : variables)
        rows.push_back({variable.name, io_text(variable.value),
                        variable.digital ? "" : io_text(variable.average),
                        variable.digital ? "" : io_text(variable.running), variable.from});
    printf("%s", table(rows).c_str());
    if (outputs.empty())
        return;
    rows = {{"output", "last request", "requested by"}};
    for (const Output &output : outputs)
        rows.push_back({output.name, io_text(output.value), output.by});
    printf("\n%s", table(rows).c_str());
}

Json as_json(const std::vector<IoVariable> &variables, const std::vector<Output> &outputs) {
    Json all = {{"variables", Json::array()}, {"outputs", Json::array()}};
    for (const IoVariable &variable : variables)
        all["variables"].push_back(as_json(variable));
    for (const Output &output : outputs)
        all["outputs"].push_back({{"name", output.name},
                                  {"kind", output.value.is_boolean() ? "digital" : "real"},
                                  {"value", output.value},
                                  {"by", output.by}});
    return all;
}

int run_list(const Options &options) {
    IoSession session(options);
    if (!session.is_connected())
        return k_failed;
    IO_request_resend_real(session.messages());
    IO_request_resend_digital(session.messages());
    std::vector<Output> outputs;
    const Listener hear = [&](const ZEBMSG_proc_msg &message) { remember(outputs, message); };
    if (session.listen(options.timeout, hear, [] { return false; }) == Session::Heard::gone)
        return k_failed;
    if (options.json)
        print_json(as_json(published_io(), outputs), 2);
    else
        print_tables(published_io(), outputs);
    return k_done;
}

// ---- set ----

int run_set(const Options &options) {
    IoSession session(options);
    if (!session.is_connected())
        return k_failed;
    const IoRequest request = *parse_io_request(options.value);
    if (request.digital)
        IO_set_digital(session.messages(), options.name.c_str(), request.on ? 1 : 0, 1);
    else
        IO_set(session.messages(), options.name.c_str(), request.value);
    return session.drain(options.timeout)
               ? k_done
               : fail("the message server did not take the request within " +
                      seconds_text(options.timeout));
}

// ---- watch ----

class Watcher {
  public:
    explicit Watcher(const Options &options) : options_(options) {}
    bool is_done() const { return broken_ || (options_.count >= 0 && shown_ >= options_.count); }

    void show(const ZEBMSG_proc_msg &message) {
        for (const IoEvent &event : io_events(message))
            if (!is_done() && is_wanted(event.name))
                show(event, sender_of(message));
    }

  private:
    bool is_wanted(const std::string &name) const {
        for (const std::string &pattern : options_.names)
            if (matches_io_name(pattern, name))
                return true;
        return options_.names.empty();
    }

    void show(const IoEvent &event, const std::string &from) {
        ++shown_;
        const FTIME time = event.time > 0 ? event.time : UTIL_ftime();
        if (options_.json)
            print_json({{"time", time},
                        {"from", from},
                        {"what", event.what},
                        {"name", event.name},
                        {"value", event.value}},
                       -1);
        else
            printf("%s %s %s %s %s\n", dim(iso_time(time)).c_str(), visible(from).c_str(),
                   event.what, bold(visible(event.name)).c_str(), io_text(event.value).c_str());
        broken_ = ferror(stdout) != 0 || fflush(stdout) != 0;
    }

    const Options &options_;
    long shown_ = 0;
    bool broken_ = false; // nobody reads what is shown any more
};

int run_watch(const Options &options) {
    IoSession session(options);
    if (!session.is_connected())
        return k_failed;
    Watcher watcher(options);
    const Listener hear = [&](const ZEBMSG_proc_msg &message) { watcher.show(message); };
    switch (session.listen(options.timeout, hear, [&] { return watcher.is_done(); })) {
    case Session::Heard::gone:
        return k_failed;
    case Session::Heard::too_little:
        // Without a number to wait for, running out of time is how a watch ends.
        return options.count < 0 ? k_done : k_failed;
    case Session::Heard::enough:
    case Session::Heard::interrupted:
        break;
    }
    return k_done;
}

// ---- The command line ----

// Of names that are no patterns.
std::string check_name(const std::string &name) {
    return name.empty() || name.size() > k_longest_io_name
               ? "a name has 1 to " + std::to_string(k_longest_io_name) + " characters"
               : "";
}

void check_request(const Options &options) {
    const auto request = parse_io_request(options.value);
    if (!request)
        throw UsageError("value", "\"" + options.value +
                                      "\" is neither a number nor true, on, false or off");
    if (request->digital && options.name.find_first_of(",;:") != std::string::npos)
        throw UsageError("name", "the name of a digital has no \",\", \";\" or \":\"");
}

using Shared = std::shared_ptr<Options>;

Command add(Command io, const char *name, const char *help, const Shared &options, Run &run,
            int (*what)(const Options &)) {
    const Command command = io.add_subcommand(name, help);
    command.add_option("-c,--config", options->config, "configuration file, for RemoteHost");
    command.callback([options, &run, what] { run = [options, what] { return what(*options); }; });
    return command;
}

Option add_timeout(Command command, const Shared &options, double seconds, const char *help) {
    options->timeout = seconds;
    const Option option = command.add_option("--timeout", options->timeout, help);
    option.check(command_line::non_negative());
    return seconds < 0 ? option : option.capture_default_str();
}

void add_list(Command io, Run &run) {
    const auto options = std::make_shared<Options>();
    const Command command =
        add(io, "list", "List what is published and asked for", options, run, run_list);
    add_timeout(command, options, 3, "listen for so many seconds");
    command.add_flag("-j,--json", options->json, "as JSON");
}

void add_get(Command io, Run &run) {
    const auto options = std::make_shared<Options>();
    const Command command = add(io, "get", "Print the value of a variable", options, run, run_get);
    command.add_option("name", options->name, "the variable").required().check(check_name);
    const Option average =
        command.add_flag("-a,--average", options->average, "its average instead");
    command.add_flag("-r,--running", options->running, "its running average instead")
        .excludes(average);
    add_timeout(command, options, 5, "wait at most so many seconds until it is published");
    command.add_flag("-j,--json", options->json, "all that is known of it, as JSON");
}

void add_set(Command io, Run &run) {
    const auto options = std::make_shared<Options>();
    const Command command = add(io, "set", "Ask for an output to be set", options, run, run_set);
    command.add_option("name", options->name, "the output").required().check(check_name);
    command
        .add_option("value", options->value,
                    "a number for a real output; true, on, false or off for a digital one")
        .required();
    add_timeout(command, options, 5, "wait at most so many seconds for the message server");
    command.callback([options, &run] {
        check_request(*options);
        run = [options] { return run_set(*options); };
    });
}

void add_watch_variables(Command io, Run &run) {
    const auto options = std::make_shared<Options>();
    const Command command =
        add(io, "watch", "Show values and requests as they pass", options, run, run_watch);
    command.add_option("names", options->names, "only these variables (* and ? match)");
    command.add_option("-n,--count", options->count, "stop after so many")
        .check(command_line::positive());
    add_timeout(command, options, -1,
                "stop after so many seconds (with --count: failing when fewer came)");
    command.add_flag("-j,--json", options->json, "one JSON object a line");
}

} // namespace

void add_io(Command app, Run &run) {
    const Command io =
        app.add_subcommand("io", "See and set the variables that the station's programs share");
    io.require_subcommand();
    add_list(io, run);
    add_get(io, run);
    add_set(io, run);
    add_watch_variables(io, run);
}

} // namespace zebctl
