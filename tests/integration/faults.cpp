#include "faults.h"

#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <sched.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zeb::test {
namespace {

constexpr double k_second = 1e9;

int64_t real_ns(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

} // namespace

Seam::Seam(const std::string &path) : path_(path) {
    write_file(path_, std::string(sizeof(SeamControl), '\0'));
    const int fd = open(path_.c_str(), O_RDWR | O_CLOEXEC);
    void *block = mmap(nullptr, sizeof(SeamControl), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (block == MAP_FAILED)
        throw std::runtime_error("cannot map " + path_);
    control_ = static_cast<SeamControl *>(block);
    const int64_t steady = real_ns(CLOCK_MONOTONIC);
    use({steady, real_ns(CLOCK_REALTIME), steady, 1});
}

Seam::~Seam() {
    munmap(control_, sizeof(SeamControl));
}

std::vector<std::pair<std::string, std::string>> Seam::environment() const {
    return {{"LD_PRELOAD", FAULT_SEAM},
            {"ZEB_FAULT_SEAM", path_},
            {"ASAN_OPTIONS", "use_sigaltstack=0:verify_asan_link_order=0"}};
}

SeamClock Seam::now() const {
    SeamClock clock = control_->clocks[control_->current & 1];
    const int64_t real = real_ns(CLOCK_MONOTONIC);
    const int64_t passed = (real - clock.start) * clock.rate;
    return {real, clock.wall + passed, clock.steady + passed, clock.rate};
}

void Seam::use(const SeamClock &clock) {
    control_->clocks[(control_->current + 1) & 1] = clock;
    ++control_->current;
}

double Seam::wall() const {
    return static_cast<double>(now().wall) / k_second;
}

void Seam::step(double seconds) {
    SeamClock clock = now();
    clock.wall += static_cast<int64_t>(seconds * k_second);
    use(clock);
}

void Seam::set_wall(double seconds) {
    step(seconds - wall());
}

void Seam::pass(double seconds) {
    SeamClock clock = now();
    clock.wall += static_cast<int64_t>(seconds * k_second);
    clock.steady += static_cast<int64_t>(seconds * k_second);
    use(clock);
}

void Seam::run(int64_t rate) {
    SeamClock clock = now();
    clock.rate = rate;
    use(clock);
}

bool is_sanitized() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}

size_t resident_kib(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stoul(line.substr(6));
    return 0;
}

size_t open_files(pid_t pid) {
    size_t count = 0;
    DIR *directory = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
    while (const dirent *entry = directory != nullptr ? readdir(directory) : nullptr)
        count += entry->d_name[0] != '.';
    if (directory != nullptr)
        closedir(directory);
    return count;
}

uid_t nobody() {
    return geteuid() == 0 ? 65534 : geteuid();
}

void become_nobody() {
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
        _exit(127);
}

void mount_small(const std::string &directory, const std::string &options) {
    if (unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", directory.c_str(), "tmpfs", 0, options.c_str()) != 0)
        _exit(k_cannot_mount);
}

bool inside(pid_t pid, const std::function<bool()> &work) {
    const std::string own = "/proc/" + std::to_string(pid) + "/ns/";
    const pid_t child = fork();
    if (child == 0) {
        const int user = open((own + "user").c_str(), O_RDONLY | O_CLOEXEC);
        const int mounts = open((own + "mnt").c_str(), O_RDONLY | O_CLOEXEC);
        setns(user, CLONE_NEWUSER); // fails where it is the same
        _exit(setns(mounts, CLONE_NEWNS) == 0 && work() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace zeb::test
