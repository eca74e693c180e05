/* avg.h - averagers: small accumulators that a daemon feeds with samples and reads at each line.
 *
 * A shifting averager keeps the samples of the current period and, beside them, a window that
 * slides on with the length of the period before; a fixed ring the latest samples of a set number;
 * a simple mean only a sum; an interval counter how many events fell into the latest so many
 * seconds.
 *
 *   AVG_shifting avg;
 *   AVG_shift_init(&avg);
 *   AVG_shift_add(&avg, reading); // each second
 *   write_line(AVG_shift_avg(&avg), AVG_shift_running_avg(&avg)); // each minute, and then
 *   AVG_shift_clear(&avg);
 *   AVG_shift_delete(&avg);
 *
 * A sample that is MVC or not finite changes nothing. What cannot be computed is MVC. Sums are
 * plain doubles, carried from sample to sample without correction. Samples have any unit; means and
 * deviations have the same.
 * Arguments: a null pointer where "not null" is said is reported; the operation does nothing, or
 * returns MVC, 0 or FALSE. Storage given to an init is overwritten: fresh, or deleted before.
 * Threads: no lock is taken. An averager belongs to the thread that feeds and reads it. */
#ifndef ZEB2_AVG_H
#define ZEB2_AVG_H

#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct AVG_shifting {
    double *buffer;         /* samples, oldest first; owned */
    size_t sz_buffer;       /* samples that the buffer can hold */
    size_t i_insert_point;  /* samples held */
    size_t i_avg_start;     /* first sample of the current period; the window begins at 0 */
    size_t n_maxium_points; /* most samples held; 0: no limit */
    double sum_avg;         /* of the current period */
    double sum_total;       /* of all samples held */
} AVG_shifting;

typedef struct AVG_fixed {
    double *buffer;          /* ring of samples; owned */
    size_t sz_bufffer;       /* length of the ring */
    size_t i_insert;         /* where the next sample goes */
    size_t i_defined_points; /* samples held */
    double sum;              /* of the samples held */
    double sumsq;            /* of their squares */
} AVG_fixed;

/* All zero is an empty one. */
typedef struct AVG_simple {
    double sum;
    size_t n;
} AVG_simple;

typedef struct AVG_rinterval {
    FTIME *buffer;        /* times of events, oldest first; owned */
    size_t sz_buffer;     /* times that the buffer can hold */
    size_t current_count; /* times held */
    double length;        /* of the interval, in seconds */
} AVG_rinterval;

/* Sample standard deviation: sqrt(sum (x - mean)^2 / (n - 1)), with mean = sum x / n.
 * buffer: `n` doubles; null only when n is below 2. n: any.
 * Returns it; MVC when n is below 2 (or the mean is MVC).
 * Threads: any. */
ZEB_API double AVG_stddev(const double *buffer, size_t n);

/* ---- Shifting averager ---- */

/* Makes an empty averager with a limit of 7200 samples, two hours at one a second.
 * avg: not null; freed later with AVG_shift_delete.
 * Threads: the averager's owner. */
ZEB_API void AVG_shift_init(AVG_shifting *avg);

/* Frees the samples and leaves an empty averager, which keeps its limit and may be used again.
 * avg: not null.
 * Threads: the averager's owner. */
ZEB_API void AVG_shift_delete(AVG_shifting *avg);

/* Starts a new period: the samples of the one before the current are forgotten, those of the
 * current one belong to the window only, and the period has none. avg: not null. Threads: the
 * averager's owner. */
ZEB_API void AVG_shift_clear(AVG_shifting *avg);

/* Sets the most samples that are held. Samples already above it stay: from then on each new one
 * takes the place of the oldest.
 * avg: not null. n: samples; 0: no limit, and memory for all samples of two periods.
 * Threads: the averager's owner. */
ZEB_API void AVG_shift_set_maxium_samples(AVG_shifting *avg, size_t n);

/* Adds a sample. At the limit the oldest sample is dropped first, and taken off both sums, even
 * when it belongs to the window only and the sum of the period never held it. After that, while
 * samples of the period before are left, the oldest of them is dropped too: the window keeps its
 * length. avg: not null. val: the sample; MVC and what is not finite is passed over. No result.
 * Without memory, which is reported, the sample is not added and those held are lost. Takes
 * constant time but for the move of all samples when one is dropped. Threads: the averager's owner.
 */
ZEB_API void AVG_shift_add(AVG_shifting *avg, double val);

/* Mean of the current period: sum_avg / (i_insert_point - i_avg_start).
 * avg: not null. Returns it; MVC when the period has no sample.
 * Threads: the averager's owner. */
ZEB_API double AVG_shift_avg(const AVG_shifting *avg);

/* Sample standard deviation of the current period around that mean.
 * avg: not null. Returns it; MVC when the period has fewer than two samples.
 * Threads: the averager's owner. */
ZEB_API double AVG_shift_stddev(const AVG_shifting *avg);

