// netpack_text.h - values and column names as text, for the dumps and tables of netpack. Internal.
#ifndef ZEB2_NETPACK_TEXT_H
#define ZEB2_NETPACK_TEXT_H

#include "netpack_int.h"

namespace zeb::netpack {

constexpr size_t k_value_text = 24; // the longest: 20 of a time, terminator included

// One number as text, terminated. `type` is numeric (codes 0 to 27, arrays like their scalars);
// `from` holds one element of the wire size. Booleans are 1 or 0. Returns the length.
size_t value_text(NETDSD_field_type type, const char *from, char (&to)[k_value_text]);

// Two hex digits.
void hex_text(char byte, char *to);

// Whether an undescribed field has a comma behind byte `k`: one byte into each element but the
// first, where the station's files have always had it.
inline bool comma_follows(size_t k, size_t element_size) {
    return k != 0 && k % element_size == 0;
}

// A name made of others, in a block that is kept while it is large enough.
class NameText {
  public:
    NameText() = default;
    ~NameText() { free(text_); }
    NameText(const NameText &) = delete;
    NameText &operator=(const NameText &) = delete;

    // Prefix, name, "_NUMBER" unless the number is 0, and the tail. False, reported, without
    // memory.
    bool compose(std::string_view prefix, std::string_view name, size_t number,
                 std::string_view tail);
    char *text() { return text_; }
    std::string_view view() const { return {text_, size_}; }

  private:
    bool reserve(size_t capacity);

    char *text_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

// The number of element `i` in names: from 1, and 0 (none) for what has a single element.
inline size_t element_number(size_t i, size_t count) {
    return count > 1 ? i + 1 : 0;
}

// "_NUMBER", and how long it is.
constexpr size_t k_number_text = 24;
size_t number_text(size_t number, char (&to)[k_number_text]);

} // namespace zeb::netpack

#endif
