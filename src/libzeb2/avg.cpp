#include "avg.h"

#include "diag.h"
#include "doubles.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t k_default_limit = 7200;
constexpr size_t k_first_times = 4096;
constexpr double k_rsd_of_zero_mean = 0.0001; // stands in for a mean of 0 as the divisor

bool is_sample(double val) {
    return val != MVC && std::isfinite(val);
}

double mean_of(double sum, size_t n) {
    return n > 0 ? sum / static_cast<double>(n) : MVC;
}

double stddev_around(const double *buffer, size_t n, double mean) {
    if (n < 2 || mean == MVC)
        return MVC;
    double sum = 0.0;
    for (size_t i = 0; i < n; ++i)
        sum += (buffer[i] - mean) * (buffer[i] - mean);
    return std::sqrt(sum / static_cast<double>(n - 1));
}

// Moves an array down over its first `dropped` elements; returns how many are left.
size_t drop_front(double *buffer, size_t held, size_t dropped) {
    memmove(buffer, buffer + dropped, (held - dropped) * sizeof *buffer);
    return held - dropped;
}

void empty_shifting(AVG_shifting *avg) {
    avg->i_insert_point = 0;
    avg->i_avg_start = 0;
    avg->sum_avg = 0.0;
    avg->sum_total = 0.0;
}

void free_shifting(AVG_shifting *avg) {
    free(avg->buffer);
    avg->buffer = nullptr;
    avg->sz_buffer = 0;
    empty_shifting(avg);
}

void drop_oldest(AVG_shifting *avg) {
    avg->i_insert_point = drop_front(avg->buffer, avg->i_insert_point, 1);
    if (avg->i_avg_start > 0)
        --avg->i_avg_start;
}

void drop_at_limit(AVG_shifting *avg) {
    // Off both sums, also when the sample lies before the period: the means of stations with a low
    // limit have always been these.
    avg->sum_total -= avg->buffer[0];
    avg->sum_avg -= avg->buffer[0];
    drop_oldest(avg);
}

bool is_at_limit(const AVG_shifting *avg) {
    return avg->n_maxium_points != 0 && avg->i_insert_point >= avg->n_maxium_points;
}

size_t samples_of_period(const AVG_shifting *avg) {
    return avg->i_insert_point - avg->i_avg_start;
}

// How many of the oldest times have left the interval that ends at `time`.
size_t expired(const AVG_rinterval *avg, FTIME time) {
    const FTIME begin = time - avg->length;
    size_t n = 0;
    while (n < avg->current_count && avg->buffer[n] <= begin)
        ++n;
    return n;
}

// Whether times have left and others stayed.
bool drop_expired(AVG_rinterval *avg, FTIME time) {
    const size_t n = expired(avg, time);
    if (n == 0)
        return false;
    avg->current_count = drop_front(avg->buffer, avg->current_count, n);
    return avg->current_count > 0;
}

bool allocate_times(AVG_rinterval *avg) {
    avg->current_count = 0;
    avg->buffer = static_cast<FTIME *>(malloc(k_first_times * sizeof *avg->buffer));
    avg->sz_buffer = avg->buffer != nullptr ? k_first_times : 0;
    return avg->buffer != nullptr;
}

} // namespace

double AVG_stddev(const double *buffer, size_t n) {
    if (n < 2 || !ZEB_CHECK(buffer != nullptr))
        return MVC;
    double sum = 0.0;
    for (size_t i = 0; i < n; ++i)
        sum += buffer[i];
    return stddev_around(buffer, n, mean_of(sum, n));
}

void AVG_shift_init(AVG_shifting *avg) {
    if (!ZEB_CHECK(avg != nullptr))
        return;
    *avg = {};
    avg->n_maxium_points = k_default_limit;
}

void AVG_shift_delete(AVG_shifting *avg) {
    if (ZEB_CHECK(avg != nullptr))
        free_shifting(avg);
}

void AVG_shift_clear(AVG_shifting *avg) {
    if (!ZEB_CHECK(avg != nullptr))
        return;
    if (avg->buffer == nullptr || avg->i_insert_point == 0) {
        empty_shifting(avg);
        return;
    }
    for (size_t i = 0; i < avg->i_avg_start; ++i)
        avg->sum_total -= avg->buffer[i];
    avg->i_insert_point = drop_front(avg->buffer, avg->i_insert_point, avg->i_avg_start);
    avg->i_avg_start = avg->i_insert_point;
    avg->sum_avg = 0.0;
}

void AVG_shift_set_maxium_samples(AVG_shifting *avg, size_t n) {
    if (ZEB_CHECK(avg != nullptr))
        avg->n_maxium_points = n;
}

void AVG_shift_add(AVG_shifting *avg, double val) {
    if (!ZEB_CHECK(avg != nullptr) || !is_sample(val))
        return;
    const bool has_room = zeb::make_room(&avg->buffer, &avg->sz_buffer, avg->i_insert_point);
    if (!ZEB_CHECK_ERRNO(has_room)) {
        free_shifting(avg);
        return;
    }
    if (is_at_limit(avg))
        drop_at_limit(avg);
    avg->buffer[avg->i_insert_point++] = val;
    avg->sum_total += val;
    avg->sum_avg += val;
    if (avg->i_avg_start > 0) {
        avg->sum_total -= avg->buffer[0];
        drop_oldest(avg);
    }
}

double AVG_shift_avg(const AVG_shifting *avg) {
    return ZEB_CHECK(avg != nullptr) ? mean_of(avg->sum_avg, samples_of_period(avg)) : MVC;
}

