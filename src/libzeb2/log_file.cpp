#include "log_int.h"

#include "diag.h"
#include "zebfile.h"
#include "zebfile_int.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace zeb;

namespace {

static_assert(sizeof(off_t) == 8, "log files may grow beyond 2 GiB, in 32-bit programs too");

constexpr size_t k_path_size = 256;
constexpr size_t k_time_length = sizeof "_YYYYMMDDThhmmssZ" - 1;
constexpr int k_open_flags = O_APPEND | O_NONBLOCK | O_CLOEXEC;
constexpr mode_t k_create_mode = 0666;

// A descriptor that is closed with its scope; errno stays.
class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        const int error = errno;
        if (fd_ != -1)
            close(fd_);
        errno = error;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int get() const { return fd_; }
    int give() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

  private:
    int fd_;
};

bool write_whole(int fd, const char *text) {
    for (size_t left = strlen(text); left != 0;) {
        const ssize_t count = write(fd, text, left);
        if (count == -1 && errno != EINTR)
            return false;
        if (count > 0) {
            text += count;
            left -= static_cast<size_t>(count);
        }
    }
    return true;
}

// ---- A new file ----
//
// It is written before it has a name, so that a daemon that is killed leaves no beginning of a file
// behind.

// The directory of the file and, in it, a name that no log file has.
struct Places {
    char directory[k_path_size];
    char hidden[2 * k_path_size + sizeof "/..new"];
};

Places places_of(const LOG_file *f) {
    Places places;
    const char *slash = strrchr(f->basename, '/');
    const int length = slash != nullptr ? static_cast<int>(slash - f->basename) : 1;
    snprintf(places.directory, sizeof places.directory, "%.*s/", length,
             slash != nullptr ? f->basename : ".");
    snprintf(places.hidden, sizeof places.hidden, "%s.%s.new", places.directory,
             slash != nullptr ? slash + 1 : f->basename);
    return places;
}

// Names an unnamed file, in place of one that has the name.
bool give_name(int fd, const char *hidden, const char *filename) {
    char self[64];
    snprintf(self, sizeof self, "/proc/self/fd/%d", fd);
    if (linkat(AT_FDCWD, self, AT_FDCWD, filename, AT_SYMLINK_FOLLOW) == 0)
        return true;
    if (errno != EEXIST)
        return false;
    unlink(hidden);
    return linkat(AT_FDCWD, self, AT_FDCWD, hidden, AT_SYMLINK_FOLLOW) == 0 &&
           rename(hidden, filename) == 0;
}

// An entry of the table of descriptors.
struct Entry {
    int fh;
    QWORD id;
};

// Makes an entry of a descriptor, which belongs to it from then on; false with errno when that
// fails.
bool make_entry(Descriptor *fd, Entry *entry) {
    errno = EMFILE; // said here without a message: callers report each fault once
    if (fd->get() >= FD_SETSIZE)
        return false;
    errno = ENOMEM;
    if (!ZEBFILE_associate_fh(fd->get(), ZEBFILE_WRITE))
        return false;
    entry->id = file_claim(fd->get());
    entry->fh = fd->give();
    return true;
}

int open_new(const Places &places, bool nameless) {
    if (nameless)
        return open(places.directory, k_open_flags | O_WRONLY | O_TMPFILE, k_create_mode);
    unlink(places.hidden);
    return open(places.hidden, k_open_flags | O_WRONLY | O_CREAT | O_EXCL, k_create_mode);
}

// The name is given last: it may be that of the current file, which must stay until all is done.
bool create_file(const LOG_file *f, const char *filename, const char *text, Entry *entry) {
    const Places places = places_of(f);
    for (const bool nameless : {true, false}) { // some file systems have no nameless files
        Descriptor fd(open_new(places, nameless));
        if (fd.get() == -1)
            continue;
        const bool made = write_whole(fd.get(), text) && make_entry(&fd, entry);
        if (made && (nameless ? give_name(entry->fh, places.hidden, filename)
                              : rename(places.hidden, filename) == 0))
            return true;
        const int error = errno;
        unlink(places.hidden);
        if (made)
            file_abandon(entry->fh, entry->id);
        errno = error;
        if (!made)
            return false;
    }
    return false;
}

