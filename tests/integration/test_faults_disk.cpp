// Faults: the disk of a program that logs.

#include "faults.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <set>
#include <sstream>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace zeb::test;
using testing::HasSubstr;

namespace {

// What a logger answers: the number of its last line, and how many of them are counted as lost.
struct Answer {
    unsigned number = 0;
    size_t lost = 0;
};

class FaultDisk : public testing::Test {
  protected:
    FaultDisk() : seam_(dir_ / "seam") {
        std::filesystem::create_directory(log());
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        commands_ = ends[1];
        options_.input = ends[0];
        options_.environment = seam_.environment();
    }
    ~FaultDisk() override {
        close(commands_);
        close(options_.input);
    }
    std::string log() const { return dir_ / "log"; }

    // Starts the logger: "open" or "no file".
    std::string start() {
        logger_.emplace(dir_.path(),
                        std::vector<std::string>{built_path("tests/integration/log_peer"), log()},
                        options_);
        EXPECT_TRUE(wait_until([this] { return answers() == 1 || !logger_->running(); }));
        return logger_->output().substr(0, logger_->output().find('\n'));
    }
    size_t answers() const { return occurrences(logger_->output(), "\n"); }
    Answer tell(const std::string &command) {
        const size_t before = answers();
        const std::string line = command + "\n";
        EXPECT_EQ(write(commands_, line.data(), line.size()), static_cast<ssize_t>(line.size()));
        EXPECT_TRUE(wait_until([&] { return answers() > before || !logger_->running(); }));
        const std::string all = logger_->output();
        Answer answer;
        std::istringstream(all.substr(all.rfind('\n', all.size() - 2) + 1)) >> answer.number >>
            answer.lost;
        return answer;
    }
    // Ends the logger, which writes all that it has.
    void finish() {
        close(commands_);
        close(options_.input);
        commands_ = options_.input = -1;
        EXPECT_EQ(logger_->wait(), 0) << logger_->errors();
    }
    // The files, by time, as the logger sees them.
    std::string text() const {
        std::set<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(log()))
            if (entry.path().filename().string().rfind("P_", 0) == 0)
                names.insert(entry.path());
        std::string all;
        for (const std::string &name : names)
            all += read_file(name);
        return all;
    }
    // The numbers of the lines, each of which must be whole.
    static std::vector<unsigned> numbers(const std::string &text) {
        std::vector<unsigned> result;
        std::istringstream in(text);
        for (std::string line; std::getline(in, line);) {
            if (line[0] == '!')
                continue;
            unsigned number = 0;
            double half = 0, other = 0;
            char end = 0;
            const char *values = strstr(line.c_str(), "Z,");
            EXPECT_TRUE(line.rfind("S,NIL,", 0) == 0 && values != nullptr &&
                        sscanf(values, "Z,%u,%lf,%lf%c", &number, &half, &other, &end) == 3 &&
                        half == number / 2.0 && other == half)
                << line;
            result.push_back(number);
        }
        EXPECT_TRUE(text.empty() || text.back() == '\n');
        return result;
    }
    // Each number once, in order.
    static void expect_once(const std::vector<unsigned> &lines) {
        for (size_t i = 1; i < lines.size(); ++i)
            EXPECT_LT(lines[i - 1], lines[i]);
    }

    TempDir dir_;
    Seam seam_;
    Process::Options options_;
    int commands_ = -1;
    std::optional<Process> logger_;
};

// ---- Errors of every write ----

class FaultDiskErrors : public FaultDisk {
  protected:
    void survive(int error, const char *text_of_it) {
        ASSERT_EQ(start(), "open");
        tell("write 100");
        tell("flush");
        seam_.fail_writes(error);
        tell("write 50");
        tell("flush");
        const size_t lost = tell("write 50").lost;
        EXPECT_GT(lost, 50u);
        EXPECT_LE(lost, 100u);
        seam_.fail_writes(0);
        EXPECT_EQ(tell("write 100").lost, 0u);
        finish();
        const auto lines = numbers(text());
        expect_once(lines);
        EXPECT_EQ(lines.size(), 300 - lost);
        EXPECT_EQ(lines[99], 100u);
        EXPECT_EQ(lines.back(), 300u);
        EXPECT_THAT(logger_->errors(), HasSubstr(text_of_it));
        EXPECT_THAT(logger_->errors(), HasSubstr(std::to_string(lost) + " lines were lost"));
        EXPECT_LE(occurrences(logger_->errors(), "\n"), 3u) << logger_->errors();
    }
};

TEST_F(FaultDiskErrors, AnInputOutputErrorIsToldAndTheFileGoesOn) {
    survive(EIO, "Input/output error");
}

TEST_F(FaultDiskErrors, AFileSystemThatTurnsReadOnlyIsToldAndTheFileGoesOn) {
    survive(EROFS, "Read-only file system");
}

TEST_F(FaultDiskErrors, AQuotaIsToldAndTheFileGoesOn) {
    survive(EDQUOT, "quota");
}

// ---- Small file systems ----

