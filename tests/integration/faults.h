// faults.h - what the tests of faults share: programs whose clocks and disk the test holds, what a
// program uses, and file systems of a program's own.
#pragma once

#include "fault_seam.h"
#include "process.h"
#include "support.h"

#include <functional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace zeb::test {

// The clocks and the disk of every program started with environment().
class Seam {
  public:
    explicit Seam(const std::string &path);
    ~Seam();
    Seam(const Seam &) = delete;
    Seam &operator=(const Seam &) = delete;

    std::vector<std::pair<std::string, std::string>> environment() const;
    double wall() const;           // s since 1970
    void step(double seconds);     // of the wall clock alone
    void set_wall(double seconds); // since 1970
    void pass(double seconds);     // of both clocks: the programs were stopped
    void run(int64_t rate);        // so many seconds in each
    void fail_writes(int error) { control_->write_error = error; } // 0: they work again

  private:
    SeamClock now() const;
    void use(const SeamClock &clock);
    std::string path_;
    SeamControl *control_;
};

// Whether programs are built with a sanitizer, and need far more memory.
bool is_sanitized();
size_t resident_kib(pid_t pid);
size_t open_files(pid_t pid);

// The number of a user that owns nothing; the test's own when it has no right to choose.
uid_t nobody();
// For a new process: as nobody().
void become_nobody();

// For a new process: a small file system of its own at the directory. It ends with status 77 when
// none can be mounted.
void mount_small(const std::string &directory, const std::string &options);
constexpr int k_cannot_mount = 77;
// Does something in the file systems that a process sees; false when that cannot be entered, or
// when it returns false.
bool inside(pid_t pid, const std::function<bool()> &work);

} // namespace zeb::test
