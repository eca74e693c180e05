#include "text.h"

#include <sstream>

namespace zebdoc {

Lines split_lines(const std::string &text) {
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::string trim(const std::string &text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool begins_with(const std::string &text, const std::string &start) {
    return text.compare(0, start.size(), start) == 0;
}

std::string replace_all(std::string text, const std::string &from, const std::string &to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

namespace {

// The piece that begins at `at` with a mark, and where the text goes on; false if there is none.
bool marked(const std::string &text, size_t at, Span *span, size_t *next) {
    const auto between = [&](const std::string &mark, Span::Kind kind) {
        const size_t start = at + mark.size(), end = text.find(mark, start);
        if (end == std::string::npos || end == start)
            return false;
        *span = {kind, text.substr(start, end - start)};
        *next = end + mark.size();
        return true;
    };
    if (text[at] == '`')
        return between("`", Span::Kind::code);
    if (text.compare(at, 2, "**") == 0)
        return between("**", Span::Kind::bold);
    if (text[at] != '[')
        return false;
    const size_t middle = text.find("](", at), end = text.find(')', middle);
    if (middle == std::string::npos || end == std::string::npos || text.find('[', at + 1) < middle)
        return false;
    *span = {Span::Kind::link, text.substr(at + 1, middle - at - 1),
             text.substr(middle + 2, end - middle - 2)};
    *next = end + 1;
    return true;
}

} // namespace

std::vector<Span> spans(const std::string &text) {
    std::vector<Span> all;
    std::string plain;
    for (size_t at = 0; at < text.size();) {
        Span span;
        size_t next;
        if (!marked(text, at, &span, &next)) {
            plain += text[at++];
            continue;
        }
        if (!plain.empty())
            all.push_back({Span::Kind::plain, plain});
        plain.clear();
        all.push_back(span);
        at = next;
    }
    if (!plain.empty())
        all.push_back({Span::Kind::plain, plain});
    return all;
}

} // namespace zebdoc
