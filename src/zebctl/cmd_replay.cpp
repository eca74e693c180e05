// zebctl replay - sends a recording to a message server again.

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "command.h"
#include "daemon.h"
#include "option_checks.h"
#include "replayer.h"
#include "serverkit/sockets.h"
#include "session.h"

namespace zebctl {
namespace {

struct Options {
    std::string file, config;
    ReplayOptions replay;
};

int run_replay(Options options) {
    if (options.replay.name.empty())
        options.replay.name = "zebctl-" + std::to_string(getpid());
    const daemon_kit::Options daemon{options.replay.name, options.config};
    daemon_kit::Configuration configuration(daemon, daemon_kit::Configuration::Missing::allowed);
    if (configuration.is_refused())
        return k_failed;
    if (const char *host = ZEBMSG_get_host_str(configuration.root(), configuration.local()))
        options.replay.host = host;
    serverkit::UniqueFd file;
    if (options.file != "-") {
        file.reset(open(options.file.c_str(), O_RDONLY | O_CLOEXEC));
        if (!file)
            return fail(options.file + ": " + strerror(errno));
    }
    struct stat status = {};
    const int fd = file ? file.get() : STDIN_FILENO;
    const bool has_size = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    const std::string shown = options.file == "-" ? "standard input" : options.file;
    ByteFaults faults(shown);
    Replayer replayer(options.replay, faults);
    ByteWindow window([&, read = file_source(fd)](char *to, size_t size) -> ssize_t {
        if (replayer.attend(fd))
            return read(to, size);
        errno = EINTR;
        return -1;
    });
    return replayer.run(window, shown, has_size ? static_cast<uint64_t>(status.st_size) : 0);
}

} // namespace

void add_replay(Command app, Run &run) {
    auto options = std::make_shared<Options>();
    ReplayOptions &replay = options->replay;
    const Command command = app.add_subcommand("replay", "Send a recording to a server again");
    command.add_option("file", options->file, "recording; - is standard input").required();
    const Option speed =
        command.add_option("--speed", replay.speed, "so many times as fast as it was")
            .check(command_line::in_range(1e-6, 1e9));
    const Option fast =
        command.add_flag("--fast", replay.fast, "without pauses, as fast as the server takes it");
    const Option pause = command
                             .add_option("--max-pause", replay.longest_pause,
                                         "pauses of the recording no longer than so many seconds")
                             .check(command_line::non_negative());
    fast.excludes(speed).excludes(pause);
    const Option sources = command.add_flag("--as-sources", replay.as_sources,
                                            "each program's messages under that program's name");
    command.add_flag("--take-over", replay.take_over, "even from programs that are connected")
        .needs(sources);
    command.add_option("--name", replay.name, "name on the message server")
        .check(check_name)
        .excludes(sources);
    replay.choice.add_options(command);
    command.add_option("-c,--config", options->config, "configuration file, for RemoteHost");
    command.callback([options, &run] { run = [options] { return run_replay(*options); }; });
}

} // namespace zebctl
