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

constexpr size_t k_side_by_side = 10; // daemons that run, and are killed, together

// How many daemons of each kind are killed; ZEB_LOG_KILLS=1000 for a long run.
size_t kills() {
    const char *value = getenv("ZEB_LOG_KILLS");
    return value != nullptr ? strtoul(value, nullptr, 10) : 50;
}

// How a daemon logs.
struct Kind {
    const char *name;
    bool switches;           // begins files over and over
    const char *buffer_size; // KiB held back
};

std::ostream &operator<<(std::ostream &out, const Kind &kind) {
    return out << kind.name;
}

// A daemon that logs without pause, in a process of its own. Its lines are numbered from 1.
class Daemon {
  public:
    Daemon(const std::string &directory, const Kind &kind) : switches_(kind.switches) {
        root.set("Disk;LogDir", directory.c_str());
        root.set("Disk;BufferSize", kind.buffer_size);
        LOG_init(&f);
        for (int i = 0; i < 300; ++i)
            zeb::insert_header(&f, ("!fil;" + std::to_string(i) + ",filler of the header").c_str());
        LOG_define_record(&f, "S", "*", vars, nullptr, FALSE);
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

// A daemon of its own process and directory.
class Victim {
  public:
    explicit Victim(const Kind &kind) : daemon_(dir_.path(), kind) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        said_ = ends[0];
        child_ = fork();
        if (child_ == 0)
            daemon_.run(ends[1]);
        close(ends[1]);
    }
    ~Victim() { close(said_); }
    Victim(const Victim &) = delete;
    Victim &operator=(const Victim &) = delete;

    // Returns when it has said so often that it flushed, `delay` microseconds later.
    void kill_after(unsigned flushes, unsigned delay) {
        for (unsigned i = 0; i < flushes; ++i)
            listen();
        usleep(delay);
        kill(child_, SIGKILL);
        int status = 0;
        waitpid(child_, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status)) << "the daemon could not run";
        while (listen()) {
        }
        daemon_.insert_standard();
    }
    // The number of the last line that it knew to be flushed.
    DWORD flushed() const { return flushed_; }
    const TempDir &dir() const { return dir_; }
    Daemon *daemon() { return &daemon_; }

  private:
    bool listen() {
        DWORD next = 0;
        if (read(said_, &next, sizeof next) != sizeof next)
            return false;
        flushed_ = next;
        return true;
    }
    TempDir dir_;
    Daemon daemon_;
    int said_ = -1;
    pid_t child_ = -1;
    DWORD flushed_ = 0;
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

class LogKill : public testing::TestWithParam<Kind> {
  protected:
    unsigned up_to(unsigned most) {
        return std::uniform_int_distribution<unsigned>(0, most)(random_);
    }
    void kill_some(size_t count) {
        std::vector<std::unique_ptr<Victim>> victims;
        while (victims.size() < count)
            victims.push_back(std::make_unique<Victim>(GetParam()));
        for (const auto &victim : victims)
            victim->kill_after(up_to(2), up_to(10000));
        for (const auto &victim : victims)
            check(victim.get());
    }
    // A daemon that switches within a second replaces what it has flushed.
    static void check(Victim *victim) {
        DWORD last = 0;
        for (const auto &entry : std::filesystem::directory_iterator(victim->dir().path()))
            check_file(victim->daemon(), entry.path(), &last);
        if (!GetParam().switches) {
            EXPECT_GE(last, victim->flushed());
        }
    }
    std::mt19937 random_{std::random_device{}()};
};

TEST_P(LogKill, EveryFileHasItsWholeHeaderAndWhatWasFlushedAndAtMostOneTornLine) {
    for (size_t left = kills(); left != 0 && !HasFailure();) {
        const size_t count = std::min(left, k_side_by_side);
        kill_some(count);
        left -= count;
    }
}

INSTANTIATE_TEST_SUITE_P(Daemons, LogKill,
                         testing::Values(Kind{"WritingAtOnce", false, "0"},
                                         Kind{"HoldingBack", false, "64"},
                                         Kind{"SwitchingAndWritingAtOnce", true, "0"},
                                         Kind{"SwitchingAndHoldingBack", true, "1"}),
                         [](const auto &kind) { return std::string(kind.param.name); });

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
