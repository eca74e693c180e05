#include "zebfile_int.h"

#include "diag.h"
#include "dispatch.h"
#include "util.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace zeb;

namespace zeb {

LL_TYPE g_zebfile_open_files;
pthread_mutex_t g_zebfile_open_files_mutex = PTHREAD_MUTEX_INITIALIZER;
LL_TYPE g_zebfile_rests;
fd_set g_zebfile_close_files;
std::atomic<pthread_t *> g_zebfile_signal_thread;

} // namespace zeb

namespace {

constexpr mode_t k_create_mode = 0666;
constexpr size_t k_first_guess = 256; // bytes of a formatted text
constexpr size_t k_largest = INT_MAX; // bytes of a buffer that still has a next power of two

BOOL is_other_file(void *data, void *param) {
    return file_of(data)->fh != *static_cast<int *>(param);
}

// Counts a waiter for a scope, also when its thread is cancelled. With the mutex held at both ends.
class WaiterScope {
  public:
    explicit WaiterScope(FileEntry *file) : file_(file) { ++file_->waiters; }
    ~WaiterScope() {
        if (--file_->waiters == 0 && file_->deleted)
            free_file(file_);
    }
    WaiterScope(const WaiterScope &) = delete;
    WaiterScope &operator=(const WaiterScope &) = delete;

  private:
    FileEntry *file_;
};

// ---- Making entries ----

enum class Added { yes, not_initialised, no_memory };

Added add_file(int fh, ZEBFILE_mode mode) {
    auto *file = static_cast<FileEntry *>(calloc(1, sizeof(FileEntry)));
    if (!ZEB_CHECK_ERRNO(file != nullptr))
        return Added::no_memory;
    if (!ZEBFILE_init_entry(file)) {
        free(file);
        return Added::not_initialised;
    }
    static QWORD last_id = 0;
    file->id = ++last_id;
    file->fh = fh;
    file->mode = mode;
    file->dettached = FALSE;
    if (LL_insert_tail(&g_zebfile_open_files, &file, sizeof file) == nullptr) {
        free_file(file);
        return Added::no_memory;
    }
    return Added::yes;
}

// Opens and prepares the descriptor; -1 when that failed.
int open_prepared(const char *filename, ZEBFILE_mode mode, int flags) {
    const int mode_flags = mode == ZEBFILE_READ ? 0 : O_WRONLY | O_CREAT;
    const int fh = open(filename, flags | mode_flags | O_NONBLOCK | O_CLOEXEC, k_create_mode);
    if (fh == -1) {
        ZEB_REPORT_ERRNO("Unable to open file %s", filename);
        return -1;
    }
    const int descriptor_flags = fcntl(fh, F_GETFD);
    if (descriptor_flags == -1)
        ZEB_REPORT_ERRNO("Unable to get flags on file %s", filename);
    else if (fcntl(fh, F_SETFD, descriptor_flags | FD_CLOEXEC) == -1)
        ZEB_REPORT_ERRNO("Unable to set close-on-exec flag on file %s", filename);
    else if (select_fits(fh))
        return fh;
    close(fh);
    return -1;
}

bool prepare(int fh) {
    const int status_flags = fcntl(fh, F_GETFL);
    if (status_flags == -1) {
        ZEB_REPORT_ERRNO("Unable to get flags on file %d", fh);
        return false;
    }
    if (fcntl(fh, F_SETFL, status_flags | O_NONBLOCK) == -1) {
        ZEB_REPORT_ERRNO("Unable to set non-blocking flag on file %d", fh);
        return false;
    }
    const int descriptor_flags = fcntl(fh, F_GETFD);
    if (descriptor_flags == -1) {
        ZEB_REPORT_ERRNO("Unable to get flags on file %d", fh);
        return false;
    }
    if (fcntl(fh, F_SETFD, descriptor_flags | FD_CLOEXEC) == -1) {
        ZEB_REPORT_ERRNO("Unable to set close-on-exec flag on file %d", fh);
        return false;
    }
    return true;
}

bool associate(int fh, ZEBFILE_mode mode) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    FileEntry *file = find_file(fh);
    if (file == nullptr)
        return select_fits(fh) && prepare(fh) && add_file(fh, mode) == Added::yes;
    if (file->mode != mode) {
        file->mode = mode;
        file->buffer_off = 0;
    }
    return true;
}

// After the mutex is let go: the woken thread wants it.
void wake_dispatcher() {
    wake_thread(g_zebfile_signal_thread);
}

// The entry that the id tells from others of this descriptor, as long as it is not about to go.
FileEntry *find_lasting(int fh, QWORD id) {
    FileEntry *file = find_file(fh);
    return file != nullptr && file->id == id && !FD_ISSET(fh, &g_zebfile_close_files) ? file
                                                                                      : nullptr;
}

void request_close(int fh, bool detach) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    FileEntry *file = find_file(fh);
    if (file == nullptr)
        return;
    if (detach)
        file->dettached = TRUE;
    FD_SET(fh, &g_zebfile_close_files);
}

// ---- Writing ----

