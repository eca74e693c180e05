#include "avg.h"

#include "support.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using zeb::test::StderrCapture;

namespace {

constexpr double k_infinity = std::numeric_limits<double>::infinity();
constexpr double k_no_samples[] = {MVC, NAN, k_infinity, -k_infinity};

struct Shifting : AVG_shifting {
    explicit Shifting(size_t limit = 7200) {
        AVG_shift_init(this);
        AVG_shift_set_maxium_samples(this, limit);
    }
    ~Shifting() { AVG_shift_delete(this); }
    void add(std::initializer_list<double> values) {
        for (const double value : values)
            AVG_shift_add(this, value);
    }
    std::vector<double> samples() const { return {buffer, buffer + i_insert_point}; }
    Shifting(const Shifting &) = delete;
    Shifting &operator=(const Shifting &) = delete;
};

struct Fixed : AVG_fixed {
    explicit Fixed(size_t n) { AVG_fixed_init(this, n); }
    ~Fixed() { AVG_fixed_delete(this); }
    void add(std::initializer_list<double> values) {
        for (const double value : values)
            AVG_fixed_add(this, value);
    }
    Fixed(const Fixed &) = delete;
    Fixed &operator=(const Fixed &) = delete;
};

struct Interval : AVG_rinterval {
    explicit Interval(double seconds) { AVG_rinterval_init(this, seconds); }
    ~Interval() { AVG_rinterval_delete(this); }
    bool add(double time) { return AVG_rinterval_add(this, time) != FALSE; }
    size_t count() const { return AVG_rinterval_count(this); }
    Interval(const Interval &) = delete;
    Interval &operator=(const Interval &) = delete;
};

double sum_of(const std::vector<double> &values) {
    double sum = 0;
    for (const double value : values)
        sum += value;
    return sum;
}

double mean_of(const std::vector<double> &values) {
    return values.empty() ? MVC : sum_of(values) / static_cast<double>(values.size());
}

double stddev_of(const std::vector<double> &values) {
    if (values.size() < 2)
        return MVC;
    double sum = 0;
    for (const double value : values)
        sum += std::pow(value - mean_of(values), 2);
    return std::sqrt(sum / static_cast<double>(values.size() - 1));
}

// What a shifting averager holds, computed anew from the samples at every question. The samples
// given to it are whole numbers, of which all sums are exact.
class ShiftingModel {
  public:
    void set_limit(size_t n) { limit_ = n; }

    void add(double value) {
        if (limit_ != 0 && before_.size() + period_.size() >= limit_)
            drop_at_limit();
        period_.push_back(value);
        if (!before_.empty())
            before_.erase(before_.begin());
    }

    void clear() {
        before_ = period_;
        period_.clear();
        taken_off_ = 0;
    }

    double mean() const {
        return period_.empty()
                   ? MVC
                   : (sum_of(period_) - taken_off_) / static_cast<double>(period_.size());
    }
    double running_mean() const { return mean_of(held()); }
    double running_stddev() const { return stddev_of(held()); }
    // The period's deviation is from its mean as stated, however odd.
    bool is_odd() const { return taken_off_ != 0; }
    double stddev() const { return stddev_of(period_); }

    std::vector<double> held() const {
        std::vector<double> all = before_;
        all.insert(all.end(), period_.begin(), period_.end());
        return all;
    }

  private:
    void drop_at_limit() {
        std::vector<double> &from = before_.empty() ? period_ : before_;
        if (!before_.empty())
            taken_off_ += from[0]; // off the period's sum too, which never held it
        from.erase(from.begin());
    }

