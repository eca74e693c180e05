/* smoother.h - a digital filter with configured coefficients, fed one sample at a time.
 *
 * "A" holds the feed-forward coefficients a0, a1 ..., "B" the feedback coefficients b0, b1 ... of
 *   y[n] = a0 x[n] + a1 x[n-1] + ... + b1 y[n-2] + b2 y[n-3] + ...
 * b0 is never used, and bj takes the output j + 1 steps back.
 *
 *   SMOOTHER_type smoother;
 *   SMOOTHER_init(&smoother, CONF_lookup_tree(local, "Smooth")); // the file's line: Smooth;A,0.5
 *   double y = SMOOTHER_smooth(&smoother, x);
 *   SMOOTEHR_delete(&smoother);
 *
 * Samples filter only once the history is complete, but while it fills they are not counted. A
 * smoother with a second "A" or any "B" coefficient therefore passes every sample on as it is, for
 * good, unless its owner sets n_samples; stations rely on it. One "A" without "B" is a gain.
 * Threads: no lock is taken; a smoother belongs to the thread that feeds it. */
#ifndef ZEB2_SMOOTHER_H
#define ZEB2_SMOOTHER_H

#include "conf.h"
#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

/* All zero is an empty smoother, which passes samples on. */
typedef struct SMOOTHER_type {
    double *a;        /* a0, a1 ...; owned */
    double *inv;      /* sz_a - 1 previous inputs, newest first; owned; null when none are needed */
    size_t sz_a;      /* feed-forward coefficients */
    double *b;        /* b0, b1 ...; owned */
    double *outv;     /* sz_b previous outputs, newest first; owned; null when none are needed */
    size_t sz_b;      /* feedback coefficients */
    size_t n_samples; /* samples filtered since the init or the latest reset */
} SMOOTHER_type;

/* Sets a smoother up.
 * smoother: not null; fresh storage or deleted, since what it holds is overwritten without being
 * freed; freed later with SMOOTEHR_delete. conf: the branch with the keys "A" and "B", read now and
 * not kept; null, or without "A", gives an empty smoother. Both are numbers between any of ",", ";"
 * and ":"; 63 characters of each are read, and one that gives no finite number, or MVC, stands for
 * 0. The history begins as zeros.
 * No result. A null `smoother` is reported; without memory, which is reported, it is empty.
 * Threads: the smoother's owner. */
ZEB_API void SMOOTHER_init(SMOOTHER_type *smoother, CONF_node *conf);

/* Takes one sample.
 * smoother: not null (reported; gives `x`). x: in any unit.
 * Returns `x` from an empty smoother; `x` when it is MVC, which enters no history; `x` while
 * n_samples is below sz_a - 1 or below sz_b, when it enters both histories; otherwise y as above,
 * summed as a0 x, then from the oldest input to the newest, then from the oldest output to the
 * newest, and the sample is counted.
 * Threads: the smoother's owner. */
ZEB_API double SMOOTHER_smooth(SMOOTHER_type *smoother, double x);

/* Begins the warm-up anew: n_samples becomes 0, the history stays.
 * smoother: not null (reported).
 * Threads: the smoother's owner. */
ZEB_API void SMOOTHER_reset(SMOOTHER_type *smoother);

/* Frees coefficients and history and leaves an empty smoother.
 * smoother: not null (reported).
 * Threads: the smoother's owner. */
ZEB_API void SMOOTEHR_delete(SMOOTHER_type *smoother);

#ifdef __cplusplus
}
#endif
#endif
