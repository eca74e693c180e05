#include "parser.h"

#include "lexer.h"
#include "types.h"

#include <cerrno>
#include <cstdlib>

namespace zebgen {

bool parse_integer(const std::string &text, int64_t &value) {
    const size_t suffix = text.find_last_not_of("uUlL") + 1;
    const std::string digits = text.substr(0, suffix);
    if (digits.empty() || text.size() - suffix > 3)
        return false;
    char *end = nullptr;
    errno = 0;
    value = std::strtoll(digits.c_str(), &end, 0);
    return errno == 0 && *end == '\0';
}

namespace {

class Parser {
  public:
    Parser(Source &source, const Tokens &tokens, Problems &problems)
        : source_(source), tokens_(tokens.tokens), comments_(tokens.comments), problems_(problems) {
    }

    void run() {
        source_.preface = preface();
        while (!at_end())
            item();
        if (pack_open_)
            refuse(pack_place_, "'#pragma pack(push, 4)' is never undone",
                   "write '#pragma pack(pop)' after the last record");
        if (!guard_.empty())
            refuse(guard_place_, "include guard is never closed", "end the file with '#endif'");
    }

  private:
    using Line = std::vector<Token>;

    const Token &peek(size_t ahead = 0) const {
        const size_t at = pos_ + ahead;
        return at < tokens_.size() ? tokens_[at] : tokens_.back();
    }
    bool at_end() const { return peek().kind == TokenKind::end; }
    const Token &take() {
        const Token &token = peek();
        if (!at_end())
            pos_++;
        return token;
    }
    bool take_if(const char *text) {
        const bool found = peek().is(text);
        pos_ += found;
        return found;
    }

    Place place_of(const Token &token) const { return {source_.path, token.line, token.column}; }
    void refuse(const Place &place, std::string what, std::string mend) {
        problems_.push_back({place, std::move(what), std::move(mend)});
    }
    bool refuse(const Token &token, std::string what, std::string mend) {
        refuse(place_of(token), std::move(what), std::move(mend));
        return false;
    }
    bool refuse_unexpected(const Token &token, const std::string &mend) {
        if (token.kind == TokenKind::end)
            return refuse(token, "file ends too early", mend);
        const char *quote = token.kind == TokenKind::string ? "\"" : "'";
        return refuse(token, quote + token.text + quote + " is not understood here", mend);
    }

    void item() {
        item_start_ = pos_;
        if (peek().is("#") && peek().first_on_line)
            directive();
        else if (!declaration())
            skip_item();
        first_item_ = false;
    }

    bool declaration() {
        if (peek().is("typedef"))
            return record();
        if (peek().is("ZEB_MESSAGE") || peek().is("ZEB_MESSAGE_BARE"))
            return message();
        return refuse_unexpected(peek(), "a definition header holds records ('typedef struct { ... "
                                         "} NAME;'), messages and integer constants only");
    }

    // To the end of what could not be read: its semicolon, outside braces, or the next line that
    // plainly begins something else.
    void skip_item() {
        for (int depth = 0; !at_end();) {
            const Token &token = peek();
            const bool fresh = token.first_on_line && token.column == 1 && pos_ != item_start_;
            if (fresh && (token.is("#") || token.is("typedef") || token.is("ZEB_MESSAGE") ||
                          token.is("ZEB_MESSAGE_BARE")))
                return;
            pos_++;
            depth += token.is("{");
            depth -= token.is("}");
            if (token.is(";") && depth <= 0)
                return;
        }
    }

    // Preprocessor lines

    void directive() {
        const Token hash = take();
        Line line;
        while (!at_end() && peek().line == hash.line)
            line.push_back(take());
        const std::string name = line.empty() ? "" : line[0].text;
        if (name == "include")
            include(hash, line);
        else if (name == "pragma")
            pragma(hash, line);
        else if (name == "define")
            define(hash, line);
        else if (name == "ifndef" && first_item_ && line.size() == 2)
            open_guard(hash, line);
        else if (name == "endif" && !guard_.empty() && line.size() == 1 && at_end())
            guard_.clear();
        else
            refuse(hash, "'#" + name + "' is not understood here",
                   "leave nothing but an include guard to the preprocessor");
    }

