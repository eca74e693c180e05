// zebmsgd - the station's message server.

#include "config.h"
#include "server.h"
#include "serverkit/program.h"

#include <zeb2/libzeb2.h>

namespace {

int serve(CONF_node *tree, bool verbose) {
    auto config = zebmsgd::read_config(tree);
    if (!config)
        return serverkit::k_exit_failure;
    config->verbose = verbose;
    zebmsgd::Server server(*config, ZEB_VERSION);
    if (!server.open())
        return serverkit::k_exit_failure;
    UTIL_startupokay();
    return server.run() ? 0 : serverkit::k_exit_failure;
}

const serverkit::Program k_program = {
    zebmsgd::k_keys, "Message server of a measuring station: passes messages between its programs.",
    ZEB_VERSION, "A line for each client that connects or leaves", serve};

} // namespace

int main(int argc, char **argv) {
    return serverkit::run_program(k_program, argc, argv);
}
