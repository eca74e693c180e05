// sfmt_exponent.cpp - numbers in exponent form: a coefficient of fixed width, a letter, an exponent
// of fixed width. The layout is described in sfmt.h.
#include "sfmt_int.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

using namespace zeb;

constexpr int k_default_fraction = 6;
constexpr int k_default_exponent_digits = 2;

// The shape of one field, every default filled in.
struct ExponentField {
    FieldShape whole; // its digits: all positions of the coefficient before the point
    FieldShape exponent;
    int scaled_digits; // integer digits that the value is scaled to
    int min_digits;
    int fraction;
    char letter;
};

ExponentField field_of(const NumberFormat &format, char letter) {
    ExponentField field{format.whole,        format.exponent,
                        format.whole.digits, std::max(format.min_digits, 1),
                        format.fraction,     letter};
    if (field.scaled_digits < 0)
        field.scaled_digits = 1;
    field.whole.digits = std::max(field.scaled_digits, field.min_digits);
    if (field.fraction < 0)
        field.fraction = k_default_fraction;
    if (field.exponent.digits < 1)
        field.exponent.digits = k_default_exponent_digits;
    return field;
}

// The "-" of a negative value may take one of the coefficient's positions.
bool take_field_sign(double &value, ExponentField &field) {
    const bool negative = take_sign(value, field.whole);
    field.scaled_digits = std::min(field.scaled_digits, field.whole.digits);
    field.min_digits = std::min(field.min_digits, field.whole.digits);
    return negative;
}

bool has_exponent_sign(const FieldShape &exponent) {
    return exponent.align != Align::None || exponent.force_sign || exponent.reserve_sign;
}

size_t longest(const ExponentField &field) {
    const int count = field.whole.digits + field.fraction + field.exponent.digits + 16;
    return static_cast<size_t>(count);
}

char *write_exponent(char *out, const ExponentField &field, int exponent) {
    const FieldShape &shape = field.exponent;
    char digits[16];
    int count = 0;
    for (int rest = std::abs(exponent); rest > 0 || count == 0; rest /= 10)
        digits[count++] = static_cast<char>('0' + rest % 10);
    const Padding pad = padding_of(shape, shape.digits, count);
    out = write_repeated(out, ' ', pad.before);
    if (exponent < 0)
        *out++ = '-';
    else if (has_exponent_sign(shape))
        *out++ = shape.force_sign ? '+' : ' ';
    out = write_repeated(out, '0', pad.zeros);
    while (count > 0)
        *out++ = digits[--count];
    return write_repeated(out, ' ', pad.after);
}

// The same digit in every position, for values that the field cannot show.
void write_pattern(TextWriter &out, const ExponentField &field, bool negative, char digit) {
    char *at = out.reserve(longest(field));
    if (at == nullptr)
        return;
    at = write_sign(at, field.whole, negative);
    at = write_repeated(at, digit, field.whole.digits);
    at = write_fraction_pattern(at, digit, field.fraction);
    *at++ = field.letter;
    if (has_exponent_sign(field.exponent))
        *at++ = field.exponent.force_sign ? '+' : ' ';
    out.advance_to(write_repeated(at, digit, field.exponent.digits));
}

void write_blanks(TextWriter &out, const ExponentField &field) {
    const int count = (field.whole.force_sign || field.whole.reserve_sign ? 1 : 0) +
                      field.whole.digits + (field.fraction > 0 ? field.fraction + 1 : 0) + 1 +
                      (has_exponent_sign(field.exponent) ? 1 : 0) + field.exponent.digits;
    if (char *at = out.reserve(longest(field)))
        out.advance_to(write_repeated(at, ' ', count));
}

void write_scaled(TextWriter &out, const ExponentField &field, bool negative, double coefficient,
                  int exponent) {
    const Decimal number(coefficient, field.fraction);
    const int digits = number.whole_digits();
    const int shown = std::max(digits, field.min_digits);
    const Padding pad = padding_of(field.whole, field.whole.digits, shown);
    char *at = out.reserve(longest(field));
    if (at == nullptr)
        return;
    at = write_repeated(at, ' ', pad.before);
    at = write_sign(at, field.whole, negative);
    at = write_repeated(at, '0', pad.zeros + shown - digits);
    at = number.write_whole(at, digits);
    if (field.fraction > 0) {
        *at++ = '.';
        at = number.write_fraction(at);
    }
    *at++ = field.letter;
    at = write_exponent(at, field, exponent);
    out.advance_to(write_repeated(at, ' ', pad.after));
}

// value * 10^power; powers beyond the range of a double are taken in two steps.
double scaled(double value, int power) {
    const int step = std::clamp(power, -k_max_digits, k_max_digits);
    // Dividing by an exact power is the more exact way.
    value = step < 0 ? value / power_of_ten(-step) : value * power_of_ten(step);
    return power == step ? value : scaled(value, power - step);
}

bool rounds_up_to(double coefficient, int fraction, double limit) {
    const double scale = power_of_ten(fraction);
    const double last_place = coefficient * scale;
    return (std::isfinite(last_place) ? std::round(last_place) / scale : coefficient) >= limit;
}

// The exponent that gives the coefficient `digits` integer digits, also after rounding to the
// fraction; none is 0 for the value 0.
int exponent_for(double value, int digits, int fraction) {
    if (value == 0)
        return 0;
    const double limit = power_of_ten(digits);
    int exponent = static_cast<int>(std::floor(std::log10(value))) - (digits - 1);
    // The logarithm is off by one at most, next to a power of ten.
    while (scaled(value, -(exponent - 1)) < limit)
        --exponent;
    while (rounds_up_to(scaled(value, -exponent), fraction, limit))
        ++exponent;
    return exponent;
}

// The largest exponent of `digits` digits; four hold that of any double.
int largest_exponent(int digits) {
    return digits >= 4 ? 9999 : static_cast<int>(power_of_ten(digits)) - 1;
}

} // namespace

void SFMT_altformat_exponent(TextWriter &out, double value, const NumberFormat &format,
                             char letter) {
    ExponentField field = field_of(format, letter);
    if (is_missing(value)) {
        if (format.blank_missing)
            write_blanks(out, field);
        else
            write_pattern(out, field, false, '9');
        return;
    }
    const bool negative = take_field_sign(value, field);
    const int exponent = exponent_for(value, field.scaled_digits, field.fraction);
    if (std::abs(exponent) > largest_exponent(field.exponent.digits))
        write_pattern(out, field, negative, exponent > 0 ? '9' : '0');
    else
        write_scaled(out, field, negative, scaled(value, -exponent), exponent);
}
