// The numbers of "*" directives: fixed point, exponent form, and their digits.
#include "sfmt.h"

#include "sfmt_testing.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

using testing::HasSubstr;
using namespace zeb::test;

// ---- directives, fixed point

TEST(SfmtFixed, Examples) {
    EXPECT_EQ(alt("*3.2f", 3.14159), "  3.14");
    EXPECT_EQ(alt("*-3.2f", 3.14159), "3.14  ");
    EXPECT_EQ(alt("*+03.1f", 3.14159), "+003.1");
    EXPECT_EQ(alt("*3.1f", 123456.0), "999.9");
    EXPECT_EQ(alt("*4.2f", k_missing), "9999.99");
    EXPECT_EQ(alt("*~4.2f", k_missing), "       ");
}

TEST(SfmtFixed, DirectivesWithoutNumberWriteNothingAndTakeNoArgument) {
    EXPECT_EQ(alt("*d*2.1f", 1.5), " 1.5");
    EXPECT_EQ(alt("*5D*i*I*x*X|*1.0f", 1.0), "|1");
    EXPECT_EQ(alt("*3.2q*1.0f", 1.0), "1"); // any other character is skipped with it
    EXPECT_EQ(alt("*1.2.3.4.*1.0f", 1.0), "1");
}

TEST(SfmtFixed, TheWidthOfANegativeValueShrinksForItsSign) {
    EXPECT_EQ(alt("*3.0f", -5.0), " -5");
    EXPECT_EQ(alt("*03.0f", -5.0), "-05");
    EXPECT_EQ(alt("*1.0f", -5.0), "-5");
    EXPECT_EQ(alt("*.0f", -5.0), "-5");
    EXPECT_EQ(alt("*3.1f", -123.0), "-99.9");
}

TEST(SfmtFixed, RoundingUpPastTheWidthIsClipped) {
    EXPECT_EQ(alt("*3.1f", 999.96), "999.9");
    EXPECT_EQ(alt("*3.1f", 999.94), "999.9");
    EXPECT_EQ(alt("*3.1f", 999.84), "999.8");
}

TEST(SfmtFixed, SignsForcedAndReserved) {
    EXPECT_EQ(alt("*+3.0f", 5.0), "  +5");
    EXPECT_EQ(alt("*+3.0f", -5.0), "  -5");
    EXPECT_EQ(alt("* 3.0f", 5.0), "   5");
    EXPECT_EQ(alt("* 3.0f", -5.0), "  -5");
    EXPECT_EQ(alt("* 03.0f", 5.0), " 005");
    EXPECT_EQ(alt("*+ 1.0f", 5.0), "+5");
    EXPECT_EQ(alt("*3. 0f", 5.0), "  5"); // a blank between the points reserves nothing
    EXPECT_EQ(alt("*3.+0f", 5.0), "  +5");
}

TEST(SfmtFixed, Alignments) {
    EXPECT_EQ(alt("*-3.1f|", -5.0), "-5.0 |");
    EXPECT_EQ(alt("*^3.1f|", 5.0), "5.0|");
    EXPECT_EQ(alt("*^+3.1f|", 5.0), "+5.0|");
    EXPECT_EQ(alt("*-03.1f|", 5.0), "005.0|");
}

TEST(SfmtFixed, Defaults) {
    EXPECT_EQ(alt("*f", 3.5), "3.500000");
    EXPECT_EQ(alt("*F", 12345.5), "12345.500000");
    EXPECT_EQ(alt("*2.f", 3.5), " 3.500000");
    EXPECT_EQ(alt("*0.1f", 12.0), "12.0"); // zero padding of no width
}

TEST(SfmtFixed, AWidthOfZeroShowsAZeroWithoutSign) {
    EXPECT_EQ(alt("*00.2f", 0.5), "0.50");
    EXPECT_EQ(alt("*00.2f", -0.5), "0.50");
    EXPECT_EQ(alt("*+00.2f", 3.25), "0.25");
    EXPECT_EQ(alt("*00.2f", 12.0), "9.99");
    EXPECT_EQ(alt("*00.2f", -12.0), "-9.99");
}

TEST(SfmtFixed, NoClippingPrintsWiderValues) {
    EXPECT_EQ(alt("*@3.1f", 123456.0), "123456.0");
    EXPECT_EQ(alt("*@3.1f", -123456.0), "-123456.0");
    EXPECT_EQ(alt("*@1.1f", std::ldexp(1.0, 100)).size(), 33u);
}

