// sfmt_int.h - what the sources of sfmt share: where arguments come from, the writer that lays text
// into a buffer (log lays its lines with it too), a number format as read from a "*" directive, and
// decimal digits. Not installed.
#ifndef ZEB2_SFMT_INT_H
#define ZEB2_SFMT_INT_H

#include "sfmt.h"

#include <climits>
#include <cstring>

// The getters of SFMT_altprintf_cbs with the parameter that each is called with.
struct SFMT_valtprintf_param {
    void *(*get_ptr)(void *pd);
    double (*get_dbl)(void *pd);
    int (*get_int)(void *pd);
    long long (*get_ll)(void *pd);
    void *pd;
};

// Makes index `idx` of the text writable. A block is reallocated to UTIL_roundup_p2(idx + 1) bytes
// at every call, so it may shrink. Without a block, a stored size above `idx` means that nothing
// happens (such a size is left by a failed reallocation or by SFMT_destroy_buffer), else a block is
// allocated. Bytes gained are zero. A failure is reported and leaves the buffer null.
void SFMT_make_accessable(SFMT_buffer *bf, size_t idx);

// Formats `fmt` into `bf` from index `start`, which must lie within its text.
void SFMT_valtprintf_idx(SFMT_buffer *bf, const char *fmt, const SFMT_valtprintf_param *param,
                         size_t start);

namespace zeb {

class TextWriter;
// Formats `fmt` at the writer's end.
void expand_format(TextWriter &out, const char *fmt, const SFMT_valtprintf_param &param);

// No block grows to this size: a longer text is refused with a report.
constexpr size_t k_max_block = size_t{1} << 30;
// A formatting failure that gives no length doubles the block up to this size, no further.
constexpr size_t k_max_guessed_block = size_t{1} << 20;
// Widths of "*" directives. A double has 309 integer digits at most, and powers of ten up to this
// one are finite, which keeps the arithmetic on digits free of infinities.
constexpr int k_max_digits = 300;
// Widths of "%" conversions, and precisions but for strings (which those only shorten).
constexpr int k_max_printf_width = 4096;

// Lays text into a buffer from an index on. Space is made ahead in larger steps; settle() then
// brings the block to the size that making each index accessible in turn would have left.
class TextWriter {
  public:
    TextWriter(SFMT_buffer *bf, size_t start);
    // Writes onto the text and never settles: for a buffer whose size nobody looks at.
    explicit TextWriter(SFMT_buffer *bf);

    // True once space could not be had; nothing is written any more.
    bool failed() const { return failed_; }
    // The place of the next character, with room for `count` characters and the terminator, or
    // null.
    char *reserve(size_t count) {
        if (idx_ + count < bf_->sz_buffer && !failed_)
            return bf_->buffer + idx_;
        return grow(count);
    }
    // Takes over the characters written from reserve() up to `end` and terminates there.
    void advance_to(char *end) {
        idx_ = static_cast<size_t>(end - bf_->buffer);
        *end = '\0';
        ahead_ = true;
    }
    void put(char c) {
        if (char *out = reserve(1)) {
            *out = c;
            advance_to(out + 1);
        }
    }
    // The text must not lie in the buffer.
    void append(const char *text, size_t length) {
        if (char *out = length != 0 ? reserve(length) : nullptr) {
            memcpy(out, text, length);
            advance_to(out + length);
        }
    }
    size_t length() const { return idx_; }
    void settle();
    // The buffer, settled, for a printf onto its end; resume() then moves to the new end.
    SFMT_buffer *settled_buffer();
    void resume();

  private:
    char *grow(size_t count);

    SFMT_buffer *bf_;
    size_t idx_;
    bool settles_ = true;
    bool ahead_ = false; // characters were written since the block last had its settled size
    bool failed_ = false;
};

enum class Align { Right, Left, None };

// How one number of a directive (the coefficient's integer part, or the exponent) fills its width.
struct FieldShape {
    int digits = -1; // -1: not given
    Align align = Align::Right;
    bool force_sign = false;
    bool reserve_sign = false;
    bool zero_pad = false;
};

struct NumberFormat {
    FieldShape whole;
    FieldShape exponent;
    int fraction = -1;
    int min_digits = -1;
    bool no_clip = false;
    bool blank_missing = false;
    bool limited = false; // a width in the text was above k_max_digits
};

// The digits of a non-negative finite value rounded to `fraction` decimals:
// s = round(value * 10^fraction) / 10^fraction + 0.5 * 10^-fraction in double arithmetic, its digit
// of weight 10^i being floor(s / 10^i) mod 10.
class Decimal {
  public:
    Decimal(double value, int fraction);
    // Larger than `width` nines (at least one) before the point and `fraction` nines after it.
    bool exceeds(int width) const;
    int whole_digits() const;
    // Each writes its digits from the most significant down and returns the end.
    char *write_whole(char *out, int count) const;
    char *write_fraction(char *out) const;

  private:
    int fraction_;
    bool quick_;
    uint64_t whole_ = 0; // quick: the digits as integers
    uint64_t part_ = 0;
    double value_ = 0; // otherwise: s
};

// The padding of a field of `width` positions that holds `used` digits.
struct Padding {
    int before = 0;
    int zeros = 0;
    int after = 0;
};
Padding padding_of(const FieldShape &shape, int width, int used);

double power_of_ten(int exponent); // -k_max_digits to 308
bool is_missing(double value);     // MVC, NaN or an infinity
char *write_repeated(char *out, char c, int count);
// The sign of a coefficient: one character, or none for a positive value without sign position.
char *write_sign(char *out, const FieldShape &shape, bool negative);
// "." and `count` times `c`; nothing when `count` is not positive.
char *write_fraction_pattern(char *out, char c, int count);
// Makes `value` positive; true when it was negative. Takes one digit of the width for the "-" when
// no sign position was asked for and two digits or more are there.
bool take_sign(double &value, FieldShape &whole);

} // namespace zeb

// One number at the writer's end, in fixed point ("*f") and in exponent form ("*e", "*E").
void SFMT_altformat_double(zeb::TextWriter &out, double value, const zeb::NumberFormat &format);
void SFMT_altformat_exponent(zeb::TextWriter &out, double value, const zeb::NumberFormat &format,
                             char letter);

#endif