// ---- The current file ----

void report_end_of_fault(const LOG_file *f, const char *filename) {
    if (f->lost != 0)
        ZEB_REPORT("Log file \"%s\" is written again, %zu lines were lost", filename, f->lost);
    else if (f->interrupted)
        ZEB_REPORT("Log file \"%s\" was not written, going on in \"%s\"", f->filename, filename);
}

// Makes an entry the current file.
void take_file(LOG_file *f, const Entry &entry, const char *filename) {
    close_file(f);
    report_end_of_fault(f, filename);
    f->fh = entry.fh;
    f->entry = entry.id;
    ZEBFILE_setbuffer(f->fh, f->buffer_limit);
    if (f->filename != filename)
        snprintf(f->filename, sizeof f->filename, "%s", filename);
    f->interrupted = FALSE;
    f->lost = 0;
}

bool queue_line(const LOG_file *f, const char *line) {
    return f->fh != -1 && file_write(f->fh, f->entry, line, strlen(line));
}

// Whether the current file was deleted: what is written to it is seen by nobody.
bool is_deleted(const LOG_file *f) {
    struct stat open_file, named_file;
    if (f->fh == -1 || !file_stat(f->fh, f->entry, &open_file) || open_file.st_nlink != 0)
        return false;
    return stat(f->filename, &named_file) == -1 || named_file.st_ino != open_file.st_ino ||
           named_file.st_dev != open_file.st_dev;
}

// ---- Going on after a fault ----

// Removes the beginning of a line at the end of the file, unless its rest follows. A file without
// one whole line has lost its header and is as good as gone.
bool end_with_whole_line(int fd, bool rest_follows) {
    const off_t size = lseek(fd, 0, SEEK_END);
    char block[4096];
    off_t end = size;
    while (end > 0) {
        const off_t start = std::max<off_t>(end - static_cast<off_t>(sizeof block), 0);
        const auto length = static_cast<size_t>(end - start);
        if (pread(fd, block, length, start) != static_cast<ssize_t>(length))
            return false;
        if (const void *line_end = memrchr(block, '\n', length)) {
            end = start + (static_cast<const char *>(line_end) - block) + 1;
            break;
        }
        end = start;
    }
    if (end == 0)
        errno = ENOENT;
    return end != 0 && (end == size || rest_follows || ftruncate(fd, end) == 0);
}

// Writes the line now: a file that is still full is found so here, before anything is said.
bool append_whole(int fd, const char *filename, const char *line) {
    const off_t size = lseek(fd, 0, SEEK_END);
    if (write_whole(fd, line))
        return true;
    const int error = errno;
    if (ftruncate(fd, size) == -1)
        ZEB_REPORT_ERRNO("Unable to take a torn line off log file \"%s\"", filename);
    errno = error;
    return false;
}

size_t lines_in(const char *text, size_t length) {
    return static_cast<size_t>(std::count(text, text + length, '\n'));
}

// What is to be written after a fault: what the file before still had queued, and the new line.
struct Due {
    OwnedBlock<char> text; // null when nothing was queued
    size_t queued = 0;     // bytes of the text before the new line
    bool torn = false;     // it follows the file's last byte, perhaps within a line
};

// Gives up a file that is not written any more; what is queued must not follow later lines there.
Due interrupt(LOG_file *f, const char *line) {
    Due due;
    OwnedBlock<char> queued;
    if (f->fh != -1) {
        queued.reset(reinterpret_cast<char *>(file_take(f->fh, f->entry, &due.queued, &due.torn)));
        file_abandon(f->fh, f->entry);
    }
    f->fh = -1;
    f->interrupted = TRUE;
    if (due.queued == 0)
        return {};
    due.text.reset(static_cast<char *>(malloc(due.queued + strlen(line) + 1)));
    if (due.text == nullptr) {
        f->lost += lines_in(queued.get(), due.queued);
        return {};
    }
    memcpy(due.text.get(), queued.get(), due.queued);
    strcpy(due.text.get() + due.queued, line);
    return due;
}

