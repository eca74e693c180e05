// util_int.h - rules of reading that several modules share. Internal, not installed.
#ifndef ZEB2_UTIL_INT_H
#define ZEB2_UTIL_INT_H

#include <cstdlib>

namespace zeb {

// Whether a text begins with a number other than 0, of any size and on every host alike.
inline bool reads_as_nonzero(const char *text) {
    return strtoll(text, nullptr, 10) != 0;
}

// How an on/off setting reads: on when it begins with "T" or "t" or is a number other than 0.
inline bool reads_as_true(const char *text) {
    return text[0] == 'T' || text[0] == 't' || reads_as_nonzero(text);
}

} // namespace zeb

#endif
