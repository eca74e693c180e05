// sfmt_altprintf.cpp - the format language with "*" directives: walking a format, "%" conversions,
// reading directives, and the arguments.
#include "sfmt_int.h"

#include "diag.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <langinfo.h>
#include <string_view>

namespace {

using namespace zeb;

// Longest "%" conversion, from the percent sign to the conversion character.
constexpr size_t k_max_conversion = 63;

// One format is used for every line of a log: what is wrong with it is said once, not once a
// second.
void report_format(const char *what, const char *fmt) {
    static std::atomic<const char *> last_reported{nullptr};
    if (last_reported.exchange(fmt) != fmt)
        ZEB_REPORT("%s in the format \"%.200s\"", what, fmt);
}

// ---- arguments

// Getters may be absent as long as the format needs none of their kind.
struct Arguments {
    const SFMT_valtprintf_param &param;

    double get_dbl() const { return ZEB_CHECK(param.get_dbl) ? param.get_dbl(param.pd) : MVC; }
    int get_int() const { return ZEB_CHECK(param.get_int) ? param.get_int(param.pd) : 0; }
    long long get_ll() const { return ZEB_CHECK(param.get_ll) ? param.get_ll(param.pd) : 0; }
    void *get_ptr() const { return ZEB_CHECK(param.get_ptr) ? param.get_ptr(param.pd) : nullptr; }
};

// A va_list is an array on some hosts, whose address is lost when it is passed on.
struct VaArguments {
    va_list args;
};

void *vap_get_ptr(void *pd) {
    return va_arg(static_cast<VaArguments *>(pd)->args, void *);
}
double vap_get_dbl(void *pd) {
    return va_arg(static_cast<VaArguments *>(pd)->args, double);
}
int vap_get_int(void *pd) {
    return va_arg(static_cast<VaArguments *>(pd)->args, int);
}
long long vap_get_ll(void *pd) {
    return va_arg(static_cast<VaArguments *>(pd)->args, long long);
}

// ---- "%" conversions

// Reads a number of at most `largest`; the second result tells whether it had to be cut.
int read_number(const char *&at, int largest, bool &cut) {
    int number = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        if (number > (largest - (*at - '0')) / 10) {
            number = largest;
            cut = true;
        } else {
            number = number * 10 + (*at - '0');
        }
    }
    return number;
}

struct Conversion {
    std::string_view text; // as collected, from the percent sign to the conversion character
    char character = '\0';
    bool wide = false; // 64-bit argument
};

enum class Kind { Double, Integer, Pointer, None };

Kind kind_of(char c) {
    if (c != '\0' && strchr("aAeEfFgG", c) != nullptr)
        return Kind::Double;
    if (c != '\0' && strchr("cdiouxX", c) != nullptr)
        return Kind::Integer;
    return c == 'p' || c == 's' ? Kind::Pointer : Kind::None;
}

// Collects from the percent sign at `at`, which is moved past what was collected.
Conversion collect(const char *&at) {
    Conversion conversion;
    const char *start = at++;
    while (*at != '\0' && static_cast<size_t>(at - start) < k_max_conversion) {
        const char c = *at++;
        conversion.wide = conversion.wide || c == 'l' || c == 'L';
        if (kind_of(c) == Kind::None)
            continue;
        conversion.character = c;
        break;
    }
    conversion.text = std::string_view(start, static_cast<size_t>(at - start));
    return conversion;
}

// The text handed to the platform's printf, written anew from what was read: the lengths are those
// of the argument that was taken, whatever the format said, and nothing that reads or writes a
// further argument ("*", "n", "$") gets through.
class PrintfText {
  public:
    explicit PrintfText(const Conversion &conversion) {
        memcpy(source_, conversion.text.data(), conversion.text.size());
        source_[conversion.text.size()] = '\0';
        valid_ = rewrite(conversion);
    }
    const char *c_str() const { return text_; }
    bool valid() const { return valid_; }
    bool cut() const { return cut_; }

