#include "zebfile_int.h"

#include "diag.h"
#include "util.h"

#include <algorithm>
#include <cstring>

using namespace zeb;

namespace {

FileEntry *find_reading(int fh) {
    FileEntry *file = find_file(fh);
    if (file != nullptr && file->mode == ZEBFILE_READ)
        return file;
    ZEB_REPORT("Unable to read from file %d", fh);
    return nullptr;
}

bool has_data(const FileEntry *file) {
    return file->buffer != nullptr && file->buffer_off != 0;
}

// The index of the first stop character among `n` bytes; `n` when there is none.
size_t find_stop(const BYTE *bytes, size_t n, const char *stop_chars) {
    const size_t stops = strlen(stop_chars);
    size_t i = 0;
    while (i < n && !UTIL_match_any(bytes + i, stop_chars, stops, 1))
        ++i;
    return i;
}

bool can_take(const char *pd, size_t max_read, const char *stop_chars) {
    return pd != nullptr && ZEB_CHECK(max_read != 0) && ZEB_CHECK(stop_chars != nullptr);
}

size_t take_piece(int fh, char *pd, size_t max_read, const char *stop_chars) {
    FileEntry *file = find_reading(fh);
    if (file == nullptr || !has_data(file))
        return k_no_result;
    const size_t n = std::min(file->buffer_off, max_read);
    memcpy(pd, file->buffer, n);
    size_t i = find_stop(file->buffer, n, stop_chars);
    if (i >= file->buffer_off)
        return k_no_result;
    // A piece that is too long is cut, and the byte in place of the terminator is lost.
    if (i == n)
        i = n - 1;
    pd[i] = '\0';
    drop_front(file, i + 1);
    return i;
}

} // namespace

size_t ZEBFILE_readuntil_int(int fh, char *pd, size_t max_read, const char *stop_chars,
                             BOOL lock_mtx) {
    if (fh == -1 || !can_take(pd, max_read, stop_chars))
        return k_no_result;
    if (!lock_mtx)
        return take_piece(fh, pd, max_read, stop_chars);
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    return take_piece(fh, pd, max_read, stop_chars);
}

size_t ZEBFILE_readuntil_blocking(int fh, char *pd, size_t max_read, const char *stop_chars,
                                  double timeout) {
    if (fh == -1 || !can_take(pd, max_read, stop_chars))
        return k_no_result;
    const FTIME deadline = timeout > 0.0 ? UTIL_ftime() + timeout : 0.0;
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    for (;;) {
        FileEntry *file = find_file(fh);
        if (file == nullptr)
            return k_no_result;
        const size_t length = take_piece(fh, pd, max_read, stop_chars);
        if (length != k_no_result)
            return length;
        if (UTIL_exit_poll())
            return k_no_result;
        // A limit that has not passed ends the call: callers with a limit poll, and wait elsewhere.
        if (timeout > 0.0 && deadline >= UTIL_ftime())
            return k_no_result;
        wait_for_news(file);
        if (timeout > 0.0 && UTIL_ftime() <= deadline)
            return k_no_result;
    }
}

size_t ZEBFILE_read_atmost(int fh, void *pd, size_t max_read) {
    if (pd == nullptr)
        return 0;
    if (fh == -1)
        return k_no_result;
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    FileEntry *file = find_reading(fh);
    if (file == nullptr || !has_data(file))
        return 0;
    const size_t n = std::min(file->buffer_off, max_read);
    memcpy(pd, file->buffer, n);
    drop_front(file, n);
    return n;
}

size_t ZEBFILE_read_offsetof(int fh, const char *stop_chars) {
    if (fh == -1 || !ZEB_CHECK(stop_chars != nullptr))
        return k_no_result;
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    FileEntry *file = find_reading(fh);
    if (file == nullptr || !has_data(file))
        return k_no_result;
    const size_t i = find_stop(file->buffer, file->buffer_off, stop_chars);
    return i < file->buffer_off ? i : k_no_result;
}