    size_t limit_ = 7200;
    std::vector<double> before_, period_;
    double taken_off_ = 0;
};

void expect_same(const AVG_shifting &avg, const ShiftingModel &model) {
    const std::vector<double> held(avg.buffer, avg.buffer + avg.i_insert_point);
    ASSERT_EQ(held, model.held());
    ASSERT_EQ(AVG_shift_avg(&avg), model.mean());
    ASSERT_EQ(AVG_shift_running_avg(&avg), model.running_mean());
    ASSERT_NEAR(AVG_shift_running_stddev(&avg), model.running_stddev(), 1e-9);
    if (!model.is_odd()) {
        ASSERT_NEAR(AVG_shift_stddev(&avg), model.stddev(), 1e-9);
    }
}

// A sequence of samples, now and then a new period, seldom another limit.
void run_shifting_sequence(unsigned seed, size_t limit) {
    SCOPED_TRACE("seed " + std::to_string(seed) + ", limit " + std::to_string(limit));
    std::mt19937 random(seed);
    Shifting avg(limit);
    ShiftingModel model;
    model.set_limit(limit);
    for (int step = 0; step < 600; ++step) {
        const auto what = random() % 100;
        if (what < 6) {
            AVG_shift_clear(&avg);
            model.clear();
        } else if (what < 7) {
            const size_t n = random() % 40;
            AVG_shift_set_maxium_samples(&avg, n);
            model.set_limit(n);
        } else {
            const double value = static_cast<double>(random() % 2001) - 1000.0;
            AVG_shift_add(&avg, value);
            model.add(value);
        }
        ASSERT_NO_FATAL_FAILURE(expect_same(avg, model)) << "step " << step;
    }
}

} // namespace

TEST(Avg, NewShiftingAveragerHasNoMeansAndNoDeviations) {
    const Shifting avg;
    EXPECT_EQ(AVG_shift_avg(&avg), MVC);
    EXPECT_EQ(AVG_shift_stddev(&avg), MVC);
    EXPECT_EQ(AVG_shift_running_avg(&avg), MVC);
    EXPECT_EQ(AVG_shift_running_stddev(&avg), MVC);
    EXPECT_EQ(avg.n_maxium_points, 7200u);
    EXPECT_EQ(avg.buffer, nullptr);
}

TEST(Avg, MissingNotANumberAndInfinityChangeNothing) {
    Shifting shifting;
    Fixed fixed(4);
    AVG_simple simple = {};
    Interval interval(10.0);
    for (const double start : {1.0, 2.0}) { // into empty averagers, then into filled ones
        for (const double value : k_no_samples) {
            AVG_shift_add(&shifting, value);
            AVG_fixed_add(&fixed, value);
            AVG_simple_add(&simple, value);
            EXPECT_FALSE(interval.add(value));
        }
        EXPECT_EQ(shifting.i_insert_point, start == 1.0 ? 0u : 1u);
        AVG_shift_add(&shifting, start);
        AVG_fixed_add(&fixed, start);
        AVG_simple_add(&simple, start);
        interval.add(start);
    }
    EXPECT_EQ(AVG_shift_avg(&shifting), 1.5);
    EXPECT_EQ(AVG_shift_running_avg(&shifting), 1.5);
    EXPECT_EQ(AVG_fixed_avg(&fixed), 1.5);
    EXPECT_EQ(AVG_simple_avg(&simple), 1.5);
    EXPECT_EQ(interval.count(), 2u);
}

TEST(Avg, ShiftingWindowSlidesOnAfterAClear) {
    Shifting avg;
    avg.add({1, 2, 3});
    AVG_shift_clear(&avg);
    EXPECT_EQ(AVG_shift_avg(&avg), MVC);
    EXPECT_EQ(AVG_shift_running_avg(&avg), 2.0);
    avg.add({4});
    EXPECT_EQ(AVG_shift_avg(&avg), 4.0);
    EXPECT_EQ(AVG_shift_running_avg(&avg), 3.0);
    EXPECT_THAT(avg.samples(), ElementsAre(2, 3, 4));
}

TEST(Avg, LimitOfThreeKeepsTheLatestThree) {
    Shifting avg(3);
    avg.add({1, 2, 3, 4});
    EXPECT_THAT(avg.samples(), ElementsAre(2, 3, 4));
    EXPECT_EQ(AVG_shift_avg(&avg), 3.0);
    EXPECT_EQ(AVG_shift_running_avg(&avg), 3.0);
}

TEST(Avg, RingOfThreeOverwritesTheOldest) {
    Fixed avg(3);
    avg.add({1, 2, 3, 4});
    EXPECT_EQ(AVG_fixed_avg(&avg), 3.0);
}

