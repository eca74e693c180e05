#include "program.h"

#include "inspect.h"
#include "streams.h"

#include <CLI/CLI.hpp>
#include <string>

#include <zeb2/libzeb2.h>

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
    CLI::App app(program.description, program.keys.name);
    app.add_option("-c,--config", config_file,
                   "Configuration file (default: etc/zeb.conf under $ZEB2)");
    app.add_flag("-v,--verbose", verbose, program.verbose_help);
    app.set_version_flag("--version", keys.name() + " " + program.version);
    add_inspection(app, inspection);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : k_exit_usage;
    }
    if (!LIBZEB_init(program.keys.name))
        return k_exit_failure;
    const int status = inspection.is_wanted()
                           ? inspect(inspection, {keys, config_file, Missing::allowed})
                           : configure_and_serve(program, config_file, verbose);
    LIBZEB_cleanup();
    return status;
}

} // namespace serverkit
