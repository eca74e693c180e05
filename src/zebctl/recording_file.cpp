#include "recording_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <zeb2/util.h>

#include "recording.h"
#include "text.h"

namespace zebctl {

bool RecordingFile::fail(const std::string &what) {
    fprintf(stderr, "zebctl: %s: %s\n", visible(path_).c_str(), what.c_str());
    return false;
}

bool RecordingFile::open(const std::string &path, Mode mode) {
    path_ = path;
    if (path == "-") {
        path_ = "standard output";
        fd_ = STDOUT_FILENO;
        if (isatty(fd_) != 0)
            return fail("a recording is not fit for a terminal");
        return mode == Mode::append || write(k_recording_line);
    }
    own_.reset(::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    fd_ = own_.get();
    struct stat status = {};
    if (!own_ || fstat(fd_, &status) != 0)
        return fail(strerror(errno));
    if (mode == Mode::fresh && status.st_size > 0)
        return fail("the file is there already: --append adds to it, --force replaces it");
    if (mode == Mode::replace && S_ISREG(status.st_mode) && ftruncate(fd_, 0) != 0)
        return fail(strerror(errno));
    return begin();
}

// A recording that was cut within its first line has nothing else: it begins anew.
bool RecordingFile::begin() {
    char line[k_recording_line.size()];
    const ssize_t got = pread(fd_, line, sizeof line, 0);
    const std::string_view seen(line, got > 0 ? static_cast<size_t>(got) : 0);
    if (seen == k_recording_line)
        return true;
    if (!k_recording_line.starts_with(seen))
        return fail("the file is no recording, nothing is added to it");
    if (!seen.empty() && ftruncate(fd_, 0) != 0)
        return fail(strerror(errno));
    return write(k_recording_line);
}

bool RecordingFile::write(std::string_view entries) {
    size_t written = 0;
    while (written < entries.size()) {
        const ssize_t count = ::write(fd_, entries.data() + written, entries.size() - written);
        if (count < 0 && errno == EINTR && !UTIL_exit_poll())
            continue;
        if (count < 0)
            break;
        written += static_cast<size_t>(count);
    }
    if (written == entries.size())
        return true;
    const int error = errno;
    const off_t end = lseek(fd_, 0, SEEK_END);
    const auto torn = static_cast<off_t>(written);
    if (own_ && written > 0 && end >= torn && ftruncate(fd_, end - torn) != 0)
        return fail("cannot take back what was written in part");
    return fail(strerror(error));
}

} // namespace zebctl
