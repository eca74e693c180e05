/* physunits.h - calibration polynomials: from a raw reading (volts, counts) to a physical value.
 *
 * The coefficients come from the configuration as one text, in ascending powers; without a text the
 * reading is passed on as it is.
 *
 *   PHYSUNITS_poly cal;
 *   PHYSUNITS_buildpoly(&cal, CONF_lookup(local, "cal")); // the file's line: cal,0.5;2
 *   double flow = PHYSUNITS_applypoly(&cal, volts);       // 0.5 + 2 volts
 *   PHYSUNITS_freepoly(&cal);
 *
 * Threads: nothing here locks. Any number of threads may apply one polynomial as long as none
 * builds or frees it. */
#ifndef ZEB2_PHYSUNITS_H
#define ZEB2_PHYSUNITS_H

#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

/* c0 + c1 x + c2 x^2 + ...; without coefficients, the identity. All zero is such a record. */
typedef struct PHYSUNITS_poly {
    double *coeff;   /* c0, c1, c2 ...; owned; null when there are none */
    size_t n_coeff;  /* coefficients */
    size_t sz_coeff; /* slots allocated */
} PHYSUNITS_poly;

/* Makes a polynomial from a text.
 * poly: not null; fresh storage or freed, since what it holds is overwritten without being freed;
 * freed later with PHYSUNITS_freepoly. str: numbers in ascending powers between any of ",", ";" and
 * ":", as "0;1;0.01" for x + 0.01 x^2; 31 characters of each are read, and one that gives no finite
 * number, or MVC, stands for 0, as does the empty one behind a separator at the end. Null or empty:
 * no coefficients.
 * No result. A null `poly` is reported; without memory, which is reported, the polynomial is empty.
 * Threads: the polynomial's owner. */
ZEB_API void PHYSUNITS_buildpoly(PHYSUNITS_poly *poly, const char *str);

/* Frees the coefficients and leaves an empty polynomial, which may be built anew.
 * poly: not null (reported).
 * Threads: the polynomial's owner. */
ZEB_API void PHYSUNITS_freepoly(PHYSUNITS_poly *poly);

/* Applies a polynomial: c0 + c1 x + c2 x^2 + ..., summed in this order with a running power of x,
 * so that the rounding is the same everywhere. poly: null, or without coefficients: the identity.
 * val: x, in the raw reading's unit. Returns the value in the unit of the coefficients; MVC when
 * `val` is MVC. Threads: any, see above. */
ZEB_API double PHYSUNITS_applypoly(const PHYSUNITS_poly *poly, double val);

/* Applies a polynomial's integral to what was integrated raw: over a span t in which the reading
 * moved by ddX and added up to X,
 *   y = c0 t + c1 X + sum over k >= 2 of ck ddX^2 X^(k-1) / (k + 1).
 * poly: null, or without coefficients: the identity. val: X. t: the span, in the unit of
 * integration. ddX: enters from the third coefficient on.
 * Returns, tried in this order: MVC when `val` is MVC; `val` without coefficients; MVC when `t` is
 * MVC; y with fewer than three coefficients; `val`, uncalibrated, when `ddX` is MVC; otherwise y.
 * Threads: any, see above. */
ZEB_API double PHYSUNITS_applypoly_integrated(const PHYSUNITS_poly *poly, double val, double t,
                                              double ddX);

#ifdef __cplusplus
}
#endif
#endif
