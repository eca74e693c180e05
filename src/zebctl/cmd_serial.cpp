// zebctl serial - talks to a line of the serial-port server, watches it, or asks it one thing.

#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include <zeb2/util.h>

#include "command.h"
#include "serial_session.h"
#include "text.h"

namespace zebctl {
namespace {

using Outcome = SerialLine::Outcome;

struct Options {
    std::string port, settings, stamps, eol = "cr";
    std::optional<std::string> until;
    std::vector<std::string> texts;
    double timeout = 5;
    SerialSession session;
    // As they were read:
    PortChoice choice;
    std::vector<std::string> sends;
    std::string stops;
};

const std::map<std::string, std::string> k_line_ends = {
    {"cr", "\r"}, {"lf", "\n"}, {"crlf", "\r\n"}, {"none", ""}};

int failed(const std::string &text) {
    if (!UTIL_exit_poll())
        fprintf(stderr, "zebctl: %s\n", text.c_str());
    return k_failed;
}

std::string seconds_text(double seconds) {
    char text[64];
    snprintf(text, sizeof text, "%g s", seconds);
    return text;
}

// Why the server refused: what came meanwhile tells whether the line is there at all.
int explain(SerialLine &line, Outcome outcome, const std::string &late) {
    std::string came;
    if (outcome == Outcome::refused)
        outcome = line.read_new(came);
    if (outcome == Outcome::over)
        return failed("the serial-port server is gone");
    if (outcome == Outcome::refused)
        return failed(line.name() +
                      " does not answer: its device is gone, or another program has it for itself");
    return failed(late + (came.empty() ? "" : "; what came: " + escaped(came)));
}

int ask(SerialLine &line, const std::string &text, const Options &options, std::string &answer) {
    Outcome outcome = Outcome::done;
    // What came before the question is no answer to it.
    if (!options.stops.empty())
        outcome = line.read_new(answer);
    if (outcome == Outcome::done)
        outcome = line.write_out(text, options.timeout);
    if (outcome != Outcome::done)
        return explain(line, outcome,
                       line.name() + " did not take " + escaped(text) + " within " +
                           seconds_text(options.timeout));
    if (options.stops.empty())
        return k_done;
    outcome = line.read_until(options.stops, options.timeout, answer);
    if (outcome == Outcome::done)
        return k_done;
    return explain(line, outcome,
                   "no answer of " + line.name() + " ended with " + escaped(options.stops) +
                       " within " + seconds_text(options.timeout));
}

int run_send(SerialLine &line, const Options &options) {
    Shower shower(options.session.view);
    for (const std::string &text : options.sends) {
        std::string answer;
        if (const int status = ask(line, text, options, answer); status != k_done)
            return status;
        if (options.stops.empty())
            continue;
        shower.add(Direction::in, answer, UTIL_ftime());
        shower.flush();
        shower.finish();
    }
    return k_done;
}

int run_serial(const Options &options) {
    // A terminal that is closed ends the session like the other signals do.
    UTIL_exit_signal_poll_setup_hup();
    SerialLine line(options.choice);
    if (!line.open())
        return k_failed;
    return options.sends.empty() ? run_session(line, options.session) : run_send(line, options);
}

std::string unescaped(const char *option, const std::string &text) {
    std::string data, error;
    if (!unescape(text, data, error))
        throw UsageError(option, error);
    if (data.empty())
        throw UsageError(option, "nothing is given");
    return data;
}

void read_options(Options &options) {
    std::string error;
    if (!parse_port(options.port, options.settings, options.choice, error))
        throw UsageError("PORT", error);
    for (const std::string &text : options.texts)
        options.sends.push_back(unescaped("--send", text));
    if (options.until)
        options.stops = unescaped("--until", *options.until);
    SerialSession &session = options.session;
    session.eol = k_line_ends.at(options.eol);
    Look &look = session.view.look;
    if (!options.stamps.empty())
        look.stamps = options.stamps == "local" ? Stamps::local : Stamps::utc;
    // Nothing but the line's text in an answer, and where keys go straight through.
    look.marks = options.sends.empty() && (!session.raw || session.echo);
    look.colour = use_colour() && options.sends.empty();
}

void add_view_options(Command command, Options &options) {
    SerialView &view = options.session.view;
    const Option hex =
        command.add_flag("-x,--hex", view.hex, "bytes as hexadecimal digits and as text");
    const Option stamps =
        command
            .add_flag("-t{utc},--timestamps{utc}", options.stamps,
                      "the time of each line, in UTC or, with --timestamps=local, in local time")
            .check(command_line::one_of({"utc", "local"}));
    const Option json = command.add_flag("-j,--json", view.json, "one JSON object a line");
    json.excludes(hex).excludes(stamps);
}

void add_talk_options(Command command, Options &options) {
    SerialSession &session = options.session;
    const Option eol =
        command.add_option("-e,--eol", options.eol, "what ends each line that is sent")
            .check(command_line::one_of({"cr", "lf", "crlf", "none"}))
            .capture_default_str();
    const Option raw = command.add_flag("-r,--raw", session.raw,
                                        "send each key at once, and a pipe's bytes as they are");
    const Option echo = command.add_flag(
        "--echo", session.echo, "show what is sent also where the terminal or --raw hides it");
    const Option listen = command.add_flag(
        "-l,--listen", session.listen, "only show what the line (<) and other programs (>) send");
    const Option seconds =
        command.add_option("--seconds", session.seconds, "end after so many seconds")
            .check(command_line::non_negative());
    const Option send =
        command
            .add_option("-s,--send", options.texts,
                        "send this (\\r, \\n, \\t, \\\\ and \\xNN stand for bytes) and end; "
                        "repeat it for more")
            .allow_extra_args(false);
    const Option until = command.add_option(
        "-u,--until", options.until, "wait for an answer up to one of these characters, print it");
    const Option timeout =
        command
            .add_option("--timeout", options.timeout,
                        "seconds for the text to be on the line, and for the answer")
            .check(command_line::non_negative())
            .capture_default_str();
    until.needs(send);
    timeout.needs(send);
    for (const Option other : {eol, raw, echo, listen})
        send.excludes(other);
    send.excludes(seconds);
    for (const Option other : {eol, raw, echo})
        listen.excludes(other);
}

} // namespace

void add_serial(Command app, Run &run) {
    auto options = std::make_shared<Options>();
    const Command command = app.add_subcommand(
        "serial", "Talk to a serial line (Ctrl-] ends), watch it, or ask it one thing");
    command
        .add_option("PORT", options->port,
                    "=NAME of the configuration, a device (ttyUSB0), or a device with its "
                    "settings (ttyS0:9600n81)")
        .required();
    command.add_option("--settings", options->settings,
                       "settings of the line, for all who use it: 9600n81");
    add_view_options(command, *options);
    add_talk_options(command, *options);
    command.callback([options, &run] {
        read_options(*options);
        run = [options] { return run_serial(*options); };
    });
}

} // namespace zebctl
