// The format language of log columns: any format with any values, and fields that keep their width.
#include "fuzz.h"

#include "sfmt.h"

#include <vector>

namespace {

using fuzz::Input;

struct Text : SFMT_buffer {
    Text() { SFMT_init_buffer(this); }
    ~Text() { SFMT_destroy_buffer(this); }
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;
    std::string take() {
        MUST(buffer == nullptr || memchr(buffer, '\0', sz_buffer) != nullptr);
        return SFMT_get_buffer(this);
    }
};

// Values for a format, over and over the same.
struct Values {
    double number;
    long long integer;
    const char *text; // at one address, which "%p" prints
    size_t taken = 0;
    static Values &of(void *param) { return *static_cast<Values *>(param); }
};

SFMT_altprintf_cbs g_getters = {
    [](void *p) -> void * {
        Values &values = Values::of(p);
        return ++values.taken % 8 == 0 ? nullptr : const_cast<char *>(values.text);
    },
    [](void *p) { return ++Values::of(p).taken, Values::of(p).number; },
    [](void *p) { return ++Values::of(p).taken, static_cast<int>(Values::of(p).integer); },
    [](void *p) { return ++Values::of(p).taken, Values::of(p).integer; },
};

std::string formatted(const std::string &format, Values values, const char *before) {
    Text text;
    if (before != nullptr)
        SFMT_copystr(&text, before);
    SFMT_cbaltprintf(&text, format.c_str(), &g_getters, &values);
    return text.take();
}

void check_any(const std::string &format, const Values &values) {
    const std::string fresh = formatted(format, values, nullptr);
    MUST(formatted(format, values, "a text that was there before") == fresh);
}

// One directive with a width: its field has that width, with room for a sign if it asks for one.
void check_width(Input &input) {
    const uint8_t flags = input.byte();
    const uint8_t end = input.byte();
    std::string format = "*";
    for (const auto &[bit, flag] : {std::pair{1, ' '}, {2, '+'}, {4, '-'}, {8, '~'}, {16, '0'}})
        if ((flags & bit) != 0)
            format += flag;
    format += std::to_string(1 + input.below(20)) + "." + std::to_string(input.below(20));
    const bool exponent = (end & 1) != 0;
    if (exponent)
        format += "." + std::string((end & 2) != 0 ? "+" : "") + ((end & 4) != 0 ? "0" : "") +
                  std::to_string(1 + input.below(4)) + ((end & 8) != 0 ? ".3" : "");
    format += exponent ? "e" : "f";
    const size_t width = formatted(format, {0.0, 0, ""}, nullptr).size();
    while (!input.empty()) {
        const double value = input.number<double>();
        const size_t size = formatted(format, {value, 0, ""}, nullptr).size();
        MUST(size == width || (size == width + 1 && value < 0));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    if (input.byte() % 4 == 0) {
        check_width(input);
        return 0;
    }
    const auto number = input.number<double>();
    const auto integer = input.number<long long>();
    const std::string text(input.block(16));
    check_any(std::string(input.rest()), {number, integer, text.c_str()});
    return 0;
}
