// hex_text.h - bytes written as text: pairs of hexadecimal digits, with blanks, line ends and
// ",", ":" or "-" between them; "0x" before them; '#' comments up to the line's end; "text" in
// double quotes as its characters.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "byte_window.h"

namespace zebctl {

// Whether the beginning of a stream is such a text.
bool looks_like_hex(std::string_view beginning);

// Cuts such a text, piece by piece, into its bytes.
class HexText {
  public:
    using Fault = std::function<void(uint64_t line, const std::string &what)>;
    explicit HexText(Fault fault) : fault_(std::move(fault)) {}

    // Appends the bytes of a piece. What is no such text is told and left out.
    void add(std::string_view piece, std::string &out);
    void end(); // tells of a digit without its second

  private:
    void add_digit(char c, std::string &out);
    void add_other(char c);

    Fault fault_;
    uint64_t line_ = 1;
    char first_ = 0; // digit of an unfinished pair, or 0
    enum class Inside { hex, comment, quotes } inside_ = Inside::hex;
};

// The bytes of a text that is seen through a window.
ByteSource hex_source(ByteWindow &text, HexText::Fault fault);

} // namespace zebctl
