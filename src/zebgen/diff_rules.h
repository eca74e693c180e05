// diff_rules.h - what becomes of one field between a sender and a receiver whose definitions
// differ.
//
// The library matches fields by name, converts numbers, and leaves missing values where nothing
// fits (netpack_unpack.cpp, netpack_convert.cpp). Tests send each kind of change through it.
#ifndef ZEBGEN_DIFF_RULES_H
#define ZEBGEN_DIFF_RULES_H

#include "model.h"

namespace zebgen {

// What a receiver sees.
struct Effect {
    std::string text;
    bool lost = false; // something that the old revision carries does not arrive whole
};

enum class Direction { old_to_new, new_to_old };

// "double[3]", as it would be declared.
std::string declared(const Field &field);
// "missing (9.999e-99)": what a field holds that nothing arrived for.
std::string missing_text(const Field &field);

// A number of one code received into a field of another.
Effect convert(const std::string &from_code, const std::string &to_code);
// The whole field, both sides having one of that name.
Effect transfer(const Field &sender, const Field &receiver, Direction direction);

} // namespace zebgen
#endif