TEST(SfmtFixed, ClippedSigns) {
    EXPECT_EQ(alt("*+2.1f", 100.0), "+99.9");
    EXPECT_EQ(alt("*+2.1f", -100.0), "-99.9");
    EXPECT_EQ(alt("* 2.1f", 100.0), " 99.9");
    EXPECT_EQ(alt("* 2.0f", -100.0), "-99");
}

TEST(SfmtFixed, MissingAndNonFiniteValues) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double infinity = std::numeric_limits<double>::infinity();
    for (double value : {k_missing, nan, infinity, -infinity}) {
        EXPECT_EQ(alt("*4.2f", value), "9999.99");
        EXPECT_EQ(alt("*+4.2f", value), "+9999.99");
        EXPECT_EQ(alt("* 4.0f", value), " 9999");
        EXPECT_EQ(alt("*.1f", value), "9.9");
        EXPECT_EQ(alt("*~4.2f|", value), "       |");
        EXPECT_EQ(alt("*~+4.2f|", value), "        |");
        EXPECT_EQ(alt("*~.0f|", value), " |");
    }
    EXPECT_EQ(alt("*~2.1f", 1.0), " 1.0");
}

TEST(SfmtFixed, NegativeZeroHasNoSignAndRoundedToZeroKeepsIt) {
    EXPECT_EQ(alt("*2.1f", -0.0), " 0.0");
    EXPECT_EQ(alt("*2.1f", -0.01), "-0.0");
}

TEST(SfmtFixed, WidthsAreLimited) {
    StderrCapture capture;
    EXPECT_EQ(alt("*999999999.2f|", 1.0), std::string(299, ' ') + "1.00|");
    EXPECT_EQ(alt("*1.99999999999f|", 0.5).substr(0, 3), "0.5");
    EXPECT_EQ(alt("*1.99999999999f|", 0.5).size(), 303u);
    EXPECT_THAT(capture.finish(), HasSubstr("Too large a width in the format"));
}

TEST(SfmtFixed, ExtremeValues) {
    const double largest = std::numeric_limits<double>::max();
    EXPECT_EQ(alt("*@1.2f", largest).size(), 312u);
    EXPECT_EQ(alt("*@1.300f", largest).size(), 610u);
    EXPECT_EQ(alt("*300.0f", largest), std::string(300, '9'));
    EXPECT_EQ(alt("*1.3f", std::numeric_limits<double>::denorm_min()), "0.000");
}

// ---- directives, exponent form

TEST(SfmtExponent, Layout) {
    EXPECT_EQ(alt("*e", 12345.678), "1.234568e  4");
    EXPECT_EQ(alt("*1.2.+02e", 12345.678), "1.23e+04");
    EXPECT_EQ(alt("*1.2.+02E", 0.00012345), "1.23E-04");
    EXPECT_EQ(alt("*1.2.02e", 12345.678), "1.23e 04");
    EXPECT_EQ(alt("*1.2e", 0.00012345), "1.23e -4");
    EXPECT_EQ(alt("*1.2.e", 0.00012345), "1.23e -4");
    EXPECT_EQ(alt("*1.2.-3e|", 0.00012345), "1.23e-4  |");
    EXPECT_EQ(alt("*1.2.^e|", 12345.678), "1.23e4|");
    EXPECT_EQ(alt("*1.2.^ e|", 12345.678), "1.23e 4|");
    EXPECT_EQ(alt("*3.0.+1e", 12345.678), "123e+2");
    EXPECT_EQ(alt("*00.3.+02e", 12345.678), "0.123e+05");
    EXPECT_EQ(alt("*1.1.+02.3e", 12.0), "001.2e+01");
    EXPECT_EQ(alt("*1.1.+02.3e", -12.0), "-01.2e+01");
}

TEST(SfmtExponent, Signs) {
    EXPECT_EQ(alt("*2.2.+02e", -12345.678), "-1.23e+04");
    EXPECT_EQ(alt("*2.2.+02e", 12345.678), "12.35e+03");
    EXPECT_EQ(alt("*+1.2.+02e", 12345.678), "+1.23e+04");
    EXPECT_EQ(alt("* 1.2.+02e", 12345.678), " 1.23e+04");
    EXPECT_EQ(alt("* 1.2.+02e", -12345.678), "-1.23e+04");
}

