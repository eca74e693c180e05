#include "text.h"

#include <cctype>

namespace zebdoc {
namespace {

constexpr size_t k_width = 97; // of a line of a comment without its mark

bool is_word(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

size_t indentation(const std::string &line) {
    const size_t first = line.find_first_not_of(' ');
    return first == std::string::npos ? 0 : first;
}

// Whether a line looks like the row of a table.
bool is_row(const std::string &line) {
    return trim(line).find("  ") != std::string::npos;
}

// The end of "lnk, name: " at `at`, when all names are parameters; 0 otherwise.
size_t after_parameters(const std::string &text, size_t at, const std::set<std::string> &names) {
    for (;;) {
        const bool quoted = text[at] == '`';
        at += quoted;
        size_t end = at;
        while (end < text.size() && (is_word(text[end]) || text[end] == '.'))
            ++end;
        if (names.count(text.substr(at, end - at)) == 0)
            return 0;
        end += quoted;
        if (text.compare(end, 2, ": ") == 0)
            return end + 2;
        if (text.compare(end, 2, ", ") != 0)
            return 0;
        at = end + 2;
    }
}

// The term of the definition that begins at `at`, and where its text does; false if none begins.
bool definition(const std::string &text, size_t at, const std::set<std::string> &names,
                std::string *term, size_t *next) {
    for (const char *result : {"Returns ", "Result: "})
        if (text.compare(at, 8, result) == 0) {
            *term = "Returns";
            *next = at + 8;
            return true;
        }
    if (text.compare(at, 9, "No result") == 0) {
        *term = "Returns";
        *next = at;
        return true;
    }
    *next = after_parameters(text, at, names);
    for (const std::string word : {"Threads", "Limits", "Arguments", "Files", "Numbers", "Growth"})
        if (*next == 0 && text.compare(at, word.size() + 2, word + ": ") == 0)
            *next = at + word.size() + 2;
    if (*next != 0)
        *term = replace_all(text.substr(at, *next - 2 - at), "`", "");
    return *next != 0;
}

bool starts_sentence(const std::string &text, size_t at) {
    if (at == 0 || text[at - 1] == '\n')
        return true;
    return text[at - 1] == ' ' && at > 1 && (text[at - 2] == '.' || text[at - 2] == ';');
}

// A line that ends early, with a full stop, is the last of its paragraph.
bool breaks_off(const std::string &line, const std::string &next) {
    const size_t word = next.find(' ');
    return line.back() == '.' && line.size() + 1 + std::min(word, next.size()) <= k_width;
}

// Cuts one paragraph, whose lines still end, into itself and its definitions.
void cut(const std::string &text, const std::set<std::string> &names, Page *page) {
    Block block{Block::Kind::paragraph, "", ""};
    const auto finish = [&] {
        block.text = trim(replace_all(block.text, "\n", " "));
        if (!block.text.empty())
            page->push_back(block);
    };
    for (size_t at = 0; at < text.size();) {
        std::string term;
        size_t next;
        if (starts_sentence(text, at) && definition(text, at, names, &term, &next)) {
            finish();
            block = {Block::Kind::definition, "", term};
            if (next > at) {
                at = next;
                continue;
            }
        }
        if (text[at] == '\n' && at > 0) {
            const size_t start = text.rfind('\n', at - 1) + 1;
            if (block.kind == Block::Kind::definition &&
                breaks_off(text.substr(start, at - start), text.substr(at + 1)) &&
                std::isupper(static_cast<unsigned char>(text[at + 1]))) {
                finish();
                block = {Block::Kind::paragraph, "", ""};
            }
        }
        block.text += text[at++];
    }
    finish();
}

class Reader {
  public:
    Reader(const Lines &lines, const std::set<std::string> &names) : lines_(lines), names_(names) {}

    Page read() {
        for (at_ = 0; at_ < lines_.size(); ++at_)
            line(lines_[at_]);
        flush();
        return page_;
    }

  private:
    void line(const std::string &text) {
        const bool indented = indentation(text) >= 2;
        if (trim(text).empty())
            flush();
        else if (indented && begins_with(trim(text), "- "))
            item(text);
        else if (indented && !continues(text))
            code();
        else if (in_item_ && !indented) {
            flush();
            gathered_ = trim(text);
        } else
            gathered_ += (gathered_.empty() ? "" : "\n") + trim(text);
    }
    // Whether an indented line goes on with the definition, or the item, above it.
    bool continues(const std::string &text) {
        if (gathered_.empty() || is_row(text) || gathered_.back() == ':')
            return false;
        if (in_item_)
            return true;
        const size_t start = gathered_.rfind('\n') + 1;
        std::string term;
        size_t next;
        return definition(gathered_, start, names_, &term, &next) ||
               indentation(lines_[at_ - 1]) == indentation(text);
    }
    void item(const std::string &text) {
        flush();
        in_item_ = true;
        gathered_ = trim(text).substr(2);
    }
    void code() {
        flush();
        Block block{Block::Kind::code, "", "text"};
        const size_t indent = indentation(lines_[at_]);
        for (; at_ < lines_.size() && in_code(); ++at_)
            block.text += (lines_[at_].size() > indent
                               ? lines_[at_].substr(std::min(indent, indentation(lines_[at_])))
                               : "") +
                          "\n";
        --at_;
        while (block.text.ends_with("\n\n"))
            block.text.pop_back();
        if (block.text.find(';') != std::string::npos && block.text.find('(') != std::string::npos)
            block.term = "c";
        page_.push_back(block);
    }
    bool in_code() const {
        if (!trim(lines_[at_]).empty())
            return indentation(lines_[at_]) >= 2;
        return at_ + 1 < lines_.size() && indentation(lines_[at_ + 1]) >= 2;
    }
    void flush() {
        if (in_item_)
            page_.push_back({Block::Kind::item, replace_all(gathered_, "\n", " "), "-"});
        else if (!gathered_.empty())
            cut(gathered_, names_, &page_);
        in_item_ = false;
        gathered_.clear();
    }

    const Lines &lines_;
    const std::set<std::string> &names_;
    size_t at_ = 0;
    std::string gathered_;
    bool in_item_ = false;
    Page page_;
};

} // namespace

Page read_contract(const Lines &lines, const std::set<std::string> &names) {
    return Reader(lines, names).read();
}

} // namespace zebdoc