TEST(Avg, RingWithTwoSamplesHasNoDeviation) {
    Fixed avg(3);
    avg.add({1, 2});
    EXPECT_EQ(AVG_fixed_stddev(&avg), MVC);
    avg.add({3});
    EXPECT_EQ(AVG_fixed_stddev(&avg), 1.0);
    Fixed two(2);
    two.add({1, 2, 3, 4});
    EXPECT_EQ(AVG_fixed_stddev(&two), MVC);
}

TEST(Avg, RingOfZerosHasNoRelativeDeviation) {
    Fixed avg(3);
    avg.add({0, 0, 0, 0});
    EXPECT_EQ(AVG_fixed_rsd(&avg), 0.0);
}

TEST(Avg, IntervalOfTenForgetsAsItShould) {
    Interval avg(10.0);
    EXPECT_FALSE(avg.add(0.0));
    EXPECT_FALSE(avg.add(5.0));
    EXPECT_TRUE(avg.add(10.0)); // time 0 expires at 10
    EXPECT_EQ(avg.count(), 2u);
    EXPECT_FALSE(avg.add(30.0)); // all expire
    EXPECT_EQ(avg.count(), 1u);
}

TEST(Avg, StddevIsOfASample) {
    const double values[] = {2, 4, 4, 4, 5, 5, 7, 9}; // mean 5, squares 32
    EXPECT_EQ(AVG_stddev(values, 8), std::sqrt(32.0 / 7.0));
    EXPECT_EQ(AVG_stddev(values, 2), std::sqrt(2.0));
    EXPECT_EQ(AVG_stddev(values, 1), MVC);
    EXPECT_EQ(AVG_stddev(values, 0), MVC);
    EXPECT_EQ(AVG_stddev(nullptr, 0), MVC);
    const double missing[] = {MVC, MVC};
    EXPECT_EQ(AVG_stddev(missing, 2), MVC); // their mean is the missing value
}

TEST(Avg, ShiftingDeviations) {
    Shifting avg;
    avg.add({1, 3});
    EXPECT_EQ(AVG_shift_stddev(&avg), std::sqrt(2.0));
    AVG_shift_clear(&avg);
    EXPECT_EQ(AVG_shift_stddev(&avg), MVC);
    EXPECT_EQ(AVG_shift_running_stddev(&avg), std::sqrt(2.0));
    avg.add({7});
    EXPECT_EQ(AVG_shift_stddev(&avg), MVC);                    // one sample
    EXPECT_EQ(AVG_shift_running_stddev(&avg), std::sqrt(8.0)); // 3 and 7
}

TEST(Avg, SecondClearForgetsThePeriodBefore) {
    Shifting avg;
    avg.add({1, 2, 3});
    AVG_shift_clear(&avg);
    avg.add({8});
    AVG_shift_clear(&avg);
    EXPECT_THAT(avg.samples(), ElementsAre(8));
    EXPECT_EQ(AVG_shift_running_avg(&avg), 8.0);
    AVG_shift_clear(&avg); // nothing since: all samples go
    EXPECT_EQ(avg.i_insert_point, 0u);
    EXPECT_EQ(avg.i_avg_start, 0u);
    EXPECT_EQ(AVG_shift_running_avg(&avg), MVC);
    avg.add({5});
    EXPECT_EQ(AVG_shift_avg(&avg), 5.0);
}

TEST(Avg, LongerPeriodOutgrowsTheWindow) {
    Shifting avg;
    avg.add({1, 2});
    AVG_shift_clear(&avg);
    avg.add({3, 4, 5});
    EXPECT_THAT(avg.samples(), ElementsAre(3, 4, 5));
    EXPECT_EQ(avg.i_avg_start, 0u);
    EXPECT_EQ(AVG_shift_avg(&avg), 4.0);
    EXPECT_EQ(AVG_shift_running_avg(&avg), 4.0);
}

TEST(Avg, SampleDroppedAtTheLimitComesOffThePeriodItWasNeverIn) {
    Shifting avg(3);
    avg.add({1, 2, 3});
    AVG_shift_clear(&avg);
    avg.add({10});
    // 1 went at the limit, off both sums; 2 went as one of the period before.
    EXPECT_THAT(avg.samples(), ElementsAre(3, 10));
    EXPECT_EQ(avg.sum_avg, 9.0);
    EXPECT_EQ(AVG_shift_avg(&avg), 9.0);
    EXPECT_EQ(AVG_shift_running_avg(&avg), 6.5);
}

