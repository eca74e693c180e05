#include "smoother.h"

#include "support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using zeb::test::StderrCapture;

namespace {

constexpr size_t k_warm = 1000; // more samples than any smoother here has coefficients

struct Smoother : SMOOTHER_type {
    explicit Smoother(const char *a_text, const char *b_text = nullptr) {
        CONF_node *conf = CONF_alloc();
        CONF_set(conf, "A", a_text);
        CONF_set(conf, "B", b_text);
        SMOOTHER_init(this, conf);
        CONF_free(conf);
    }
    ~Smoother() { SMOOTEHR_delete(this); }
    double take(double x) { return SMOOTHER_smooth(this, x); }
    std::vector<double> inputs() const { return {inv, inv + (sz_a > 0 ? sz_a - 1 : 0)}; }
    std::vector<double> outputs() const { return {outv, outv + sz_b}; }
    Smoother(const Smoother &) = delete;
    Smoother &operator=(const Smoother &) = delete;
};

} // namespace

TEST(Smoother, OneCoefficientIsAGain) {
    Smoother one("1");
    Smoother two("2");
    for (const double x : {3.0, -4.5, 0.0, 1e300}) {
        EXPECT_EQ(one.take(x), x);
        EXPECT_EQ(two.take(x), 2.0 * x);
    }
    // The filter returned them, not the warm-up.
    EXPECT_EQ(one.n_samples, 4u);
    EXPECT_EQ(two.n_samples, 4u);
}

TEST(Smoother, TwoCoefficientsReturnEverySampleUnchanged) {
    Smoother smoother("0.5,0.5");
    for (int x = 0; x < 500; ++x)
        ASSERT_EQ(smoother.take(x), x);
    EXPECT_EQ(smoother.n_samples, 0u);
}

TEST(Smoother, MissingValuePassesWithoutTouchingTheHistory) {
    Smoother smoother("1,2,3", "4,5");
    smoother.take(10.0);
    EXPECT_EQ(smoother.take(MVC), MVC);
    EXPECT_THAT(smoother.inputs(), ElementsAre(10.0, 0.0));
    EXPECT_THAT(smoother.outputs(), ElementsAre(10.0, 0.0));
    smoother.n_samples = k_warm;
    EXPECT_EQ(smoother.take(MVC), MVC);
    EXPECT_THAT(smoother.inputs(), ElementsAre(10.0, 0.0));
    EXPECT_THAT(smoother.outputs(), ElementsAre(10.0, 0.0));
    EXPECT_EQ(smoother.n_samples, k_warm);
    Smoother gain("2");
    EXPECT_EQ(gain.take(MVC), MVC);
    EXPECT_EQ(gain.n_samples, 0u);
}

TEST(Smoother, ResetMakesSamplesPassUnchangedAgain) {
    Smoother smoother("0.5,0.5");
    smoother.n_samples = k_warm;
    smoother.take(4.0);
    EXPECT_EQ(smoother.take(6.0), 5.0);
    SMOOTHER_reset(&smoother);
    EXPECT_EQ(smoother.n_samples, 0u);
    EXPECT_THAT(smoother.inputs(), ElementsAre(6.0)); // the history is kept
    EXPECT_EQ(smoother.take(8.0), 8.0);
    EXPECT_EQ(smoother.take(9.0), 9.0);
}

TEST(Smoother, FeedbackCoefficientsKeepItWarmingUp) {
    Smoother smoother("2", "1");
    for (int x = 0; x < 500; ++x)
        ASSERT_EQ(smoother.take(x), x);
    EXPECT_EQ(smoother.n_samples, 0u);
}

TEST(Smoother, WarmUpFillsBothHistoriesNewestFirst) {
    Smoother smoother("1,1,1,1", "1,1");
    for (const double x : {1.0, 2.0, 3.0, 4.0})
        smoother.take(x);
    EXPECT_THAT(smoother.inputs(), ElementsAre(4.0, 3.0, 2.0));
    EXPECT_THAT(smoother.outputs(), ElementsAre(4.0, 3.0));
}

TEST(Smoother, WarmUpEndsWhenBothHistoriesAreCounted) {
    Smoother smoother("1,1,1", "0,0,0");
    smoother.n_samples = 2; // enough for A, not for B
    EXPECT_EQ(smoother.take(1.0), 1.0);
    EXPECT_EQ(smoother.n_samples, 2u);
    smoother.n_samples = 3;
    EXPECT_EQ(smoother.take(2.0), 3.0);
    EXPECT_EQ(smoother.n_samples, 4u);
}

