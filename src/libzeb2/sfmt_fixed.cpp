// sfmt_fixed.cpp - decimal digits, and numbers in fixed point.
#include "sfmt_int.h"

#include <cmath>
#include <cstring>
#include <iterator>

namespace zeb {
namespace {

constexpr double k_powers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                               1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                               1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr double k_inverse_powers[] = {1e-0,  1e-1,  1e-2,  1e-3,  1e-4,  1e-5,  1e-6,  1e-7,
                                       1e-8,  1e-9,  1e-10, 1e-11, 1e-12, 1e-13, 1e-14, 1e-15,
                                       1e-16, 1e-17, 1e-18, 1e-19, 1e-20, 1e-21, 1e-22};
constexpr uint64_t k_integer_powers[] = {1,
                                         10,
                                         100,
                                         1000,
                                         10000,
                                         100000,
                                         1000000,
                                         10000000,
                                         100000000,
                                         1000000000,
                                         10000000000,
                                         100000000000,
                                         1000000000000,
                                         10000000000000,
                                         100000000000000,
                                         1000000000000000};
constexpr int k_quick_digits = std::size(k_integer_powers) - 1;

// Below this value of R = round(value * 10^F) the digits of the integer R are those that the double
// arithmetic yields. The exact (R + 0.5) / 10^j, for any digit's j, lies at least 0.5 / 10^j away
// from an integer; the computed one is off by at most four roundings, 4 * 2^-53 of itself, which is
// below 0.25 / 10^j. The floor of both is then the same integer.
constexpr double k_quick_limit = 5e14;

// round() for 0 <= x < 2^52: the difference is exact, and a half goes up.
uint64_t round_half_up(double x) {
    const auto whole = static_cast<int64_t>(x);
    return static_cast<uint64_t>(whole + (x - static_cast<double>(whole) >= 0.5 ? 1 : 0));
}

// Most values are short, and a division of 32 bits takes a fraction of the time.
void split(uint64_t scaled, uint64_t power, uint64_t &whole, uint64_t &part) {
    if (scaled <= UINT32_MAX && power <= UINT32_MAX) {
        const auto narrow = static_cast<uint32_t>(scaled);
        whole = narrow / static_cast<uint32_t>(power);
        part = narrow - static_cast<uint32_t>(whole * power);
    } else {
        whole = scaled / power;
        part = scaled - whole * power;
    }
}

// value * 10^F may overflow; such a value has no digits after the point and needs no rounding.
double rounded_up_half(double value, int fraction) {
    const double scale = power_of_ten(fraction);
    const double scaled = value * scale;
    if (std::isfinite(scaled))
        value = std::round(scaled) / scale;
    return value + 0.5 * power_of_ten(-fraction);
}

char last_digit(double value) {
    if (!std::isfinite(value))
        return '0';
    return static_cast<char>('0' + static_cast<int>(std::fmod(std::floor(value), 10.0)));
}

char *write_integer(char *out, uint64_t value, int count) {
    for (char *at = out + count; at != out; value /= 10)
        *--at = static_cast<char>('0' + value % 10);
    return out + count;
}

void write_blank_field(TextWriter &out, const FieldShape &whole, int fraction) {
    const int count = (whole.digits > 0 ? whole.digits : 1) +
                      (whole.force_sign || whole.reserve_sign ? 1 : 0) +
                      (fraction > 0 ? fraction + 1 : 0);
    if (char *at = out.reserve(static_cast<size_t>(count)))
        out.advance_to(write_repeated(at, ' ', count));
}

// The pattern of a value that cannot be shown.
void write_nines(TextWriter &out, const FieldShape &whole, bool negative, int fraction) {
    const int count = whole.digits > 0 ? whole.digits : 1;
    const int room = count + fraction + 2;
    char *at = out.reserve(static_cast<size_t>(room));
    if (at == nullptr)
        return;
    at = write_sign(at, whole, negative);
    at = write_repeated(at, '9', count);
    out.advance_to(write_fraction_pattern(at, '9', fraction));
}

void write_number(TextWriter &out, const FieldShape &whole, bool negative, const Decimal &number,
                  int fraction) {
    const int digits = whole.digits == 0 ? 1 : number.whole_digits();
    const Padding pad = padding_of(whole, whole.digits, digits);
    const int room = (digits > whole.digits ? digits : whole.digits) + fraction + 2;
    char *at = out.reserve(static_cast<size_t>(room));
    if (at == nullptr)
        return;
    if (whole.digits == 0) {
        *at++ = '0';
    } else {
        at = write_repeated(at, ' ', pad.before);
        at = write_sign(at, whole, negative);
        at = write_repeated(at, '0', pad.zeros);
        at = number.write_whole(at, digits);
    }
    if (fraction > 0) {
        *at++ = '.';
        at = number.write_fraction(at);
    }
    out.advance_to(write_repeated(at, ' ', pad.after));
}

} // namespace

double power_of_ten(int exponent) {
    const int count = std::size(k_powers);
    if (exponent >= 0)
        return exponent < count ? k_powers[exponent] : std::pow(10.0, exponent);
    return -exponent < count ? k_inverse_powers[-exponent] : std::pow(10.0, exponent);
}

bool is_missing(double value) {
    return value == MVC || !std::isfinite(value);
}

char *write_repeated(char *out, char c, int count) {
    while (count-- > 0)
        *out++ = c;
    return out;
}

char *write_sign(char *out, const FieldShape &shape, bool negative) {
    if (negative)
        *out++ = '-';
    else if (shape.force_sign)
        *out++ = '+';
    else if (shape.reserve_sign)
        *out++ = ' ';
    return out;
}

char *write_fraction_pattern(char *out, char c, int count) {
    if (count > 0)
        *out++ = '.';
    return write_repeated(out, c, count);
}

bool take_sign(double &value, FieldShape &whole) {
    if (!(value < 0))
        return false;
    value = -value;
    if (!whole.force_sign && !whole.reserve_sign && whole.digits >= 2)
        --whole.digits;
    return true;
}

Padding padding_of(const FieldShape &shape, int width, int used) {
    Padding pad;
    const int missing = width > used ? width - used : 0;
    if (shape.zero_pad)
        pad.zeros = missing;
    else if (shape.align == Align::Left)
        pad.after = missing;
    else if (shape.align == Align::Right)
        pad.before = missing;
    return pad;
}

Decimal::Decimal(double value, int fraction) : fraction_(fraction) {
    quick_ = fraction <= k_quick_digits && value * k_powers[fraction] < k_quick_limit;
    if (quick_) {
        split(round_half_up(value * k_powers[fraction]), k_integer_powers[fraction], whole_, part_);
    } else {
        value_ = rounded_up_half(value, fraction);
    }
}

bool Decimal::exceeds(int width) const {
    const int nines = width > 0 ? width : 1;
    if (!quick_)
        return value_ > (power_of_ten(nines) - 1) + (1 - power_of_ten(-fraction_));
    if (nines > k_quick_digits)
        return false;
    // s has half a last digit more than whole_ and part_: all nines already lie below it.
    const uint64_t largest = k_integer_powers[nines] - 1;
    return whole_ > largest || (whole_ == largest && part_ == k_integer_powers[fraction_] - 1);
}

int Decimal::whole_digits() const {
    int count = 1;
    if (quick_)
        while (count <= k_quick_digits && whole_ >= k_integer_powers[count])
            ++count;
    else
        while (count <= 308 && value_ >= power_of_ten(count))
            ++count;
    return count;
}

char *Decimal::write_whole(char *out, int count) const {
    if (quick_)
        return write_integer(out, whole_, count);
    for (int i = count - 1; i >= 0; --i)
        *out++ = last_digit(value_ / power_of_ten(i));
    return out;
}

char *Decimal::write_fraction(char *out) const {
    if (quick_)
        return write_integer(out, part_, fraction_);
    for (int k = 1; k <= fraction_; ++k)
        *out++ = last_digit(value_ * power_of_ten(k));
    return out;
}

} // namespace zeb

void SFMT_altformat_double(zeb::TextWriter &out, double value, const zeb::NumberFormat &format) {
    using namespace zeb;
    const int fraction = format.fraction < 0 ? 6 : format.fraction;
    FieldShape whole = format.whole;
    if (is_missing(value)) {
        if (format.blank_missing)
            write_blank_field(out, whole, fraction);
        else
            write_nines(out, whole, false, fraction);
        return;
    }
    const bool negative = take_sign(value, whole);
    const Decimal number(value, fraction);
    if (whole.digits >= 0 && !format.no_clip && number.exceeds(whole.digits))
        write_nines(out, whole, negative, fraction);
    else
        write_number(out, whole, negative, number, fraction);
}
