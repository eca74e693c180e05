#include "physunits.h"

#include "diag.h"
#include "doubles.h"

#include <cstdlib>

namespace {

constexpr size_t k_sz_field = 32;

bool is_identity(const PHYSUNITS_poly *poly) {
    return poly == nullptr || poly->coeff == nullptr || poly->n_coeff == 0;
}

} // namespace

void PHYSUNITS_buildpoly(PHYSUNITS_poly *poly, const char *str) {
    if (!ZEB_CHECK(poly != nullptr))
        return;
    zeb::Coefficients read;
    const bool built = zeb::read_coefficients(str, k_sz_field, &read);
    ZEB_CHECK_ERRNO(built);
    *poly = {read.values, read.count, read.capacity};
}

void PHYSUNITS_freepoly(PHYSUNITS_poly *poly) {
    if (!ZEB_CHECK(poly != nullptr))
        return;
    free(poly->coeff);
    *poly = {};
}

double PHYSUNITS_applypoly(const PHYSUNITS_poly *poly, double val) {
    if (val == MVC || is_identity(poly))
        return val;
    // Not Horner's rule, whose other rounding would change what stations have logged.
    double sum = poly->coeff[0];
    double power = 1.0;
    for (size_t k = 1; k < poly->n_coeff; ++k) {
        power *= val;
        sum += poly->coeff[k] * power;
    }
    return sum;
}

double PHYSUNITS_applypoly_integrated(const PHYSUNITS_poly *poly, double val, double t,
                                      double ddX) {
    if (val == MVC || is_identity(poly))
        return val;
    if (t == MVC)
        return MVC;
    double sum = poly->coeff[0] * t;
    if (poly->n_coeff >= 2)
        sum += poly->coeff[1] * val;
    if (poly->n_coeff < 3)
        return sum;
    if (ddX == MVC)
        return val;
    double power = ddX * ddX;
    for (size_t k = 2; k < poly->n_coeff; ++k) {
        power *= val;
        sum += poly->coeff[k] * power / static_cast<double>(k + 1);
    }
    return sum;
}
