// zebseriald - the station's serial-port server.

#include "config.h"
#include "server.h"
#include "serverkit/program.h"

#include <zeb2/libzeb2.h>

namespace {

int serve(CONF_node *tree, bool verbose) {
    auto config = zebseriald::read_config(tree);
    if (!config)
        return serverkit::k_exit_failure;
    config->verbose = verbose;
    zebseriald::Server server(*config);
    if (!server.open())
        return serverkit::k_exit_failure;
    UTIL_startupokay();
    return server.run() ? 0 : serverkit::k_exit_failure;
}

const serverkit::Program k_program = {
    zebseriald::k_keys,
    "Serial-port server of a measuring station: its programs share the serial lines through it.",
    ZEB_VERSION, "A line for each client that leaves", serve};

} // namespace

int main(int argc, char **argv) {
    return serverkit::run_program(k_program, argc, argv);
}
