#include "program.h"

#include "inspect.h"
#include "streams.h"

#include <string>

#include <zeb2/libzeb2.h>

#include "command_line/command_line.h"

namespace serverkit {
namespace {

int configure_and_serve(const Program &program, const std::string &file, bool verbose) {
    CONF_node *loaded = nullptr;
    if (file.empty())
        loaded = CONF_get_default();
    else if (!load_configuration(file, &loaded))
        return k_exit_failure;
    const Tree tree(loaded);
    return program.serve(tree.get(), verbose);
}

} // namespace

int run_program(const Program &program, int argc, char **argv) {
    hold_standard_streams();
    std::string config_file;
    bool verbose = false;
    Inspection inspection;
    const Keys keys(program.keys);
    command_line::Parser app(program.description, program.keys.name);
    app.add_option("-c,--config", config_file,
                   "Configuration file (default: etc/zeb.conf under $ZEB2)");
    app.add_flag("-v,--verbose", verbose, program.verbose_help);
    app.set_version_flag("--version", keys.name() + " " + program.version);
    add_inspection(app, inspection);
    if (const auto status = app.parse(argc, argv))
        return *status;
    if (!LIBZEB_init(program.keys.name))
        return k_exit_failure;
    const int status = inspection.is_wanted()
                           ? inspect(inspection, {keys, config_file, Missing::allowed})
                           : configure_and_serve(program, config_file, verbose);
    LIBZEB_cleanup();
    return status;
}

} // namespace serverkit