// Whether the entry may queue `n` more bytes.
bool admits(FileEntry *file, size_t n) {
    const size_t limit = file->refused != 0 ? k_file_resume : k_file_limit;
    if (file->buffer_off >= limit || n > k_largest - file->buffer_off) {
        if (file->refused++ == 0)
            ZEB_REPORT("File %d takes no data: refusing more (%zu bytes queued)", file->fh,
                       file->buffer_off);
        return false;
    }
    if (file->refused != 0)
        ZEB_REPORT("File %d takes data again, %zu writes were refused", file->fh, file->refused);
    file->refused = 0;
    return true;
}

bool make_room(FileEntry *file, size_t n) {
    const size_t size = grown_size(file, n);
    if (size == 0)
        return true;
    auto *block = static_cast<BYTE *>(malloc(size));
    if (block == nullptr)
        ZEB_REPORT_ERRNO("malloc of %zu bytes for file %d failed", size, file->fh);
    adopt_block(file, block, size);
    return block != nullptr;
}

FileEntry *find_writing(int fh) {
    FileEntry *file = find_file(fh);
    if (file != nullptr && file->mode != ZEBFILE_READ)
        return file;
    ZEB_REPORT("Unable to write to file %d", fh);
    return nullptr;
}

// False when memory ran out, after which nobody is woken: nothing is left to write.
bool queue_into(FileEntry *file, const void *pd, size_t n) {
    if (!admits(file, n))
        return true;
    if (!make_room(file, n))
        return false;
    if (n != 0)
        memcpy(file->buffer + file->buffer_off, pd, n);
    file->buffer_off += n;
    return true;
}

// Whether the servicing thread has something to write now, which it was woken for when that began.
bool is_due(const FileEntry *file) {
    return file->buffer_off != 0 && (file->in_flush || !is_below_limit(file));
}

bool queue_bytes(int fh, const void *pd, size_t n) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    FileEntry *file = find_writing(fh);
    return file == nullptr || queue_into(file, pd, n);
}

// Formats into the free tail of the buffer; how many bytes it takes with its terminator, or 0 when
// it cannot be formatted at any size.
size_t format_tail(FileEntry *file, const char *fmt, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const size_t space = file->buffer_max - file->buffer_off;
    const int length =
        vsnprintf(reinterpret_cast<char *>(file->buffer) + file->buffer_off, space, fmt, copy);
    va_end(copy);
    return length < 0 ? 0 : static_cast<size_t>(length) + 1;
}

bool queue_text(int fh, const char *fmt, va_list args) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    FileEntry *file = find_writing(fh);
    if (file == nullptr || !admits(file, 0))
        return true;
    for (;;) {
        size_t need = k_first_guess;
        const size_t space = file->buffer_max - file->buffer_off;
        if (space != 0) {
            need = format_tail(file, fmt, args);
            if (need == 0) {
                ZEB_REPORT_ERRNO("Unable to format a text for file %d", fh);
                return true;
            }
            if (need <= space) {
                file->buffer_off += need - 1;
                return true;
            }
        }
        if (!admits(file, need))
            return true;
        if (!make_room(file, need))
            return false;
    }
}

BOOL is_rest_of_other(void *data, void *param) {
    return static_cast<FileRest *>(data)->id != *static_cast<QWORD *>(param);
}

BYTE *take_rest(QWORD id, size_t *n) {
    *n = 0;
    LL_NODE *node = LL_transverse_until_forwards(&g_zebfile_rests, is_rest_of_other, &id);
    if (node == nullptr)
        return nullptr;
    const FileRest rest = *static_cast<FileRest *>(node->data);
    LL_delete_specfic(&g_zebfile_rests, node);
    *n = rest.size;
    return rest.block;
}

void set_flush_limit(int fh, size_t sz) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    if (FileEntry *file = find_file(fh))
        file->buffer_flush_limit = sz;
}

} // namespace

namespace zeb {

FileEntry *find_file(int fh) {
    LL_NODE *node = LL_transverse_until_forwards(&g_zebfile_open_files, is_other_file, &fh);
    return node != nullptr ? file_of(node->data) : nullptr;
}

void free_file(FileEntry *file) {
    ZEB_CHECK_CALL(pthread_cond_destroy(&file->nd_cond));
    free(file->buffer);
    free(file);
}

void wait_for_news(FileEntry *file) {
    const WaiterScope waiting(file);
    wait_slice(&file->nd_cond, &g_zebfile_open_files_mutex, ZEB_HERE);
}

void wait_written(int fh, QWORD id) {
    for (;;) {
        FileEntry *file = find_file(fh);
        if (file == nullptr || file->id != id)
            return;
        if (file->mode == ZEBFILE_READ)
            file->buffer_off = 0;
        if (file->buffer_off == 0)
            return;
        file->in_flush = TRUE;
        wait_for_news(file);
    }
}

size_t grown_size(const FileEntry *file, size_t n) {
    const size_t need = file->buffer_off + n;
    if (file->buffer != nullptr && file->buffer_max >= need)
        return 0;
    return UTIL_roundup_p2(static_cast<DWORD>(need));
}

void adopt_block(FileEntry *file, BYTE *block, size_t size) {
    if (block == nullptr) {
        file->buffer_off = 0;
        size = 0;
    } else if (file->buffer_off != 0) {
        memcpy(block, file->buffer, file->buffer_off);
    }
    free(file->buffer);
    file->buffer = block;
    file->buffer_max = size;
}

void drop_front(FileEntry *file, size_t n) {
    UTIL_shift_array(file->buffer, file->buffer_off, -static_cast<long>(n));
    file->buffer_off -= n;
}

QWORD file_id(int fh) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    const FileEntry *file = find_file(fh);
    return file != nullptr ? file->id : 0;
}