  private:
    bool rewrite(const Conversion &conversion) {
        const char *at = source_;
        add(*at++);
        while (strchr("-+ #0'I", *at) != nullptr)
            add(*at++);
        if (*at >= '1' && *at <= '9')
            add(read_number(at, k_max_printf_width, cut_));
        if (*at == '.')
            add_precision(++at, conversion.character);
        // A lone "h" chooses how many bits of the int are printed.
        const char *lengths = at;
        at += strspn(at, "hlLqjzt");
        if (kind_of(conversion.character) == Kind::Integer)
            add_lengths(lengths, at, conversion);
        add(conversion.character);
        return at[0] == conversion.character && at[1] == '\0';
    }
    // That of a string only shortens it and may be any.
    void add_precision(const char *&at, char character) {
        bool unused = false;
        add('.');
        if (*at >= '0' && *at <= '9')
            add(character == 's' ? read_number(at, INT_MAX, unused)
                                 : read_number(at, k_max_printf_width, cut_));
    }
    void add_lengths(const char *from, const char *to, const Conversion &conversion) {
        const auto narrow = std::min<ptrdiff_t>(std::count(from, to, 'h'), 2);
        if (conversion.character == 'c')
            return;
        for (ptrdiff_t i = 0; i < (conversion.wide ? 2 : narrow); ++i)
            add(conversion.wide ? 'l' : 'h');
    }
    void add(char c) {
        text_[length_++] = c;
        text_[length_] = '\0';
    }
    void add(int number) {
        char digits[12];
        int count = 0;
        for (; number > 0 || count == 0; number /= 10)
            digits[count++] = static_cast<char>('0' + number % 10);
        while (count > 0)
            add(digits[--count]);
    }

    char source_[k_max_conversion + 1];
    char text_[k_max_conversion + 4] = "";
    size_t length_ = 0;
    bool cut_ = false;
    bool valid_;
};

void print_to(SFMT_buffer *bf, const char *format, auto value) {
    SFMT_printfcat(bf, format, value);
}

// Columns are parted by commas: a number has a point, whatever the program's locale.
void print_to(SFMT_buffer *bf, const char *format, double value) {
    const char *radix = nl_langinfo(RADIXCHAR);
    const bool other = strcmp(radix, ".") != 0 && *radix != '\0';
    const size_t before = other && bf->buffer != nullptr ? strlen(bf->buffer) : 0;
    SFMT_printfcat(bf, format, value);
    char *found = other && bf->buffer != nullptr ? strstr(bf->buffer + before, radix) : nullptr;
    if (found == nullptr)
        return;
    *found = '.';
    const char *rest = found + strlen(radix);
    memmove(found + 1, rest, strlen(rest) + 1);
}

template <class T> void print(TextWriter &out, const PrintfText &text, T value) {
    if (!text.valid())
        return;
    SFMT_buffer *bf = out.settled_buffer();
    if (!out.failed())
        print_to(bf, text.c_str(), value);
    out.resume();
}

// The argument is taken even when the text cannot be printed, so that the next conversion gets its
// own.
void print_argument(TextWriter &out, const Conversion &conversion, const PrintfText &text,
                    const Arguments &arguments) {
    switch (kind_of(conversion.character)) {
    case Kind::Double:
        return print(out, text, arguments.get_dbl());
    case Kind::Pointer: {
        const void *pointer = arguments.get_ptr();
        if (conversion.character != 's')
            return print(out, text, pointer);
        return print(out, text, pointer != nullptr ? static_cast<const char *>(pointer) : "(null)");
    }
    case Kind::Integer:
        if (!conversion.wide)
            return print(out, text, arguments.get_int());
        if (conversion.character == 'c')
            return print(out, text, static_cast<int>(arguments.get_ll()));
        return print(out, text, arguments.get_ll());
    case Kind::None:
        return;
    }
}

const char *expand_conversion(TextWriter &out, const char *fmt, const char *at,
                              const Arguments &arguments) {
    const Conversion conversion = collect(at);
    if (conversion.character == '\0')
        return at;
    const PrintfText text(conversion);
    if (!text.valid())
        report_format("Unusable conversion", fmt);
    else if (text.cut())
        report_format("Too large a width", fmt);
    print_argument(out, conversion, text, arguments);
    return at;
}

// ---- "*" directives

// Reads the options of a directive up to the character that ends it.
class DirectiveReader {
  public:
    NumberFormat format;

    bool take(char c) {
        if (c >= '0' && c <= '9')
            take_digit(c);
        else if (c == '.')
            return ++section_ <= 3;
        else
            return take_flag(c);
        return true;
    }

