#include "hex_text.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>

namespace zebctl {
namespace {

constexpr size_t k_piece = 4096; // of a text, at a time

bool is_separator(char c) {
    return strchr(" \t\r\n,:-", c) != nullptr;
}

bool is_digit(char c) {
    return isxdigit(static_cast<unsigned char>(c)) != 0;
}

int value_of(char digit) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    return tolower(static_cast<unsigned char>(digit)) - 'a' + 10;
}

} // namespace

void HexText::add_other(char c) {
    if (first_ != 0)
        fault_(line_, std::string("the digit ") + first_ + " without a second");
    first_ = 0;
    if (c == '#')
        inside_ = Inside::comment;
    else if (c == '"')
        inside_ = Inside::quotes;
    else if (!is_separator(c) || c == '\0')
        fault_(line_, std::string("no hexadecimal digit: ") + c);
}

void HexText::add_digit(char c, std::string &out) {
    if (first_ == 0) {
        first_ = c;
        return;
    }
    out += static_cast<char>(value_of(first_) << 4 | value_of(c));
    first_ = 0;
}

void HexText::add(std::string_view piece, std::string &out) {
    for (const char c : piece) {
        if (inside_ == Inside::quotes && c != '"' && c != '\n')
            out += c;
        else if (inside_ != Inside::hex)
            inside_ = c == '\n' || inside_ == Inside::quotes ? Inside::hex : inside_;
        else if (is_digit(c))
            add_digit(c, out);
        else if (first_ == '0' && (c == 'x' || c == 'X'))
            first_ = 0;
        else
            add_other(c);
        line_ += c == '\n';
    }
}

void HexText::end() {
    if (first_ != 0)
        add_other(' ');
}

bool looks_like_hex(std::string_view beginning) {
    bool good = true;
    std::string bytes;
    HexText text([&](uint64_t, const std::string &) { good = false; });
    text.add(beginning, bytes);
    return good && !bytes.empty() && std::all_of(beginning.begin(), beginning.end(), [](char c) {
               return (c >= 0x20 && c != 0x7F) || static_cast<unsigned char>(c) >= 0x80 || c == '\n' || c == '\r' || c == '\t';
           });
}

ByteSource hex_source(ByteWindow &text, HexText::Fault fault) {
    auto parser = std::make_shared<HexText>(std::move(fault));
    auto ready = std::make_shared<std::string>();
    return [&text, parser, ready](char *to, size_t size) -> ssize_t {
        while (ready->empty() && text.want(1)) {
            const std::string_view piece = text.bytes().substr(0, k_piece);
            parser->add(piece, *ready);
            text.skip(piece.size());
        }
        if (ready->empty())
            parser->end();
        const size_t count = std::min(size, ready->size());
        ready->copy(to, count);
        ready->erase(0, count);
        return static_cast<ssize_t>(count);
    };
}

} // namespace zebctl
