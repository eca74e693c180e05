#include "physunits.h"

#include "support.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using zeb::test::StderrCapture;

namespace {

struct Poly : PHYSUNITS_poly {
    explicit Poly(const char *text) { PHYSUNITS_buildpoly(this, text); }
    explicit Poly(const std::string &text) : Poly(text.c_str()) {}
    ~Poly() { PHYSUNITS_freepoly(this); }
    std::vector<double> coefficients() const { return {coeff, coeff + n_coeff}; }
    Poly(const Poly &) = delete;
    Poly &operator=(const Poly &) = delete;
};

} // namespace

TEST(Physunits, EmptyOrNullTextIsTheIdentity) {
    for (const char *text : {"", static_cast<const char *>(nullptr)}) {
        const Poly poly(text);
        EXPECT_EQ(poly.coeff, nullptr);
        EXPECT_EQ(poly.n_coeff, 0u);
        EXPECT_EQ(poly.sz_coeff, 0u);
        EXPECT_EQ(PHYSUNITS_applypoly(&poly, 12.25), 12.25);
    }
}

TEST(Physunits, OneTwoThreeAppliedToTwoGives17) {
    const Poly poly("1,2,3");
    EXPECT_EQ(PHYSUNITS_applypoly(&poly, 2.0), 17.0);
}

TEST(Physunits, UnreadableFieldIsAZeroCoefficient) {
    const Poly poly("a,2");
    EXPECT_THAT(poly.coefficients(), ElementsAre(0.0, 2.0));
}

TEST(Physunits, MissingValueStaysMissing) {
    for (const char *text : {"", "5", "1,2,3", "0;1"}) {
        const Poly poly(text);
        EXPECT_EQ(PHYSUNITS_applypoly(&poly, MVC), MVC);
        EXPECT_EQ(PHYSUNITS_applypoly_integrated(&poly, MVC, 1.0, 1.0), MVC);
    }
    EXPECT_EQ(PHYSUNITS_applypoly(nullptr, MVC), MVC);
}

TEST(Physunits, IntegratedCubicOrMoreWithoutStepReturnsTheValue) {
    const Poly poly("1,2,3");
    EXPECT_EQ(PHYSUNITS_applypoly_integrated(&poly, 7.0, 2.0, MVC), 7.0);
}

TEST(Physunits, FieldsAreCutAtAnySeparator) {
    const Poly poly("0.5,2;-1:1e2");
    EXPECT_THAT(poly.coefficients(), ElementsAre(0.5, 2.0, -1.0, 100.0));
    EXPECT_EQ(poly.sz_coeff, 4u);
}

TEST(Physunits, ArrayGrowsToThePowersOfTwo) {
    EXPECT_EQ(Poly("1").sz_coeff, 2u);
    EXPECT_EQ(Poly("1,2").sz_coeff, 2u);
    EXPECT_EQ(Poly("1,2,3").sz_coeff, 4u);
    EXPECT_EQ(Poly("1,2,3,4,5").sz_coeff, 8u);
}

TEST(Physunits, EmptyFieldsCountAsZeros) {
    EXPECT_THAT(Poly(",2,").coefficients(), ElementsAre(0.0, 2.0, 0.0));
    EXPECT_THAT(Poly(";").coefficients(), ElementsAre(0.0, 0.0));
    EXPECT_THAT(Poly(" ").coefficients(), ElementsAre(0.0));
}

TEST(Physunits, WhatIsNotFiniteOrMissingIsZero) {
    EXPECT_THAT(Poly("inf,nan,1e999,9.999e-99,-inf,3").coefficients(),
                ElementsAre(0.0, 0.0, 0.0, 0.0, 0.0, 3.0));
}

TEST(Physunits, FieldIsReadUpTo31Characters) {
    // 31 characters are "0.000...01" with 28 zeros behind the point; the 2 is not read.
    const std::string field = "0." + std::string(28, '0') + "1";
    ASSERT_EQ(field.size(), 31u);
    EXPECT_THAT(Poly(field + "2,4").coefficients(), ElementsAre(1e-29, 4.0));
}

