// parser.h - one definition header to its records, messages and constants.
#ifndef ZEBGEN_PARSER_H
#define ZEBGEN_PARSER_H

#include "model.h"

namespace zebgen {

// Refuses everything that it does not understand, going on behind it so that one run shows every
// problem. `path` names the file in problems, `include` is kept for the generated headers.
Source parse(const std::string &path, const std::string &include, const std::string &text,
             Problems &problems);

// A C integer literal, or nothing: decimal, hexadecimal or octal, with the suffixes u and l.
bool parse_integer(const std::string &text, int64_t &value);

} // namespace zebgen
#endif
