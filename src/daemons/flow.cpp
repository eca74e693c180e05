// flow.cpp - the daemon of a flow controller, a pump behind a valve: asks it once a second for what
// it measures, publishes and logs the answers, and moves its valve so that the flow stays at a set
// point. A model for an instrument that answers questions; gps.cpp is the one for an instrument
// that talks by itself.
//
// What another instrument changes is the protocol (flow_protocol.h), the questions
// (flow_instrument.h), the records (flow_record.h), the variables and columns (flow_channels.h),
// the control (flow_control.h) and, below, what is published and obeyed. How faults are told and
// how the loop runs can stay.
//
// The keys of its branch of the configuration are in flow_keys.cpp.

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "daemon.h"
#include "flow_channels.h"
#include "flow_control.h"
#include "flow_instrument.h"
#include "flow_keys.h"
#include "flow_record.h"
#include "serverkit/report.h"

namespace {

using flow::Outcome;

constexpr double k_slice = 0.25;           // s that the loop waits at most
constexpr double k_status_interval = 10.0; // s
constexpr double k_valve_step = 0.01;      // %, the least that the instrument tells
constexpr int k_calm = 5;                  // readings in a row that begin or end a state

// Tells when a fault begins and when it is over, and nothing between.
class Health {
  public:
    Health(daemon_kit::Station &station, std::string port)
        : station_(station), port_(std::move(port)) {}

    void note(Outcome outcome) {
        if (outcome == Outcome::no_line) {
            if (line_.occurred())
                station_.tell("the line %s is gone; the serial server waits for it", port_.c_str());
            return;
        }
        if (line_.over() != 0)
            station_.tell("the line %s is back", port_.c_str());
        if (outcome == Outcome::answered)
            return good_reading();
        calm_ = 0;
        if (instrument_.occurred())
            station_.tell("the instrument %s", complaint(outcome));
    }

  private:
    static const char *complaint(Outcome outcome) {
        if (outcome == Outcome::silent)
            return "does not answer";
        return outcome == Outcome::damaged ? "gives damaged answers" : "refuses a question";
    }

    // One good reading between bad ones is not the end of a fault.
    void good_reading() {
        if (instrument_.count() != 0 && ++calm_ >= k_calm)
            station_.tell("the instrument answers again; readings that failed: %zu",
                          instrument_.over());
    }

    daemon_kit::Station &station_;
    std::string port_;
    serverkit::Fault line_, instrument_;
    int calm_ = 0;
};

// Tells when the valve is at its end without reaching the set point, and when that is over. A step
// of the set point takes it there for a moment, and that is not worth a word.
class Saturation {
  public:
    explicit Saturation(daemon_kit::Station &station) : station_(station) {}

    void note(bool saturated, double setpoint, double flow) {
        readings_ = saturated == told_ ? 0 : readings_ + 1;
        if (readings_ < k_calm)
            return;
        told_ = saturated;
        readings_ = 0;
        if (saturated)
            station_.tell("the valve is at its end: the flow is %.2f l/min instead of %g", flow,
                          setpoint);
        else
            station_.tell("the valve is within its range again");
    }

  private:
    daemon_kit::Station &station_;
    bool told_ = false;
    int readings_ = 0; // that say otherwise
};

class Controller {
  public:
    explicit Controller(daemon_kit::Daemon &daemon)
        : station_(daemon.station()), name_(daemon.name()),
          interval_(daemon.configuration().number("Interval")),
          max_flow_(daemon.configuration().number("MaxFlow")),
          instrument_(station_.line(), settings(daemon.configuration())),
          control_(CONF_lookup_tree(daemon.configuration().local(), "PID")),
          channels_(daemon, set_flow, this), health_(station_, daemon.port()),
          saturation_(station_) {
        const double setpoint = daemon.configuration().number("Setpoint");
        if (setpoint != MVC && setpoint <= max_flow_)
            obey({false, MVC, setpoint});
    }

    double seconds_to_go(FTIME now) {
        if (next_ - now > interval_) // the clock was set back
            next_ = now;
        return next_ - now;
    }

    // One reading, from the question to the records.
    void work(FTIME now) {
        next_ = (std::floor(now / interval_) + 1) * interval_;
        if (last_ >= Outcome::damaged)
            instrument_.clear();
        flow::Reading reading;
        last_ = instrument_.read(reading);
        if (!station_.wait(0))
            return; // requests fail as well while the daemon stops, or when a server is gone
        health_.note(last_);
        channels_.take(reading, control_.order().setpoint, instrument_.asked(), failures());
        if (last_ >= Outcome::silent) {
            set_state(flow::State::no_answer);
            identity_ = {}; // what will answer next may be another one
        } else {
            set_state(flow::State::reading);
            regulate(reading, now);
            if (identity_.model.empty())
                identity_ = instrument_.identify();
        }
        publish_status(now);
    }

    // What the message server delivers, beside what the library sees to by itself.
    static void received(ZEBMSG_proc_msg *message, void *self) {
        if (message->msg != nullptr && message->msg->msg == MSG_GENERICPID_SET &&
            message->pds != nullptr)
            static_cast<Controller *>(self)->ordered(
                *static_cast<NET_GENERICPID_Setpoint *>(message->pds));
    }

    void say_counts() const {
        serverkit::report("%u questions, %u without an answer, %u damaged, %u refused",
                          instrument_.asked(), instrument_.count(Outcome::silent),
                          instrument_.count(Outcome::damaged), instrument_.count(Outcome::refused));
    }

