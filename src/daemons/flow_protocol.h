// flow_protocol.h - what the flow controller and its daemon say to each other: one line for a
// question, one line for its answer (several for "identify").
//
//     :01F*E1<CR>           what is the flow of controller 01?
//     >01F7.503*E2<CR>      7.503 l/min
//     :01S101*80<CR>        set the valve to 101 %
//     !01S3*08<CR>          refused: outside the range
//
// A line is its kind (":" question, ">" answer, "!" refusal), the controller's address as two
// digits, a command letter, a value (empty, a number or a text), "*", the sum of all characters
// before the "*" modulo 256 as two hexadecimal digits, and a carriage return.
//
//   std::string value;
//   const flow::Frame question = {flow::k_question, 1, flow::k_read_flow, ""};
//   write(flow::to_line(question));
//   if (flow::check_answer(read_line(), question, value) == flow::Verdict::answered) ...
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <zeb2/port.h>

namespace flow {

constexpr char k_question = ':', k_answer = '>', k_refusal = '!';

constexpr char k_read_flow = 'F';        // standard l/min
constexpr char k_read_pressure = 'P';    // hPa, between valve and pump
constexpr char k_read_temperature = 'T'; // degC, of the gas
constexpr char k_read_valve = 'V';       // % of its opening
constexpr char k_set_valve = 'S';        // 0 to 100 %; the answer repeats what was set
constexpr char k_identify = 'I';         // one answer for each property, as NAME=TEXT

// Why a question was refused, the value of a refusal.
constexpr char k_unknown_command[] = "1", k_no_number[] = "2", k_out_of_range[] = "3";

constexpr char k_line_end = '\r';
constexpr size_t k_max_line = 128;

struct Frame {
    char kind = k_question;
    int address = 1; // 0 to 99
    char command = 0;
    std::string value; // printable characters
};

std::string to_line(const Frame &frame);

// A line with or without its end; nothing when it is damaged.
std::optional<Frame> parse(std::string_view line);

// A text that is a finite number, and nothing else.
std::optional<double> to_number(std::string_view text);

enum class Verdict {
    answered, // `value` is what was asked for
    refused,  // `value` is the reason
    damaged,  // not a line, or a wrong checksum
    stray     // an answer to something else
};

// What came in answer to a question.
Verdict check_answer(std::string_view line, const Frame &question, std::string &value);

struct Identity {
    std::string model, serial_number, firmware; // empty: not said
};

// The lines of an answer to "identify"; those that are damaged or tell something else are skipped.
Identity parse_identity(std::string_view lines, int address);

} // namespace flow
