// flow_record.h - readings of the flow controller as records of the catalogue.
#pragma once

#include <string>

#include <zeb2/definitions/genericpid.h>
#include <zeb2/definitions/tsitmf.h>

#include "flow_control.h"
#include "flow_instrument.h"

namespace flow {

// Of the status record.
enum class State { starting = 0, reading = 1, no_answer = 2 };

// The meter.
NET_TSITMF_Instant to_instant(const Reading &reading, FTIME time);
// The loop of flow and valve called `name`.
NET_GENERICPID_Instant to_loop(const Reading &reading, const Terms &terms, const std::string &name,
                               FTIME time);
NET_GENERICPID_Setpoint to_setpoint(const Order &order, const std::string &name);
NET_TSITMF_Status to_status(State state, const Identity &identity);

// Whether an order is for the loop called `name`.
bool is_for(const NET_GENERICPID_Setpoint &order, const std::string &name);
Order to_order(const NET_GENERICPID_Setpoint &order);

} // namespace flow