    void include(const Token &hash, const Line &line) {
        const bool quoted = line.size() == 2 && line[1].kind == TokenKind::string;
        const bool angled = line.size() > 3 && line[1].is("<") && line.back().is(">");
        if (!quoted && !angled)
            refuse(hash, "malformed '#include'", "write '#include <NAME>' or '#include \"NAME\"'");
    }

    void pragma(const Token &hash, const Line &line) {
        std::string text;
        for (size_t i = 1; i < line.size(); i++)
            text += line[i].text;
        if (text == "once")
            return;
        const bool push = text == "pack(push,4)";
        if (!push && text != "pack(pop)") {
            refuse(hash, "'#pragma' is not understood here",
                   "records lie between '#pragma pack(push, 4)' and '#pragma pack(pop)'");
            return;
        }
        if (push == pack_open_)
            refuse(hash, push ? "'#pragma pack(push, 4)' within another" : "nothing to pop",
                   "write each push with its pop");
        pack_open_ = push;
        pack_place_ = place_of(hash);
    }

    void open_guard(const Token &hash, const Line &line) {
        guard_ = line[1].text;
        guard_place_ = place_of(hash);
    }

    void define(const Token &hash, const Line &line) {
        if (line.size() < 2 || line[1].kind != TokenKind::identifier) {
            refuse(hash, "malformed '#define'", "write '#define NAME 123'");
            return;
        }
        const std::string &name = line[1].text;
        if (line.size() == 2 && name == guard_)
            return;
        const bool negative = line.size() == 4 && line[2].is("-");
        int64_t value = 0;
        const bool single = line.size() == 3 || negative;
        if (!single || line.back().kind != TokenKind::number ||
            !parse_integer(line.back().text, value)) {
            refuse(line[1], "macro '" + name + "' is not an integer constant",
                   "write '#define NAME 123' or keep it out of definition headers");
            return;
        }
        if (is_keyword(name) || find_scalar(name))
            refuse(line[1], "macro '" + name + "' hides a word of the language", "rename it");
        source_.defines.push_back({name, place_of(line[1]), negative ? -value : value});
    }

    // Messages

    bool message() {
        const bool bare = take().is("ZEB_MESSAGE_BARE");
        const char *form = bare ? "write 'ZEB_MESSAGE_BARE(NAME, \"meta\");'"
                                : "write 'ZEB_MESSAGE(NAME, \"meta\", RECORD);'";
        Message message;
        if (!expect("(", form) || !identifier(message.name, message.place, form) ||
            !expect(",", form))
            return false;
        if (peek().kind != TokenKind::string)
            return refuse_unexpected(peek(), form);
        message.meta_place = place_of(peek());
        message.meta = take().text;
        if (!bare &&
            (!expect(",", form) || !identifier(message.record, message.record_place, form)))
            return false;
        if (!expect(")", form) || !expect(";", form))
            return false;
        source_.messages.push_back(std::move(message));
        return true;
    }

    bool expect(const char *text, const std::string &mend) {
        return take_if(text) || refuse_unexpected(peek(), mend);
    }

    bool identifier(std::string &name, Place &place, const std::string &mend) {
        if (peek().kind != TokenKind::identifier)
            return refuse_unexpected(peek(), mend);
        place = place_of(peek());
        name = take().text;
        if (is_keyword(name) || find_scalar(name))
            refuse(place, "'" + name + "' cannot be a name", "it is a word of the language");
        return true;
    }

    // Records

