#include "smoother.h"

#include "diag.h"
#include "doubles.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t k_sz_field = 64;

// Puts a value in front of an array and drops the last one.
void push_front(double *array, size_t size, double value) {
    if (size == 0)
        return;
    memmove(array + 1, array, (size - 1) * sizeof *array);
    array[0] = value;
}

// Reads one set of coefficients with its history, which lacks `short_by` of their number.
bool read_side(const char *text, size_t short_by, double **values, size_t *count,
               double **history) {
    zeb::Coefficients read;
    if (!zeb::read_coefficients(text, k_sz_field, &read))
        return false;
    *values = read.values;
    *count = read.count;
    if (read.count <= short_by)
        return true;
    *history = static_cast<double *>(calloc(read.count - short_by, sizeof **history));
    return *history != nullptr;
}

bool read_sides(SMOOTHER_type *smoother, const char *a_text, const char *b_text) {
    return read_side(a_text, 1, &smoother->a, &smoother->sz_a, &smoother->inv) &&
           read_side(b_text, 0, &smoother->b, &smoother->sz_b, &smoother->outv);
}

double feed_forward(SMOOTHER_type *smoother, double x) {
    double y = smoother->a[0] * x;
    for (size_t i = smoother->sz_a - 1; i > 0; --i)
        y += smoother->a[i] * smoother->inv[i - 1];
    push_front(smoother->inv, smoother->sz_a - 1, x);
    return y;
}

double feed_back(SMOOTHER_type *smoother, double y) {
    // outv[j] is the output j + 1 steps back: b0 has none, and each bj reaches one step too far.
    // The coefficients in use at stations were found with this filter.
    for (size_t j = smoother->sz_b; j-- > 1;)
        y += smoother->b[j] * smoother->outv[j];
    push_front(smoother->outv, smoother->sz_b, y);
    return y;
}

} // namespace

void SMOOTHER_init(SMOOTHER_type *smoother, CONF_node *conf) {
    if (!ZEB_CHECK(smoother != nullptr))
        return;
    *smoother = {};
    const char *a_text = CONF_lookup(conf, "A");
    if (a_text == nullptr)
        return;
    const bool read = read_sides(smoother, a_text, CONF_lookup(conf, "B"));
    // What was half read would filter otherwise than configured.
    if (!ZEB_CHECK_ERRNO(read))
        SMOOTEHR_delete(smoother);
}

double SMOOTHER_smooth(SMOOTHER_type *smoother, double x) {
    if (!ZEB_CHECK(smoother != nullptr) || smoother->sz_a == 0 || x == MVC)
        return x;
    if (smoother->n_samples < smoother->sz_a - 1 || smoother->n_samples < smoother->sz_b) {
        push_front(smoother->inv, smoother->sz_a - 1, x);
        push_front(smoother->outv, smoother->sz_b, x);
        return x; // not counted: see the header
    }
    double y = feed_forward(smoother, x);
    if (smoother->sz_b > 0)
        y = feed_back(smoother, y);
    ++smoother->n_samples;
    return y;
}

void SMOOTHER_reset(SMOOTHER_type *smoother) {
    if (ZEB_CHECK(smoother != nullptr))
        smoother->n_samples = 0;
}

void SMOOTEHR_delete(SMOOTHER_type *smoother) {
    if (!ZEB_CHECK(smoother != nullptr))
        return;
    free(smoother->a);
    free(smoother->inv);
    free(smoother->b);
    free(smoother->outv);
    *smoother = {};
}
