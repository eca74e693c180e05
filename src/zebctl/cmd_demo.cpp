// zebctl demo - a whole simulated station of the programs that are installed beside this one.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "command.h"

namespace zebctl {
namespace {

namespace fs = std::filesystem;

struct Options {
    int seconds = 18;
    std::string replay;
    bool unplug = false, keep = false;
};

// The station ends at Ctrl-C and goes with its reader, as a program does that was started by a
// shell.
void undo_signal_handling() {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
}

int run_demo(const Options &options) {
    std::error_code error;
    const fs::path programs = fs::read_symlink("/proc/self/exe", error).parent_path();
    const fs::path script = (programs / ZEB_DATA_FROM_BIN / "demo/station.sh").lexically_normal();
    // Servers and daemons are for the administrator, elsewhere than the tools.
    const std::string where = programs.string() + ":" + (programs.parent_path() / "sbin").string();
    const std::string seconds = std::to_string(options.seconds);
    const std::string replay =
        options.replay.empty() ? std::string() : fs::absolute(options.replay).string();
    fflush(stdout);
    undo_signal_handling();
    execl(script.c_str(), "station.sh", where.c_str(), seconds.c_str(),
          options.unplug ? "yes" : "no", options.keep ? "yes" : "no", replay.c_str(), nullptr);
    fprintf(stderr, "zebctl: cannot run %s: %s\n", script.c_str(), strerror(errno));
    return k_failed;
}

} // namespace

void add_demo(Command app, Run &run) {
    auto options = std::make_shared<Options>();
    const Command command =
        app.add_subcommand("demo", "Show a simulated station, live, in a private directory");
    command.add_option("--seconds", options->seconds, "how long to watch the traffic")
        .capture_default_str()
        .check(command_line::in_range(1, 86400));
    command.add_option("--replay", options->replay, "NMEA file that the receiver plays")
        .check(command_line::existing_file());
    command.add_flag("--unplug", options->unplug, "pull the flow controller's line for 5 seconds");
    command.add_flag("--keep", options->keep,
                     "leave the directory with every program's log behind");
    command.callback([options, &run] { run = [options] { return run_demo(*options); }; });
}

} // namespace zebctl
