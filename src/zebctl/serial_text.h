// serial_text.h - what a serial line carries, made fit for a terminal, a script or a program: pure
// functions and small state, without a line or a terminal.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <zeb2/serialcom.h>

namespace zebctl {

// Printable ASCII: \r, \n, \t, \\ and \xNN stand for the rest, so that no instrument can command
// the user's terminal. unescape() reads it back.
std::string escaped(std::string_view data);

// Reads \r, \n, \t, \\ and \xNN; false with the reason when a backslash begins nothing of these.
bool unescape(std::string_view text, std::string &data, std::string &error);

// "4f4b0d"
std::string hex(std::string_view data);

constexpr size_t k_hex_row = 16;
// "4f 4b 0d ...  |OK.|", both columns as wide as a whole row's.
std::string hex_row(std::string_view data);

// A line of the serial-port server, and the settings it is to be given, if any.
struct PortChoice {
    std::string name;
    std::optional<SERIALD_port_params> settings;
};

// Reads "=NAME", a device ("ttyUSB0", "/dev/ttyUSB0"), or a device with its settings
// ("ttyS0:9600n81"); `settings` ("9600n81") may be empty. False with the reason.
bool parse_port(const std::string &port, const std::string &settings, PortChoice &choice,
                std::string &error);

// ---- What is shown ----

// Seen from here: `in` comes from the instrument, `out` goes to it.
enum class Direction { in, out };

struct Group {
    Direction direction;
    FTIME time; // when its first byte came
    std::string data;
};

// Puts bytes together as they are shown: at once, in lines with their ends (CR, LF or both), or in
// rows of the hexadecimal view. Each direction has its own.
class Grouper {
  public:
    enum class Cut { at_once, lines, rows };
    using Sink = std::function<void(const Group &)>;

    explicit Grouper(Cut cut) : cut_(cut) {}
    void add(Direction direction, std::string_view data, FTIME now, const Sink &sink);
    // Hands on what waits for its end: the line has been quiet, or all is over.
    void flush(const Sink &sink);

  private:
    void hand_on(Group &waiting, size_t size, FTIME now, const Sink &sink) const;

    Cut cut_;
    Group waiting_[2] = {{Direction::in, 0, {}}, {Direction::out, 0, {}}};
};

enum class Stamps { none, utc, local };

struct Look {
    Stamps stamps = Stamps::none;
    bool marks = true; // "<" and ">"
    bool colour = false;
};

// Lines of text, shown as far as they came: a prompt without an end is seen at once.
class TextView {
  public:
    explicit TextView(const Look &look) : look_(look) {}
    std::string show(const Group &group);
    // Ends the line that is open.
    std::string finish();
    // Someone else moved the terminal to a new line.
    void interrupted() { open_ = nullptr; }

  private:
    struct Side {
        bool after_return = false;
    };

    Look look_;
    Side sides_[2];
    const Side *open_ = nullptr; // whose line is open
};

// One row or object and a line end.
std::string hex_line(const Group &group, const Look &look);
std::string json_line(const Group &group);

// ---- What is typed ----

// Turns what the user types into what is sent.
class Typing {
  public:
    static constexpr char k_leave = 0x1D; // Ctrl-]

    enum class Source {
        lines, // line ends become `eol`
        keys,  // the Enter key becomes `eol`
        bytes  // sent as they are
    };
    // `may_leave`: Ctrl-] ends the session, as on a terminal.
    Typing(Source source, std::string eol, bool may_leave)
        : source_(source), eol_(std::move(eol)), may_leave_(may_leave) {}
    std::string take(std::string_view typed);
    bool has_left() const { return has_left_; }

  private:
    Source source_;
    std::string eol_;
    bool may_leave_;
    bool has_left_ = false;
};

} // namespace zebctl