TEST(SfmtExponent, Zero) {
    EXPECT_EQ(alt("*1.2e", 0.0), "0.00e  0");
    EXPECT_EQ(alt("*3.1.+02e", 0.0), "  0.0e+00");
    EXPECT_EQ(alt("*03.1.+02e", 0.0), "000.0e+00");
    EXPECT_EQ(alt("*-3.1.+02e|", 0.0), "0.0e+00  |");
    EXPECT_EQ(alt("*3.1.+02.2e", 0.0), " 00.0e+00");
}

TEST(SfmtExponent, RoundingThatCarriesOverScalesAgain) {
    EXPECT_EQ(alt("*1.2.+02e", 9.996), "1.00e+01");
    EXPECT_EQ(alt("*2.0.+02e", 99.5), "10e+01");
    EXPECT_EQ(alt("*1.2.+02e", 9.994), "9.99e+00");
    EXPECT_EQ(alt("*1.0.+1e", 9.9e9), "9e+9");
}

TEST(SfmtExponent, ExactPowersOfTen) {
    for (int power = -22; power <= 22; ++power) {
        char expected[32];
        snprintf(expected, sizeof expected, "1.000000e%+03d", power);
        EXPECT_EQ(alt("*1.6.+02e", std::stod("1e" + std::to_string(power))), expected);
    }
}

TEST(SfmtExponent, ExponentsBeyondTheWidth) {
    EXPECT_EQ(alt("*1.2.+02e", 1e99), "1.00e+99");
    EXPECT_EQ(alt("*1.2.+02e", 1e100), "9.99e+99");
    EXPECT_EQ(alt("*1.2.+02e", 1.5e-99), "1.50e-99");
    EXPECT_EQ(alt("*1.2.+02e", 1e-100), "0.00e+00");
    EXPECT_EQ(alt("*e", 1e100), "9.999999e 99");
    EXPECT_EQ(alt("*e", -1e-100), "-0.000000e 00");
    EXPECT_EQ(alt("*+2.1.+3E", -1e300), "-10.0E+299");
    EXPECT_EQ(alt("*+2.1.+1E", -1e300), "-99.9E+9");
    EXPECT_EQ(alt("*1.2.+3e", 5e-324), "4.94e-324");
}

TEST(SfmtExponent, MissingAndNonFiniteValues) {
    for (double value : {k_missing, std::nan(""), HUGE_VAL, -HUGE_VAL}) {
        EXPECT_EQ(alt("*1.2e", value), "9.99e 99");
        EXPECT_EQ(alt("*+2.1.+3E", value), "+99.9E+999");
        EXPECT_EQ(alt("*~1.2e|", value), "        |");
        EXPECT_EQ(alt("*~+2.1.+3E|", value), "          |");
    }
}

TEST(SfmtExponent, TheFieldHasOneWidth) {
    for (double value :
         {1.0, -1.0, 0.0, 12345.678, -0.001, 1e50, -1e-50, 1e200, -1e-200, k_missing})
        for (const char *format : {"*2.3e", "*+1.3E", "* 4.0.+2e", "*-3.2.-3e", "*02.1.03.3e"})
            EXPECT_EQ(alt(format, value).size(), alt(format, 2.0).size()) << format << value;
}

TEST(SfmtExponent, WidthsAreLimited) {
    StderrCapture capture;
    EXPECT_EQ(alt("*999999.0.+999999e", 1.0).size(), 602u);
    EXPECT_EQ(alt("*300.300.+3.300e", 5e-324).size(), 606u);
    EXPECT_THAT(capture.finish(), HasSubstr("Too large a width"));
}

// ---- the digits against the rule itself, in plain double arithmetic

namespace {

struct Field {
    int width = -1, fraction = 0;
    bool forced = false, reserved = false, zeros = false, no_clip = false;
    int align = 0;