  private:
    static flow::Instrument::Settings settings(daemon_kit::Configuration &configuration) {
        return {static_cast<int>(configuration.number("Address")), configuration.number("Timeout")};
    }

    unsigned failures() const { return instrument_.asked() - instrument_.count(Outcome::answered); }

    void set_state(flow::State state) {
        if (state != state_)
            next_status_ = 0;
        state_ = state;
    }

    // From a reading to the valve.
    void regulate(flow::Reading reading, FTIME now) {
        // A pause, or a clock that was set, must not be integrated.
        const double wanted =
            control_.step(reading, std::clamp(now - last_step_, 0.0, 2 * interval_));
        last_step_ = now;
        reading.flow = control_.calibrated(reading.flow);
        publish(reading, now);
        saturation_.note(control_.is_saturated(), control_.order().setpoint, reading.flow);
        move_valve(wanted, reading.valve);
    }

    void publish(const flow::Reading &reading, FTIME now) {
        const NET_TSITMF_Instant meter = flow::to_instant(reading, now);
        ZEBMSG_queue_message(station_.messages(), MSG_TSITMF_INSTANT, 1, nullptr, &meter,
                             sizeof meter, "NET_TSITMF_Instant");
        const NET_GENERICPID_Instant loop = flow::to_loop(reading, control_.terms(), name_, now);
        ZEBMSG_queue_message(station_.messages(), MSG_GENERICPID_INSTANT, 1, nullptr, &loop,
                             sizeof loop, "NET_GENERICPID_Instant");
    }

    void publish_status(FTIME now) {
        if (now < next_status_ && next_status_ - now <= k_status_interval)
            return;
        next_status_ = now + k_status_interval;
        const NET_TSITMF_Status status = flow::to_status(state_, identity_);
        ZEBMSG_queue_message(station_.messages(), MSG_TSITMF_STATUS, 1, nullptr, &status,
                             sizeof status, "NET_TSITMF_Status");
    }

    // Retained by the server, so that who comes later knows as well.
    void publish_setpoint() {
        const NET_GENERICPID_Setpoint setpoint = flow::to_setpoint(control_.order(), name_);
        ZEBMSG_queue_message(station_.messages(), MSG_GENERICPID_SETPOINT, 3, nullptr, &setpoint,
                             sizeof setpoint, "NET_GENERICPID_Setpoint");
    }

    // A set point, from a program that sets the output variable.
    static void set_flow(double value, const char *, void *self) {
        static_cast<Controller *>(self)->obey({false, MVC, value});
    }

    void ordered(const NET_GENERICPID_Setpoint &order) {
        if (flow::is_for(order, name_))
            obey(flow::to_order(order));
    }

    void obey(const flow::Order &order) {
        const flow::Order before = control_.order();
        if (!flow::is_possible(order, max_flow_))
            return station_.tell("an order is refused: the valve takes manual=1 and an output of 0 "
                                 "to 100, the controller a set point of 0 to %g",
                                 max_flow_);
        control_.obey(order);
        if (order.manual) {
            told_ = false; // once the instrument has agreed
            if (!before.manual || before.output != order.output)
                station_.tell("the valve is to stay at %g %%", order.output);
        } else if (before.manual || before.setpoint != order.setpoint) {
            station_.tell("the set point is %g l/min", order.setpoint);
            publish_setpoint();
        }
    }

    // The valve is where somebody left it, and closed after a loss of power: what is wanted is
    // compared with what was read. So an order that did not arrive is given again.
    void move_valve(double wanted, double valve) {
        if (wanted == MVC || valve == MVC)
            return;
        if (std::fabs(valve - wanted) < k_valve_step)
            return agreed();
        std::string reason;
        const Outcome outcome = instrument_.set_valve(wanted, reason);
        if (outcome == Outcome::answered)
            agreed();
        if (outcome != Outcome::refused)
            return;
        station_.tell("the instrument refuses an output of %g %%: error %s", wanted,
                      serverkit::printable(reason).c_str());
        control_.obey({});
    }

    void agreed() {
        if (!told_)
            publish_setpoint();
        told_ = true;
    }

    daemon_kit::Station &station_;
    std::string name_;
    double interval_; // s
    double max_flow_; // standard l/min
    flow::Instrument instrument_;
    flow::Control control_;
    flow::Channels channels_;
    Health health_;
    Saturation saturation_;
    Outcome last_ = Outcome::silent; // nothing is known of the line yet
    flow::Identity identity_;
    flow::State state_ = flow::State::starting;
    bool told_ = true; // an opening that was ordered is known to have been set
    FTIME next_ = 0;
    FTIME last_step_ = 0;
    FTIME next_status_ = 0;
};

int run(daemon_kit::Station &station, Controller &controller) {
    while (station.wait(std::clamp(controller.seconds_to_go(UTIL_ftime()), 0.0, k_slice))) {
        ZEBMSG_process_messages(station.messages(), Controller::received, &controller);
        EVENTAT_run(0);
        const FTIME now = UTIL_ftime();
        if (controller.seconds_to_go(now) <= 0)
            controller.work(now);
    }
    controller.say_counts();
    return station.result();
}

} // namespace

int main(int argc, char **argv) {
    daemon_kit::Daemon daemon(flow::k_keys,
                              "Asks a flow controller what it measures, publishes and logs that, "
                              "and holds the flow at its set point.");
    if (!daemon.start(argc, argv) || !daemon.connect_with_line())
        return daemon.exit_status();
    Controller controller(daemon);
    daemon.announce("flow");
    return run(daemon.station(), controller);
}
