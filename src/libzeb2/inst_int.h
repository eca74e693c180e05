// inst_int.h - what the sources of inst share. Not installed.
#ifndef ZEB2_INST_INT_H
#define ZEB2_INST_INT_H

#include "inst.h"

namespace zeb {

inline INST_ext_link *ext_of(void *data) {
    return static_cast<INST_ext_link *>(data);
}

// inst_dispatch.cpp

// The dispatch thread; `param` is the INST_link.
void *serve_instrument(void *param);

} // namespace zeb

#endif