    std::string format() const {
        std::string text = "*";
        text += forced ? "+" : "";
        text += reserved ? " " : "";
        text += no_clip ? "@" : "";
        text += align == 1 ? "-" : align == 2 ? "^" : "";
        if (width == 0)
            return text + "00." + std::to_string(fraction) + "f";
        text += zeros ? "0" : "";
        return text + (width > 0 ? std::to_string(width) : "") + "." + std::to_string(fraction) +
               "f";
    }
};

char plain_digit(double shifted) {
    return static_cast<char>('0' + static_cast<int>(fmod(floor(shifted), 10.0)));
}

std::string plain_fixed(double value, const Field &field) {
    int width = field.width;
    const bool negative = value < 0;
    if (negative) {
        value = -value;
        if (!field.forced && !field.reserved && width >= 2)
            --width;
    }
    const double scale = pow(10.0, field.fraction);
    value = round(value * scale) / scale + 0.5 * pow(10.0, -field.fraction);
    const std::string sign = negative ? "-" : field.forced ? "+" : field.reserved ? " " : "";
    const std::string point = field.fraction > 0 ? "." : "";
    const auto decimals = static_cast<size_t>(field.fraction);
    const std::string nines(static_cast<size_t>(width < 1 ? 1 : width), '9');
    if (width >= 0 && !field.no_clip) {
        const double largest = strtod((nines + "." + std::string(decimals, '9')).c_str(), nullptr);
        if (value > largest)
            return sign + nines + point + std::string(decimals, '9');
    }
    std::string digits;
    int count = 1;
    while (value >= pow(10.0, count))
        ++count;
    for (int i = count - 1; i >= 0; --i)
        digits += plain_digit(value / pow(10.0, i));
    std::string part = point;
    for (int k = 1; k <= field.fraction; ++k)
        part += plain_digit(value * pow(10.0, k));
    if (width == 0)
        return "0" + part;
    const size_t missing = width > count ? static_cast<size_t>(width - count) : 0;
    if (field.zeros && width > 0)
        return sign + std::string(missing, '0') + digits + part;
    if (field.align == 1)
        return sign + digits + part + std::string(missing, ' ');
    if (field.align == 2)
        return sign + digits + part;
    return std::string(missing, ' ') + sign + digits + part;
}

class Random {
  public:
    uint64_t next() { // splitmix64
        uint64_t z = state_ += 0x9e3779b97f4a7c15u;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
        return z ^ (z >> 31);
    }
    int below(int limit) { return static_cast<int>(next() % static_cast<uint64_t>(limit)); }
    double unit() { return static_cast<double>(next() >> 11) * 0x1p-53; }

  private:
    uint64_t state_ = 20240501;
};

Field any_field(Random &random) {
    Field field;
    field.width = random.below(11) - 1;
    field.fraction = random.below(10);
    field.forced = random.below(4) == 0;
    field.reserved = random.below(4) == 0;
    field.zeros = random.below(4) == 0;
    field.no_clip = random.below(3) == 0;
    field.align = random.below(3);
    return field;
}

double any_value(Random &random, const Field &field) {
    const double unit = random.unit(), last_place = pow(10.0, -field.fraction);
    const double limit = pow(10.0, field.width < 1 ? 1 : field.width);
    switch (random.below(6)) {
    case 0: // a tie, or what lies next to it
        return std::nextafter((random.below(1000000) + 0.5) * last_place, random.below(3) - 1.0);
    case 1: // about the clipping limit
        return limit + (random.below(9) - 6) * 0.25 * last_place;
    case 2: // short decimals
        return random.below(1000000) * pow(10.0, -random.below(7));
    case 3: // about the limit of exact integers
        return unit * pow(10.0, 13 + random.below(5) - field.fraction);
    default:
        return unit * pow(10.0, random.below(22) - 10);
    }
}

void expect_plain(const Field &field, const char *format, double value, SFMT_buffer *bf) {
    SFMT_altprintf(bf, format, value);
    const std::string expected = plain_fixed(value, field);
    if (expected != bf->buffer)
        ADD_FAILURE() << format << " of " << std::hexfloat << value << ": " << bf->buffer
                      << " and not " << expected;
}

} // namespace

TEST(SfmtFixedDigits, AreThoseOfThePlainAlgorithm) {
    const int samples = k_sanitized ? 200 : 2000;
    Random random;
    Buffer b;
    for (int i = 0; i < 1000 && !HasFailure(); ++i) {
        const Field field = any_field(random);
        const std::string format = field.format();
        for (int k = 0; k < samples; ++k) {
            const double value = any_value(random, field);
            expect_plain(field, format.c_str(), random.below(2) == 0 ? value : -value, &b);
        }
    }
}

TEST(SfmtFixedDigits, OfHugeValuesAreThoseOfThePlainAlgorithm) {
    Random random;
    Buffer b;
    for (int i = 0; i < 1000 && !HasFailure(); ++i) {
        Field field = any_field(random);
        field.no_clip = field.no_clip || random.below(2) == 0;
        const double value = random.unit() * pow(10.0, 15 + random.below(284));
        expect_plain(field, field.format().c_str(), value, &b);
    }
    expect_plain({.width = 1, .fraction = 2, .no_clip = true}, "*@1.2f", 1e300, &b);
}
