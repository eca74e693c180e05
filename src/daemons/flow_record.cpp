#include "flow_record.h"

#include <cstring>

#include <zeb2/libzeb2.h>

namespace flow {
namespace {

template <typename Record> Record missing(const char *name) {
    Record record;
    NETPACK_fill_mvc(&record, name, sizeof record);
    return record;
}

} // namespace

NET_TSITMF_Instant to_instant(const Reading &reading, FTIME time) {
    auto record = missing<NET_TSITMF_Instant>("NET_TSITMF_Instant");
    record.time = time;
    record.Q = reading.flow;
    record.T = reading.temperature;
    record.P = reading.pressure;
    return record;
}

NET_GENERICPID_Instant to_loop(const Reading &reading, const Terms &terms, const std::string &name,
                               FTIME time) {
    auto record = missing<NET_GENERICPID_Instant>("NET_GENERICPID_Instant");
    UTIL_strncpynt(record.name, name.c_str(), sizeof record.name);
    record.time = time;
    record.input = reading.flow;
    record.output = reading.valve;
    record.setpoint = terms.setpoint;
    record.p = terms.p;
    record.i = terms.i;
    record.d = terms.d;
    record.manual = terms.manual;
    record.saturated = reading.valve != MVC && (reading.valve <= 0 || reading.valve >= 100);
    return record;
}

NET_GENERICPID_Setpoint to_setpoint(const Order &order, const std::string &name) {
    auto record = missing<NET_GENERICPID_Setpoint>("NET_GENERICPID_Setpoint");
    UTIL_strncpynt(record.name, name.c_str(), sizeof record.name);
    record.manual = order.manual;
    record.output = order.output;
    record.setpoint = order.setpoint;
    return record;
}

NET_TSITMF_Status to_status(State state, const Identity &identity) {
    NET_TSITMF_Status record = {};
    record.state = static_cast<WORD>(state);
    UTIL_strncpynt(record.model, identity.model.c_str(), sizeof record.model);
    UTIL_strncpynt(record.serial_number, identity.serial_number.c_str(),
                   sizeof record.serial_number);
    UTIL_strncpynt(record.firmware, identity.firmware.c_str(), sizeof record.firmware);
    return record;
}

bool is_for(const NET_GENERICPID_Setpoint &order, const std::string &name) {
    // A name that fills its field has no terminator.
    const std::string ordered(order.name, strnlen(order.name, sizeof order.name));
    return UTIL_strcasecmp(ordered.c_str(), name.c_str()) == 0;
}

Order to_order(const NET_GENERICPID_Setpoint &order) {
    if (order.manual)
        return {true, order.output, MVC};
    return {false, MVC, order.setpoint};
}

} // namespace flow
