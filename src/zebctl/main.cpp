// zebctl - watch, ask and command a station from the shell.

#include <cstdio>
#include <dlfcn.h>
#include <exception>
#include <filesystem>

#include <zeb2/libzeb2.h>

#include "command.h"
#include "serverkit/streams.h"

// The program's version and the file of the library that it runs with, which is another when one of
// them was left behind by an upgrade.
static std::string version() {
    std::string text = std::string("zebctl ") + ZEB_VERSION;
    Dl_info library = {};
    std::error_code error;
    if (dladdr(reinterpret_cast<const void *>(&LIBZEB_init), &library) != 0)
        text +=
            " (" + std::filesystem::canonical(library.dli_fname, error).filename().string() + ")";
    return text;
}

int main(int argc, char **argv) {
    serverkit::hold_standard_streams();
    command_line::Parser app(
        "Watches, asks and commands a measuring station: see each subcommand's --help.", "zebctl");
    app.set_version_flag("--version", version);
    app.require_subcommand();
    zebctl::Run run;
    zebctl::add_watch(app, run);
    zebctl::add_send(app, run);
    zebctl::add_instruments(app, run);
    zebctl::add_status(app, run);
    zebctl::add_describe(app, run);
    zebctl::add_serial(app, run);
    zebctl::add_io(app, run);
    zebctl::add_log(app, run);
    zebctl::add_logfile(app, run);
    zebctl::add_monitor(app, run);
    zebctl::add_record(app, run);
    zebctl::add_replay(app, run);
    zebctl::add_decode(app, run);
    zebctl::add_table(app, run);
    zebctl::add_conf(app, run);
    zebctl::add_demo(app, run);
    if (const auto status = app.parse(argc, argv))
        return *status;
    if (!LIBZEB_init("zebctl"))
        return zebctl::k_failed;
    UTIL_exit_signal_poll_setup();
    int status = zebctl::k_failed;
    try {
        status = run();
    } catch (const std::exception &error) {
        fprintf(stderr, "zebctl: %s\n", error.what());
    }
    if (fflush(stdout) != 0 || ferror(stdout)) {
        perror("zebctl: standard output");
        status = zebctl::k_failed;
    }
    LIBZEB_cleanup();
    return status;
}
