#include "serial_text.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "text.h"

namespace zebctl {
namespace {

constexpr size_t k_longest_line = 4096; // a line without an end is cut here

constexpr char k_own_colour[] = "2";   // dim
constexpr char k_line_colour[] = "36"; // cyan

const char k_digits[] = "0123456789abcdef";

std::string hex_byte(char c) {
    const unsigned value = static_cast<unsigned char>(c);
    return {k_digits[value >> 4], k_digits[value & 15]};
}

bool is_printable(char c) {
    return c >= 0x20 && c < 0x7F;
}

// The letter that stands for a control character behind a backslash, or 0.
char letter_of(char c) {
    switch (c) {
    case '\r':
        return 'r';
    case '\n':
        return 'n';
    case '\t':
        return 't';
    case '\\':
        return '\\';
    default:
        return 0;
    }
}

std::optional<char> character_of(char letter) {
    for (const char c : {'\r', '\n', '\t', '\\'})
        if (letter_of(c) == letter)
            return c;
    return std::nullopt;
}

std::optional<char> byte_of(std::string_view digits) {
    if (digits.size() < 2 || !isxdigit(static_cast<unsigned char>(digits[0])) ||
        !isxdigit(static_cast<unsigned char>(digits[1])))
        return std::nullopt;
    return static_cast<char>(std::stoi(std::string(digits.substr(0, 2)), nullptr, 16));
}

bool is_line_end(char c) {
    return c == '\r' || c == '\n';
}

// Bytes up to and with the first line end; 0 while it is not known where the line ends.
size_t line_size(std::string_view data) {
    const size_t end = data.find_first_of("\r\n");
    if (end == std::string_view::npos)
        return data.size() >= k_longest_line ? k_longest_line : 0;
    if (data[end] == '\n')
        return end + 1;
    if (end + 1 == data.size())
        return 0; // a line feed may be on its way
    return data[end + 1] == '\n' ? end + 2 : end + 1;
}

size_t group_size(Grouper::Cut cut, std::string_view data) {
    switch (cut) {
    case Grouper::Cut::lines:
        return line_size(data);
    case Grouper::Cut::rows:
        return data.size() >= k_hex_row ? k_hex_row : 0;
    default:
        return data.size();
    }
}

const char *colour_of(Direction direction) {
    return direction == Direction::in ? k_line_colour : k_own_colour;
}

// What stands before each line: its time, and where it came from.
std::string head(const Group &group, const Look &look) {
    std::string text;
    if (look.stamps != Stamps::none)
        text =
            (look.stamps == Stamps::utc ? iso_time(group.time) : iso_local_time(group.time)) + " ";
    if (look.marks)
        text += group.direction == Direction::in ? "< " : "> ";
    return text;
}

// Reads "NAME:9600n81".
bool read_settings(const std::string &text, bool with_name, PortChoice &choice,
                   std::string &error) {
    SERIALD_connect_params name;
    SERIALD_port_params settings;
    if (!SERIALCOM_breakdown_port_string(text.c_str(), &name, &settings)) {
        error = "\"" + visible(text.substr(text.find(':') + 1)) +
                "\" is no line setting: give speed, parity (n, o, e), data and stop bits, as in "
                "9600n81";
        return false;
    }
    if (with_name)
        choice.name = name.port_name;
    choice.settings = settings;
    return true;
}

} // namespace

std::string escaped(std::string_view data) {
    std::string text;
    for (const char c : data)
        if (const char letter = letter_of(c); letter != 0)
            text += {'\\', letter};
        else if (is_printable(c))
            text += c;
        else
            text += "\\x" + hex_byte(c);
    return text;
}

bool unescape(std::string_view text, std::string &data, std::string &error) {
    data.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            data += text[i];
            continue;
        }
        const char letter = ++i < text.size() ? text[i] : '\0';
        const std::optional<char> c =
            letter == 'x' ? byte_of(text.substr(i + 1)) : character_of(letter);
        if (!c) {
            error = "\"" + visible(std::string(text.substr(i - 1, 4))) +
                    "\" is no escape: there are \\r, \\n, \\t, \\\\ and \\xNN";
            return false;
        }
        data += *c;
        i += letter == 'x' ? 2 : 0;
    }
    return true;
}

