#include "diff_rules.h"

#include "types.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace zebgen {
namespace {

constexpr int k_float_bits = 24;
constexpr int k_double_bits = 53;

const char k_unchanged[] = "the same values";

std::string number_text(double value) {
    char text[40];
    snprintf(text, sizeof text, "%.10g", value);
    return text;
}

// Of integers.
struct Range {
    double low;
    double high;
};

Range range_of(const CodeProperties &code) {
    const double span = std::ldexp(1.0, static_cast<int>(8 * code.size));
    return code.is_signed ? Range{-span / 2, span / 2 - 1} : Range{0, span - 1};
}

std::string range_text(const CodeProperties &code) {
    const Range range = range_of(code);
    return number_text(range.low) + " to " + number_text(range.high);
}

Effect to_integer(const CodeProperties &from, const CodeProperties &to) {
    if (from.floating)
        return {"fractions cut off, limited to " + range_text(to), true};
    const Range source = range_of(from);
    const Range target = range_of(to);
    if (source.low >= target.low && source.high <= target.high)
        return {"converted exactly", false};
    return {"values outside " + range_text(to) + " change: the low " + std::to_string(8 * to.size) +
                " bits arrive",
            true};
}

Effect to_floating(const CodeProperties &from, const CodeProperties &to) {
    const int bits = to.size == 4 ? k_float_bits : k_double_bits;
    if (from.floating)
        return from.size <= to.size ? Effect{"converted exactly", false}
                                    : Effect{"rounded to 24 bits", true};
    if (range_of(from).high <= std::ldexp(1.0, bits))
        return {"converted exactly", false};
    return {"integers above " + number_text(std::ldexp(1.0, bits)) + " rounded to 24 bits", true};
}

// As the library does for values that fit; the low bits of a missing value that does not.
double arriving(double value, const CodeProperties &from, const CodeProperties &to) {
    if (to.floating)
        return to.size == 4 ? static_cast<double>(static_cast<float>(value)) : value;
    const Range range = range_of(to);
    if (from.floating)
        return std::clamp(std::trunc(value), range.low, range.high);
    const double span = range.high - range.low + 1;
    const double wrapped = std::fmod(std::fmod(value, span) + span, span);
    return wrapped > range.high ? wrapped - span : wrapped;
}

// Missing values are not recognised on the way: they are numbers like any other.
void add_missing(const CodeProperties &from, const CodeProperties &to, Effect &effect) {
    const double value = arriving(from.missing, from, to);
    if (!from.marked || (to.marked && value == to.missing))
        return;
    effect.text += ", a missing value arrives as " + number_text(value);
    effect.lost = true;
}

bool is_string(const Field &field) {
    return field.code == "STRING";
}

std::string elements(uint64_t from, uint64_t to) {
    return from + 1 == to ? "element " + std::to_string(from)
                          : "elements " + std::to_string(from) + " to " + std::to_string(to - 1);
}

// Elements that only one side has. A field that grew loses nothing: the old revision had no more.
void add_counts(const Field &sender, const Field &receiver, Direction direction, Effect &effect) {
    if (sender.count == receiver.count)
        return;
    const bool shrank = (direction == Direction::old_to_new) == (sender.count > receiver.count);
    effect.lost |= shrank;
    if (sender.count > receiver.count)
        effect.text += ", but " + elements(receiver.count, sender.count) + " dropped";
    else
        effect.text +=
            ", but " + elements(sender.count, receiver.count) + " " + missing_text(receiver);
}

Effect text_transfer(const Field &sender, const Field &receiver) {
    if (sender.count <= receiver.count)
        return {k_unchanged, false};
    return {"texts of more than " + std::to_string(receiver.count - 1) + " bytes cut", true};
}

} // namespace

std::string declared(const Field &field) {
    return field.type + (field.array ? "[" + std::to_string(field.count) + "]" : "");
}

std::string missing_text(const Field &field) {
    if (field.nested)
        return "missing (every field)";
    if (is_string(field))
        return "missing (empty)";
    return "missing (" + number_text(properties_of(field.code).missing) + ")";
}

Effect convert(const std::string &from_code, const std::string &to_code) {
    const CodeProperties &from = properties_of(from_code);
    const CodeProperties &to = properties_of(to_code);
    if (&from == &to)
        return {k_unchanged, false};
    Effect effect = to.floating ? to_floating(from, to) : to_integer(from, to);
    add_missing(from, to, effect);
    return effect;
}

Effect transfer(const Field &sender, const Field &receiver, Direction direction) {
    if (is_string(sender) && is_string(receiver))
        return text_transfer(sender, receiver);
    const bool records = sender.nested && receiver.nested && sender.type == receiver.type;
    const bool numbers = properties_of(sender.code).number && properties_of(receiver.code).number;
    if (!records && !numbers)
        return {"not converted: " + missing_text(receiver), true};
    Effect effect = records ? Effect{k_unchanged, false} : convert(sender.code, receiver.code);
    add_counts(sender, receiver, direction, effect);
    return effect;
}

} // namespace zebgen
