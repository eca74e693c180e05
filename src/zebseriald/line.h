// line.h - the settings of a serial line: what is allowed, and how a terminal is told.
#pragma once

#include <optional>
#include <string>
#include <termios.h>

#include <zeb2/serialcom.h>

namespace zebseriald {

using Line = SERIALD_port_params;

enum Parity : BYTE { k_parity_none, k_parity_odd, k_parity_even };
enum FlowControl : BYTE { k_flow_none, k_flow_software, k_flow_hardware };

constexpr Line k_standard_line = {9600, 8, k_parity_none, 1, k_flow_none};

// The system's constant for a rate of 300 to 4,000,000 baud; nothing for a rate that is no
// standard.
std::optional<speed_t> speed_of(DWORD baud);

// Names the first setting that cannot be used, with its value; empty when all can.
std::string fault_of(const Line &line);

// "9600 baud, 8n1" and the flow control, for a line of text.
std::string describe(const Line &line);

// The terminal's settings with those of the line in raw mode. The line must be without fault.
termios with_line(termios from, const Line &line);

// Sets an open terminal. On failure says why, and the terminal is as it was. A pseudo terminal has
// no line and ignores some settings: what it does with them is right.
bool apply_line(int fd, const Line &line, bool pseudo, std::string &why);

// Seconds that a character takes on the line.
double character_time(const Line &line);

} // namespace zebseriald
