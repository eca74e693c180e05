// waypoint_keys.h - the keys of the way point daemon.
#pragma once

#include "serverkit/keys.h"

namespace waypoint {

extern const serverkit::ProgramKeys k_keys;

} // namespace waypoint
