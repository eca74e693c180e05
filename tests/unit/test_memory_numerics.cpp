// Averagers, polynomials, smoother and controller without memory: each allocation in turn fails, is
// reported, and does no harm.
#include "avg.h"
#include "fail_alloc.h"
#include "pid.h"
#include "smoother.h"
#include "support.h"

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using zeb::test::Alloc;
using zeb::test::FailingAlloc;
using zeb::test::StderrCapture;

namespace {

constexpr char k_report[] = "Cannot allocate memory";

struct Branch {
    CONF_node *root = CONF_alloc();
    ~Branch() { CONF_free(root); }
};

} // namespace

TEST(NumericsMemory, ShiftingAveragerThatCannotGrowBeginsAnew) {
    AVG_shifting avg;
    AVG_shift_init(&avg);
    AVG_shift_set_maxium_samples(&avg, 50);
    AVG_shift_add(&avg, 1.0);
    AVG_shift_clear(&avg);
    AVG_shift_add(&avg, 2.0);
    AVG_shift_add(&avg, 3.0);
    StderrCapture errors;
    {
        FailingAlloc failing(Alloc::resized, 1);
        AVG_shift_add(&avg, 4.0);
        EXPECT_TRUE(failing.failed());
    }
    const std::string text = errors.finish();
    EXPECT_THAT(text, HasSubstr("assertion failed (avg.cpp:"));
    EXPECT_THAT(text, HasSubstr(k_report));
    EXPECT_EQ(avg.buffer, nullptr);
    EXPECT_EQ(AVG_shift_avg(&avg), MVC);
    EXPECT_EQ(AVG_shift_running_stddev(&avg), MVC);
    EXPECT_EQ(avg.n_maxium_points, 50u);
    AVG_shift_add(&avg, 5.0); // tries again
    EXPECT_EQ(AVG_shift_avg(&avg), 5.0);
    EXPECT_EQ(AVG_shift_running_avg(&avg), 5.0);
    AVG_shift_delete(&avg);
}

TEST(NumericsMemory, ShiftingAveragerOfTooManySamplesIsReported) {
    // No buffer holds as many: a count at the top must not wrap to a small one.
    AVG_shifting avg;
    AVG_shift_init(&avg);
    AVG_shift_add(&avg, 1.0);
    avg.i_insert_point = avg.sz_buffer = SIZE_MAX;
    StderrCapture errors;
    AVG_shift_add(&avg, 1.0);
    EXPECT_THAT(errors.finish(), HasSubstr(k_report));
    EXPECT_EQ(avg.buffer, nullptr);
}

TEST(NumericsMemory, RingWithoutMemoryTakesNothing) {
    AVG_fixed avg;
    StderrCapture errors;
    {
        FailingAlloc failing(Alloc::fresh, 1);
        AVG_fixed_init(&avg, 10);
    }
    EXPECT_THAT(errors.finish(), HasSubstr(k_report));
    AVG_fixed_add(&avg, 1.0);
    EXPECT_EQ(AVG_fixed_n_full(&avg), 0u);
    EXPECT_EQ(AVG_fixed_avg(&avg), MVC);
    AVG_fixed_delete(&avg);
}

TEST(NumericsMemory, RingOfAnyLengthIsMadeOrReported) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer ends the program at such a size";
#else
    for (const size_t length :
         {SIZE_MAX, SIZE_MAX / sizeof(double) + 2, SIZE_MAX / sizeof(double)}) {
        AVG_fixed avg;
        StderrCapture errors;
        AVG_fixed_init(&avg, length);
        EXPECT_THAT(errors.finish(), HasSubstr(k_report));
        AVG_fixed_add(&avg, 1.0);
        EXPECT_EQ(AVG_fixed_frac_full(&avg), MVC);
    }
#endif
}

