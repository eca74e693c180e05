#include "ports.h"

#include "dialogue.h"

#include <algorithm>

namespace zebseriald {
namespace {

constexpr double k_linger = 5; // seconds for the last words of a client that has left

} // namespace

Port *Ports::find(const std::string &path) {
    const auto found =
        std::find_if(ports_.begin(), ports_.end(), [&](const Port &p) { return p.path() == path; });
    return found == ports_.end() ? nullptr : &*found;
}

Port *Ports::find(dev_t number, const Port *except) {
    const auto found = std::find_if(ports_.begin(), ports_.end(), [&](const Port &p) {
        return &p != except && p.present() && p.number() == number;
    });
    return found == ports_.end() ? nullptr : &*found;
}

// A device that the configuration knows has the settings, and the lasting name, given there.
Target Ports::canonical(Target target, std::optional<dev_t> number) const {
    if (target.configured != nullptr || !number)
        return target;
    for (const PortConfig &port : configured_)
        if (device_number(port.device) == number)
            return {port.device, &port};
    return target;
}

Port *Ports::make(const Target &target, double now, std::string &why) {
    Port &port = ports_.emplace_back(target, limits_);
    port.on_stir = on_stir;
    port.on_open = on_open;
    OpenFailure failure;
    if (port.open(now, failure))
        return &port;
    if (port.is_expected() && !failure.lasting) {
        port.open_or_report(now);
        return &port;
    }
    why = failure.why;
    ports_.pop_back();
    return nullptr;
}

Port *Ports::attach(Dialogue &dialogue, std::string_view name, double now, std::string &why) {
    auto target = resolve_name(name, configured_, why);
    if (!target)
        return nullptr;
    const auto number = device_number(target->device);
    target = canonical(*target, number);
    Port *port = number ? find(*number) : nullptr;
    if (port == nullptr)
        port = find(target->device);
    if (port == nullptr)
        port = make(*target, now, why);
    if (port != nullptr)
        port->attach(dialogue);
    return port;
}

void Ports::detach(Dialogue &dialogue, double now) {
    Port *port = dialogue.port();
    if (port == nullptr)
        return;
    port->detach(dialogue);
    if (port->users().empty())
        port->linger_until = now + k_linger;
}

bool Ports::is_done(const Port &port, double now) const {
    return port.users().empty() &&
           (port.has_drained(port.queued_until()) || now >= port.linger_until);
}

// Two names may turn out to mean one device only when it is plugged in.
void Ports::look_for(Port &port, double now) {
    const auto number = device_number(port.path());
    Port *other = number ? find(*number, &port) : nullptr;
    if (other == nullptr) {
        port.open_or_report(now);
        return;
    }
    other->adopt(port, now);
    const std::vector<Dialogue *> users = port.users();
    for (Dialogue *user : users) {
        port.detach(*user);
        other->attach(*user);
        user->move_to(*other);
    }
}

void Ports::run_timers(double now) {
    for (Port &port : ports_)
        if (!port.present() && !port.users().empty() && now >= port.retry_at)
            look_for(port, now);
    for (auto port = ports_.begin(); port != ports_.end();) {
        const auto next = std::next(port);
        if (is_done(*port, now)) {
            on_close(*port);
            ports_.erase(port);
        }
        port = next;
    }
}

double Ports::due() const {
    double due = k_no_limit;
    for (const Port &port : ports_) {
        if (port.users().empty())
            return 0;
        if (!port.present())
            due = std::min(due, port.retry_at);
    }
    return due;
}

size_t Ports::users() const {
    size_t count = 0;
    for (const Port &port : ports_)
        count += port.users().size();
    return count;
}

void Ports::hurry(double when) {
    for (Port &port : ports_)
        port.linger_until = std::min(port.linger_until, when);
}

} // namespace zebseriald
