// flow_sim.cpp - a flow controller on a pseudo terminal, for demos and trials: answers the
// questions of flow_protocol.h, and misbehaves on demand.

#include <algorithm>
#include <deque>
#include <iostream>
#include <string>
#include <system_error>

#include <zeb2/libzeb2.h>

#include "command_line/command_line.h"
#include "flow_device.h"
#include "pty.h"

namespace {

struct Options {
    std::string link;
    double late = 0; // s between a question and its answer
    flow::Device::Settings device;
};

struct Waiting {
    FTIME due;
    std::string answer;
};

void simulate(const Options &options, pty::Terminal &terminal) {
    constexpr double k_step = 0.05; // s
    flow::Device device(options.device);
    std::deque<Waiting> waiting;
    FTIME before = UTIL_ftime();
    while (!UTIL_exit_poll()) {
        const double pause = waiting.empty() ? k_step : waiting.front().due - UTIL_ftime();
        const std::string bytes = terminal.receive(std::clamp(pause, 0.0, k_step));
        const FTIME now = UTIL_ftime();
        device.advance(now - before);
        before = now;
        device.receive(bytes, [&](const std::string &answer) {
            waiting.push_back({now + options.late, answer});
        });
        for (; !waiting.empty() && waiting.front().due <= now; waiting.pop_front())
            terminal.send(waiting.front().answer);
    }
}

void add_options(command_line::Command app, Options &options) {
    app.add_option("-l,--link", options.link, "name of a link to the terminal to make").required();
    app.add_option("--address", options.device.address, "of the controller")
        .check(command_line::in_range(0, 99))
        .capture_default_str();
    app.add_option("--valve", options.device.valve, "opening at the start, %")
        .check(command_line::in_range(0.0, 100.0))
        .capture_default_str();
    app.add_option("--time-constant", options.device.time_constant,
                   "of the flow behind the valve, seconds")
        .check(command_line::positive())
        .capture_default_str();
    app.add_option("--noise", options.device.noise, "factor on the noise of the readings")
        .check(command_line::non_negative())
        .capture_default_str();
    app.add_option("--seed", options.device.seed, "of the noise").capture_default_str();
    app.add_option("--mute-after", options.device.mute_after,
                   "answer so many questions and no more (0: all)")
        .capture_default_str();
    app.add_option("--wrong-checksum-every", options.device.wrong_checksum_every,
                   "damage each so-manieth answer (0: none)")
        .capture_default_str();
    app.add_option("--late", options.late, "seconds between a question and its answer")
        .check(command_line::in_range(0.0, 3600.0))
        .capture_default_str();
}

} // namespace

int main(int argc, char **argv) {
    Options options;
    command_line::Parser app("A flow controller, a pump behind a valve, on a pseudo terminal.");
    app.set_version_flag("--version", std::string("zeb-flow-sim ") + ZEB_VERSION);
    add_options(app, options);
    if (const auto status = app.parse(argc, argv))
        return *status;

    UTIL_init();
    UTIL_exit_signal_poll_setup();
    try {
        pty::Terminal terminal;
        const pty::Link link(terminal.path(), options.link);
        simulate(options, terminal);
        return 0;
    } catch (const std::system_error &error) {
        std::cerr << "zeb-flow-sim: " << error.what() << "\n";
        return 1;
    }
}
