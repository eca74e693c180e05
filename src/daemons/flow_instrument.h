// flow_instrument.h - the flow controller behind its line of the serial server: one question, one
// answer, and a verdict on how that went.
//
//   flow::Instrument instrument(station.line(), {.address = 1, .timeout = 0.5});
//   instrument.clear();
//   flow::Reading reading;
//   if (instrument.read(reading) == flow::Outcome::answered) publish(reading);
#pragma once

#include <array>
#include <string>

#include <zeb2/serialcom.h>

#include "flow_protocol.h"

namespace flow {

// How a question went; the worse, the later.
enum class Outcome { answered, refused, damaged, silent, no_line };

// What one reading gave; MVC for what was not answered.
struct Reading {
    double flow = MVC;        // standard l/min
    double pressure = MVC;    // hPa
    double temperature = MVC; // degC
    double valve = MVC;       // %
};

class Instrument {
  public:
    struct Settings {
        int address = 1;      // 0 to 99
        double timeout = 0.5; // s to wait for an answer
    };
    // The link is borrowed; no other thread may use it meanwhile.
    Instrument(SERIALCOM_link *line, const Settings &settings) : line_(line), settings_(settings) {}

    // Throws away what is left of former answers, so that none is taken for the next.
    void clear();
    // Asks for every quantity; the worst outcome. After a silence the rest is not asked: each would
    // cost a time-out.
    Outcome read(Reading &reading);
    // What the instrument says of itself; empty texts when it says nothing.
    Identity identify();
    // Opens the valve so far; `reason` is why that was refused.
    Outcome set_valve(double percent, std::string &reason);

    unsigned asked() const { return asked_; }
    unsigned count(Outcome outcome) const { return counts_[static_cast<size_t>(outcome)]; }

  private:
    Outcome ask(char command, const std::string &argument, std::string &value);
    Outcome exchange(const Frame &question, std::string &value);
    bool write(const Frame &question);

    SERIALCOM_link *line_;
    Settings settings_;
    unsigned asked_ = 0;
    std::array<unsigned, 5> counts_ = {};
};

} // namespace flow
