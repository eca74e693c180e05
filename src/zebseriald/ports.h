// ports.h - every port in use, each device once whatever its names.
#pragma once

#include "port.h"

#include <list>

namespace zebseriald {

class Ports {
  public:
    Ports(const std::vector<PortConfig> &configured, const Limits &limits)
        : configured_(configured), limits_(limits) {}

    // Attaches a client to the port of a name. On failure says why.
    Port *attach(Dialogue &dialogue, std::string_view name, double now, std::string &why);
    // The port stays for a while if something is still to be sent.
    void detach(Dialogue &dialogue, double now);

    // Looks for missing devices and closes ports that nobody uses any more.
    void run_timers(double now);
    double due() const;

    size_t users() const; // of all ports
    bool empty() const { return ports_.empty(); }
    // Gives ports without users until `when` to send what waits.
    void hurry(double when);

    // Set before the first attach().
    std::function<void(Port &)> on_stir, on_open, on_close;

  private:
    Port *find(const std::string &path);
    Port *find(dev_t number, const Port *except = nullptr);
    Target canonical(Target target, std::optional<dev_t> number) const;
    Port *make(const Target &target, double now, std::string &why);
    void look_for(Port &port, double now);
    bool is_done(const Port &port, double now) const;

    const std::vector<PortConfig> &configured_;
    const Limits &limits_;
    std::list<Port> ports_;
};

} // namespace zebseriald
