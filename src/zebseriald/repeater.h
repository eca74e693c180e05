// repeater.h - a copy of a port's traffic, appended to a file or written to a pipe.
//
// Whatever happens to the copy, the port goes on: what cannot be written at once is lost, and a
// fault is reported when it begins and when it ends.
#pragma once

#include "serverkit/report.h"
#include "serverkit/sockets.h"

#include <optional>
#include <string>
#include <string_view>

namespace zebseriald {

enum class Direction : unsigned char { input = 1, output = 2 };

class Repeater {
  public:
    // `mode` has the bits of Direction. A file must lie below `directory`; a name that does not
    // begin with "/" is taken from there. A pipe that exists may be anywhere. Faults go to
    // `complaints`, which outlives it. On failure says why.
    static std::optional<Repeater> open(const std::string &name, unsigned char mode, bool by_line,
                                        const std::string &directory,
                                        serverkit::Complaints &complaints, std::string &why);

    const std::string &name() const { return name_; }
    void write(Direction direction, std::string_view bytes, double now);

  private:
    Repeater(serverkit::UniqueFd fd, std::string name, unsigned char mode, bool by_line,
             serverkit::Complaints &complaints)
        : fd_(std::move(fd)), name_(std::move(name)), mode_(mode), by_line_(by_line),
          complaints_(&complaints) {}
    void write_lines(std::string &held, std::string_view bytes, double now);
    void put(std::string_view bytes, double now);
    void say(double now, const std::string &what);

    serverkit::UniqueFd fd_;
    std::string name_;
    unsigned char mode_;
    bool by_line_;
    std::string held_[2]; // the line that has begun, per direction
    serverkit::Fault fault_;
    serverkit::Complaints *complaints_; // not its own: it may be added over and over
};

} // namespace zebseriald
