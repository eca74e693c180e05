// program.h - the main program of a server: command line, configuration, start and end.
#pragma once

#include <zeb2/conf.h>

#include "keys.h"

namespace serverkit {

struct Program {
    const ProgramKeys &keys; // with the program's name
    const char *description;
    const char *version;
    const char *verbose_help;
    // Serves until it is told to stop; the exit status. `tree` may be null.
    int (*serve)(CONF_node *tree, bool verbose);
};

constexpr int k_exit_failure = 1;

// Returns the exit status of the process.
int run_program(const Program &program, int argc, char **argv);

} // namespace serverkit
