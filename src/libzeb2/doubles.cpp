#include "doubles.h"

#include "util.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace zeb {

namespace {

constexpr char k_separators[] = ",;:";
constexpr size_t k_most_held = 0x7ffffffe; // UTIL_roundup_p2 has an answer for one more

// The capacity of an array that holds `held` elements and takes one more; 0 when none can be
// addressed.
size_t capacity_above(size_t held) {
    if (held > k_most_held)
        return 0;
    const size_t capacity = UTIL_roundup_p2(static_cast<DWORD>(held + 1));
    return capacity <= SIZE_MAX / sizeof(double) ? capacity : 0;
}

double coefficient(const char *field, size_t sz_field) {
    char text[k_coefficient_size];
    UTIL_stringfield(field, k_separators, 0, text, sz_field);
    const double value = UTIL_atofv(text);
    return value == MVC ? 0.0 : value;
}

bool append(Coefficients *list, double value) {
    if (!make_room(&list->values, &list->capacity, list->count))
        return false;
    list->values[list->count++] = value;
    return true;
}

} // namespace

bool make_room(double **array, size_t *capacity, size_t held) {
    if (*array != nullptr && held < *capacity)
        return true;
    const size_t wanted = capacity_above(held);
    if (wanted == 0) {
        errno = ENOMEM;
        return false;
    }
    double *grown = static_cast<double *>(realloc(*array, wanted * sizeof *grown));
    if (grown == nullptr)
        return false;
    *array = grown;
    *capacity = wanted;
    return true;
}

bool read_coefficients(const char *text, size_t sz_field, Coefficients *out) {
    *out = {};
    if (text == nullptr || *text == '\0')
        return true;
    // Behind a separator at the very end stands one more, empty field.
    for (const char *field = text; field != nullptr;) {
        if (!append(out, coefficient(field, sz_field))) {
            free(out->values);
            *out = {};
            return false;
        }
        field += strcspn(field, k_separators);
        field = *field != '\0' ? field + 1 : nullptr;
    }
    return true;
}

} // namespace zeb