TEST(Avg, LimitBelowTheSamplesHeldDropsOneForEachNewOne) {
    Shifting avg;
    avg.add({1, 2, 3, 4});
    AVG_shift_set_maxium_samples(&avg, 2);
    avg.add({5});
    EXPECT_THAT(avg.samples(), ElementsAre(2, 3, 4, 5));
}

TEST(Avg, LimitOfOneAndNoLimit) {
    Shifting one(1);
    one.add({1, 2});
    EXPECT_THAT(one.samples(), ElementsAre(2));
    EXPECT_EQ(AVG_shift_avg(&one), 2.0);
    Shifting none(0);
    for (int i = 0; i < 10000; ++i)
        none.add({1});
    EXPECT_EQ(none.i_insert_point, 10000u);
    EXPECT_EQ(none.sz_buffer, 16384u);
}

TEST(Avg, BufferGrowsToThePowersOfTwo) {
    Shifting avg(4);
    const size_t sizes[] = {2, 2, 4, 4, 8, 8}; // grown before the oldest goes
    for (const size_t size : sizes) {
        avg.add({1});
        EXPECT_EQ(avg.sz_buffer, size);
    }
    EXPECT_EQ(avg.i_insert_point, 4u);
}

TEST(Avg, SumsCarryTheirRounding) {
    // 1e16 + 1 rounds to 1e16; without the 1e16 only the second 1 is left of the sum of two.
    Shifting avg(2);
    avg.add({1e16, 1, 1});
    EXPECT_THAT(avg.samples(), ElementsAre(1, 1));
    EXPECT_EQ(AVG_shift_running_avg(&avg), 0.5);
    EXPECT_EQ(AVG_shift_avg(&avg), 0.5);
    Fixed ring(2);
    ring.add({1e16, 1, 1});
    EXPECT_EQ(AVG_fixed_avg(&ring), 0.5);
    // New in before old out: the other order would leave 1.
    Shifting window;
    window.add({1e16});
    AVG_shift_clear(&window);
    window.add({1});
    EXPECT_EQ(AVG_shift_running_avg(&window), 0.0);
    EXPECT_EQ(AVG_shift_avg(&window), 1.0);
}

TEST(Avg, EmptyClearZeroesWhatRoundingLeft) {
    Shifting avg(2);
    avg.add({1e16, 1, 1});
    AVG_shift_clear(&avg);
    AVG_shift_clear(&avg); // 1 - 1 - 1 is left in the sum
    EXPECT_EQ(avg.sum_total, -1.0);
    AVG_shift_clear(&avg);
    EXPECT_EQ(avg.sum_total, 0.0);
}

TEST(Avg, ShiftingAgreesWithAPlainComputation) {
    for (const size_t limit : {0u, 1u, 2u, 3u, 7u, 16u, 50u, 7200u}) {
        for (unsigned seed = 1; seed <= 5; ++seed)
            ASSERT_NO_FATAL_FAILURE(run_shifting_sequence(seed, limit));
    }
}

TEST(Avg, DeletedShiftingAveragerKeepsItsLimitAndMayBeUsedAgain) {
    Shifting avg(2);
    avg.add({1, 2});
    AVG_shift_delete(&avg);
    EXPECT_EQ(avg.buffer, nullptr);
    EXPECT_EQ(avg.sz_buffer, 0u);
    EXPECT_EQ(avg.sum_total, 0.0);
    EXPECT_EQ(avg.n_maxium_points, 2u);
    EXPECT_EQ(AVG_shift_running_stddev(&avg), MVC);
    AVG_shift_clear(&avg);
    avg.add({3, 4, 5});
    EXPECT_EQ(AVG_shift_avg(&avg), 4.5);
}

