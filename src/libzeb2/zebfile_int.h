// zebfile_int.h - the table of buffered descriptors, for the sources of zebfile. Not installed.
#ifndef ZEB2_ZEBFILE_INT_H
#define ZEB2_ZEBFILE_INT_H

#include "ll.h"
#include "zebfile.h"

#include <algorithm>
#include <atomic>
#include <sys/stat.h>

namespace zeb {

// A peer must not make a daemon grow without bound, by sending or by not reading.
constexpr size_t k_file_limit = 64 * 1024 * 1024;
// Beyond the limit, an entry takes bytes again below this load, not at the first gap.
constexpr size_t k_file_resume = k_file_limit / 2;

constexpr size_t k_no_result = static_cast<size_t>(-1);

// The table holds pointers: a condition variable cannot be copied, and whoever waits on one must be
// able to let go of it after its entry has left the table.
struct FileEntry : ZEBFILE_entry {
    QWORD id;         // never used twice, as the number of a descriptor is
    unsigned waiters; // threads waiting on nd_cond
    bool deleted;     // out of the table; the last waiter frees it
    size_t refused;   // writes refused since too much was queued; 0: none are being refused
    bool paused;      // too much unread; not being read
    bool claimed;     // see file_claim
};

// What an error left unwritten in a claimed entry.
struct FileRest {
    QWORD id;    // that of the entry
    BYTE *block; // for `free`
    size_t size;
};

// The mutex guards the list, every entry and the close set.
extern LL_TYPE g_zebfile_open_files; // of FileEntry *
extern pthread_mutex_t g_zebfile_open_files_mutex;
extern LL_TYPE g_zebfile_rests;      // of FileRest
extern fd_set g_zebfile_close_files; // entries to end in the next pre-select
extern std::atomic<pthread_t *> g_zebfile_signal_thread;

inline FileEntry *file_of(void *data) {
    return *static_cast<FileEntry **>(data);
}

// The first entry of a descriptor, or null. With the mutex held, as everything below.
FileEntry *find_file(int fh);
// Destroys the condition variable and frees the entry, which nobody waits on and no table holds.
void free_file(FileEntry *file);
// Waits for news of the entry, 0.05 s at most; it may be gone afterwards. An unknown error ends the
// process.
void wait_for_news(FileEntry *file);

// Waits until the entry has nothing queued, or has left the table.
void wait_written(int fh, QWORD id);

inline bool has_limit(const FileEntry *file) {
    return file->buffer_flush_limit != 0 && file->buffer_flush_limit != static_cast<size_t>(-1);
}
// Whether a flush limit is set and not reached. No more than k_file_limit is ever queued.
inline bool is_below_limit(const FileEntry *file) {
    return has_limit(file) && file->buffer_off < std::min(file->buffer_flush_limit, k_file_limit);
}

// The size to which the buffer must grow to hold `n` more bytes, or 0 when it does already.
size_t grown_size(const FileEntry *file, size_t n);
// Makes `block` the buffer, with the valid bytes of the old one, which is freed. A null block loses
// them.
void adopt_block(FileEntry *file, BYTE *block, size_t size);
void drop_front(FileEntry *file, size_t n);

// For modules whose entries outlive an error, and so may find a stranger under their descriptor's
// number. Each takes the mutex. `id` is what file_id or file_claim gave for the entry.

// The id of a descriptor's entry; 0 when there is none.
QWORD file_id(int fh);
// As file_id. What is still queued when an error ends the entry is kept until it is taken with
// file_take, which the caller does after file_close at the latest.
QWORD file_claim(int fh);
// Queues bytes. The servicing thread is woken when it gets something to write by them, not again
// while it has: a log writes line by line. False when the entry is gone or about to go.
bool file_write(int fh, QWORD id, const void *pd, size_t n);
// fstat of the descriptor, which nobody closes meanwhile. False when the entry is gone or about to
// go.
bool file_stat(int fh, QWORD id, struct stat *info);
// As ZEBFILE_flush and ZEBFILE_close.
void file_flush(int fh, QWORD id);
void file_close(int fh, QWORD id);
// Takes what is queued, or was left, out of the entry: a block for `free`, or null, and its size.
// `failed` becomes whether the entry is gone or about to go: after an error, when anything is left,
// and then what is left follows the last byte written, which need not be the last of a line.
BYTE *file_take(int fh, QWORD id, size_t *n, bool *failed);
// Ends the entry without waiting: what is queued is dropped at once.
void file_abandon(int fh, QWORD id);

} // namespace zeb

#endif