class FaultSmallDisk : public FaultDisk {
  protected:
    // False when there are no such file systems here.
    bool start_on(const std::string &options, const char *expected = "open") {
        options_.before = [this, options] { mount_small(log(), options); };
        const std::string answer = start();
        if (!logger_->running() && logger_->wait() == k_cannot_mount)
            return false;
        EXPECT_EQ(answer, expected);
        return true;
    }
    bool there(const std::function<bool()> &work) { return inside(logger_->pid(), work); }
    // Fills it with a file until nothing fits.
    bool fill() {
        return there([this] {
            const int fd = open((log() + "/ballast").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
            const std::string block(1024, 'b');
            while (write(fd, block.data(), block.size()) > 0)
                continue;
            return errno == ENOSPC;
        });
    }
    bool free_it() {
        return there([this] { return unlink((log() + "/ballast").c_str()) == 0; });
    }
    // The files, copied out of it.
    std::string text_there() {
        const std::string copy = dir_ / "copy";
        EXPECT_TRUE(there([&] {
            write_file(copy, text());
            return true;
        }));
        return read_file(copy);
    }
};

#define NEEDS_MOUNT(started)                                                                       \
    if (!(started))                                                                                \
    GTEST_SKIP() << "no file system can be mounted here"

TEST_F(FaultSmallDisk, AFullOneCostsTheLinesOfThatTimeOnly) {
    NEEDS_MOUNT(start_on("size=256k"));
    tell("write 200");
    tell("flush");
    ASSERT_TRUE(fill());
    while (tell("write 100").lost < 100 && logger_->running()) {
    }
    const size_t lost = tell("write 1").lost;
    ASSERT_TRUE(free_it());
    const Answer after = tell("write 200");
    EXPECT_EQ(after.lost, 0u);
    tell("flush");
    const auto lines = numbers(text_there());
    expect_once(lines);
    EXPECT_EQ(lines.size(), after.number - lost);
    EXPECT_EQ(lines.back(), after.number);
    EXPECT_EQ(occurrences(logger_->errors(), "Unable to write to log file"), 1u);
    finish();
}

TEST_F(FaultSmallDisk, WithoutInodesTheOldFileGoesOn) {
    NEEDS_MOUNT(start_on("nr_inodes=8"));
    ASSERT_TRUE(there([this] {
        for (int i = 0; i < 20; ++i)
            close(open((log() + "/b" + std::to_string(i)).c_str(), O_CREAT | O_WRONLY, 0600));
        return true;
    }));
    tell("write 50");
    tell("switch");
    tell("switch");
    EXPECT_EQ(tell("write 50").lost, 0u);
    tell("flush");
    EXPECT_EQ(occurrences(logger_->errors(), "Unable to switch to log file"), 1u)
        << logger_->errors();
    EXPECT_THAT(logger_->errors(), HasSubstr("No space left on device"));
    EXPECT_EQ(numbers(text_there()).size(), 100u);
    finish();
}

TEST_F(FaultSmallDisk, AReadOnlyOneIsToldAndUsedOnceItIsWritable) {
    NEEDS_MOUNT(start_on("size=256k,ro", "no file"));
    EXPECT_THAT(logger_->errors(), HasSubstr("Read-only file system"));
    tell("write 50");
    ASSERT_TRUE(there(
        [this] { return mount("none", log().c_str(), "tmpfs", MS_REMOUNT, "size=256k") == 0; }));
    tell("open");
    tell("write 50");
    tell("flush");
    const auto lines = numbers(text_there());
    ASSERT_EQ(lines.size(), 50u);
    EXPECT_EQ(lines.front(), 51u);
    finish();
}

// ---- Limits ----

TEST_F(FaultDisk, AtTheSizeLimitAFileEndsWithAWholeLineAndTheNextOneGoesOn) {
    options_.before = [] {
        const rlimit limit{50000, 50000};
        setrlimit(RLIMIT_FSIZE, &limit);
    };
    ASSERT_EQ(start(), "open");
    Answer answer;
    while ((answer = tell("write 100")).lost == 0 && logger_->running()) {
    }
    ASSERT_TRUE(logger_->running()) << logger_->wait();
    const time_t begun = time(nullptr);
    ASSERT_TRUE(wait_until([&] { return time(nullptr) != begun; })); // another file's name
    tell("switch");
    const Answer after = tell("write 100");
    EXPECT_EQ(after.lost, 0u);
    finish();
    const auto lines = numbers(text());
    expect_once(lines);
    EXPECT_EQ(lines.size(), after.number - answer.lost);
    EXPECT_EQ(lines.back(), after.number);
    EXPECT_THAT(logger_->errors(), HasSubstr("File too large"));
}

TEST_F(FaultDisk, WithoutPermissionInTheDirectoryNoFileIsBegun) {
    ASSERT_EQ(chown(log().c_str(), nobody(), static_cast<gid_t>(-1)), 0);
    ASSERT_EQ(chmod(log().c_str(), 0500), 0);
    chmod(dir_.path().c_str(), 0755);
    chmod((dir_ / "seam").c_str(), 0644);
    options_.before = become_nobody;
    EXPECT_EQ(start(), "no file");
    EXPECT_THAT(logger_->errors(), HasSubstr("Permission denied"));
    tell("write 10");
    ASSERT_EQ(chmod(log().c_str(), 0700), 0);
    tell("open");
    tell("write 10");
    finish();
    EXPECT_EQ(numbers(text()).size(), 10u);
}

} // namespace