TEST(Physunits, LongTextTakesTimeInProportion) {
    std::string text = "1";
    for (int i = 0; i < 200000; ++i)
        text += ",0";
    const Poly poly(text);
    EXPECT_EQ(poly.n_coeff, 200001u);
    EXPECT_EQ(PHYSUNITS_applypoly(&poly, 0.5), 1.0);
}

TEST(Physunits, SummedInAscendingOrder) {
    // (1 + 1e16) rounds to 1e16, minus 1e16 leaves 0; from the other end it would be 1.
    const Poly poly("1,1e16,-1e16");
    EXPECT_EQ(PHYSUNITS_applypoly(&poly, 1.0), 0.0);
    // 0.1 * 0.1 * 0.1 by a running power, times 3; by Horner's rule 3 * 0.1 comes first.
    const Poly cubic("0,0,0,3");
    volatile double tenth = 0.1;
    volatile double square = tenth * tenth;
    volatile double cube = square * tenth;
    EXPECT_EQ(PHYSUNITS_applypoly(&cubic, 0.1), 3.0 * cube);
}

TEST(Physunits, NotANumberGoesThrough) {
    const Poly poly("1,2");
    EXPECT_TRUE(std::isnan(PHYSUNITS_applypoly(&poly, std::numeric_limits<double>::quiet_NaN())));
}

TEST(Physunits, NoPolynomialReturnsTheValue) {
    const PHYSUNITS_poly no_array = {nullptr, 3, 4};
    EXPECT_EQ(PHYSUNITS_applypoly(nullptr, 2.0), 2.0);
    EXPECT_EQ(PHYSUNITS_applypoly(&no_array, 2.0), 2.0);
    EXPECT_EQ(PHYSUNITS_applypoly_integrated(nullptr, 2.0, MVC, MVC), 2.0);
    EXPECT_EQ(PHYSUNITS_applypoly_integrated(&no_array, 2.0, MVC, MVC), 2.0);
}

TEST(Physunits, IntegratedWithoutSpanIsMissing) {
    for (const char *text : {"1", "1,2", "1,2,3"}) {
        const Poly poly(text);
        EXPECT_EQ(PHYSUNITS_applypoly_integrated(&poly, 7.0, MVC, 1.0), MVC);
        EXPECT_EQ(PHYSUNITS_applypoly_integrated(&poly, 7.0, MVC, MVC), MVC);
    }
}

TEST(Physunits, IntegratedShortPolynomialsNeedNoStep) {
    const Poly constant("3");
    EXPECT_EQ(PHYSUNITS_applypoly_integrated(&constant, 7.0, 2.0, MVC), 6.0);
    const Poly linear("3,5");
    EXPECT_EQ(PHYSUNITS_applypoly_integrated(&linear, 7.0, 2.0, MVC), 41.0);
}

TEST(Physunits, IntegratedTakesEachPowerByItsOrder) {
    // 1*2 + 2*7 = 16; p = 3^2*7 = 63, 6*63/3 = 126; p = 63*7 = 441, 4*441/4 = 441.
    const Poly poly("1,2,6,4");
    EXPECT_EQ(PHYSUNITS_applypoly_integrated(&poly, 7.0, 2.0, 3.0), 583.0);
}

TEST(Physunits, FreedPolynomialIsTheIdentityAndMayBeBuiltAnew) {
    PHYSUNITS_poly poly;
    PHYSUNITS_buildpoly(&poly, "1,2");
    PHYSUNITS_freepoly(&poly);
    EXPECT_EQ(poly.coeff, nullptr);
    EXPECT_EQ(PHYSUNITS_applypoly(&poly, 4.0), 4.0);
    PHYSUNITS_freepoly(&poly);
    PHYSUNITS_buildpoly(&poly, "1,3");
    EXPECT_EQ(PHYSUNITS_applypoly(&poly, 4.0), 13.0);
    PHYSUNITS_freepoly(&poly);
}

TEST(Physunits, NullPolynomialIsReported) {
    StderrCapture errors;
    PHYSUNITS_buildpoly(nullptr, "1");
    PHYSUNITS_freepoly(nullptr);
    EXPECT_THAT(errors.finish(), HasSubstr("assertion failed (physunits.cpp:"));
}
