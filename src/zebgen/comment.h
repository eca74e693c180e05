// comment.h - the form of a member's comment: "Description (unit) | variable | low;high".
#ifndef ZEBGEN_COMMENT_H
#define ZEBGEN_COMMENT_H

#include <string>

namespace zebgen {

struct CommentParts {
    std::string description;
    std::string unit;
    std::string variable;
    std::string low; // bounds
    std::string high;
    bool main = false; // begins with '*': holds the record's main reading
};

// Any text has parts; what does not follow the form is description.
CommentParts parts_of(const std::string &comment);

} // namespace zebgen
#endif
