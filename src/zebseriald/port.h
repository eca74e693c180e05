// port.h - one serial line: its device, what has come in, what is to go out, and who uses it.
#pragma once

#include "device.h"
#include "names.h"
#include "repeater.h"
#include "ring.h"

#include <functional>
#include <list>
#include <vector>

namespace zebseriald {

class Dialogue;

struct Limits {
    size_t clients = 256;
    size_t buffer_bytes = 1048570; // as much as one answer holds
    size_t output_bytes = 1048576;
    size_t queue_bytes = 4194304;
    size_t requests = 256;
    size_t repeaters = 8;
};

class Port {
  public:
    Port(const Target &target, const Limits &limits);
    ~Port();
    Port(const Port &) = delete;
    Port &operator=(const Port &) = delete;

    const std::string &path() const { return target_.device; }
    bool is(const std::string &path) const { return target_.device == path; }
    bool present() const { return static_cast<bool>(device_.fd); }
    int fd() const { return device_.fd.get(); }
    dev_t number() const { return device_.number; }

    // --- the device ---
    bool open(double now, OpenFailure &failure);
    // The same for a device that is expected: a fault is reported once for as long as it lasts.
    bool open_or_report(double now);
    bool reset(double now); // closes and reopens; what waits fails
    // Takes some of what has come, or all of it; false when the device is lost (reported).
    enum class Depth { once, all };
    bool read_input(double now, Depth depth);
    // Writes what the device takes; false as above.
    bool write_output(double now);
    bool set_line(const Line &line, std::string &why);

    // --- what goes out ---
    // False when there is no room for it.
    bool queue(uint64_t writer, std::string_view bytes, double now);
    size_t queued() const { return output_.size() - output_sent_; }
    uint64_t queued_until() const { return written_ + queued(); }
    // Whether the line has sent everything up to a position of the output.
    bool has_drained(uint64_t until) const;
    bool has_written(uint64_t until) const { return written_ >= until; }
    double drain_time() const; // seconds until it is worth asking again

    // --- settings of the server's side ---
    bool resize(size_t buffer, size_t echo, std::string &why); // 0: as it is
    bool add_repeater(const std::string &name, unsigned char mode, bool by_line,
                      const std::string &directory, serverkit::Complaints &complaints,
                      std::string &why);
    bool remove_repeater(const std::string &name);

    // --- who uses it ---
    void attach(Dialogue &dialogue);
    void detach(Dialogue &dialogue);
    bool blocked_for(const Dialogue &dialogue) const {
        return exclusive_ != nullptr && exclusive_ != &dialogue;
    }
    void claim(Dialogue &dialogue, bool exclusive);
    // Takes over what clients have set up at another port that turned out to be this one: the
    // exclusive use unless somebody has it here, and the repeaters for which there is room.
    void adopt(Port &from, double now);
    const std::vector<Dialogue *> &users() const { return users_; }

    const Ring &input() const { return input_; }
    const EchoLog &echo() const { return echo_; }
    double last_input() const { return last_input_; }
    // Counts the times that the device was lost or reopened: what waited for the old one fails.
    unsigned breaks() const { return breaks_; }

    // Whether waiting for the device is of use: it was there, or it is configured.
    bool is_expected() const { return target_.configured != nullptr || breaks_ > 0; }

    double retry_at = 0;     // when to look for a missing device
    double linger_until = 0; // without users: when to close although something is unsent
    uint32_t interest = 0;   // what epoll was asked for
    bool stirred = false;    // waits for its users to be asked what they make of it
    // Something changed that its users may wait for.
    std::function<void(Port &)> on_stir;
    // The device was opened: it wants to be watched.
    std::function<void(Port &)> on_open;

  private:
    static constexpr size_t k_lines_per_minute = 10;

    void stir();
    void lose(const char *why, double now);
    void say(double now, const std::string &what);
    void discard_output();
    bool has_repeater(const std::string &name) const;
    void repeat(Direction direction, std::string_view bytes, double now);

    Target target_;
    const Limits &limits_;
    Line line_;
    Device device_;
    Ring input_;
    EchoLog echo_;
    double last_input_ = 0;
    std::string output_; // its first `output_sent_` bytes are with the device already
    size_t output_sent_ = 0;
    uint64_t written_ = 0; // position of the output up to which the device has it
    std::vector<Dialogue *> users_;
    Dialogue *exclusive_ = nullptr;
    std::list<Repeater> repeaters_;
    unsigned breaks_ = 0;
    double opened_ = 0;
    std::string fault_; // why the device is missing, as last reported
    serverkit::Complaints lines_{k_lines_per_minute};
};

} // namespace zebseriald
