// command.h - one subcommand of zebctl: its options, and what runs when it was named.
#pragma once

#include <functional>

#include "command_line/command_line.h"

namespace zebctl {

using command_line::Command;
using command_line::Option;
using command_line::UsageError;

// Exit statuses of every subcommand; a usage error has its own.
constexpr int k_done = 0;
constexpr int k_failed = 1;

// The run that the command line asked for.
using Run = std::function<int()>;

// Each adds its subcommand to `app` and, when it is named, sets `run`.
void add_watch(Command app, Run &run);
void add_send(Command app, Run &run);
void add_instruments(Command app, Run &run);
void add_status(Command app, Run &run);
void add_describe(Command app, Run &run);
void add_serial(Command app, Run &run);
void add_io(Command app, Run &run);
void add_log(Command app, Run &run);
void add_logfile(Command app, Run &run);
void add_monitor(Command app, Run &run);
void add_record(Command app, Run &run);
void add_replay(Command app, Run &run);
void add_decode(Command app, Run &run);
void add_table(Command app, Run &run);
void add_conf(Command app, Run &run);
void add_demo(Command app, Run &run);

} // namespace zebctl
