#include "port.h"

#include "serverkit/report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace zebseriald {
namespace {

constexpr size_t k_scratch = 65536;
constexpr int k_reads = 16; // at most: a busy line must not keep the others waiting
constexpr size_t k_kept_output = 16384;
constexpr double k_shortest_poll = 0.001;
constexpr double k_longest_poll = 0.05;
constexpr double k_retry = 1;
constexpr const char *k_lost = "lost";

} // namespace

Port::Port(const Target &target, const Limits &limits)
    : target_(target), limits_(limits),
      line_(target.configured != nullptr ? target.configured->line : k_standard_line),
      input_(target.configured != nullptr ? target.configured->buffer_size
                                          : PortConfig().buffer_size),
      echo_(target.configured != nullptr ? target.configured->echo_size : PortConfig().echo_size) {}

Port::~Port() {
    close_device(device_);
}

void Port::say(double now, const std::string &what) {
    lines_.about(now, "port \"" + serverkit::printable(path(), 255) + "\"", what);
}

void Port::stir() {
    if (!stirred && on_stir)
        on_stir(*this);
    stirred = true;
}

// --- the device --------------------------------------------------------------------------------

bool Port::open(double now, OpenFailure &failure) {
    auto device = open_device(path(), line_, failure);
    if (!device)
        return false;
    if (!fault_.empty())
        say(now, "it is open");
    fault_.clear();
    device_ = std::move(*device);
    opened_ = last_input_ = now;
    interest = 0;
    if (on_open)
        on_open(*this);
    stir();
    return true;
}

bool Port::open_or_report(double now) {
    OpenFailure failure;
    if (open(now, failure))
        return true;
    // A lost device is mentioned; that it is then not there goes without saying.
    const bool known = failure.why == fault_ || (fault_ == k_lost && failure.absent);
    if (!known) {
        say(now, "it cannot be opened: " + failure.why + "; trying every second");
        fault_ = failure.why;
    }
    retry_at = now + k_retry;
    return false;
}

void Port::lose(const char *why, double now) {
    if (!users_.empty())
        say(now, std::string("it is lost: ") + why + "; trying every second");
    fault_ = k_lost;
    close_device(device_);
    discard_output();
    retry_at = opened_ + k_retry; // at once, unless it breaks whenever it is opened
    ++breaks_;
    stir();
}

bool Port::reset(double now) {
    close_device(device_);
    discard_output();
    ++breaks_;
    stir();
    return open_or_report(now);
}

bool Port::read_input(double now, Depth depth) {
    static char scratch[k_scratch];
    const int reads = depth == Depth::once ? 1 : k_reads;
    for (int i = 0; i < reads && present(); ++i) {
        const ssize_t count = read(fd(), scratch, sizeof scratch);
        if (count < 0 && (errno == EAGAIN || errno == EINTR))
            return true;
        if (count <= 0) {
            lose(count == 0 ? "hang-up" : strerror(errno), now);
            return false;
        }
        const std::string_view bytes(scratch, static_cast<size_t>(count));
        input_.append(bytes);
        last_input_ = now;
        repeat(Direction::input, bytes, now);
        stir();
    }
    return present();
}

bool Port::set_line(const Line &line, std::string &why) {
    if (present() && !apply_line(fd(), line, device_.pseudo, why))
        return false;
    line_ = line;
    return true;
}

// --- what goes out -----------------------------------------------------------------------------

bool Port::queue(uint64_t writer, std::string_view bytes, double now) {
    if (queued() + bytes.size() > limits_.output_bytes)
        return false;
    output_.append(bytes);
    echo_.append(writer, bytes);
    repeat(Direction::output, bytes, now);
    stir();
    return true;
}