TEST(Avg, RingAgreesWithAPlainComputation) {
    for (const size_t length : {1u, 2u, 3u, 8u, 61u}) {
        std::mt19937 random(static_cast<unsigned>(length));
        Fixed avg(length);
        std::vector<double> held;
        for (int step = 0; step < 500; ++step) {
            if (random() % 50 == 0) {
                AVG_fixed_clear(&avg);
                held.clear();
            }
            const double value = static_cast<double>(random() % 2001) - 1000.0;
            AVG_fixed_add(&avg, value);
            held.push_back(value);
            if (held.size() > length)
                held.erase(held.begin());
            const double n = static_cast<double>(held.size());
            ASSERT_EQ(AVG_fixed_n_full(&avg), held.size());
            ASSERT_EQ(AVG_fixed_frac_full(&avg), n / static_cast<double>(length));
            ASSERT_EQ(AVG_fixed_avg(&avg), mean_of(held));
            ASSERT_NEAR(AVG_fixed_stddev(&avg), n < 3 ? MVC : stddev_of(held), 1e-9);
        }
    }
}

TEST(Avg, RingRelativeDeviation) {
    Fixed avg(4);
    EXPECT_EQ(AVG_fixed_rsd(&avg), MVC);
    avg.add({1, 3}); // mean 2, squares 5: sqrt(5 - 4) / 2
    EXPECT_EQ(AVG_fixed_rsd(&avg), 0.5);
    AVG_fixed_clear(&avg);
    avg.add({-1, -3}); // the sign of the mean stays
    EXPECT_EQ(AVG_fixed_rsd(&avg), -0.5);
    AVG_fixed_clear(&avg);
    avg.add({2, -2}); // mean 0: sqrt(4) / 0.0001
    EXPECT_EQ(AVG_fixed_rsd(&avg), 2.0 / 0.0001);
}

TEST(Avg, RingWhoseSquaresRoundedBelowZeroHasNoRelativeDeviation) {
    AVG_fixed avg = {nullptr, 2, 0, 2, 0.0, -1e-3};
    EXPECT_EQ(AVG_fixed_rsd(&avg), MVC);
}

TEST(Avg, EmptyRing) {
    Fixed avg(5);
    EXPECT_EQ(AVG_fixed_avg(&avg), MVC);
    EXPECT_EQ(AVG_fixed_stddev(&avg), MVC);
    EXPECT_EQ(AVG_fixed_n_full(&avg), 0u);
    EXPECT_EQ(AVG_fixed_frac_full(&avg), 0.0);
    avg.add({1});
    EXPECT_EQ(AVG_fixed_frac_full(&avg), 0.2);
    AVG_fixed_clear(&avg);
    EXPECT_NE(avg.buffer, nullptr);
    EXPECT_EQ(avg.sz_bufffer, 5u);
    EXPECT_EQ(AVG_fixed_avg(&avg), MVC);
}

TEST(Avg, RingOfNoLengthTakesNothing) {
    Fixed none(0);
    none.add({1, 2});
    EXPECT_EQ(AVG_fixed_n_full(&none), 0u);
    EXPECT_EQ(AVG_fixed_frac_full(&none), MVC);
    Fixed deleted(3);
    deleted.add({1, 2, 3});
    AVG_fixed_delete(&deleted);
    EXPECT_EQ(deleted.sz_bufffer, 0u);
    deleted.add({1});
    EXPECT_EQ(AVG_fixed_avg(&deleted), MVC);
    EXPECT_EQ(AVG_fixed_stddev(&deleted), MVC);
}

TEST(Avg, SimpleMean) {
    AVG_simple avg = {5.0, 7};
    AVG_simple_clear(&avg);
    EXPECT_EQ(AVG_simple_avg(&avg), MVC);
    AVG_simple_add(&avg, 1.0);
    AVG_simple_add(&avg, 4.0);
    EXPECT_EQ(AVG_simple_avg(&avg), 2.5);
    EXPECT_EQ(avg.n, 2u);
}

