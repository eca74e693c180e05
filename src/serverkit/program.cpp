#include "program.h"

#include "settings.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include <zeb2/libzeb2.h>

namespace serverkit {
namespace {

struct FreeTree {
    void operator()(CONF_node *tree) const { CONF_free(tree); }
};

int configure_and_serve(const Program &program, const std::string &file, bool verbose) {
    CONF_node *loaded = nullptr;
    if (!load_configuration(file.empty() ? nullptr : file.c_str(), &loaded))
        return k_exit_failure;
    const std::unique_ptr<CONF_node, FreeTree> tree(loaded);
    return program.serve(tree.get(), verbose);
}

} // namespace

int run_program(const Program &program, int argc, char **argv) {
    std::string config_file;
    bool verbose = false;
    CLI::App app(program.description, program.name);
    app.add_option("-c,--config", config_file,
                   "Configuration file (default: etc/zeb.conf under $ZEB2)");
    app.add_flag("-v,--verbose", verbose, program.verbose_help);
    app.set_version_flag("--version", std::string(program.name) + " " + program.version);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : k_exit_usage;
    }
    if (!LIBZEB_init(program.name))
        return k_exit_failure;
    const int status = configure_and_serve(program, config_file, verbose);
    LIBZEB_cleanup();
    return status;
}

} // namespace serverkit