  private:
    // Before the second point the coefficient is described, after it the exponent.
    FieldShape &shape() { return section_ < 2 ? format.whole : format.exponent; }

    bool take_flag(char c) {
        switch (c) {
        case ' ':
            shape().reserve_sign = shape().reserve_sign || section_ != 1;
            return true;
        case '+':
            shape().force_sign = true;
            return true;
        case '-':
            shape().align = Align::Left;
            return true;
        case '^':
            shape().align = Align::None;
            return true;
        case '@':
            format.no_clip = true;
            return true;
        case '~':
            format.blank_missing = true;
            return true;
        default:
            return false;
        }
    }

    void take_digit(char c) {
        if (section_ == 1)
            append(format.fraction, c);
        else if (section_ == 3)
            append(format.min_digits, c);
        else if (c == '0' && shape().digits < 0 && !shape().zero_pad)
            shape().zero_pad = true;
        else
            append(shape().digits, c);
    }

    void append(int &number, char c) {
        number = std::max(number, 0) * 10 + (c - '0');
        if (number > k_max_digits) {
            number = k_max_digits;
            format.limited = true;
        }
    }

    int section_ = 0; // points seen
};

const char *expand_directive(TextWriter &out, const char *fmt, const char *at,
                             const Arguments &arguments) {
    DirectiveReader reader;
    for (++at; reader.take(*at); ++at) {
    }
    const char end = *at;
    if (end == '\0')
        return at;
    const bool fixed = end == 'f' || end == 'F';
    if (!fixed && end != 'e' && end != 'E')
        return at + 1;
    if (reader.format.limited)
        report_format("Too large a width", fmt);
    const double value = arguments.get_dbl();
    if (fixed)
        SFMT_altformat_double(out, value, reader.format);
    else
        SFMT_altformat_exponent(out, value, reader.format, end);
    return at + 1;
}

// ---- entry points

size_t end_of(const SFMT_buffer *bf) {
    return bf->buffer != nullptr ? strlen(bf->buffer) : 0;
}

void format_list(SFMT_buffer *bf, const char *fmt, va_list args, size_t start) {
    VaArguments list;
    va_copy(list.args, args);
    const SFMT_valtprintf_param param = {vap_get_ptr, vap_get_dbl, vap_get_int, vap_get_ll, &list};
    SFMT_valtprintf_idx(bf, fmt, &param, start);
    va_end(list.args);
}

} // namespace

namespace zeb {

void expand_format(TextWriter &out, const char *fmt, const SFMT_valtprintf_param &param) {
    const Arguments arguments{param};
    for (const char *at = fmt; *at != '\0' && !out.failed();) {
        if ((*at != '%' && *at != '*') || at[0] == at[1]) {
            out.put(*at);
            at += *at == '%' || *at == '*' ? 2 : 1;
        } else if (*at == '%') {
            at = expand_conversion(out, fmt, at, arguments);
        } else {
            at = expand_directive(out, fmt, at, arguments);
        }
    }
}

} // namespace zeb

void SFMT_valtprintf_idx(SFMT_buffer *bf, const char *fmt, const SFMT_valtprintf_param *param,
                         size_t start) {
    TextWriter out(bf, start);
    if (!ZEB_CHECK(fmt != nullptr))
        return;
    expand_format(out, fmt, *param);
    out.settle();
}

void SFMT_altprintf(SFMT_buffer *bf, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    SFMT_valtprintf(bf, fmt, args);
    va_end(args);
}

void SFMT_valtprintf(SFMT_buffer *bf, const char *fmt, va_list args) {
    format_list(bf, fmt, args, 0);
}

void SFMT_altprintfcat(SFMT_buffer *bf, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    SFMT_valtprintfcat(bf, fmt, args);
    va_end(args);
}

void SFMT_valtprintfcat(SFMT_buffer *bf, const char *fmt, va_list args) {
    format_list(bf, fmt, args, end_of(bf));
}

void SFMT_cbaltprintf(SFMT_buffer *bf, const char *fmt, SFMT_altprintf_cbs *cbs, void *param) {
    if (!ZEB_CHECK(cbs != nullptr))
        return;
    const SFMT_valtprintf_param getters = {cbs->get_ptr, cbs->get_dbl, cbs->get_int, cbs->get_ll,
                                           param};
    SFMT_valtprintf_idx(bf, fmt, &getters, 0);
}
