// byte_window.h - a stream of any length seen through a window of bounded size.
//
//   ByteWindow window(file_source(fd));
//   while (window.want(8)) {
//       ... window.bytes() holds at least 8 bytes, the first of them at window.offset() ...
//       window.skip(8);
//   }
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace zebctl {

// Reads at most `size` bytes; 0 at the end, -1 with errno set.
using ByteSource = std::function<ssize_t(char *to, size_t size)>;
ByteSource file_source(int fd);

class ByteWindow {
  public:
    explicit ByteWindow(ByteSource source) : source_(std::move(source)) {}

    // Shows at least `count` bytes; false when the stream ends before, with all that is left.
    bool want(size_t count);
    std::string_view bytes() const { return {storage_.data() + begin_, end_ - begin_}; }
    // Takes off bytes that are shown.
    void skip(size_t count);
    uint64_t offset() const { return offset_; } // of the first byte shown
    int error() const { return error_; }        // errno of the read that ended the stream, or 0

  private:
    void make_room();

    ByteSource source_;
    std::vector<char> storage_;
    size_t begin_ = 0, end_ = 0;
    uint64_t offset_ = 0;
    bool ended_ = false;
    int error_ = 0;
};

} // namespace zebctl
