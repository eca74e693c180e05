// faults.h - what befalls a station that is soaked, one kind after the other in a random order.
#pragma once

#include "crew.h"

#include <functional>
#include <random>

namespace soak {

struct Fault {
    std::string what;
    double lasts; // s
    std::function<void()> begin;
    std::function<void()> tick = [] {};
    std::function<void()> end = [] {};
};

class Faults {
  public:
    // `peer` is the program that plays clients; talks to standard output.
    Faults(Crew &crew, std::string peer, unsigned seed);
    ~Faults();

    // From now on the programs whose use of memory is judged are left running.
    void spare_programs() { spares_ = true; }
    // To be called several times a second. Begins nothing new when `calm`.
    void tick(double time, bool calm);
    void end_all();

    size_t active() const { return active_.size(); }
    int begun() const { return begun_; }
    Faults(const Faults &) = delete;
    Faults &operator=(const Faults &) = delete;

  private:
    struct Active {
        Fault fault;
        double until;
    };
    double between(double low, double high);
    Fault next();
    Fault restarted(const std::string &server);
    Fault killed();
    Fault unplugged(const std::string &simulator);
    Fault log_directory_gone();
    Fault stopped();
    Fault never_reads();
    Fault sends_garbage();
    std::string any_of(std::vector<std::string> names);

    Crew &crew_;
    std::string peer_;
    std::mt19937 random_;
    bool spares_ = false;
    double next_ = 0;
    int begun_ = 0;
    std::vector<int> bag_;
    std::vector<Active> active_;
};

} // namespace soak
