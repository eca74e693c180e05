// flow_control.h - what the valve is to do: stay where an order put it, or follow the flow towards
// a set point.
//
//   flow::Control control(CONF_lookup_tree(local, "PID"));
//   control.obey({.manual = false, .setpoint = 8});
//   each reading:   move_valve(control.step(reading, seconds_since_the_last));
#pragma once

#include <zeb2/pid.h>

#include "flow_instrument.h"

namespace flow {

// Nothing is ordered while neither is there.
struct Order {
    bool manual = true;
    double output = MVC;   // valve to hold, %
    double setpoint = MVC; // flow to hold, standard l/min
};

// Whether an order is within the valve's range, or from 0 to `max_flow`.
bool is_possible(const Order &order, double max_flow);

// The latest step, as parts of the output (%).
struct Terms {
    double setpoint = MVC, p = MVC, i = MVC, d = MVC;
    bool manual = true;
};

class Control {
  public:
    // Reads the controller's branch of the configuration, see PID_control_build().
    explicit Control(CONF_node *branch) { PID_control_build(&pid_, branch); }
    ~Control();
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;

    // An order that is possible. The controller takes over where the valve then is.
    void obey(const Order &order);
    const Order &order() const { return order_; }

    // The opening that is wanted after a reading, so many seconds after the one before; MVC for
    // none. The flow is as read: the controller has its own calibration.
    double step(const Reading &raw, double seconds);
    double calibrated(double raw_flow) const;

    Terms terms() const;
    // Whether the flow is not reached though the valve is at its end.
    bool is_saturated() const;

  private:
    void take_over(double valve);

    PID_controller pid_;
    Order order_;
    bool takes_over_ = false; // with the next step
    double output_ = MVC;     // of the latest step, %
};

} // namespace flow