TEST(Smoother, FilterOfInputsByHand) {
    Smoother smoother("1,10,100");
    smoother.n_samples = k_warm;
    EXPECT_EQ(smoother.take(1.0), 1.0);
    EXPECT_EQ(smoother.take(2.0), 12.0);  // 2 + 10*1
    EXPECT_EQ(smoother.take(3.0), 123.0); // 3 + 10*2 + 100*1
    EXPECT_EQ(smoother.take(4.0), 234.0);
}

TEST(Smoother, FeedbackReachesOneStepTooFarAndOmitsItsFirst) {
    Smoother smoother("1", "1000,2,3");
    smoother.n_samples = k_warm;
    EXPECT_EQ(smoother.take(1.0), 1.0);
    EXPECT_EQ(smoother.take(1.0), 1.0);  // b1 takes the output of two steps back
    EXPECT_EQ(smoother.take(1.0), 3.0);  // 1 + 2*1
    EXPECT_EQ(smoother.take(1.0), 6.0);  // 1 + 2*1 + 3*1
    EXPECT_EQ(smoother.take(1.0), 10.0); // 1 + 2*3 + 3*1
    EXPECT_THAT(smoother.outputs(), ElementsAre(10.0, 6.0, 3.0));
}

TEST(Smoother, SumsFromTheOldestInput) {
    Smoother smoother("1,1,1");
    smoother.n_samples = k_warm;
    smoother.take(1.0);
    smoother.take(-1e16);
    // 1e16 + 1 rounds to 1e16, minus 1e16 leaves nothing of the 1.
    EXPECT_EQ(smoother.take(1e16), 0.0);
    Smoother other("1,1,1");
    other.n_samples = k_warm;
    other.take(-1e16);
    other.take(1.0);
    EXPECT_EQ(other.take(1e16), 1.0);
}

TEST(Smoother, WithoutCoefficientsItPassesOn) {
    SMOOTHER_type no_branch;
    SMOOTHER_init(&no_branch, nullptr);
    EXPECT_EQ(no_branch.sz_a, 0u);
    EXPECT_EQ(SMOOTHER_smooth(&no_branch, 3.5), 3.5);
    Smoother no_a(nullptr, "1,2");
    EXPECT_EQ(no_a.a, nullptr);
    EXPECT_EQ(no_a.sz_b, 0u); // "B" alone is not read
    EXPECT_EQ(no_a.take(3.5), 3.5);
}

TEST(Smoother, TextsAreCutAtAnySeparatorAndBadFieldsAreZero) {
    Smoother smoother("1,x;inf:nan,9.999e-99;2", "3:");
    EXPECT_THAT(std::vector<double>(smoother.a, smoother.a + smoother.sz_a),
                ElementsAre(1.0, 0.0, 0.0, 0.0, 0.0, 2.0));
    EXPECT_THAT(std::vector<double>(smoother.b, smoother.b + smoother.sz_b), ElementsAre(3.0, 0.0));
    EXPECT_THAT(smoother.inputs(), ElementsAre(0.0, 0.0, 0.0, 0.0, 0.0));
    EXPECT_THAT(smoother.outputs(), ElementsAre(0.0, 0.0));
}

TEST(Smoother, FieldIsReadUpTo63Characters) {
    const std::string field = "0." + std::string(60, '0') + "1";
    ASSERT_EQ(field.size(), 63u);
    Smoother smoother((field + "2").c_str());
    EXPECT_EQ(smoother.a[0], 1e-61);
}

TEST(Smoother, OneCoefficientNeedsNoHistory) {
    Smoother smoother("2");
    EXPECT_EQ(smoother.inv, nullptr);
    EXPECT_EQ(smoother.outv, nullptr);
}

TEST(Smoother, DeletedSmootherPassesOn) {
    Smoother smoother("2", "1");
    SMOOTEHR_delete(&smoother);
    EXPECT_EQ(smoother.a, nullptr);
    EXPECT_EQ(smoother.sz_b, 0u);
    EXPECT_EQ(smoother.take(3.0), 3.0);
}

TEST(Smoother, NullSmootherIsReported) {
    StderrCapture errors;
    SMOOTHER_init(nullptr, nullptr);
    EXPECT_EQ(SMOOTHER_smooth(nullptr, 3.0), 3.0);
    SMOOTHER_reset(nullptr);
    SMOOTEHR_delete(nullptr);
    EXPECT_THAT(errors.finish(), HasSubstr("assertion failed (smoother.cpp:"));
}
