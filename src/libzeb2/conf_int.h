// conf_int.h - the reading rules of one configuration line and one path. Internal, not installed.
//
// Inline and built on exported functions only, so that the tool that explains a configuration file
// reads it by the very code that loads it, whichever form of the library it links.
#ifndef ZEB2_CONF_INT_H
#define ZEB2_CONF_INT_H

#include "util.h"

#include <cstring>

namespace zeb {

// A line is read in pieces of at most one character less than this.
constexpr size_t k_conf_line_size = 1024;

enum class ConfLine { setting, no_comma, nothing_after_comma, empty_value, short_key };

inline bool conf_is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Writes the normal form of a path to `out` (as long as `path`, terminator included) and returns
// its length. Blanks go only after a run of separators was looked for, so that "a; ;b" keeps an
// empty component.
inline size_t conf_normalise_path(const char *path, char *out) {
    size_t length = 0;
    for (;;) {
        while (conf_is_space(*path) || *path == '!')
            ++path;
        while (path[0] == ';' && path[1] == ';')
            ++path;
        if (*path == '\0')
            break;
        out[length++] = *path++;
    }
    out[length] = '\0';
    return length;
}

// Cuts the line at its first '#' and takes its newline off; false when nothing is left.
inline bool conf_trim_line(char *line) {
    if (char *hash = strchr(line, '#'))
        *hash = '\0';
    const size_t length = strlen(line);
    if (length == 0)
        return false;
    if (line[length - 1] == '\n')
        line[length - 1] = '\0';
    return line[0] != '\0';
}

// The comment that a trimmed line carries, '!' included and to the end of the line, or null. Of a
// run of '!' only the last stays in front of the text.
inline const char *conf_find_comment(const char *line) {
    const char *mark = strchr(line, '!');
    if (mark == nullptr || mark[1] == '\0')
        return nullptr;
    while (mark[1] == '!' && mark[2] != '\0')
        ++mark;
    return mark;
}

// Strips blanks, then one double quote at each end, and returns the new start.
inline char *conf_clean_value(char *value) {
    UTIL_strip_lead_trail_space(value);
    if (*value == '"')
        ++value;
    const size_t length = strlen(value);
    if (length > 0 && value[length - 1] == '"')
        value[length - 1] = '\0';
    return value;
}

// `key` starts the line buffer. Behind a leading quote the closing one is looked for in the key but
// cleared by its index in the line: a key quoted at both ends loses its last character with the
// quote. Stations have such files, so this stays.
inline char *conf_clean_key(char *line) {
    UTIL_strip_lead_trail_space(line);
    char *key = *line == '"' ? line + 1 : line;
    const size_t length = strlen(key);
    if (length > 0 && key[length - 1] == '"')
        line[length - 1] = '\0';
    return key;
}

// Splits a trimmed line in place into key and value, which point into it; both are set only for
// ConfLine::setting and ConfLine::short_key.
inline ConfLine conf_split_line(char *line, char **key, char **value) {
    char *comma = strchr(line, ',');
    if (comma == nullptr)
        return ConfLine::no_comma;
    if (comma[1] == '\0')
        return ConfLine::nothing_after_comma;
    *comma = '\0';
    *value = conf_clean_value(comma + 1);
    if (**value == '\0')
        return ConfLine::empty_value;
    *key = conf_clean_key(line);
    return strlen(*key) < 2 ? ConfLine::short_key : ConfLine::setting;
}

} // namespace zeb

#endif
