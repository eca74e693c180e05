// gps_keys.h - the keys of the GPS daemon.
#pragma once

#include "serverkit/keys.h"

namespace gps {

extern const serverkit::ProgramKeys k_keys;

} // namespace gps
