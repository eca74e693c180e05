#include "flow_control.h"

#include <algorithm>
#include <cmath>

namespace flow {
namespace {

constexpr double k_reached = 0.1; // l/min beside the set point that count as reached

} // namespace

bool is_possible(const Order &order, double max_flow) {
    const double value = order.manual ? order.output : order.setpoint;
    return value >= 0 && value <= (order.manual ? 100 : max_flow) && value != MVC;
}

Control::~Control() {
    PHYSUNITS_freepoly(&pid_.pv_cal);
    PHYSUNITS_freepoly(&pid_.out_cal);
}

void Control::obey(const Order &order) {
    takes_over_ = !order.manual && (order_.manual || takes_over_);
    order_ = order;
}

// Without a jump: the integral alone gives the present opening. Behind a calibration of the output
// it begins at nothing.
void Control::take_over(double valve) {
    PID_control_reset(&pid_);
    if (valve != MVC && pid_.params.p != 0 && pid_.out_cal.n_coeff == 0)
        pid_.i_val = valve / pid_.params.p;
    takes_over_ = false;
}

double Control::step(const Reading &raw, double seconds) {
    output_ = MVC;
    if (order_.manual)
        return order_.output;
    if (raw.flow == MVC)
        return MVC;
    if (takes_over_)
        take_over(raw.valve);
    const double output = PID_control_process(&pid_, raw.flow, order_.setpoint, seconds);
    if (std::isfinite(output)) // a calibration may give anything
        output_ = std::clamp(output, 0.0, 100.0);
    return output_;
}

double Control::calibrated(double raw_flow) const {
    return PHYSUNITS_applypoly(&pid_.pv_cal, raw_flow);
}

Terms Control::terms() const {
    if (output_ == MVC)
        return {order_.setpoint, MVC, MVC, MVC, order_.manual};
    const double gain = pid_.params.p;
    return {order_.setpoint, gain * pid_.e1, gain * pid_.i_val, gain * pid_.d_val, false};
}

bool Control::is_saturated() const {
    return output_ != MVC && (output_ <= 0 || output_ >= 100) && std::fabs(pid_.e1) > k_reached;
}

} // namespace flow