TEST(Avg, IntervalAgreesWithAPlainCount) {
    std::mt19937 random(7);
    Interval avg(60.0);
    std::vector<double> times;
    double now = 1.5e9;
    for (int step = 0; step < 3000; ++step) {
        now += static_cast<double>(random() % 64) / 4.0 * (random() % 100 == 0 ? 10.0 : 1.0);
        size_t stayed = 0;
        for (const double time : times)
            stayed += time > now - 60.0;
        const bool some_left = stayed > 0 && stayed < times.size();
        ASSERT_EQ(avg.add(now), some_left);
        times.erase(times.begin(), times.end() - static_cast<std::ptrdiff_t>(stayed));
        times.push_back(now);
        ASSERT_EQ(avg.count(), times.size());
    }
}

TEST(Avg, IntervalGrowsBeyondItsFirstRoom) {
    Interval avg(1e6);
    EXPECT_EQ(avg.buffer, nullptr);
    for (int i = 0; i < 4096; ++i)
        avg.add(i);
    EXPECT_EQ(avg.sz_buffer, 4096u);
    avg.add(4096);
    EXPECT_EQ(avg.sz_buffer, 8192u);
    EXPECT_EQ(avg.count(), 4097u);
    EXPECT_EQ(avg.buffer[0], 0.0);
    EXPECT_EQ(avg.buffer[4096], 4096.0);
}

TEST(Avg, IntervalLooksAtItsOldestTimesOnly) {
    Interval avg(10.0);
    avg.add(20.0);
    avg.add(5.0); // a clock set back
    EXPECT_FALSE(avg.add(15.0));
    EXPECT_EQ(avg.count(), 3u);
    EXPECT_FALSE(avg.add(29.0));
    EXPECT_TRUE(avg.add(30.0)); // with 20 leaves what stood behind it, up to 29
    EXPECT_EQ(avg.count(), 2u);
}

TEST(Avg, ClearedAndDeletedIntervalStartsAnew) {
    Interval avg(10.0);
    avg.add(1.0);
    AVG_rinterval_clear(&avg);
    EXPECT_EQ(avg.count(), 0u);
    EXPECT_FALSE(avg.add(50.0));
    AVG_rinterval_delete(&avg);
    EXPECT_EQ(avg.buffer, nullptr);
    EXPECT_EQ(avg.count(), 0u);
    EXPECT_FALSE(avg.add(51.0));
    EXPECT_TRUE(avg.add(60.0) == false && avg.add(61.0)); // the length is kept
}

TEST(Avg, NullAveragersAreReported) {
    StderrCapture errors;
    AVG_shift_init(nullptr);
    AVG_shift_delete(nullptr);
    AVG_shift_clear(nullptr);
    AVG_shift_set_maxium_samples(nullptr, 1);
    AVG_shift_add(nullptr, 1.0);
    EXPECT_EQ(AVG_shift_avg(nullptr), MVC);
    EXPECT_EQ(AVG_shift_stddev(nullptr), MVC);
    EXPECT_EQ(AVG_shift_running_avg(nullptr), MVC);
    EXPECT_EQ(AVG_shift_running_stddev(nullptr), MVC);
    AVG_fixed_init(nullptr, 1);
    AVG_fixed_delete(nullptr);
    AVG_fixed_clear(nullptr);
    AVG_fixed_add(nullptr, 1.0);
    EXPECT_EQ(AVG_fixed_avg(nullptr), MVC);
    EXPECT_EQ(AVG_fixed_stddev(nullptr), MVC);
    EXPECT_EQ(AVG_fixed_rsd(nullptr), MVC);
    EXPECT_EQ(AVG_fixed_n_full(nullptr), 0u);
    EXPECT_EQ(AVG_fixed_frac_full(nullptr), MVC);
    AVG_simple_add(nullptr, 1.0);
    EXPECT_EQ(AVG_simple_avg(nullptr), MVC);
    AVG_simple_clear(nullptr);
    AVG_rinterval_init(nullptr, 1.0);
    AVG_rinterval_delete(nullptr);
    AVG_rinterval_clear(nullptr);
    EXPECT_FALSE(AVG_rinterval_add(nullptr, 1.0));
    EXPECT_EQ(AVG_rinterval_count(nullptr), 0u);
    EXPECT_EQ(AVG_stddev(nullptr, 2), MVC);
    EXPECT_THAT(errors.finish(), HasSubstr("assertion failed (avg.cpp:"));
}
