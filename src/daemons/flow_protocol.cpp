#include "flow_protocol.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace flow {
namespace {

// Kind, address and command before the value, "*" and the checksum behind it.
constexpr size_t k_head = 4, k_tail = 3;

std::string checksum(std::string_view text) {
    unsigned sum = 0;
    for (const char c : text)
        sum += static_cast<unsigned char>(c);
    char digits[3];
    snprintf(digits, sizeof digits, "%02X", sum & 0xFF);
    return digits;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

bool is_printable(std::string_view text) {
    for (const char c : text)
        if (c < ' ' || c > '~')
            return false;
    return true;
}

bool has_head(std::string_view body) {
    return (body[0] == k_question || body[0] == k_answer || body[0] == k_refusal) &&
           is_digit(body[1]) && is_digit(body[2]) && is_printable(body);
}

void take_property(std::string_view property, Identity &identity) {
    const size_t equals = property.find('=');
    if (equals == std::string_view::npos)
        return;
    const std::string_view name = property.substr(0, equals), text = property.substr(equals + 1);
    if (name == "MODEL")
        identity.model = text;
    else if (name == "SERIAL")
        identity.serial_number = text;
    else if (name == "FIRMWARE")
        identity.firmware = text;
}

} // namespace

std::string to_line(const Frame &frame) {
    const char head[k_head + 1] = {frame.kind, static_cast<char>('0' + frame.address / 10 % 10),
                                   static_cast<char>('0' + frame.address % 10), frame.command, 0};
    const std::string body = head + frame.value;
    return body + "*" + checksum(body) + k_line_end;
}

std::optional<Frame> parse(std::string_view line) {
    if (!line.empty() && line.back() == k_line_end)
        line.remove_suffix(1);
    if (line.size() < k_head + k_tail || line.size() > k_max_line)
        return std::nullopt;
    const std::string_view body = line.substr(0, line.size() - k_tail);
    if (line[body.size()] != '*' || line.substr(body.size() + 1) != checksum(body) ||
        !has_head(body))
        return std::nullopt;
    const int address = (body[1] - '0') * 10 + (body[2] - '0');
    return Frame{body[0], address, body[3], std::string(body.substr(k_head))};
}

std::optional<double> to_number(std::string_view text) {
    double number;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || !std::isfinite(number))
        return std::nullopt;
    return number;
}

Verdict check_answer(std::string_view line, const Frame &question, std::string &value) {
    const auto frame = parse(line);
    if (!frame)
        return Verdict::damaged;
    if (frame->kind == k_question || frame->address != question.address ||
        frame->command != question.command)
        return Verdict::stray;
    value = frame->value;
    return frame->kind == k_answer ? Verdict::answered : Verdict::refused;
}

Identity parse_identity(std::string_view lines, int address) {
    const Frame question = {k_question, address, k_identify, ""};
    Identity identity;
    std::string property;
    while (!lines.empty()) {
        const size_t length = std::min(lines.find(k_line_end), lines.size());
        if (check_answer(lines.substr(0, length), question, property) == Verdict::answered)
            take_property(property, identity);
        lines.remove_prefix(std::min(length + 1, lines.size()));
    }
    return identity;
}

} // namespace flow
