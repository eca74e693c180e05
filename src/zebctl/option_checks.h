// option_checks.h - what the value of an option must be, beyond the checks of command_line.h.
#pragma once

#include <string>

namespace zebctl {

constexpr size_t k_longest_name = 31; // of a program on the server

inline std::string check_name(const std::string &name) {
    return name.size() <= k_longest_name ? "" : "longer than 31 characters";
}

} // namespace zebctl
