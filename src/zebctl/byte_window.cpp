#include "byte_window.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

#include <zeb2/util.h>

namespace zebctl {
namespace {

constexpr size_t k_piece = 64 * 1024; // bytes read at a time, at most

} // namespace

ByteSource file_source(int fd) {
    return [fd](char *to, size_t size) {
        ssize_t got;
        do // a program that is told to stop does not wait on
            got = read(fd, to, size);
        while (got < 0 && errno == EINTR && !UTIL_exit_poll());
        return got;
    };
}

// For one more piece: what a stream announces may never come.
void ByteWindow::make_room() {
    const size_t wanted = bytes().size() + k_piece;
    if (storage_.size() - begin_ >= wanted)
        return;
    if (begin_ > 0)
        memmove(storage_.data(), storage_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    if (storage_.size() < wanted)
        storage_.resize(2 * wanted); // room to spare, so that what is left is seldom moved
}

bool ByteWindow::want(size_t count) {
    while (bytes().size() < count && !ended_) {
        make_room();
        const ssize_t got =
            source_(storage_.data() + end_, std::min(storage_.size() - end_, k_piece));
        ended_ = got <= 0;
        if (got < 0)
            error_ = errno;
        else
            end_ += static_cast<size_t>(got);
    }
    return bytes().size() >= count;
}

void ByteWindow::skip(size_t count) {
    begin_ += count;
    offset_ += count;
}

} // namespace zebctl
