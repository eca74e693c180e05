#include "serial_session.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <poll.h>
#include <unistd.h>

#include <zeb2/util.h>

#include "command.h"
#include "terminal.h"

namespace zebctl {
namespace {

using Outcome = SerialLine::Outcome;

// The server is asked for what is new: a read that waits there would hold up what is typed.
constexpr int k_look = 25;             // ms between questions
constexpr int k_look_away = 250;       // ms while the line does not answer
constexpr double k_quiet = 0.1;        // s after which an unfinished group is shown
constexpr double k_pipe_patience = 30; // s for a piece of a pipe to be on the line
constexpr size_t k_piece = 256;        // bytes of input at a time

double steady_seconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

Grouper::Cut cut_of(const SerialView &view) {
    if (view.json)
        return Grouper::Cut::lines;
    return view.hex ? Grouper::Cut::rows : Grouper::Cut::at_once;
}

class Session {
  public:
    Session(SerialLine &line, const SerialSession &options);
    int run();

  private:
    bool is_over() const;
    void greet() const;
    int wait() const;
    bool step(); // false when the server is gone
    bool look();
    bool look_for(Direction direction);
    bool take_input();
    bool send(const std::string &data);
    void show_own(const std::string &data);
    void note(Outcome outcome);

    SerialLine &line_;
    const SerialSession &options_;
    const bool reads_, on_terminal_;
    const bool shows_own_;
    Typing typing_;
    Shower shower_;
    bool at_end_ = false; // of the input
    bool away_ = false;   // the line does not answer
    double started_, heard_;
};

Typing::Source source_of(const SerialSession &options, bool on_terminal) {
    if (!options.raw)
        return Typing::Source::lines;
    return on_terminal ? Typing::Source::keys : Typing::Source::bytes;
}

// A terminal shows each line as it is typed; a second copy is wanted where it holds more than that.
bool wants_own(const SerialSession &options, bool on_terminal) {
    if (options.raw || options.echo)
        return options.echo;
    return !on_terminal || !isatty(STDOUT_FILENO) || options.view.json || options.view.hex ||
           options.view.look.stamps != Stamps::none;
}

Session::Session(SerialLine &line, const SerialSession &options)
    : line_(line), options_(options), reads_(!options.listen),
      on_terminal_(reads_ && isatty(STDIN_FILENO)), shows_own_(wants_own(options, on_terminal_)),
      typing_(source_of(options, on_terminal_), options.eol, on_terminal_), shower_(options.view),
      started_(steady_seconds()), heard_(started_) {}

bool Session::is_over() const {
    // A pipe that ended still has its answers to come, if there is a time for them.
    return UTIL_exit_poll() || shower_.is_broken() || typing_.has_left() ||
           (at_end_ && (on_terminal_ || options_.seconds < 0)) ||
           (options_.seconds >= 0 && steady_seconds() - started_ >= options_.seconds);
}

void Session::greet() const {
    if (on_terminal_)
        fprintf(stderr, "zebctl: %s: %s\n", line_.name().c_str(),
                options_.raw ? "each key is sent; Ctrl-] ends"
                             : "each line is sent; Ctrl-] or Ctrl-D ends");
    else if (options_.listen && isatty(STDERR_FILENO))
        fprintf(stderr, "zebctl: watching %s; Ctrl-C ends\n", line_.name().c_str());
}

int Session::run() {
    greet();
    const Terminal terminal(on_terminal_ ? STDIN_FILENO : -1,
                            options_.raw ? Terminal::Mode::keys : Terminal::Mode::lines,
                            Typing::k_leave);
    bool good = true;
    while (good && !is_over())
        good = step();
    shower_.flush();
    shower_.finish();
    if (typing_.has_left() && !options_.raw)
        fputc('\n', stderr); // behind the key that the terminal echoed
    if (good || UTIL_exit_poll())
        return k_done;
    fprintf(stderr, "zebctl: the serial-port server is gone\n");
    return k_failed;
}

// Milliseconds until the next look at the line.
int Session::wait() const {
    const int longest = away_ ? k_look_away : k_look;
    if (options_.seconds < 0)
        return longest;
    const double left = 1000 * (options_.seconds - (steady_seconds() - started_));
    return left < longest ? std::max(static_cast<int>(left) + 1, 0) : longest;
}

bool Session::step() {
    pollfd input = {reads_ && !at_end_ ? STDIN_FILENO : -1, POLLIN, 0};
    const bool typed = poll(&input, 1, wait()) > 0;
    return (!typed || take_input()) && look();
}

bool Session::look() {
    if (!look_for(Direction::in) || (options_.listen && !look_for(Direction::out)))
        return false;
    if (steady_seconds() - heard_ >= k_quiet)
        shower_.flush();
    return true;
}

bool Session::look_for(Direction direction) {
    std::string data;
    const Outcome outcome =
        direction == Direction::in ? line_.read_new(data) : line_.read_echo(data);
    note(outcome);
    if (!data.empty()) {
        heard_ = steady_seconds();
        shower_.add(direction, data, UTIL_ftime());
    }
    return outcome != Outcome::over;
}

// What lasts is said when it begins and when it ends.
void Session::note(Outcome outcome) {
    const bool away = outcome == Outcome::refused;
    if (outcome == Outcome::over || away == away_)
        return;
    away_ = away;
    shower_.flush();
    shower_.finish();
    fprintf(stderr,
            away ? "zebctl: %s does not answer: its device is gone, or another program has it for "
                   "itself; waiting for it\n"
                 : "zebctl: %s answers again\n",
            line_.name().c_str());
}

bool Session::take_input() {
    char piece[k_piece];
    const ssize_t got = read(STDIN_FILENO, piece, sizeof piece);
    if (got < 0 && (errno == EINTR || errno == EAGAIN))
        return true;
    at_end_ = got <= 0;
    const std::string data = typing_.take({piece, at_end_ ? size_t{0} : static_cast<size_t>(got)});
    return data.empty() || send(data);
}

bool Session::send(const std::string &data) {
    // A pipe is faster than any line: the line sets the pace.
    const Outcome outcome =
        on_terminal_ ? line_.write(data) : line_.write_out(data, k_pipe_patience);
    if (outcome == Outcome::refused) {
        shower_.finish();
        fprintf(stderr, "zebctl: not sent: %s\n", escaped(data).c_str());
    } else if (outcome == Outcome::done) {
        show_own(data);
    }
    return outcome != Outcome::over;
}

void Session::show_own(const std::string &data) {
    if (shows_own_) {
        heard_ = steady_seconds();
        shower_.add(Direction::out, data, UTIL_ftime());
    } else if (!options_.raw) {
        shower_.interrupted();
    }
}

} // namespace

Shower::Shower(const SerialView &view) : view_(view), grouper_(cut_of(view)), text_(view.look) {}

void Shower::print(const std::string &text) {
    broken_ =
        broken_ || (!text.empty() && (fputs(text.c_str(), stdout) < 0 || fflush(stdout) != 0));
}

void Shower::show(const Group &group) {
    if (view_.json)
        print(json_line(group));
    else
        print(view_.hex ? hex_line(group, view_.look) : text_.show(group));
}

void Shower::add(Direction direction, std::string_view data, FTIME now) {
    grouper_.add(direction, data, now, [this](const Group &group) { show(group); });
}

void Shower::flush() {
    grouper_.flush([this](const Group &group) { show(group); });
}

void Shower::finish() {
    print(text_.finish());
}

int run_session(SerialLine &line, const SerialSession &session) {
    return Session(line, session).run();
}

} // namespace zebctl
