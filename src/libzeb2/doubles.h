// doubles.h - arrays of doubles that grow, and their reading from a configured text. Internal.
//
// Neither function reports: a caller that is told false says so in its own name.
#ifndef ZEB2_DOUBLES_H
#define ZEB2_DOUBLES_H

#include <cstddef>

namespace zeb {

// Makes room behind `held` elements for one more: an array that is null or full grows to
// UTIL_roundup_p2(held + 1) elements. False, with errno set, leaves array and capacity as they
// were.
bool make_room(double **array, size_t *capacity, size_t held);

struct Coefficients {
    double *values = nullptr; // whoever takes the record over frees them
    size_t count = 0;
    size_t capacity = 0;
};

constexpr size_t k_coefficient_size = 64; // the widest field that is ever asked for, terminator too

// Reads numbers between any of ",", ";" and ":". Of each at most sz_field - 1 characters count
// (sz_field at most k_coefficient_size), and what gives no finite number is 0. A null or empty text
// has none. False, with errno set and nothing read, without memory.
bool read_coefficients(const char *text, size_t sz_field, Coefficients *out);

} // namespace zeb

#endif
