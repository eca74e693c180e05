// flow_device.h - a simulated flow controller: a pump draws air through a valve whose opening is
// set. Time passes only by advance(), and the noise is the same for the same seed.
#pragma once

#include <functional>
#include <random>
#include <string>

#include "flow_protocol.h"

namespace flow {

class Device {
  public:
    struct Settings {
        int address = 1;
        double valve = 0;         // % at the start; the flow is settled
        double time_constant = 2; // s of the flow behind the valve
        double noise = 1;         // factor on the noise of the readings
        unsigned seed = 1;
        unsigned mute_after = 0;           // answers, then none any more (0: never)
        unsigned wrong_checksum_every = 0; // answers (0: never)
    };
    using Callback = std::function<void(const std::string &answer)>;

    explicit Device(const Settings &settings);

    void advance(double seconds);
    // Bytes off the line; calls back with each answer. Questions to others and damaged ones have
    // none: who cannot read an address does not know that it is his.
    void receive(std::string_view bytes, const Callback &answer);

    // Standard l/min to which the flow tends at an opening in %: 20 * (0.35 x + 0.65 x^2) for
    // x = opening / 100.
    static double flow_at(double valve);

  private:
    void line(const Callback &answer);
    void answer_to(const Frame &question, const Callback &answer);
    void set_valve(const Frame &reply, const Callback &answer);
    void identify(const Frame &reply, const Callback &answer);
    void say(Frame reply, char kind, const std::string &value, const Callback &answer);
    std::string reading(double value, double sigma);

    Settings settings_;
    double valve_;
    double flow_;
    std::minstd_rand random_;
    std::normal_distribution<double> deviation_;
    std::string pending_;
    unsigned answers_ = 0;
};

} // namespace flow
