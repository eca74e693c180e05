// Logging: what a daemon that is killed at any moment leaves behind, and a disk that is really
// full.
#include "log_testing.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <random>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace zeb::test;
using testing::StartsWith;

namespace {

constexpr size_t k_padding = 64; // characters behind a line's number, so that a torn one shows

// How many daemons are killed; ZEB_LOG_KILLS=200 for a long run.
int kills() {
    const char *value = getenv("ZEB_LOG_KILLS");
    return value != nullptr ? atoi(value) : 20;
}

// A daemon that logs without pause, in a process of its own. Its lines are numbered from 1.
class Daemon {
  public:
    Daemon(const std::string &directory, bool switches, const char *buffer_size) {
        root.set("Disk;LogDir", directory.c_str());
        root.set("Disk;BufferSize", buffer_size);
        LOG_init(&f);
        for (int i = 0; i < 300; ++i)
            zeb::insert_header(&f, ("!fil;" + std::to_string(i) + ",filler of the header").c_str());
        LOG_define_record(&f, "S", "*", vars, nullptr, FALSE);
        switches_ = switches;
    }
    ~Daemon() { LOG_close(&f); }

    // Logs until it is killed, and says on `said` which line was flushed last.
    [[noreturn]] void run(int said) {
        if (!ZEBFILE_init() || !LOG_open_basename(&f, "K", root, nullptr, nullptr))
            _exit(1);
        for (DWORD number = 1;; ++number) {
            LOG_write(&f, nullptr, "S", 1400000000, number);
            if (number % 700 == 0) {
                LOG_flush(&f);
                if (write(said, &number, sizeof number) != sizeof number)
                    _exit(1);
            }
            if (switches_ && number % 300 == 0)
                LOG_switch(&f, 0);
        }
    }
    std::string header_of(const std::string &name) {
        return zeb::header_text(&f, name.c_str()).get();
    }
    // Inserts what opening a file inserts, without opening one.
    void insert_standard() {
        zeb::insert_header(&f, "!fil;ProcessedBy;K,zeb");
        zeb::insert_standard_headers(&f);
    }

  private:
    static BOOL pad(void *, LOG_record_var_defn *, SFMT_buffer *out) {
        SFMT_copystr(out, std::string(k_padding, '.').c_str());
        return TRUE;
    }
    Conf root;
    LOG_file f;
    bool switches_;
    const LOG_map_defn vars[3] = {
        row("n", LVT_VA_DWORD, nullptr, "%u"),
        {"pad", nullptr, nullptr, LVT_FUNCTION, nullptr, pad, nullptr, nullptr, nullptr},
        k_end};
};

std::string line_of(DWORD number) {
    return "S,NIL,1400000000,2014-05-13T16:53:20Z," + std::to_string(number) + "," +
           std::string(k_padding, '.') + "\n";
}

class LogKill : public testing::Test {
  protected:
    // Starts a daemon, kills it at a random moment and returns the number of the last line that it
    // knew to be flushed.
    DWORD run_and_kill(Daemon *daemon) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0)
            daemon->run(ends[1]);
        close(ends[1]);
        DWORD flushed = 0, next = 0;
        const unsigned wanted = std::uniform_int_distribution<unsigned>(0, 3)(random_);
        for (unsigned i = 0; i < wanted && read(ends[0], &next, sizeof next) == sizeof next; ++i)
            flushed = next;
        usleep(std::uniform_int_distribution<unsigned>(0, 60000)(random_));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status)) << "the daemon could not run";
        while (read(ends[0], &next, sizeof next) == sizeof next)
            flushed = next;
        close(ends[0]);
        return flushed;
    }
    std::mt19937 random_{std::random_device{}()};
};

// Whether the text is numbered lines one after the other, the last one torn at most; the number of
// the last whole line.
testing::AssertionResult is_whole(const std::string &text, DWORD *last) {
    *last = 0;
    if (text.empty())
        return testing::AssertionSuccess();
    DWORD number =
        static_cast<DWORD>(strtoul(text.c_str() + line_of(1).find(",1,") + 1, nullptr, 10));
    for (size_t at = 0; at < text.size(); ++number) {
        const std::string line = line_of(number), here = text.substr(at, line.size());
        if (here == line)
            *last = number;
        else if (at + here.size() != text.size() || line.rfind(here, 0) != 0)
            return testing::AssertionFailure() << "line " << number << " is " << here;
        at += line.size();
    }
    return testing::AssertionSuccess();
}

