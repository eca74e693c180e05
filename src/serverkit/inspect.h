// inspect.h - what every server and daemon does with its configuration instead of its work: checks
// it, or shows what it comes to. Nothing is opened but the file.
//
//   Inspection inspection;
//   add_inspection(app, inspection);
//   app.parse(argc, argv);
//   if (inspection.is_wanted())
//       return inspect(inspection, {keys, config_file, Missing::allowed});
#pragma once

#include <string>
#include <vector>

#include "key_check.h"

namespace command_line {
class Command;
}

namespace serverkit {

enum class Missing { refused, allowed }; // a station's file that does not exist

struct Inspection {
    bool check = false, print = false, json = false;
    bool is_wanted() const { return check || print; }
};

// --check-config, --print-config, --json
void add_inspection(command_line::Command app, Inspection &inspection);

struct Subject {
    const Keys &keys;
    std::string file; // empty: the station's
    Missing missing;  // for the station's; a file that was named must be there
};

// To standard output; diagnostics to standard error. The exit status: 1 for a file that cannot be
// read or has a fault.
int inspect(const Inspection &inspection, const Subject &subject);

// "FILE:LINE: TEXT" each, to standard output.
void print_findings(const std::string &file, const std::vector<zeb::ConfFinding> &findings);

// A key with what it comes to.
struct EffectiveKey {
    enum class Source { file, standard, environment, command_line };

    std::string path, value;
    Source source = Source::standard;
    size_t line = 0;      // in the file
    std::string variable; // of the environment
    const char *meaning = "";
};

// Every key of the table, sorted by path; one with "*" for each name that there is.
std::vector<EffectiveKey> effective_keys(const zeb::ConfCheck &file, Settings &settings);

} // namespace serverkit
