// inputs.h - from what the command line names to the catalogue that it declares.
#ifndef ZEBGEN_INPUTS_H
#define ZEBGEN_INPUTS_H

#include "model.h"

namespace zebgen {

// A definition header, and how sources of the catalogue include it.
struct Input {
    std::string path;
    std::string include;
};

// Every header of a directory, included as <zeb2/definitions/NAME.h>. False, with a line on
// standard error, when it cannot be listed.
bool add_station(const std::string &directory, std::vector<Input> &inputs);
// Beneath one of the include directories a header is spelled as the compiler will find it.
void add_definition(const std::string &path, const std::vector<std::string> &include_dirs,
                    std::vector<Input> &inputs);
// Headers and directories of them, separated by commas; at least one header.
bool add_revision(const std::string &list, std::vector<Input> &inputs);

// False when a header cannot be read or has a problem; all are on standard error then.
bool read_catalogue(const std::vector<Input> &inputs, Catalogue &catalogue);

// "PATH: error: REASON" on standard error; false.
bool complain(const std::string &path, const std::string &reason);

} // namespace zebgen
#endif