    bool record() {
        static const std::string form = "write 'typedef struct { TYPE member; ... } NAME;'";
        Record record;
        record.comment = comment_above();
        const Token start = take();
        if (!expect("struct", form))
            return false;
        if (peek().kind == TokenKind::identifier)
            take();
        if (!expect("{", form))
            return false;
        const bool empty = peek().is("}");
        while (!at_end() && !peek().is("}"))
            if (!member(record))
                skip_member();
        if (!expect("}", form) || !identifier(record.name, record.place, form) ||
            !expect(";", form))
            return false;
        if (empty)
            refuse(record.place, "record '" + record.name + "' is empty",
                   "give it a member, or tie its messages to no record with ZEB_MESSAGE_BARE");
        if (!pack_open_)
            refuse(start, "record '" + record.name + "' is not packed",
                   "put '#pragma pack(push, 4)' before it and '#pragma pack(pop)' after it");
        source_.records.push_back(std::move(record));
        return true;
    }

    bool member_ends() const {
        return at_end() || peek().is(";") || peek().is("}") ||
               (peek().is("#") && peek().first_on_line);
    }

    // To the end of a member that could not be read, braces of a nested declaration included.
    void skip_member() {
        while (!member_ends()) {
            if (!take().is("{"))
                continue;
            for (int depth = 1; depth > 0 && !at_end();) {
                const Token &token = take();
                depth += token.is("{");
                depth -= token.is("}");
            }
        }
        if (peek().is("#")) {
            const int line = peek().line;
            while (!at_end() && peek().line == line)
                take();
        }
        take_if(";");
    }

    bool member(Record &record) {
        static const std::string form = "write 'TYPE name;' or 'TYPE name[LENGTH];'";
        if (peek().is("#"))
            return refuse(peek(), "preprocessor line within a record",
                          "declare the record unconditionally");
        const Token first = peek();
        std::vector<Token> words;
        while (peek().kind == TokenKind::identifier)
            words.push_back(take());
        if (!plain_words(words) || !plain_declarator(words.empty()))
            return false;
        if (words.size() < 2)
            return words.empty()
                       ? refuse_unexpected(peek(), form)
                       : refuse(first, "'" + first.text + "' lacks a type or a name", form);
        Field field;
        const Token name = words.back();
        words.pop_back();
        field.name = name.text;
        field.place = place_of(name);
        field.type_place = place_of(first);
        if (peek().is("[") && !length(field))
            return false;
        if (!plain_declarator(false) || !expect(";", form))
            return false;
        field.comment = comment_behind(first);
        // The member is complete: whatever is wrong with its words needs no skipping.
        if (is_keyword(name.text) || find_scalar(name.text))
            refuse(name, "'" + name.text + "' cannot be a name", "it is a word of the language");
        if (type(field, words))
            record.fields.push_back(std::move(field));
        return true;
    }

    // Declarations that begin like a member.
    bool plain_words(const std::vector<Token> &words) {
        for (const Token &word : words) {
            if (word.is("union") || word.is("enum"))
                return refuse(word, "'" + word.text + "' within a record",
                              word.is("enum") ? "write int"
                                              : "give each member a field of its own");
            if (word.is("struct"))
                return refuse(word, "'struct' within a record",
                              "declare the nested record by itself and use its name");
            if (word.is("const") || word.is("volatile") || word.is("static"))
                return refuse(word, "'" + word.text + "' within a record", "leave it out");
        }
        return true;
    }

    // What C allows at this place of a member but records do not.
    bool plain_declarator(bool at_start) {
        const Token &token = peek();
        if (token.is("*") || token.is("("))
            return refuse(token, "pointer within a record",
                          "a record carries its bytes: use an array of fixed length");
        if (at_start)
            return true;
        if (token.is(":"))
            return refuse(token, "bit-field within a record", "declare a WORD of flags");
        if (token.is(","))
            return refuse(token, "two members in one declaration", "declare each by itself");
        return true;
    }

