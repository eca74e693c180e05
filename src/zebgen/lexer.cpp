#include "lexer.h"

#include <string_view>

namespace zebgen {
namespace {

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
bool is_word_start(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool is_word(char c) {
    return is_word_start(c) || is_digit(c);
}
bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v';
}

// Length of the well-formed UTF-8 sequence at the start of `text`, 0 if there is none.
size_t utf8_length(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
        return 1;
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
        return 0;
    for (size_t i = 1; i < length; i++)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    const bool overlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
    const bool outside = (lead == 0xED && byte(1) > 0x9F) || (lead == 0xF4 && byte(1) > 0x8F);
    return overlong || outside ? 0 : length;
}

class Lexer {
  public:
    Lexer(const std::string &file, const std::string &text, Problems &problems)
        : file_(file), text_(text), problems_(problems) {}

    Tokens run() {
        if (is_text())
            while (!at_end())
                step();
        push(TokenKind::end, {}, line_, column_);
        return std::move(out_);
    }

  private:
    bool at_end() const { return pos_ >= text_.size(); }
    char peek(size_t ahead = 0) const {
        return pos_ + ahead < text_.size() ? text_[pos_ + ahead] : '\0';
    }

    void advance() {
        if (text_[pos_++] == '\n') {
            line_++;
            column_ = 1;
            fresh_line_ = true;
        } else {
            column_++;
        }
    }

    void refuse(int line, int column, std::string what, std::string mend) {
        problems_.push_back({{file_, line, column}, std::move(what), std::move(mend)});
    }

    void push(TokenKind kind, std::string text, int line, int column) {
        out_.tokens.push_back(
            {kind, std::move(text), line, column, fresh_line_, out_.comments.size()});
        fresh_line_ = false;
    }

    // Looks at every byte before anything is read, so that a binary file gives one line.
    bool is_text() {
        int line = 1;
        int column = 1;
        for (size_t i = 0; i < text_.size();) {
            const char c = text_[i];
            const size_t length = utf8_length(std::string_view(text_).substr(i));
            const bool control = static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
            if (length == 0 || (control && !is_blank(c) && c != '\n')) {
                refuse(line, column,
                       c == '\0' ? "NUL byte"
                       : control ? "control character"
                                 : "byte that is not UTF-8",
                       "a definition header is plain text");
                return false;
            }
            i += length;
            line += c == '\n';
            column = c == '\n' ? 1 : column + static_cast<int>(length);
        }
        return true;
    }

    void step() {
        const char c = peek();
        if (c == '\n' || is_blank(c))
            advance();
        else if (c == '/' && peek(1) == '*')
            block_comment();
        else if (c == '/' && peek(1) == '/')
            line_comment();
        else if (is_word_start(c))
            run_of(TokenKind::identifier);
        else if (is_digit(c))
            run_of(TokenKind::number);
        else if (c == '"')
            string();
        else if (c == '\\' && splices())
            splice();
        else
            punctuation();
    }

    void run_of(TokenKind kind) {
        const size_t start = pos_;
        const int column = column_;
        while (is_word(peek()) || (kind == TokenKind::number && peek() == '.'))
            advance();
        push(kind, text_.substr(start, pos_ - start), line_, column);
    }

    void string() {
        const int column = column_;
        advance();
        const size_t start = pos_;
        while (!at_end() && peek() != '"' && peek() != '\n') {
            if (peek() == '\\' && (peek(1) == '"' || peek(1) == '\\'))
                advance();
            advance();
        }
        const size_t end = pos_;
        if (peek() == '"')
            advance();
        else
            refuse(line_, column, "string is never closed", "end it with \" on the same line");
        push(TokenKind::string, text_.substr(start, end - start), line_, column);
    }

    bool splices() const { return peek(1) == '\n' || (peek(1) == '\r' && peek(2) == '\n'); }

    void splice() {
        refuse(line_, column_, "line goes on after '\\'", "write it on one line");
        advance();
    }

    void punctuation() {
        const int column = column_;
        if (static_cast<unsigned char>(peek()) < 0x80) {
            advance();
            push(TokenKind::punctuation, std::string(1, text_[pos_ - 1]), line_, column);
            return;
        }
        refuse(line_, column, "character outside ASCII", "use it in comments only");
        while (static_cast<unsigned char>(peek()) >= 0x80)
            advance();
    }

    void keep_comment(const std::string &text, int line, int column) {
        out_.comments.push_back({text, line, column, line_, fresh_line_before_});
    }

    // A continuation line may begin with a decorating "*", as block comments often do.
    std::string folded(size_t start, size_t end) const {
        std::string out;
        bool line_start = false;
        bool gap = false;
        for (size_t i = start; i < end; i++) {
            const char c = text_[i];
            const bool blank = is_blank(c) || c == '\n';
            const bool decoration =
                c == '*' && line_start &&
                (i + 1 == end || is_blank(text_[i + 1]) || text_[i + 1] == '\n');
            if (blank || decoration) {
                gap = true;
            } else {
                if (gap && !out.empty())
                    out += ' ';
                gap = false;
                out += c;
            }
            line_start = c == '\n' || (line_start && blank);
        }
        return out;
    }

    void block_comment() {
        const int line = line_;
        const int column = column_;
        const size_t start = pos_ + 2;
        const size_t end = text_.find("*/", start);
        fresh_line_before_ = fresh_line_;
        if (end == std::string::npos)
            refuse(line, column, "comment is never closed", "end it with */");
        const size_t stop = end == std::string::npos ? text_.size() : end + 2;
        while (pos_ < stop)
            advance();
        // What follows the comment on its line does not begin that line.
        fresh_line_ = false;
        keep_comment(folded(start, end == std::string::npos ? stop : end), line, column);
    }

    void line_comment() {
        const int line = line_;
        const int column = column_;
        const size_t start = pos_ + 2;
        fresh_line_before_ = fresh_line_;
        while (!at_end() && peek() != '\n') {
            if (peek() == '\\' && splices()) {
                splice();
                while (peek() != '\n')
                    advance();
            }
            advance();
        }
        keep_comment(folded(start, pos_), line, column);
    }

    const std::string &file_;
    const std::string &text_;
    Problems &problems_;
    Tokens out_;
    size_t pos_ = 0;
    int line_ = 1;
    int column_ = 1;
    bool fresh_line_ = true;
    bool fresh_line_before_ = true;
};

} // namespace

Tokens tokenize(const std::string &file, const std::string &text, Problems &problems) {
    return Lexer(file, text, problems).run();
}

} // namespace zebgen
