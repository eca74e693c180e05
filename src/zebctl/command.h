// command.h - one subcommand of zebctl: its options, and what runs when it was named.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace zebctl {

// Exit statuses of every subcommand.
constexpr int k_done = 0;
constexpr int k_failed = 1;
constexpr int k_usage = 2;

// The run that the command line asked for.
using Run = std::function<int()>;

// Each adds its subcommand to `app` and, when it is named, sets `run`.
void add_watch(CLI::App &app, Run &run);
void add_send(CLI::App &app, Run &run);
void add_instruments(CLI::App &app, Run &run);
void add_status(CLI::App &app, Run &run);
void add_describe(CLI::App &app, Run &run);
void add_serial(CLI::App &app, Run &run);
void add_io(CLI::App &app, Run &run);
void add_log(CLI::App &app, Run &run);
void add_logfile(CLI::App &app, Run &run);
void add_monitor(CLI::App &app, Run &run);
void add_record(CLI::App &app, Run &run);
void add_replay(CLI::App &app, Run &run);
void add_decode(CLI::App &app, Run &run);
void add_table(CLI::App &app, Run &run);
void add_conf(CLI::App &app, Run &run);
void add_demo(CLI::App &app, Run &run);

} // namespace zebctl