/* Running mean, of all samples held: sum_total / i_insert_point.
 * avg: not null. Returns it; MVC without samples.
 * Threads: the averager's owner. */
ZEB_API double AVG_shift_running_avg(const AVG_shifting *avg);

/* Sample standard deviation of all samples held around the running mean.
 * avg: not null. Returns it; MVC with fewer than two samples.
 * Threads: the averager's owner. */
ZEB_API double AVG_shift_running_stddev(const AVG_shifting *avg);

/* ---- Fixed ring ---- */

/* Makes an empty ring.
 * avg: not null; freed later with AVG_fixed_delete. n_points: its length; 0 gives a ring that takes
 * no samples.
 * No result. Without memory, which is reported, the ring has length 0.
 * Threads: the averager's owner. */
ZEB_API void AVG_fixed_init(AVG_fixed *avg, size_t n_points);

/* Frees the ring; its length is then 0.
 * avg: not null.
 * Threads: the averager's owner. */
ZEB_API void AVG_fixed_delete(AVG_fixed *avg);

/* Empties the ring and keeps its length.
 * avg: not null.
 * Threads: the averager's owner. */
ZEB_API void AVG_fixed_clear(AVG_fixed *avg);

/* Adds a sample, in the place of the oldest when the ring is full.
 * avg: not null. val: the sample; MVC and what is not finite is passed over, and so is everything
 * in a ring of length 0.
 * Threads: the averager's owner. */
ZEB_API void AVG_fixed_add(AVG_fixed *avg, double val);

/* Mean: sum / samples held.
 * avg: not null. Returns it; MVC when empty.
 * Threads: the averager's owner. */
ZEB_API double AVG_fixed_avg(const AVG_fixed *avg);

/* Sample standard deviation: sqrt(sum (x - mean)^2 / (samples held - 1)).
 * avg: not null. Returns it; MVC with fewer than three samples.
 * Threads: the averager's owner. */
ZEB_API double AVG_fixed_stddev(const AVG_fixed *avg);

/* Relative standard deviation, as a fraction and with the formula of a whole population: with
 * m = sum / n, sqrt(|sumsq / n - m^2|) / m; when m is exactly 0, sqrt(sumsq / n) / 0.0001.
 * avg: not null. Returns it, negative with a negative mean; MVC when empty, or when rounding left a
 * mean of 0 with a negative sum of squares.
 * Threads: the averager's owner. */
ZEB_API double AVG_fixed_rsd(const AVG_fixed *avg);

/* Returns the samples held. avg: not null.
 * Threads: the averager's owner. */
ZEB_API size_t AVG_fixed_n_full(const AVG_fixed *avg);

/* How full the ring is: samples held / length.
 * avg: not null. Returns 0 to 1; MVC for a ring of length 0.
 * Threads: the averager's owner. */
ZEB_API double AVG_fixed_frac_full(const AVG_fixed *avg);

/* ---- Simple mean ---- */

/* Adds a sample.
 * avg: not null, cleared before the first. val: the sample; MVC and what is not finite is passed
 * over.
 * Threads: the averager's owner. */
ZEB_API void AVG_simple_add(AVG_simple *avg, double val);

/* Mean: sum / n.
 * avg: not null. Returns it; MVC when empty.
 * Threads: the averager's owner. */
ZEB_API double AVG_simple_avg(const AVG_simple *avg);

/* Empties the averager: sum and n are 0.
 * avg: not null.
 * Threads: the averager's owner. */
ZEB_API void AVG_simple_clear(AVG_simple *avg);

/* ---- Interval counter ---- */

/* Makes a counter without events; memory is taken at the first one.
 * avg: not null; freed later with AVG_rinterval_delete. length: of the interval, in seconds.
 * Threads: the counter's owner. */
ZEB_API void AVG_rinterval_init(AVG_rinterval *avg, double length);

/* Frees the times and leaves a counter without events and with the same length.
 * avg: not null.
 * Threads: the counter's owner. */
ZEB_API void AVG_rinterval_delete(AVG_rinterval *avg);

/* Forgets all times.
 * avg: not null.
 * Threads: the counter's owner. */
ZEB_API void AVG_rinterval_clear(AVG_rinterval *avg);

/* Records an event: the oldest times, as far as none is later than time - length, leave the
 * interval, and the event enters it.
 * avg: not null. time: of the event, in seconds, not before the one given last; MVC and what is not
 * finite is passed over.
 * Returns TRUE when times left the interval and others stayed; FALSE when none left, when all did,
 * and when the event is not recorded. Without memory, which is reported, that is so; times held
 * stay.
 * Threads: the counter's owner. */
ZEB_API BOOL AVG_rinterval_add(AVG_rinterval *avg, FTIME time);

/* Returns the number of events held: those in (time - length, time], after adding at `time`.
 * avg: not null.
 * Threads: the counter's owner. */
ZEB_API size_t AVG_rinterval_count(const AVG_rinterval *avg);

#ifdef __cplusplus
}
#endif
#endif
