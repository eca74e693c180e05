// nearest.h - what somebody may have meant who wrote a key that nobody knows.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "keys.h"

namespace serverkit {

// How many letters must be put in, left out, exchanged or swapped with their neighbour to make one
// name of the other, case aside; nothing when that is too many for a slip of the pen.
std::optional<size_t> slips(const std::string &written, const std::string &meant);

// The known path that is nearest to the one written, where one is near: names with slips, or a name
// too many or too few. "*" takes the name that was written there.
std::optional<std::string> nearest_path(const std::string &written,
                                        const std::vector<Names> &patterns);

} // namespace serverkit