std::string hex(std::string_view data) {
    std::string text;
    for (const char c : data)
        text += hex_byte(c);
    return text;
}

std::string hex_row(std::string_view data) {
    std::string bytes, characters;
    for (const char c : data) {
        bytes += hex_byte(c) + " ";
        characters += is_printable(c) ? c : '.';
    }
    bytes.resize(std::max(bytes.size(), 3 * k_hex_row), ' ');
    return bytes + " |" + characters + "|";
}

bool parse_port(const std::string &port, const std::string &settings, PortChoice &choice,
                std::string &error) {
    choice = {port, std::nullopt};
    if (port.empty() || port == "=") {
        error = "name a line: =NAME of the configuration, or a device such as ttyUSB0";
        return false;
    }
    const bool has_settings = port[0] != '=' && port.find(':') != std::string::npos;
    if (has_settings && !settings.empty()) {
        error = "the line's settings are given twice";
        return false;
    }
    if ((has_settings || !settings.empty()) &&
        !read_settings(has_settings ? port : "line:" + settings, has_settings, choice, error))
        return false;
    // What begins with a slash is a path for the server only behind a "=".
    if (choice.name[0] == '/')
        choice.name.insert(0, "=");
    if (choice.name.size() < sizeof(SERIALD_connect_params::port_name))
        return true;
    error = "no line has so long a name";
    return false;
}

void Grouper::hand_on(Group &waiting, size_t size, FTIME now, const Sink &sink) const {
    sink({waiting.direction, waiting.time, waiting.data.substr(0, size)});
    waiting.data.erase(0, size);
    waiting.time = now;
}

void Grouper::add(Direction direction, std::string_view data, FTIME now, const Sink &sink) {
    Group &waiting = waiting_[direction == Direction::out];
    if (waiting.data.empty())
        waiting.time = now;
    waiting.data += data;
    while (!waiting.data.empty()) {
        const size_t size = group_size(cut_, waiting.data);
        if (size == 0)
            return;
        hand_on(waiting, size, now, sink);
    }
}

void Grouper::flush(const Sink &sink) {
    for (Group &waiting : waiting_)
        if (!waiting.data.empty())
            hand_on(waiting, waiting.data.size(), waiting.time, sink);
}

std::string TextView::finish() {
    const bool was_open = open_ != nullptr;
    open_ = nullptr;
    return was_open ? "\n" : "";
}

std::string TextView::show(const Group &group) {
    Side &side = sides_[group.direction == Direction::out];
    std::string text, run;
    const auto end_run = [&] {
        if (!run.empty())
            text += painted(look_.colour, colour_of(group.direction), run);
        run.clear();
    };
    for (const char c : group.data) {
        const bool second_half = c == '\n' && side.after_return;
        side.after_return = c == '\r';
        if (second_half)
            continue;
        if (open_ != &side) {
            text += finish();
            run = head(group, look_);
            open_ = &side;
        }
        if (is_line_end(c)) {
            end_run();
            text += finish();
        } else {
            run += escaped({&c, 1});
        }
    }
    end_run();
    return text;
}

std::string hex_line(const Group &group, const Look &look) {
    return painted(look.colour, colour_of(group.direction),
                   head(group, look) + hex_row(group.data)) +
           "\n";
}

std::string json_line(const Group &group) {
    nlohmann::ordered_json line;
    line["time"] = group.time;
    line["direction"] = group.direction == Direction::in ? "in" : "out";
    line["text"] = escaped(group.data);
    line["hex"] = hex(group.data);
    return line.dump() + "\n";
}

std::string Typing::take(std::string_view typed) {
    const size_t leaving = may_leave_ ? typed.find(k_leave) : std::string_view::npos;
    has_left_ = has_left_ || leaving != std::string_view::npos;
    const char end = source_ == Source::lines ? '\n' : '\r';
    std::string data;
    for (const char c : typed.substr(0, leaving))
        if (c == end && source_ != Source::bytes)
            data += eol_;
        else
            data += c;
    return data;
}

} // namespace zebctl