QWORD file_claim(int fh) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    FileEntry *file = find_file(fh);
    if (file == nullptr)
        return 0;
    file->claimed = true;
    return file->id;
}

bool file_write(int fh, QWORD id, const void *pd, size_t n) {
    bool news;
    {
        ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
        FileEntry *file = find_lasting(fh, id);
        if (file == nullptr)
            return false;
        const bool was_due = is_due(file);
        queue_into(file, pd, n);
        news = !was_due && is_due(file);
    }
    if (news)
        wake_dispatcher();
    return true;
}

bool file_stat(int fh, QWORD id, struct stat *info) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    return find_lasting(fh, id) != nullptr && fstat(fh, info) == 0;
}

void file_flush(int fh, QWORD id) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    if (find_lasting(fh, id) != nullptr)
        wait_written(fh, id);
}

void file_close(int fh, QWORD id) {
    file_flush(fh, id);
    {
        ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
        if (find_lasting(fh, id) == nullptr)
            return;
        FD_SET(fh, &g_zebfile_close_files);
    }
    wake_dispatcher();
}

BYTE *file_take(int fh, QWORD id, size_t *n, bool *failed) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    FileEntry *file = find_file(fh);
    *failed = find_lasting(fh, id) == nullptr;
    if (file == nullptr || file->id != id)
        return take_rest(id, n);
    BYTE *block = file->buffer;
    *n = file->buffer_off;
    file->buffer = nullptr;
    file->buffer_off = 0;
    file->buffer_max = 0;
    return block;
}

void file_abandon(int fh, QWORD id) {
    {
        ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
        FileEntry *file = find_file(fh);
        if (file == nullptr || file->id != id)
            return;
        file->buffer_off = 0;
        FD_SET(fh, &g_zebfile_close_files);
    }
    wake_dispatcher();
}

} // namespace zeb

BOOL ZEBFILE_init_entry(ZEBFILE_entry *pf) {
    if (!ZEB_CHECK(pf != nullptr))
        return FALSE;
    pf->fh = -1;
    pf->mode = ZEBFILE_READ;
    pf->buffer = nullptr;
    pf->buffer_off = 0;
    pf->buffer_max = 0;
    pf->in_flush = FALSE;
    pf->buffer_flush_limit = 0;
    return ZEB_CHECK_CALL(pthread_cond_init(&pf->nd_cond, nullptr));
}

int ZEBFILE_open(const char *filename, ZEBFILE_mode mode, int flags) {
    if (!ZEB_CHECK(filename != nullptr))
        return -1;
    const int fh = open_prepared(filename, mode, flags);
    if (fh == -1)
        return -1;
    {
        ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
        const Added added = add_file(fh, mode);
        if (added == Added::no_memory)
            close(fh);
        if (added != Added::yes)
            return -1;
    }
    wake_dispatcher();
    return fh;
}

BOOL ZEBFILE_associate_fh(int fh, ZEBFILE_mode mode) {
    if (fh == -1 || !associate(fh, mode))
        return FALSE;
    wake_dispatcher();
    return TRUE;
}

void ZEBFILE_disassociate_fh(int fh) {
    if (fh == -1)
        return;
    ZEBFILE_flush(fh);
    request_close(fh, true);
    wake_dispatcher();
}

void ZEBFILE_close(int fh) {
    if (fh == -1)
        return;
    ZEBFILE_flush(fh);
    request_close(fh, false);
    wake_dispatcher();
}

void ZEBFILE_setbuffer(int fh, size_t sz) {
    if (fh == -1)
        return;
    set_flush_limit(fh, sz);
    wake_dispatcher();
}

void ZEBFILE_write(int fh, const void *pd, size_t n) {
    if (fh == -1 || !ZEB_CHECK(pd != nullptr || n == 0))
        return;
    if (queue_bytes(fh, pd, n))
        wake_dispatcher();
}

void ZEBFILE_printf(int fh, const char *fmt, ...) {
    if (fh == -1 || !ZEB_CHECK(fmt != nullptr))
        return;
    va_list args;
    va_start(args, fmt);
    const bool queued = queue_text(fh, fmt, args);
    va_end(args);
    if (queued)
        wake_dispatcher();
}

void ZEBFILE_flush(int fh) {
    if (fh == -1)
        return;
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    if (const FileEntry *file = find_file(fh))
        wait_written(fh, file->id);
}