void check_file(Daemon *daemon, const std::string &path, DWORD *last) {
    const std::string text = read_file(path);
    const std::string start = "!fil;FileName,";
    ASSERT_THAT(text, StartsWith(start)) << path;
    const std::string name = text.substr(start.size(), text.find('\n') - start.size());
    const std::string header = daemon->header_of(name);
    ASSERT_THAT(text, StartsWith(header)) << path;
    // A torn line of which not even the number is whole says nothing.
    const std::string rest = text.substr(header.size());
    if (rest.find('\n') != std::string::npos) {
        EXPECT_TRUE(is_whole(rest, last)) << path;
    }
}

TEST_F(LogKill, EveryFileHasItsWholeHeaderAndAtMostOneTornLine) {
    for (int i = 0; i < kills() && !HasFailure(); ++i) {
        TempDir dir;
        Daemon daemon(dir.path(), true, i % 2 == 0 ? "0" : "1");
        run_and_kill(&daemon);
        daemon.insert_standard();
        for (const auto &entry : std::filesystem::directory_iterator(dir.path())) {
            DWORD last = 0;
            check_file(&daemon, entry.path(), &last);
        }
    }
}

TEST_F(LogKill, WhatWasFlushedIsInTheFile) {
    for (int i = 0; i < kills() && !HasFailure(); ++i) {
        TempDir dir;
        Daemon daemon(dir.path(), false, i % 2 == 0 ? "0" : "64");
        const DWORD flushed = run_and_kill(&daemon);
        daemon.insert_standard();
        DWORD last = 0;
        for (const auto &entry : std::filesystem::directory_iterator(dir.path()))
            check_file(&daemon, entry.path(), &last);
        EXPECT_GE(last, flushed);
    }
}

// ---- A small disk ----

// In a process of its own, which may mount what only it sees.
enum class Outcome { passed, impossible, failed };

bool mount_small(const std::string &directory) {
    return unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", directory.c_str(), "tmpfs", 0, "size=256k") == 0;
}

Outcome fill_and_free(const std::string &directory) {
    if (!mount_small(directory))
        return Outcome::impossible;
    Conf root;
    root.set("Disk;LogDir", directory.c_str());
    LOG_file f;
    LOG_init(&f);
    DWORD number = 0;
    const Table vars = {row("n", LVT_DWORD, &number, "%u")};
    LOG_define_record(&f, "S", "*", vars, nullptr, FALSE);
    ZEBFILE_init();
    if (!LOG_open_basename(&f, "K", root, nullptr, nullptr))
        return Outcome::failed;
    write_file(directory + "/ballast", std::string(180 * 1024, 'b'));
    while (f.lost < 10) {
        ++number;
        LOG_write(&f, nullptr, "S", 1400000000);
        if (number % 500 == 0)
            LOG_flush(&f);
    }
    std::filesystem::remove(directory + "/ballast");
    LOG_write(&f, nullptr, "S", 1400000000);
    const bool resumed = f.lost == 0 && f.fh != -1;
    LOG_flush(&f);
    const std::vector<std::string> lines = lines_of(read_file(f.filename));
    const bool ends_well =
        lines.back() == "S,NIL,1400000000,2014-05-13T16:53:20Z," + std::to_string(number);
    const bool whole = std::all_of(lines.begin(), lines.end(), [](const std::string &line) {
        return line[0] == '!' || line.rfind("S,NIL,1400000000,2014-05-13T16:53:20Z,", 0) == 0;
    });
    LOG_close(&f);
    ZEBFILE_destroy();
    return resumed && ends_well && whole ? Outcome::passed : Outcome::failed;
}

TEST(LogSmallDisk, IsFilledAndFreedAndTheFileGoesOnWithWholeLines) {
    TempDir dir;
    StderrCapture err;
    const pid_t child = fork();
    if (child == 0)
        _exit(static_cast<int>(fill_and_free(dir.path())));
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == static_cast<int>(Outcome::impossible))
        GTEST_SKIP() << "no file system can be mounted here";
    EXPECT_EQ(WEXITSTATUS(status), static_cast<int>(Outcome::passed)) << err.text();
    EXPECT_THAT(err.text(), testing::HasSubstr("No space left on device (log_file.cpp:"));
    // The error of the entry, the beginning and the end.
    EXPECT_EQ(lines_of(err.text()).size(), 3U) << err.text();
}

} // namespace
