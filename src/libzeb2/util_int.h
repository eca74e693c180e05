// util_int.h - rules of reading that several modules share. Internal, not installed.
#ifndef ZEB2_UTIL_INT_H
#define ZEB2_UTIL_INT_H

#include <cstdlib>

namespace zeb {

// How an on/off setting reads: on when it begins with "T" or "t" or is a number other than 0.
inline bool reads_as_true(const char *text) {
    return text[0] == 'T' || text[0] == 't' || strtol(text, nullptr, 10) != 0;
}

} // namespace zeb

#endif
