// fuzz.h - what the fuzz targets share: cutting an input up, saying what must hold, and quiet
// standard error. Each target is one file fuzz_NAME.cpp; see docs/fuzzing.md.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);

// States a law of the code under test; breaking it is a finding like a crash.
#define MUST(law)                                                                                  \
    do {                                                                                           \
        if (!(law)) {                                                                              \
            dprintf(STDERR_FILENO, "%s:%d: broken: %s\n", __FILE__, __LINE__, #law);               \
            abort();                                                                               \
        }                                                                                          \
    } while (false)

namespace fuzz {

// Takes an input apart from its front; what is not there is zero or empty.
class Input {
  public:
    Input(const uint8_t *data, size_t size) : rest_(reinterpret_cast<const char *>(data), size) {}

    bool empty() const { return rest_.empty(); }
    std::string_view bytes(size_t size) {
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(taken.size());
        return taken;
    }
    template <class T> T number() {
        T value{};
        const std::string_view from = bytes(sizeof value);
        if (!from.empty())
            memcpy(&value, from.data(), from.size());
        return value;
    }
    uint8_t byte() { return number<uint8_t>(); }
    // 0 to count - 1.
    size_t below(size_t count) { return byte() % count; }
    // Up to `most` bytes, their number before them.
    std::string_view block(size_t most = 255) { return bytes(byte() % (most + 1)); }
    std::string_view rest() { return bytes(rest_.size()); }

  private:
    std::string_view rest_;
};

// A copy in a block of its own, so that AddressSanitizer sees the first byte read beyond it.
class Exactly {
  public:
    explicit Exactly(std::string_view bytes)
        : size_(bytes.size()), block_(static_cast<char *>(malloc(size_)), free) {
        if (size_ > 0)
            memcpy(block_.get(), bytes.data(), size_);
    }
    char *data() { return block_.get(); }
    size_t size() const { return size_; }
    std::string_view view() const { return {block_.get(), size_}; }

  private:
    size_t size_;
    std::unique_ptr<char, decltype(&free)> block_;
};

struct Close {
    void operator()(FILE *stream) const { fclose(stream); }
};
using Stream = std::unique_ptr<FILE, Close>;

// The bytes as a file. The library reads no empty files from memory, so those are /dev/null.
inline Stream stream_of(std::string_view bytes) {
    return Stream(bytes.empty() ? fopen("/dev/null", "r")
                                : fmemopen(const_cast<char *>(bytes.data()), bytes.size(), "r"));
}

} // namespace fuzz
