// flow_keys.h - the keys of the flow daemon.
#pragma once

#include <array>

#include "serverkit/keys.h"

namespace flow {

// What a channel of the configuration may read, in the order of their values.
struct Quantity {
    const char *channel, *prefix, *format, *description;
};
inline constexpr std::array<Quantity, 5> k_quantities = {
    {{"flow", "Q_", "*3.3f", "Flow (slpm)"},
     {"pressure", "P_", "*4.2f", "Pressure (hPa)"},
     {"temperature", "T_", "*3.2f", "Temperature of the gas (C)"},
     {"valve", "V_", "*3.2f", "Opening of the valve (%)"},
     {"setpoint", "Set_", "*3.3f", "Set point of the flow (slpm)"}}};

extern const serverkit::ProgramKeys k_keys;

} // namespace flow
