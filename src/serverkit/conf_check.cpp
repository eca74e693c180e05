#include "conf_check.h"

#include "../libzeb2/conf_int.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace zeb {
namespace {

constexpr size_t k_excerpt_length = 60;

// What one reading of the loader's line buffer yields: a line or, of an overlong one, a piece.
struct Piece {
    char text[k_conf_line_size];
    size_t length; // NUL bytes of the file included
};

// fgets, but it tells how much it read where a NUL byte came in.
bool read_piece(FILE *stream, Piece &piece) {
    piece.length = 0;
    int c = 0;
    while (piece.length < sizeof piece.text - 1 && c != '\n' && (c = getc(stream)) != EOF)
        piece.text[piece.length++] = static_cast<char>(c);
    piece.text[piece.length] = '\0';
    return piece.length > 0 && ferror(stream) == 0;
}

bool is_blank(const std::string &text) {
    return std::all_of(text.begin(), text.end(), conf_is_space);
}

std::string stripped(const std::string &text) {
    std::string result = text;
    UTIL_strip_lead_trail_space(result.data());
    result.resize(strlen(result.c_str()));
    return result;
}

// The text between single quotes, shortened, with the bytes a terminal must not see as hex.
std::string excerpt(const std::string &text) {
    std::string result = "'";
    for (size_t i = 0; i < text.size() && i < k_excerpt_length; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        char escaped[8];
        snprintf(escaped, sizeof escaped, c < ' ' || c == 0x7F ? "\\x%02X" : "%c", c);
        result += escaped;
    }
    return result + (text.size() > k_excerpt_length ? "...'" : "'");
}

bool begins_quoted(const std::string &text) {
    return !text.empty() && text.front() == '"';
}
bool ends_quoted(const std::string &text) {
    return !text.empty() && text.back() == '"';
}

struct LessPath {
    bool operator()(const std::string &a, const std::string &b) const {
        return UTIL_strcasecmp(a.c_str(), b.c_str()) < 0;
    }
};

class Checker {
  public:
    ConfCheck run(FILE *stream) {
        Piece piece = {};
        while (read_piece(stream, piece)) {
            note_long_line(piece);
            check_piece(piece);
            continues_ = piece.text[piece.length - 1] != '\n';
            if (!continues_)
                next_line();
        }
        return result();
    }

  private:
    void add(size_t line, ConfSeverity severity, std::string text, std::string path = "") {
        if (findings_.size() < k_conf_max_findings)
            findings_.push_back({line, severity, std::move(text), std::move(path)});
        else
            ++left_out_;
    }
    void note(std::string text) { add(line_, ConfSeverity::note, std::move(text)); }
    void warn(std::string text) { add(line_, ConfSeverity::warning, std::move(text)); }
    void ignored(const std::string &why) {
        add(line_, ConfSeverity::error, why + ": the line is ignored");
    }

    void next_line() {
        ++line_;
        long_line_noted_ = false;
    }

    void note_long_line(const Piece &piece) {
        if (!continues_ || long_line_noted_ || piece.text[0] == '\n')
            return;
        long_line_noted_ = true;
        warn("longer than " + std::to_string(k_conf_line_size - 1) +
             " characters: what follows them is read as a line of its own");
    }

    void check_piece(const Piece &piece) {
        check_nul(piece);
        check_hash(piece.text);
        char line[k_conf_line_size];
        memcpy(line, piece.text, sizeof line);
        if (!conf_trim_line(line) || is_blank(line))
            return;
        check_line(line, strchr(piece.text, '#') != nullptr);
    }

    void check_nul(const Piece &piece) {
        const size_t column = strlen(piece.text);
        if (column < piece.length && strchr(piece.text, '#') == nullptr)
            warn("a NUL byte in column " + std::to_string(column + 1) +
                 ": the rest of the line is not read");
    }

    // A comment behind a value is what '#' is for. It is a surprise inside quotes or in a word.
    void check_hash(const char *text) {
        const char *hash = strchr(text, '#');
        const char *comma = strchr(text, ',');
        if (hash == nullptr || comma == nullptr || comma > hash)
            return;
        const bool in_quotes = std::count(comma, hash, '"') % 2 != 0;
        const std::string dropped = std::string(hash, strcspn(hash, "\n"));
        if (in_quotes || !conf_is_space(hash[-1]))
            warn("the value is cut at '#': " + excerpt(dropped) + " is dropped");
        else
            note(excerpt(dropped) + " is dropped as a comment");
    }

