#include "text.h"

#include <algorithm>
#include <cctype>

namespace zebdoc {
namespace {

bool is_word(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
}

std::string last_word(const std::string &text) {
    size_t end = text.size();
    while (end > 0 && !is_word(text[end - 1]))
        --end;
    size_t start = end;
    while (start > 0 && is_word(text[start - 1]))
        --start;
    return text.substr(start, end - start);
}

// A declaration in one line, without attributes and comments.
std::string joined(const Lines &declaration) {
    std::string text;
    for (const std::string &line : declaration)
        text += (text.empty() ? "" : " ") + trim(line.substr(0, line.find("/*")));
    text = text.substr(0, text.find(" __attribute__"));
    return text;
}

std::set<std::string> parameters_of(const std::string &declaration) {
    std::set<std::string> names;
    const size_t end = declaration.rfind(')');
    size_t start = declaration.find(")(");
    start = start == std::string::npos ? declaration.find('(') : start + 1;
    if (end == std::string::npos || start == std::string::npos || start > end ||
        declaration.find('{') != std::string::npos)
        return names;
    const std::string list = declaration.substr(start + 1, end - start - 1) + ",";
    for (size_t at = 0, comma; (comma = list.find(',', at)) != std::string::npos; at = comma + 1) {
        const std::string one = trim(list.substr(at, comma - at));
        names.insert(one == "..." ? one : last_word(one));
    }
    return names;
}

std::string exported_name(const std::string &declaration) {
    if (!begins_with(declaration, "ZEB_API "))
        return "";
    const size_t end = declaration.find_first_of("([;=");
    return last_word(declaration.substr(0, end));
}

class Reader {
  public:
    explicit Reader(const Lines &lines) : lines_(lines) {}

    Module read() {
        preface(comment());
        for (; at_ < lines_.size(); ++at_)
            line(lines_[at_]);
        settle();
        return module_;
    }

  private:
    void preface(const Lines &text) {
        const size_t dash = text[0].find(" - ");
        module_.file = text[0].substr(0, dash);
        size_t i = 0;
        std::string sentence = text[0].substr(dash + 3);
        while (sentence.find('.') == std::string::npos && ++i < text.size())
            sentence += " " + trim(text[i]);
        const size_t stop = sentence.find(". ");
        module_.summary = sentence.substr(0, std::min(stop, sentence.rfind('.')));
        if (stop != std::string::npos)
            module_.preface.push_back(sentence.substr(stop + 2));
        module_.preface.insert(module_.preface.end(), text.begin() + long(i) + 1, text.end());
    }
    // The comment that begins in this line, without its marks; stops at its last line.
    Lines comment() {
        Lines text;
        bool ended = false;
        for (bool first = true; !ended; first = false, at_ += !ended) {
            std::string line = lines_[at_];
            const size_t end = line.find("*/");
            ended = end != std::string::npos || at_ + 1 == lines_.size();
            line = line.substr(0, end);
            line = first ? line.substr(3) : line.size() > 3 ? line.substr(3) : "";
            line.erase(line.find_last_not_of(' ') + 1);
            text.push_back(line);
        }
        ++at_;
        while (!text.empty() && text.back().empty())
            text.pop_back();
        return text;
    }
    void line(const std::string &text) {
        if (begins_with(text, "/* ")) {
            settle();
            pending_ = comment();
            --at_;
            if (begins_with(pending_[0], "---- "))
                section();
        } else if (trim(text).empty()) {
            settle();
        } else if (begins_with(text, "#")) {
            directive(text);
        } else if (!begins_with(text, "extern \"C\"") && text != "}") {
            declaration(';');
        }
    }
    void section() {
        const size_t end = pending_[0].rfind(" ----");
        Item item{pending_[0].substr(5, end - 5), Lines(pending_.begin() + 1, pending_.end()), {}};
        module_.items.push_back(item);
        pending_.clear();
    }
    void directive(const std::string &text) {
        const bool guard = text.ends_with("_H") || begins_with(text, "#ifndef");
        if (!begins_with(text, "#define ") || guard || pending_.empty())
            return;
        declaration('\n');
    }
    void declaration(char end) {
        Item item{"", pending_, {}};
        int depth = 0;
        for (;; ++at_) {
            const std::string &text = lines_[at_];
            item.declaration.push_back(text);
            const std::string code = trim(text.substr(0, text.find("/*")));
            depth += int(std::count(code.begin(), code.end(), '{'));
            depth -= int(std::count(code.begin(), code.end(), '}'));
            const bool ended =
                end == ';' ? depth == 0 && code.ends_with(";") : !code.ends_with("\\");
            if (ended || at_ + 1 == lines_.size())
                break;
        }
        while (lines_[at_].find("/*") != std::string::npos &&
               lines_[at_].find("*/") == std::string::npos && at_ + 1 < lines_.size())
            item.declaration.push_back(lines_[++at_]);
        item.parameters = parameters_of(joined(item.declaration));
        item.name = exported_name(joined(item.declaration));
        used_ = true;
        module_.items.push_back(item);
    }
    // A comment that no declaration followed is a text of its own.
    void settle() {
        if (!pending_.empty() && !used_)
            module_.items.push_back({"", pending_, {}});
        pending_.clear();
        used_ = false;
    }

    const Lines &lines_;
    size_t at_ = 0;
    Lines pending_;
    bool used_ = false;
    Module module_;
};

} // namespace

Module read_header(const Lines &lines) {
    return Reader(lines).read();
}

} // namespace zebdoc