TEST(NumericsMemory, IntervalThatCannotBeginReturnsFalse) {
    AVG_rinterval avg;
    AVG_rinterval_init(&avg, 10.0);
    StderrCapture errors;
    {
        FailingAlloc failing(Alloc::fresh, 1);
        EXPECT_FALSE(AVG_rinterval_add(&avg, 1.0));
    }
    EXPECT_THAT(errors.finish(), HasSubstr(k_report));
    EXPECT_EQ(AVG_rinterval_count(&avg), 0u);
    EXPECT_FALSE(AVG_rinterval_add(&avg, 2.0));
    EXPECT_EQ(AVG_rinterval_count(&avg), 1u);
    AVG_rinterval_delete(&avg);
}

TEST(NumericsMemory, IntervalThatCannotGrowKeepsItsTimes) {
    AVG_rinterval avg;
    AVG_rinterval_init(&avg, 1e6);
    for (int i = 0; i < 4096; ++i)
        AVG_rinterval_add(&avg, i);
    StderrCapture errors;
    {
        FailingAlloc failing(Alloc::resized, 1);
        EXPECT_FALSE(AVG_rinterval_add(&avg, 4096.0));
        EXPECT_TRUE(failing.failed());
    }
    EXPECT_THAT(errors.finish(), HasSubstr(k_report));
    EXPECT_EQ(AVG_rinterval_count(&avg), 4096u);
    AVG_rinterval_add(&avg, 4097.0);
    EXPECT_EQ(AVG_rinterval_count(&avg), 4097u);
    AVG_rinterval_delete(&avg);
}

TEST(NumericsMemory, PolynomialWithoutMemoryIsTheIdentity) {
    for (int n = 1; n <= 2; ++n) { // the first two slots; four
        PHYSUNITS_poly poly;
        StderrCapture errors;
        {
            FailingAlloc failing(Alloc::resized, n);
            PHYSUNITS_buildpoly(&poly, "1,2,3");
            EXPECT_TRUE(failing.failed());
        }
        const std::string text = errors.finish();
        EXPECT_THAT(text, HasSubstr("assertion failed (physunits.cpp:"));
        EXPECT_THAT(text, HasSubstr(k_report));
        EXPECT_EQ(poly.coeff, nullptr);
        EXPECT_EQ(PHYSUNITS_applypoly(&poly, 4.0), 4.0);
        PHYSUNITS_freepoly(&poly);
    }
}

TEST(NumericsMemory, SmootherWithoutMemoryIsEmpty) {
    const Branch branch;
    CONF_set(branch.root, "A", "1,2,3");
    CONF_set(branch.root, "B", "1,2,3");
    const auto expect_empty = [&](Alloc kind, int n) {
        SMOOTHER_type smoother;
        StderrCapture errors;
        {
            FailingAlloc failing(kind, n);
            SMOOTHER_init(&smoother, branch.root);
            EXPECT_TRUE(failing.failed());
        }
        const std::string text = errors.finish();
        EXPECT_THAT(text, HasSubstr("assertion failed (smoother.cpp:"));
        EXPECT_THAT(text, HasSubstr(k_report));
        EXPECT_EQ(smoother.sz_a, 0u);
        EXPECT_EQ(smoother.outv, nullptr);
        EXPECT_EQ(SMOOTHER_smooth(&smoother, 5.0), 5.0);
        SMOOTEHR_delete(&smoother);
    };
    for (int n = 1; n <= 4; ++n) // two sets of coefficients, each grown once
        expect_empty(Alloc::resized, n);
    // Looking up each key takes one; then both histories.
    expect_empty(Alloc::fresh, 3);
    expect_empty(Alloc::fresh, 4);
}

TEST(NumericsMemory, ControllerWithoutMemoryHasNoPolynomial) {
    const Branch branch;
    CONF_set(branch.root, "P", "2");
    CONF_set(branch.root, "cal;PV", "1,2");
    PID_controller pid;
    StderrCapture errors;
    {
        FailingAlloc failing(Alloc::resized, 1);
        PID_control_build(&pid, branch.root);
        EXPECT_TRUE(failing.failed());
    }
    EXPECT_THAT(errors.finish(), HasSubstr("assertion failed (physunits.cpp:"));
    EXPECT_EQ(PID_control_process(&pid, 1.0, 4.0, 1.0), 6.0);
    PHYSUNITS_freepoly(&pid.pv_cal);
}