    void check_line(char *line, bool has_hash) {
        const std::string written = line;
        const char *comment = conf_find_comment(written.c_str());
        char *key = nullptr, *value = nullptr;
        const ConfLine kind = conf_split_line(line, &key, &value);
        if (kind == ConfLine::no_comma)
            return ignored(std::string(has_hash ? "no comma before the '#'" : "no comma") +
                           (comment != nullptr ? ", so its comment is lost too" : ""));
        if (kind == ConfLine::nothing_after_comma)
            return ignored("nothing after the comma");
        if (kind == ConfLine::empty_value)
            return ignored("the value is empty");
        const size_t comma = written.find(',');
        check_key(stripped(written.substr(0, comma)), key);
        if (kind == ConfLine::short_key)
            return ignored("the key " + excerpt(key) + " has less than two characters");
        if (check_path(key)) {
            check_value(stripped(written.substr(comma + 1)), value);
            if (comment != nullptr && static_cast<size_t>(comment - written.c_str()) > comma)
                note(excerpt(comment) + " is the comment and stays part of the value");
            keep(normalised(key), value, *key == '!');
        }
    }

    void check_key(const std::string &written, const char *key) {
        const bool begins = begins_quoted(written);
        const bool ends = ends_quoted(written);
        if (begins && ends && written.size() > 2)
            warn("the key is quoted at both ends and loses its last character: " +
                 excerpt(written) + " is read as " + excerpt(key));
        else if (begins || ends)
            note("a double quote of the key is dropped: it is read as " + excerpt(key));
    }

    static std::string normalised(const char *key) {
        std::string path(strlen(key), '\0');
        path.resize(conf_normalise_path(key, path.data()));
        return path;
    }

    // False when the key names nothing.
    bool check_path(const char *key) {
        const std::string path = normalised(key);
        if (path.empty()) {
            ignored("nothing is left of the key without blanks and '!'");
            return false;
        }
        if (path != key + strspn(key, "!"))
            note("the key is read as " + excerpt(path));
        if (path.front() == ';' || path.find(";;") != std::string::npos)
            warn("the path " + excerpt(path) +
                 " holds an empty name, which no usual look-up finds");
        return true;
    }

    void check_value(const std::string &written, const char *value) {
        const bool begins = begins_quoted(written);
        const bool ends = ends_quoted(written);
        if (begins != ends)
            note(std::string("the double quote at the ") + (begins ? "beginning" : "end") +
                 " of the value is dropped: it is read as " + excerpt(value));
        else if (begins && strchr(value, '"') != nullptr)
            note("the outer double quotes of the value are dropped: it is read as " +
                 excerpt(value));
    }

    // A separator at the end does not count: "Disk;" is "Disk".
    void keep(std::string path, const std::string &value, bool is_header) {
        if (path.back() == ';')
            path.pop_back();
        const auto [place, is_new] = settings_.try_emplace(path);
        if (!is_new)
            note_overwritten(place->second, value);
        place->second = {line_, path, value, is_header};
    }

    void note_overwritten(const ConfSetting &old, const std::string &value) {
        const std::string by = std::to_string(line_);
        if (old.value == value)
            add(old.line, ConfSeverity::note,
                "duplicate: line " + by + " sets " + excerpt(old.path) + " to the same value",
                old.path);
        else
            add(old.line, ConfSeverity::warning,
                excerpt(old.path) + " is overwritten by line " + by + ": " + excerpt(old.value) +
                    " becomes " + excerpt(value),
                old.path);
    }

    ConfCheck result() {
        ConfCheck check;
        std::stable_sort(
            findings_.begin(), findings_.end(),
            [](const ConfFinding &a, const ConfFinding &b) { return a.line < b.line; });
        check.findings = std::move(findings_);
        if (left_out_ > 0)
            check.findings.push_back({line_, ConfSeverity::warning,
                                      std::to_string(left_out_) + " further findings left out",
                                      ""});
        for (auto &[path, setting] : settings_)
            check.settings.push_back(std::move(setting));
        return check;
    }

    size_t line_ = 1;
    bool continues_ = false;
    bool long_line_noted_ = false;
    size_t left_out_ = 0;
    std::vector<ConfFinding> findings_;
    std::map<std::string, ConfSetting, LessPath> settings_;
};

} // namespace

ConfCheck check_conf(FILE *stream) {
    return Checker().run(stream);
}

} // namespace zeb