bool Port::write_output(double now) {
    while (present() && queued() > 0) {
        const ssize_t count = write(fd(), output_.data() + output_sent_, queued());
        if (count < 0 && (errno == EAGAIN || errno == EINTR))
            break;
        if (count < 0) {
            lose(strerror(errno), now);
            return false;
        }
        if (count == 0)
            break;
        output_sent_ += static_cast<size_t>(count);
        written_ += static_cast<uint64_t>(count);
        stir();
    }
    if (queued() == 0) {
        output_.clear();
        output_sent_ = 0;
        if (output_.capacity() > k_kept_output)
            output_.shrink_to_fit();
    } else if (output_sent_ >= output_.size() / 2) {
        output_.erase(0, output_sent_);
        output_sent_ = 0;
    }
    return present();
}

void Port::discard_output() {
    written_ += queued();
    output_.clear();
    output_sent_ = 0;
}

bool Port::has_drained(uint64_t until) const {
    if (!present())
        return true;
    return written_ >= until && written_ - std::min<uint64_t>(written_, unsent(fd())) >= until;
}

double Port::drain_time() const {
    const double bytes = static_cast<double>(unsent(fd()));
    return std::clamp(bytes * character_time(line_), k_shortest_poll, k_longest_poll);
}

// --- settings of the server's side -------------------------------------------------------------

bool Port::resize(size_t buffer, size_t echo, std::string &why) {
    if (std::max(buffer, echo) > limits_.buffer_bytes) {
        why = "a buffer may have at most " + std::to_string(limits_.buffer_bytes) + " bytes";
        return false;
    }
    if (buffer != 0)
        input_.resize(buffer);
    if (echo != 0)
        echo_.resize(echo);
    return true;
}

bool Port::add_repeater(const std::string &name, unsigned char mode, bool by_line,
                        const std::string &directory, serverkit::Complaints &complaints,
                        std::string &why) {
    // Looked at first: opening makes the file.
    if (!has_repeater(name) && repeaters_.size() >= limits_.repeaters) {
        why = "the port has " + std::to_string(repeaters_.size()) + " already";
        return false;
    }
    auto repeater = Repeater::open(name, mode, by_line, directory, complaints, why);
    if (!repeater)
        return false;
    remove_repeater(name);
    repeaters_.push_back(std::move(*repeater));
    return true;
}

bool Port::has_repeater(const std::string &name) const {
    return std::any_of(repeaters_.begin(), repeaters_.end(),
                       [&](const Repeater &r) { return r.name() == name; });
}

bool Port::remove_repeater(const std::string &name) {
    return repeaters_.remove_if([&](const Repeater &r) { return r.name() == name; }) > 0;
}

void Port::repeat(Direction direction, std::string_view bytes, double now) {
    for (Repeater &repeater : repeaters_)
        repeater.write(direction, bytes, now);
}

// --- who uses it -------------------------------------------------------------------------------

void Port::attach(Dialogue &dialogue) {
    users_.push_back(&dialogue);
    linger_until = 0;
    stir(); // a missing device is looked for from now on
}

void Port::detach(Dialogue &dialogue) {
    std::erase(users_, &dialogue);
    claim(dialogue, false);
}

void Port::adopt(Port &from, double now) {
    if (exclusive_ == nullptr)
        exclusive_ = from.exclusive_;
    from.exclusive_ = nullptr;
    for (const Repeater &repeater : from.repeaters_)
        remove_repeater(repeater.name());
    repeaters_.splice(repeaters_.end(), from.repeaters_);
    while (repeaters_.size() > limits_.repeaters) {
        say(now, "repeater \"" + serverkit::printable(repeaters_.back().name(), 255) +
                     "\" has ended: the port has " + std::to_string(limits_.repeaters) +
                     " already");
        repeaters_.pop_back();
    }
    stir();
}

void Port::claim(Dialogue &dialogue, bool exclusive) {
    if (exclusive)
        exclusive_ = &dialogue;
    else if (exclusive_ == &dialogue)
        exclusive_ = nullptr;
    stir();
}

} // namespace zebseriald
