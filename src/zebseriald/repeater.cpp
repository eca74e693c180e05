#include "repeater.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace zebseriald {
namespace {

using serverkit::printable;
using serverkit::UniqueFd;

// A longer line is written in pieces; a pipe takes a piece of this size whole or not at all.
constexpr size_t k_longest_line = PIPE_BUF;
constexpr unsigned char k_modes = 3;

struct Free {
    void operator()(char *block) const { free(block); }
};

std::optional<std::string> real_path(const std::string &path) {
    const std::unique_ptr<char, Free> real(realpath(path.c_str(), nullptr));
    return real == nullptr ? std::nullopt : std::optional<std::string>(real.get());
}

bool lies_below(const std::string &path, const std::string &directory) {
    return path == directory || path.starts_with(directory == "/" ? directory : directory + "/");
}

// Opened for both ways, a pipe neither waits for a reader nor breaks when it goes.
UniqueFd open_pipe(const std::string &path) {
    UniqueFd fd(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (fd && (fstat(fd.get(), &info) != 0 || !S_ISFIFO(info.st_mode)))
        fd.reset();
    return fd;
}

// The directory is looked at without its links, and the file itself may not be one.
UniqueFd open_file(const std::string &path, const std::string &directory, std::string &why) {
    const size_t slash = path.rfind('/');
    const auto allowed = real_path(directory);
    const auto parent = allowed ? real_path(path.substr(0, slash + 1)) : std::nullopt;
    if (!parent) {
        why = "its directory cannot be used: " + std::string(strerror(errno));
        return UniqueFd();
    }
    if (!lies_below(*parent, *allowed)) {
        why = "it is not below " + directory;
        return UniqueFd();
    }
    const std::string real = *parent + path.substr(slash);
    UniqueFd fd(::open(
        real.c_str(),
        O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC, 0640));
    struct stat info {};
    if (!fd || fstat(fd.get(), &info) != 0) {
        why = strerror(errno);
    } else if (!S_ISREG(info.st_mode)) {
        why = "it is neither a file nor a pipe";
        fd.reset();
    }
    return fd;
}

bool is_pipe(const std::string &path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && S_ISFIFO(info.st_mode);
}

// Nothing that names a directory or leads out of one.
bool is_plain(const std::string &name) {
    return !name.empty() && name.back() != '/' &&
           ("/" + name + "/").find("/../") == std::string::npos;
}

} // namespace

std::optional<Repeater> Repeater::open(const std::string &name, unsigned char mode, bool by_line,
                                       const std::string &directory,
                                       serverkit::Complaints &complaints, std::string &why) {
    if (mode == 0 || mode > k_modes) {
        why = "mode " + std::to_string(mode) + " is not 1, 2 or 3";
        return std::nullopt;
    }
    if (!is_plain(name)) {
        why = "it is no name of a file";
        return std::nullopt;
    }
    const std::string path = name[0] == '/' ? name : directory + "/" + name;
    UniqueFd fd;
    if (is_pipe(path)) {
        fd = open_pipe(path);
        why = strerror(errno);
    } else {
        fd = open_file(path, directory, why);
    }
    if (!fd)
        return std::nullopt;
    return Repeater(std::move(fd), name, mode, by_line, complaints);
}

void Repeater::write(Direction direction, std::string_view bytes, double now) {
    const auto bit = static_cast<unsigned char>(direction);
    if ((mode_ & bit) == 0 || bytes.empty())
        return;
    if (by_line_)
        write_lines(held_[bit - 1], bytes, now);
    else
        put(bytes, now);
}

void Repeater::write_lines(std::string &held, std::string_view bytes, double now) {
    while (!bytes.empty()) {
        const size_t end = bytes.find('\n');
        const size_t count = std::min(end == std::string_view::npos ? bytes.size() : end + 1,
                                      k_longest_line - held.size());
        held.append(bytes.substr(0, count));
        bytes.remove_prefix(count);
        if (held.back() != '\n' && held.size() < k_longest_line)
            continue;
        put(held, now);
        held.clear();
    }
}

void Repeater::put(std::string_view bytes, double now) {
    const ssize_t count = ::write(fd_.get(), bytes.data(), bytes.size());
    if (count == static_cast<ssize_t>(bytes.size())) {
        if (const size_t lost = fault_.over())
            say(now, "it is written again; pieces lost: " + std::to_string(lost));
        return;
    }
    const int error = count < 0 ? errno : EAGAIN;
    if (fault_.occurred())
        say(now, std::string("it misses what comes: ") +
                     (error == EAGAIN ? "nobody takes more of it" : strerror(error)));
}

void Repeater::say(double now, const std::string &what) {
    complaints_->about(now, "repeater \"" + printable(name_, 255) + "\"", what);
}

} // namespace zebseriald
