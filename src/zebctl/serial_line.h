// serial_line.h - one line of the serial-port server, for a command that one user waits for.
//
//   SerialLine line(choice);
//   if (!line.open()) return k_failed; // said why
//   line.write("V?\r");
//   line.read_until("\r", 2.0, answer);
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "serial_text.h"

namespace zebctl {

class SerialLine {
  public:
    enum class Outcome {
        done,
        refused, // by the server: too late, or the device is away or another client's alone
        over     // the server is gone, or the user wants to leave
    };

    explicit SerialLine(PortChoice choice) : choice_(std::move(choice)) {}
    ~SerialLine();
    SerialLine(const SerialLine &) = delete;
    SerialLine &operator=(const SerialLine &) = delete;

    // Connects, waits for the server's word and sets the line; false after a report.
    bool open();
    // As the user calls it, fit to be printed.
    std::string name() const { return escaped(choice_.name); }

    // What came since the last call, without waiting; `data` is empty unless done.
    Outcome read_new(std::string &data);
    // What other clients wrote since the last call.
    Outcome read_echo(std::string &data);
    // Waits for one of the characters, at most `seconds`.
    Outcome read_until(std::string_view stops, double seconds, std::string &data);
    // Leaves the bytes with the server.
    Outcome write(std::string_view data);
    // Waits until the bytes are on the line, at most `seconds`.
    Outcome write_out(std::string_view data, double seconds);

  private:
    bool wait_for_server();
    bool configure();
    Outcome outcome(bool good);
    Outcome take(long size, std::string &data);

    PortChoice choice_;
    SERIALCOM_link link_ = {};
    std::vector<char> buffer_;
    bool started_ = false;
};

} // namespace zebctl