    bool length(Field &field) {
        take();
        const Token number = peek();
        const std::string form = "write a number or the name of an integer #define between [ and ]";
        if (number.kind != TokenKind::number && number.kind != TokenKind::identifier)
            return refuse_unexpected(number, form);
        take();
        field.array = true;
        field.length = number.text;
        field.length_place = place_of(number);
        if (!expect("]", form))
            return false;
        return !peek().is("[") ||
               refuse(peek(), "array of arrays", "nest a record that holds the inner array");
    }

    bool type(Field &field, const std::vector<Token> &words) {
        std::string word;
        for (const Token &part : words)
            word += (word.empty() ? "" : " ") + part.text;
        field.type = word;
        if (const ScalarType *scalar = find_scalar(word))
            return scalar_type(field, *scalar);
        const char *advice = advice_for_type(word);
        if (advice || words.size() > 1 || is_keyword(word))
            return refuse(words[0], "type '" + word + "' cannot be used in a record",
                          advice ? advice : "use a type of <zeb2/port.h> or a record");
        field.nested = true;
        field.code = "BIN";
        return true;
    }

    bool scalar_type(Field &field, const ScalarType &scalar) {
        const bool string = std::string(scalar.code) == "STRING";
        if (string && !field.array) {
            refuse(field.place, "STRING '" + field.name + "' is not an array",
                   "write 'STRING " + field.name + "[CAPACITY];'");
            return false;
        }
        field.code = (field.array && !string ? "A_" : "") + std::string(scalar.code);
        field.type = scalar.type_name;
        return true;
    }

    static void append(std::string &text, const Comment &comment) {
        if (!comment.text.empty())
            text += (text.empty() ? "" : " ") + comment.text;
    }

    // What is said before anything is declared.
    std::string preface() const {
        std::string text;
        for (size_t i = 0; i < peek().comments_before; i++)
            append(text, comments_[i]);
        return text;
    }

    // The comments on lines of their own that end directly above the token to come.
    std::string comment_above() const {
        const size_t oldest = pos_ > 0 ? tokens_[pos_ - 1].comments_before : 0;
        size_t first = peek().comments_before;
        for (int line = peek().line; first > oldest; first--) {
            const Comment &comment = comments_[first - 1];
            if (!comment.first_on_line || comment.end_line != line - 1)
                break;
            line = comment.line;
        }
        std::string text;
        for (; first < peek().comments_before; first++)
            append(text, comments_[first]);
        return text;
    }

    // The comment that begins on the line of the semicolon just taken, with those that go on from
    // it: directly below and indented deeper than the member. A comment at the member's own column
    // is for readers of the header and belongs to what follows.
    std::string comment_behind(const Token &first) const {
        const Token &semicolon = tokens_[pos_ - 1];
        std::string text;
        int line = semicolon.line;
        for (size_t i = semicolon.comments_before; i < peek().comments_before; i++) {
            const Comment &comment = comments_[i];
            const bool goes_on =
                comment.first_on_line && comment.line == line + 1 && comment.column > first.column;
            if (comment.line != line && !goes_on)
                break;
            line = comment.end_line;
            append(text, comment);
        }
        return text;
    }

    Source &source_;
    const std::vector<Token> &tokens_;
    const std::vector<Comment> &comments_;
    Problems &problems_;
    size_t pos_ = 0;
    size_t item_start_ = 0;
    bool first_item_ = true;
    bool pack_open_ = false;
    Place pack_place_;
    std::string guard_;
    Place guard_place_;
};

} // namespace

Source parse(const std::string &path, const std::string &include, const std::string &text,
             Problems &problems) {
    Source source;
    source.path = path;
    source.include = include;
    const size_t before = problems.size();
    const Tokens tokens = tokenize(path, text, problems);
    if (tokens.tokens.size() > 1)
        Parser(source, tokens, problems).run();
    else if (problems.size() == before)
        problems.push_back({{path, 1, 1}, "file declares nothing", "leave it out"});
    return source;
}

} // namespace zebgen
