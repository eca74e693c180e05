// sfmt_testing.h - what the tests of sfmt share: buffers that free themselves, formatting in one
// call.
#pragma once

#include "sfmt.h"
#include "support.h"

#include <string>

namespace zeb::test {

constexpr double k_missing = 9.999e-99;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool k_sanitized = true;
#else
constexpr bool k_sanitized = false;
#endif

struct Buffer : SFMT_buffer {
    Buffer() { SFMT_init_buffer(this); }
    explicit Buffer(const char *text) : Buffer() { SFMT_copystr(this, text); }
    ~Buffer() { SFMT_destroy_buffer(this); }
    Buffer(const Buffer &) = delete;
    Buffer &operator=(const Buffer &) = delete;
    std::string text() { return SFMT_get_buffer(this); }
};

template <class... Args> std::string alt(const char *format, Args... args) {
    Buffer b;
    SFMT_altprintf(&b, format, args...);
    return b.text();
}

} // namespace zeb::test
