// option_checks.h - what the value of an option must be, beyond the checks of command_line.h.
#pragma once

#include <cmath>
#include <cstdlib>
#include <string>

namespace zebctl {

constexpr size_t k_longest_name = 31; // of a program on the server

// A comparison with a range lets "nan" pass.
inline std::string check_finite(const std::string &value) {
    return std::isfinite(strtod(value.c_str(), nullptr)) ? "" : "not a finite number: " + value;
}

inline std::string check_name(const std::string &name) {
    return name.size() <= k_longest_name ? "" : "longer than 31 characters";
}

} // namespace zebctl
