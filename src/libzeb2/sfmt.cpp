// sfmt.cpp - the growable string buffer: growth, copying, appending, the platform's printf.
#include "sfmt_int.h"

#include "diag.h"
#include "util.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using zeb::k_max_block;
using zeb::k_max_guessed_block;

constexpr size_t k_first_block = 128;
constexpr size_t k_empty_block = 2;

// Gained bytes are cleared: a text whose terminator its writer leaves out still ends in the block.
// On failure the old block is lost and the size keeps the new value; without a block the size is
// never trusted.
bool resize(SFMT_buffer *bf, size_t size) {
    const size_t old_size = bf->buffer != nullptr ? bf->sz_buffer : 0;
    char *block = static_cast<char *>(realloc(bf->buffer, size));
    bf->sz_buffer = size;
    if (!ZEB_CHECK_ERRNO(block != nullptr)) {
        free(bf->buffer);
        bf->buffer = nullptr;
        return false;
    }
    bf->buffer = block;
    if (size > old_size)
        memset(bf->buffer + old_size, 0, size - old_size);
    return true;
}

bool grow(SFMT_buffer *bf, size_t need) {
    if (need >= k_max_block) {
        ZEB_REPORT("Text of %zu bytes refused, the limit is %zu", need, k_max_block);
        return false;
    }
    return resize(bf, UTIL_roundup_p2(static_cast<DWORD>(need)));
}

bool fits(const SFMT_buffer *bf, size_t length) {
    return bf->buffer != nullptr && length < bf->sz_buffer;
}

size_t text_length(const SFMT_buffer *bf) {
    return bf->buffer != nullptr ? strlen(bf->buffer) : 0;
}

bool is_empty(const char *text) {
    return text == nullptr || *text == '\0';
}

bool has_block(const SFMT_buffer *bf) {
    return bf->buffer != nullptr && bf->sz_buffer > 0;
}

// Makes room for a text of `length` characters. Yields where the source lies afterwards (one within
// the destination's own block moves with it), or null.
const char *make_room(SFMT_buffer *bf, const char *source, size_t length) {
    if (fits(bf, length))
        return source;
    const auto block = reinterpret_cast<uintptr_t>(bf->buffer);
    const auto place = reinterpret_cast<uintptr_t>(source);
    const bool inside = bf->buffer != nullptr && place >= block && place - block < bf->sz_buffer;
    if (!grow(bf, length + 1))
        return nullptr;
    return inside ? bf->buffer + (place - block) : source;
}

void clear(SFMT_buffer *bf) {
    if (!has_block(bf) && !resize(bf, k_empty_block))
        return;
    bf->buffer[0] = '\0';
}

void copy_text(SFMT_buffer *dest, const char *source) {
    const size_t length = strlen(source);
    source = make_room(dest, source, length);
    if (source == nullptr)
        return;
    memmove(dest->buffer, source, length);
    dest->buffer[length] = '\0';
}

void append_text(SFMT_buffer *dest, const char *source, size_t length) {
    const size_t offset = text_length(dest);
    source = make_room(dest, source, offset + length);
    if (source == nullptr)
        return;
    memmove(dest->buffer + offset, source, length);
    dest->buffer[offset + length] = '\0';
}

// vsnprintf gave no length. It may be a character that cannot be converted at all, which no block
// is large enough for.
bool grow_by_guess(SFMT_buffer *bf, size_t offset) {
    if (bf->sz_buffer > k_max_guessed_block / 2) {
        ZEB_REPORT_ERRNO("Unable to format a text in %zu bytes", bf->sz_buffer);
        bf->buffer[offset] = '\0';
        return false;
    }
    return resize(bf, bf->sz_buffer * 2);
}

void format_at(SFMT_buffer *bf, size_t offset, const char *format, va_list args) {
    for (;;) {
        const size_t space = bf->sz_buffer - offset;
        va_list pass;
        va_copy(pass, args);
        const int result = vsnprintf(bf->buffer + offset, space, format, pass);
        va_end(pass);
        const size_t length = static_cast<size_t>(std::max(result, 0));
        if (result >= 0 && length < space)
            return;
        if (!(result >= 0 ? grow(bf, offset + length + 1) : grow_by_guess(bf, offset)))
            return;
    }
}

} // namespace

void SFMT_init_buffer(SFMT_buffer *bf) {
    bf->buffer = nullptr;
    bf->sz_buffer = 0;
}

void SFMT_destroy_buffer(SFMT_buffer *bf) {
    free(bf->buffer);
    bf->buffer = nullptr;
}

char *SFMT_get_buffer(SFMT_buffer *bf) {
    static char empty[1];
    return bf->buffer != nullptr ? bf->buffer : empty;
}

