#include "comment.h"

namespace zebgen {
namespace {

const char k_separator[] = " | ";

// Takes the part before the next separator off the front of `rest`.
std::string take_part(std::string &rest) {
    const size_t end = rest.find(k_separator);
    std::string part = rest.substr(0, end);
    rest = end == std::string::npos ? "" : rest.substr(end + sizeof k_separator - 1);
    return part;
}

// Where the parenthesis opens that closes at the end; npos when there is none.
size_t last_parenthesis(const std::string &text) {
    if (text.empty() || text.back() != ')')
        return std::string::npos;
    int depth = 0;
    for (size_t i = text.size(); i-- > 0;) {
        depth += text[i] == ')';
        depth -= text[i] == '(';
        if (depth == 0)
            return i;
    }
    return std::string::npos;
}

} // namespace

CommentParts parts_of(const std::string &comment) {
    CommentParts parts;
    std::string rest = comment;
    if (!rest.empty() && rest[0] == '*') {
        parts.main = true;
        return parts;
    }
    const std::string first = take_part(rest);
    const size_t unit = last_parenthesis(first);
    parts.description = first;
    // "(0: none)" explains a value.
    const bool is_unit = unit != std::string::npos && unit > 0 && first[unit - 1] == ' ' &&
                         first.find(':', unit) == std::string::npos;
    if (is_unit) {
        parts.description = first.substr(0, unit - 1);
        parts.unit = first.substr(unit + 1, first.size() - unit - 2);
    }
    parts.variable = take_part(rest);
    const size_t middle = rest.find(';');
    parts.low = rest.substr(0, middle);
    parts.high = middle == std::string::npos ? "" : rest.substr(middle + 1);
    return parts;
}

} // namespace zebgen
