// io_int.h - what the sources of io share. Not installed.
#ifndef ZEB2_IO_INT_H
#define ZEB2_IO_INT_H

#include "io.h"
#include "util.h"

namespace zeb::io {

// Names that each table remembers; a station has some hundreds.
constexpr int k_table_limit = 4096;

// A name as the tables keep it: at most 31 characters and terminated, also from a field of a
// received record, which may be full to its end.
struct Name {
    char text[sizeof(NET_IO_Real::name)];
    explicit Name(const char *from) { UTIL_strncpynt(text, from, sizeof text); }
};

inline bool same_name(const char *a, const char *b) {
    return UTIL_strcasecmp(a, b) == 0;
}

template <typename Var> Var *var_of(const LL_NODE *node) {
    return static_cast<Var *>(node->data);
}

// io.cpp

// The calibration that a channel's node states in its key "cal"; without it, none.
PHYSUNITS_poly calibration_of(CONF_node *channel);

} // namespace zeb::io

#endif
