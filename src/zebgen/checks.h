// checks.h - what only shows when all definition headers are seen together.
#ifndef ZEBGEN_CHECKS_H
#define ZEBGEN_CHECKS_H

#include "model.h"

namespace zebgen {

// Longest name of a record, member or message: tools keep names in fields of 256 characters.
constexpr size_t k_max_name = 255;
// Element counts travel as 16 bits.
constexpr int64_t k_max_length = 65535;

// Records within records within records; packages nest no deeper.
constexpr int k_max_depth = 32;

// Checks the headers against each other and merges them. The result is meaningful only when no
// problem was added.
Catalogue merge(const std::vector<Source> &sources, Problems &problems);

} // namespace zebgen
#endif