// The entry is made first: once the text is in the file, nothing may fail that would count it lost.
bool reopen(LOG_file *f, const char *text, bool torn) {
    Descriptor fd(open(f->filename, k_open_flags | O_RDWR));
    Entry entry;
    if (fd.get() == -1 || !end_with_whole_line(fd.get(), torn) || !make_entry(&fd, &entry))
        return false;
    if (append_whole(entry.fh, f->filename, text)) {
        take_file(f, entry, f->filename);
        return true;
    }
    const int error = errno;
    file_abandon(entry.fh, entry.id);
    errno = error;
    return false;
}

bool begin_next(LOG_file *f, const char *text) {
    char filename[k_path_size];
    return name_for_now(f, filename) && begin_file(f, filename) && queue_line(f, text);
}

void lose_lines(LOG_file *f, const char *text, bool first) {
    f->lost += lines_in(text, strlen(text));
    if (first)
        ZEB_REPORT_ERRNO("Unable to write to log file \"%s\"", f->filename);
}

void go_on(LOG_file *f, const char *line) {
    const bool first = f->lost == 0;
    const Due due = interrupt(f, line);
    const char *text = due.text != nullptr ? due.text.get() : line;
    if (reopen(f, text, due.torn))
        return;
    if (errno == ENOENT) {
        // The beginning of a torn line is gone with the file.
        const size_t start = due.torn ? strcspn(text, "\n") + 1 : 0;
        f->lost += lines_in(text, start);
        text += start;
        if (begin_next(f, text))
            return;
    }
    lose_lines(f, text, first);
}

void begin_headed(LOG_file *f, const char *line) {
    if (!begin_file(f, f->filename) || !queue_line(f, line))
        lose_lines(f, line, f->lost == 0);
}

} // namespace

namespace zeb {

bool name_for_now(const LOG_file *f, char (&filename)[k_path_size]) {
    LOG_filenamefortime(f->basename, time(nullptr), filename);
    if (strlen(f->basename) + k_time_length < sizeof filename)
        return true;
    errno = ENAMETOOLONG;
    return false;
}

bool begin_file(LOG_file *f, const char *filename) {
    OwnedBlock<char> header;
    if (f->info.enabled) {
        header = header_text(f, filename);
        if (header == nullptr) {
            errno = ENOMEM;
            return false;
        }
    }
    Entry entry;
    if (!create_file(f, filename, header != nullptr ? header.get() : "", &entry))
        return false;
    take_file(f, entry, filename);
    f->headless = header == nullptr;
    return true;
}

void write_line(LOG_file *f, const char *line) {
    if (!f->info.enabled || (f->fh == -1 && !f->interrupted))
        return;
    if (f->headless)
        begin_headed(f, line);
    else if (is_deleted(f) || !queue_line(f, line))
        go_on(f, line);
}

void close_file(LOG_file *f) {
    if (f->fh == -1)
        return;
    file_close(f->fh, f->entry);
    size_t left;
    bool failed;
    const OwnedBlock<BYTE> text(file_take(f->fh, f->entry, &left, &failed));
    f->lost += lines_in(reinterpret_cast<const char *>(text.get()), left);
    f->fh = -1;
}

} // namespace zeb

BOOL LOG_switch(LOG_file *f, time_t) {
    char filename[k_path_size];
    if (name_for_now(f, filename) && begin_file(f, filename)) {
        f->problem_switching = FALSE;
        return TRUE;
    }
    if (!f->problem_switching)
        ZEB_REPORT_ERRNO("Unable to switch to log file \"%s\"", filename);
    f->problem_switching = TRUE;
    return FALSE;
}

void LOG_flush(LOG_file *f) {
    if (f->fh != -1)
        file_flush(f->fh, f->entry);
}

void LOG_filenamefortime(const char *basename, time_t t, char *dst) {
    const UtcTime utc = utc_time(t);
    snprintf(dst, k_path_size, "%s_%04d%02u%02uT%02u%02u%02uZ", basename, utc.year, utc.month,
             utc.day, utc.hour, utc.minute, utc.second);
}
