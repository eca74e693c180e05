#include "util.h"

#include "diag.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

int lower(char c) {
    return tolower(static_cast<unsigned char>(c));
}
bool is_space(char c) {
    return isspace(static_cast<unsigned char>(c)) != 0;
}

struct Field {
    const char *begin;
    size_t length;
};

// Steps through the fields of a text, one by one or with runs of separators taken as one.
class FieldReader {
  public:
    FieldReader(const char *text, const char *separators, bool runs_count_once)
        : next_(*text != '\0' ? text : nullptr), separators_(separators),
          runs_count_once_(runs_count_once) {}

    bool read(Field *field) {
        if (next_ == nullptr)
            return false;
        *field = {next_, strcspn(next_, separators_)};
        step_over(next_ + field->length);
        return true;
    }

  private:
    void step_over(const char *end) {
        next_ = nullptr;
        if (*end == '\0')
            return;
        if (!runs_count_once_) {
            next_ = end + 1;
            return;
        }
        // A run ends a field only when something follows it.
        end += strspn(end, separators_);
        if (*end != '\0')
            next_ = end;
    }

    const char *next_;
    const char *separators_;
    bool runs_count_once_;
};

void copy_field(const Field &field, char *out, size_t sz_out) {
    if (sz_out == 0)
        return;
    const size_t length = field.length < sz_out ? field.length : sz_out - 1;
    memcpy(out, field.begin, length);
    out[length] = '\0';
}

BOOL field_of(FieldReader reader, int item, char *out, size_t sz_out) {
    Field field = {"", 0};
    bool found = item >= 0;
    for (int i = 0; found && i <= item; ++i)
        found = reader.read(&field);
    if (!found)
        field = {"", 0};
    copy_field(field, out, sz_out);
    return found;
}

bool is_wild(char c) {
    return c == '*' || c == '?';
}
bool is_escape(const char *test) {
    return test[0] == '\\' && is_wild(test[1]);
}
// Steps over one element of the pattern: a character, or a backslash with what it makes literal.
const char *after_element(const char *test) {
    return test + (is_escape(test) ? 2 : 1);
}

bool element_matches(const char *test, char c) {
    if (is_escape(test))
        return test[1] == c;
    return *test == '?' || *test == c;
}

bool only_stars(const char *test) {
    return test[strspn(test, "*")] == '\0';
}

// What the pattern from each of its characters on gives against the string from one position on,
// worked out from the string's end to its beginning. Trying every star recursively gives the same
// verdicts but takes exponential time on patterns like a*a*a*a*b, which clients may send.
class WildcardTable {
  public:
    // `matches` and `later` hold one byte for each character of `test` and its terminator.
    WildcardTable(const char *test, char *matches, char *later)
        : test_(test), length_(strlen(test)), matches_(matches), later_(later) {
        memset(later_, 0, length_ + 1);
        matches_[length_] = true;
        for (size_t j = length_; j-- > 0;)
            matches_[j] = test_[j] == '*' && matches_[j + 1];
    }

    // Takes the character in front of those taken so far. Ascending order: an element's verdict
    // needs that of its successor for the position behind, which is still in place.
    void take(char c) {
        if (!at_end_)
            add_to_later();
        at_end_ = false;
        for (size_t j = 0; j < length_; ++j)
            matches_[j] = verdict(j, c);
        matches_[length_] = false;
    }

    bool result() const { return matches_[0] != 0; }

  private:
    // A star inside the pattern may hand over at any later position but not at the string's end.
    void add_to_later() {
        for (size_t j = 0; j < length_; ++j)
            later_[j] |= matches_[j];
    }

    bool verdict(size_t j, char c) const {
        if (test_[j] == '*')
            return test_[j + 1] == '\0' || later_[j + 1];
        return element_matches(test_ + j, c) && matches_[after_element(test_ + j) - test_];
    }

    const char *test_;
    size_t length_;
    char *matches_;
    char *later_;
    bool at_end_ = true;
};

bool match_with_table(const char *string, const char *test, char *matches, char *later) {
    WildcardTable table(test, matches, later);
    for (size_t i = strlen(string); i-- > 0;)
        table.take(string[i]);
    return table.result();
}

bool match_starred(const char *string, const char *test) {
    constexpr size_t k_usual_size = 256; // the pattern fields of messages
    const size_t size = strlen(test) + 1;
    if (size <= k_usual_size) {
        char rows[2][k_usual_size];
        return match_with_table(string, test, rows[0], rows[1]);
    }
    char *rows = static_cast<char *>(calloc(size, 2));
    if (!ZEB_CHECK_ERRNO(rows != nullptr))
        return false;
    const bool result = match_with_table(string, test, rows, rows + size);
    free(rows);
    return result;
}

} // namespace

void UTIL_strncpynt(char *dst, const char *src, size_t dst_size) {
    if (!ZEB_CHECK(dst_size > 0))
        return;
    const size_t length = strnlen(src, dst_size - 1);
    memmove(dst, src, length);
    memset(dst + length, 0, dst_size - length);
}

int UTIL_strcasecmp(const char *s1, const char *s2) {
    for (; *s1 != '\0' && *s2 != '\0'; ++s1, ++s2) {
        if (*s1 == *s2)
            continue;
        const int c1 = lower(*s1);
        const int c2 = lower(*s2);
        if (c1 != c2)
            return c1 > c2 ? 1 : -1;
    }
    if (*s1 != '\0')
        return -1;
    return *s2 != '\0' ? 1 : 0;
}

void UTIL_strip_lead_trail_space(char *str) {
    const char *begin = str;
    while (is_space(*begin))
        ++begin;
    size_t length = strlen(begin);
    while (length > 0 && is_space(begin[length - 1]))
        --length;
    memmove(str, begin, length);
    str[length] = '\0';
}

void UTIL_replace_char(char *str, char old, char replacement) {
    for (; *str != '\0'; ++str) {
        if (*str == old)
            *str = replacement;
    }
}

void UTIL_replace_char_once(char *str, char old, char replacement) {
    while (*str != '\0' && *str != old)
        ++str;
    if (*str != '\0')
        *str = replacement;
}

BOOL UTIL_stringfield(const char *str, const char *toks, int item, char *out, size_t sz_out) {
    return field_of(FieldReader(str, toks, false), item, out, sz_out);
}

BOOL UTIL_stringfield_consec(const char *str, const char *toks, int item, char *out,
                             size_t sz_out) {
    return field_of(FieldReader(str, toks, true), item, out, sz_out);
}

double UTIL_parse_delimited_inc(const char *str, const char *toks, double factor) {
    double value = 0.0;
    FieldReader reader(str, toks, false);
    for (Field field; reader.read(&field);) {
        char text[64];
        copy_field(field, text, sizeof text);
        value *= factor;
        const double number = atof(text);
        if (std::isfinite(number))
            value += number;
    }
    return value;
}

double UTIL_atofv(const char *str) {
    const double value = atof(str);
    return std::isfinite(value) ? value : MVC;
}

BOOL UTIL_wildcard_match(const char *string, const char *test) {
    // Up to the first star there is only one way to match.
    while (*string != '\0' && *test != '\0') {
        if (*test == '*')
            return test[1] == '\0' || match_starred(string, test);
        if (!element_matches(test, *string))
            return FALSE;
        ++string;
        test = after_element(test);
    }
    return *string == '\0' && only_stars(test);
}