void SFMT_copy(SFMT_buffer *dest, SFMT_buffer *src) {
    if (src != nullptr && !is_empty(src->buffer))
        copy_text(dest, src->buffer);
    else if (dest->buffer != nullptr)
        clear(dest);
}

void SFMT_copystr(SFMT_buffer *dest, const char *src) {
    if (is_empty(src))
        clear(dest);
    else
        copy_text(dest, src);
}

// No terminator is written: a prefix ends where the block's earlier text had one. That is settled;
// the block's last byte stays a terminator, so that the text always ends within the block.
void SFMT_copystrn(SFMT_buffer *dest, const char *src, size_t n) {
    if (is_empty(src) || n == 0) {
        clear(dest);
        return;
    }
    const size_t length = strnlen(src, n);
    src = make_room(dest, src, length);
    if (src == nullptr)
        return;
    memmove(dest->buffer, src, length);
    dest->buffer[dest->sz_buffer - 1] = '\0';
}

void SFMT_append(SFMT_buffer *dest, SFMT_buffer *src) {
    if (src != nullptr)
        SFMT_appendstr(dest, src->buffer);
}

void SFMT_appendstr(SFMT_buffer *dest, const char *src) {
    if (!is_empty(src))
        append_text(dest, src, strlen(src));
}

void SFMT_appendstrn(SFMT_buffer *dest, const char *src, size_t n) {
    if (!is_empty(src) && n > 0)
        append_text(dest, src, strnlen(src, n));
}

void SFMT_printf(SFMT_buffer *bf, const char *format, ...) {
    va_list args;
    va_start(args, format);
    SMFT_vprintf(bf, format, args);
    va_end(args);
}

void SMFT_vprintf(SFMT_buffer *bf, const char *format, va_list args) {
    if (has_block(bf) || resize(bf, k_first_block))
        format_at(bf, 0, format, args);
}

void SFMT_printfcat(SFMT_buffer *bf, const char *format, ...) {
    va_list args;
    va_start(args, format);
    SFMT_vprintfcat(bf, format, args);
    va_end(args);
}

void SFMT_vprintfcat(SFMT_buffer *bf, const char *format, va_list args) {
    if (!has_block(bf)) {
        if (resize(bf, k_first_block))
            format_at(bf, 0, format, args);
        return;
    }
    const size_t offset = strlen(bf->buffer);
    if (offset >= bf->sz_buffer) {
        ZEB_REPORT("ERROR: offset (%zu) >= bf->sz_buffer (%zu) - %s", offset, bf->sz_buffer,
                   bf->buffer);
        // The heap is already damaged: a core from this very place shows by whom. Daemons run with
        // every signal but the exit ones blocked, and a blocked signal would only wait.
        sigset_t fault;
        sigemptyset(&fault);
        sigaddset(&fault, SIGSEGV);
        pthread_sigmask(SIG_UNBLOCK, &fault, nullptr);
        raise(SIGSEGV);
        return;
    }
    format_at(bf, offset, format, args);
}

void SFMT_make_accessable(SFMT_buffer *bf, size_t idx) {
    if (bf->buffer != nullptr || bf->sz_buffer <= idx)
        grow(bf, idx + 1);
}

namespace zeb {

// A size without a block is what an earlier failure left behind; it must not stand in for space.
TextWriter::TextWriter(SFMT_buffer *bf, size_t start) : bf_(bf), idx_(start) {
    if (bf_->buffer == nullptr)
        bf_->sz_buffer = 0;
    SFMT_make_accessable(bf_, idx_);
    failed_ = bf_->buffer == nullptr || idx_ >= bf_->sz_buffer;
    if (!failed_)
        bf_->buffer[idx_] = '\0';
}

TextWriter::TextWriter(SFMT_buffer *bf) : bf_(bf), idx_(text_length(bf)), settles_(false) {
    if (bf_->buffer == nullptr)
        bf_->sz_buffer = 0;
}

char *TextWriter::grow(size_t count) {
    if (failed_)
        return nullptr;
    failed_ = !::grow(bf_, std::max(2 * (idx_ + count), k_first_block - 1));
    return failed_ ? nullptr : bf_->buffer + idx_;
}

void TextWriter::settle() {
    if (!settles_ || !ahead_ || bf_->buffer == nullptr)
        return;
    ahead_ = false;
    SFMT_make_accessable(bf_, idx_);
    failed_ = failed_ || bf_->buffer == nullptr;
}

SFMT_buffer *TextWriter::settled_buffer() {
    settle();
    return bf_;
}

void TextWriter::resume() {
    failed_ = failed_ || bf_->buffer == nullptr;
    if (!failed_)
        idx_ += strlen(bf_->buffer + idx_);
}

} // namespace zeb
