// One sample into a full window of two hours at one a second and its mean read again: the shifting
// averager, a vector that is summed anew, and Boost's rolling mean. Then one step of a calibration
// polynomial and of a controller.

#include <benchmark/benchmark.h>
#include <cstdint>
#include <numeric>
#include <vector>

#include <zeb2/avg.h>
#include <zeb2/physunits.h>
#include <zeb2/pid.h>

#ifdef ZEB_BENCH_BOOST
#include <boost/accumulators/accumulators.hpp>
#include <boost/accumulators/statistics/rolling_mean.hpp>
#include <boost/accumulators/statistics/stats.hpp>
#endif

namespace {

constexpr size_t k_window = 7200;

// Readings that differ, at hardly any cost.
class Readings {
  public:
    double next() { return static_cast<double>(++n_ & 1023) * 0.125; }

  private:
    uint32_t n_ = 0;
};

void zeb_shifting(benchmark::State &state) {
    Readings readings;
    AVG_shifting avg;
    AVG_shift_init(&avg);
    AVG_shift_set_maxium_samples(&avg, k_window);
    for (size_t i = 0; i < k_window; ++i)
        AVG_shift_add(&avg, readings.next());
    for (auto _ : state) {
        AVG_shift_add(&avg, readings.next());
        benchmark::DoNotOptimize(AVG_shift_running_avg(&avg));
    }
    AVG_shift_delete(&avg);
}
BENCHMARK(zeb_shifting);

// A station's minute: 60 samples in a window of 60, both means read at each.
void zeb_shifting_minute(benchmark::State &state) {
    Readings readings;
    AVG_shifting avg;
    AVG_shift_init(&avg);
    int in_minute = 0;
    for (auto _ : state) {
        AVG_shift_add(&avg, readings.next());
        benchmark::DoNotOptimize(AVG_shift_avg(&avg));
        benchmark::DoNotOptimize(AVG_shift_running_avg(&avg));
        if (++in_minute == 60) {
            AVG_shift_clear(&avg);
            in_minute = 0;
        }
    }
    AVG_shift_delete(&avg);
}
BENCHMARK(zeb_shifting_minute);

void vector_summed_anew(benchmark::State &state) {
    Readings readings;
    std::vector<double> window;
    for (size_t i = 0; i < k_window; ++i)
        window.push_back(readings.next());
    for (auto _ : state) {
        window.erase(window.begin());
        window.push_back(readings.next());
        benchmark::DoNotOptimize(std::accumulate(window.begin(), window.end(), 0.0) /
                                 static_cast<double>(window.size()));
    }
}
BENCHMARK(vector_summed_anew);

#ifdef ZEB_BENCH_BOOST
void boost_rolling_mean(benchmark::State &state) {
    using namespace boost::accumulators;
    Readings readings;
    accumulator_set<double, stats<tag::rolling_mean>> window(tag::rolling_window::window_size =
                                                                 k_window);
    for (size_t i = 0; i < k_window; ++i)
        window(readings.next());
    for (auto _ : state) {
        window(readings.next());
        benchmark::DoNotOptimize(rolling_mean(window));
    }
}
BENCHMARK(boost_rolling_mean);
#endif

void zeb_fixed_ring(benchmark::State &state) {
    Readings readings;
    AVG_fixed avg;
    AVG_fixed_init(&avg, k_window);
    for (size_t i = 0; i < k_window; ++i)
        AVG_fixed_add(&avg, readings.next());
    for (auto _ : state) {
        AVG_fixed_add(&avg, readings.next());
        benchmark::DoNotOptimize(AVG_fixed_avg(&avg));
    }
    AVG_fixed_delete(&avg);
}
BENCHMARK(zeb_fixed_ring);

void zeb_polynomial(benchmark::State &state) {
    Readings readings;
    PHYSUNITS_poly poly;
    PHYSUNITS_buildpoly(&poly, "0.5,2,0.01,0.001");
    for (auto _ : state)
        benchmark::DoNotOptimize(PHYSUNITS_applypoly(&poly, readings.next()));
    PHYSUNITS_freepoly(&poly);
}
BENCHMARK(zeb_polynomial);

void inline_polynomial(benchmark::State &state) {
    Readings readings;
    double c[] = {0.5, 2.0, 0.01, 0.001};
    benchmark::DoNotOptimize(c);
    for (auto _ : state) {
        const double x = readings.next();
        benchmark::DoNotOptimize(c[0] + x * (c[1] + x * (c[2] + x * c[3])));
    }
}
BENCHMARK(inline_polynomial);

void zeb_controller_step(benchmark::State &state) {
    Readings readings;
    PID_controller pid;
    PID_control_init(&pid);
    pid.params = {0.5, 30.0, 2.0};
    pid.P_min = pid.I_min = 0.0;
    pid.P_max = pid.I_max = 100.0;
    PHYSUNITS_buildpoly(&pid.pv_cal, "0.1,2");
    PHYSUNITS_buildpoly(&pid.out_cal, "0,0.1");
    for (auto _ : state)
        benchmark::DoNotOptimize(PID_control_process(&pid, readings.next(), 16.7, 1.0));
    PHYSUNITS_freepoly(&pid.pv_cal);
    PHYSUNITS_freepoly(&pid.out_cal);
}
BENCHMARK(zeb_controller_step);

} // namespace