double AVG_shift_stddev(const AVG_shifting *avg) {
    if (!ZEB_CHECK(avg != nullptr) || samples_of_period(avg) == 0)
        return MVC;
    return stddev_around(avg->buffer + avg->i_avg_start, samples_of_period(avg),
                         AVG_shift_avg(avg));
}

double AVG_shift_running_avg(const AVG_shifting *avg) {
    return ZEB_CHECK(avg != nullptr) ? mean_of(avg->sum_total, avg->i_insert_point) : MVC;
}

double AVG_shift_running_stddev(const AVG_shifting *avg) {
    if (!ZEB_CHECK(avg != nullptr))
        return MVC;
    return stddev_around(avg->buffer, avg->i_insert_point, AVG_shift_running_avg(avg));
}

void AVG_fixed_init(AVG_fixed *avg, size_t n_points) {
    if (!ZEB_CHECK(avg != nullptr))
        return;
    *avg = {};
    if (n_points == 0)
        return;
    avg->buffer = static_cast<double *>(calloc(n_points, sizeof *avg->buffer));
    if (ZEB_CHECK_ERRNO(avg->buffer != nullptr))
        avg->sz_bufffer = n_points;
}

void AVG_fixed_delete(AVG_fixed *avg) {
    if (!ZEB_CHECK(avg != nullptr))
        return;
    free(avg->buffer);
    *avg = {};
}

void AVG_fixed_clear(AVG_fixed *avg) {
    if (ZEB_CHECK(avg != nullptr))
        *avg = {avg->buffer, avg->sz_bufffer, 0, 0, 0.0, 0.0};
}

void AVG_fixed_add(AVG_fixed *avg, double val) {
    if (!ZEB_CHECK(avg != nullptr) || avg->buffer == nullptr || !is_sample(val))
        return;
    double *slot = avg->buffer + avg->i_insert;
    if (avg->i_defined_points >= avg->sz_bufffer) {
        avg->sum -= *slot;
        avg->sumsq -= *slot * *slot;
    } else {
        ++avg->i_defined_points;
    }
    *slot = val;
    avg->i_insert = avg->i_insert + 1 < avg->sz_bufffer ? avg->i_insert + 1 : 0;
    avg->sum += val;
    avg->sumsq += val * val;
}

double AVG_fixed_avg(const AVG_fixed *avg) {
    return ZEB_CHECK(avg != nullptr) ? mean_of(avg->sum, avg->i_defined_points) : MVC;
}

double AVG_fixed_stddev(const AVG_fixed *avg) {
    if (!ZEB_CHECK(avg != nullptr) || avg->i_defined_points < 3)
        return MVC;
    return stddev_around(avg->buffer, avg->i_defined_points, AVG_fixed_avg(avg));
}

double AVG_fixed_rsd(const AVG_fixed *avg) {
    if (!ZEB_CHECK(avg != nullptr) || avg->i_defined_points == 0)
        return MVC;
    const double mean = mean_of(avg->sum, avg->i_defined_points);
    const double mean_square = mean_of(avg->sumsq, avg->i_defined_points);
    if (mean != 0.0)
        return std::sqrt(std::fabs(mean_square - mean * mean)) / mean;
    return mean_square >= 0.0 ? std::sqrt(mean_square) / k_rsd_of_zero_mean : MVC;
}

size_t AVG_fixed_n_full(const AVG_fixed *avg) {
    return ZEB_CHECK(avg != nullptr) ? avg->i_defined_points : 0;
}

double AVG_fixed_frac_full(const AVG_fixed *avg) {
    if (!ZEB_CHECK(avg != nullptr))
        return MVC;
    return mean_of(static_cast<double>(avg->i_defined_points), avg->sz_bufffer);
}

void AVG_simple_add(AVG_simple *avg, double val) {
    if (!ZEB_CHECK(avg != nullptr) || !is_sample(val))
        return;
    avg->sum += val;
    ++avg->n;
}

double AVG_simple_avg(const AVG_simple *avg) {
    return ZEB_CHECK(avg != nullptr) ? mean_of(avg->sum, avg->n) : MVC;
}

void AVG_simple_clear(AVG_simple *avg) {
    if (ZEB_CHECK(avg != nullptr))
        *avg = {};
}

void AVG_rinterval_init(AVG_rinterval *avg, double length) {
    if (ZEB_CHECK(avg != nullptr))
        *avg = {nullptr, 0, 0, length};
}

void AVG_rinterval_delete(AVG_rinterval *avg) {
    if (!ZEB_CHECK(avg != nullptr))
        return;
    free(avg->buffer);
    *avg = {nullptr, 0, 0, avg->length};
}

void AVG_rinterval_clear(AVG_rinterval *avg) {
    if (ZEB_CHECK(avg != nullptr))
        avg->current_count = 0;
}

BOOL AVG_rinterval_add(AVG_rinterval *avg, FTIME time) {
    // A time that is no time would never leave, and hold back all behind it.
    if (!ZEB_CHECK(avg != nullptr) || !is_sample(time))
        return FALSE;
    if (avg->buffer == nullptr) {
        const bool allocated = allocate_times(avg);
        if (!ZEB_CHECK_ERRNO(allocated))
            return FALSE;
    }
    const bool some_left = drop_expired(avg, time);
    const bool has_room = zeb::make_room(&avg->buffer, &avg->sz_buffer, avg->current_count);
    if (!ZEB_CHECK_ERRNO(has_room))
        return FALSE;
    avg->buffer[avg->current_count++] = time;
    return some_left;
}

size_t AVG_rinterval_count(const AVG_rinterval *avg) {
    return ZEB_CHECK(avg != nullptr) ? avg->current_count : 0;
}
