// Logging: switching files, and faults that come and go.
#include "log_testing.h"

#include <csignal>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace zeb::test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

size_t count_of(const std::string &text, const std::string &part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

// ---- Switching ----

TEST_F(LogFiles, ASwitchBeginsAFileWithTheWholeHeaderAndWritesOutTheOneBefore) {
    root.set("Disk;BufferSize", "64");
    define_simple();
    open();
    write(1);
    const std::string first = f.filename;
    EXPECT_TRUE(switch_later());
    write(2);
    EXPECT_NE(first, f.filename);
    EXPECT_THAT(read_file(first), EndsWith("ID code\n" + line(1)));
    EXPECT_THAT(content(), StartsWith("!fil;FileName,X1_"));
    EXPECT_EQ(data(), line(2));
    // All but the name of the file is the same.
    const std::string old = read_file(first), fresh = content();
    EXPECT_EQ(old.substr(old.find('\n'), old.size() - old.find('\n') - 2),
              fresh.substr(fresh.find('\n'), fresh.size() - fresh.find('\n') - 2));
    EXPECT_EQ(err.text(), "");
}

TEST_F(LogFiles, TheBufferSizeHoldsForTheNextFile) {
    root.set("Disk;BufferSize", "64");
    define_simple();
    open();
    EXPECT_TRUE(LOG_switch(&f, 0));
    const std::string before = read_file(f.filename);
    write(1);
    EXPECT_EQ(read_file(f.filename), before);
    EXPECT_EQ(content(), before + line(1));
}

TEST_F(LogFiles, TheTimeOfTheRequestIsNotUsed) {
    open();
    EXPECT_TRUE(LOG_switch(&f, 1400000000));
    EXPECT_THAT(std::string(f.filename), testing::Not(HasSubstr("2014")));
}

TEST_F(LogFiles, ARecordDefinedAfterOpeningHasItsHeaderInTheNextFile) {
    open();
    define_simple();
    write(1);
    EXPECT_THAT(content(), testing::Not(HasSubstr("!row;colhdr")));
    EXPECT_EQ(data(), line(1));
    EXPECT_TRUE(switch_later());
    EXPECT_THAT(content(), HasSubstr("\n!row;colhdr;X1S,X1S;"));
}

TEST_F(LogFiles, ASwitchWithinTheSecondTakesTheFilesPlace) {
    define_simple();
    open();
    // Somewhere in here two switches share a second.
    std::string name;
    do {
        name = f.filename;
        write(1);
        ASSERT_TRUE(LOG_switch(&f, 0));
    } while (name != f.filename);
    write(2);
    EXPECT_THAT(content(), StartsWith("!fil;FileName,X1_"));
    EXPECT_EQ(data(), line(2));
    EXPECT_EQ(count_of(content(), "!fil;FileName"), 1U);
}

TEST_F(LogFiles, AFileWithoutRoomForItsDescriptorKeepsTheFileOfTheSameSecond) {
    define_simple();
    open();
    write(1);
    LOG_flush(&f);
    rlimit before;
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit more = {FD_SETSIZE + 64, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &more), 0);
    std::vector<int> taken;
    do
        taken.push_back(dup(2));
    while (taken.back() < FD_SETSIZE);

    EXPECT_FALSE(zeb::begin_file(&f, f.filename));
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(data(), line(1));
    EXPECT_EQ(err.text(), "");
    for (const int fd : taken)
        close(fd);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(files().size(), 1U);
}

TEST_F(LogFiles, ASwitchWhileDisabledBeginsAnEmptyFile) {
    define_simple();
    open();
    f.info.enabled = FALSE;
    EXPECT_TRUE(switch_later());
    write(1);
    EXPECT_EQ(content(), "");
    f.info.enabled = TRUE;
    write(2);
    EXPECT_THAT(content(), StartsWith("!fil;FileName,X1_"));
    EXPECT_EQ(data(), line(2));
}

TEST_F(LogFiles, NoHiddenFileStaysBehind) {
    open();
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(LOG_switch(&f, 0));
    for (const std::string &name : files())
        EXPECT_THAT(name, StartsWith("X1_"));
}

TEST_F(LogFiles, WithoutABufferALineIsInTheFileByItself) {
    define_simple();
    open();
    write(1);
    EXPECT_TRUE(wait_until([&] { return count_of(read_file(f.filename), line(1)) == 1; }));
}

// ---- A failed switch ----

class LogSubdirectory : public LogFiles {
  protected:
    LogSubdirectory() {
        std::filesystem::create_directory(sub);
        root.set("Disk;LogDir", sub.c_str());
        define_simple();
    }
    // Lets the directory, not the open file, be gone.
    void move_away() { std::filesystem::rename(sub, dir / "away"); }
    void move_back() { std::filesystem::rename(dir / "away", sub); }

    const std::string sub = dir / "log";
};

TEST_F(LogSubdirectory, AFailedSwitchKeepsTheFileAndIsReportedOnceUntilOneSucceeds) {
    open();
    const std::string name = f.filename;
    move_away();
    EXPECT_FALSE(switch_later());
    const std::string first = err.text();
    EXPECT_THAT(first, StartsWith("PREINIT: Unable to switch to log file \"" + sub + "/X1_"));
    EXPECT_THAT(first, HasSubstr("Z\": No such file or directory (log_file.cpp:"));
    EXPECT_EQ(lines_of(first).size(), 1U);
    EXPECT_TRUE(f.problem_switching);
    EXPECT_EQ(f.filename, name);
    write(1);
    EXPECT_FALSE(LOG_switch(&f, 0));
    EXPECT_EQ(err.text(), first);
    move_back();
    EXPECT_EQ(data(), line(1));
    EXPECT_TRUE(LOG_switch(&f, 0));
    EXPECT_FALSE(f.problem_switching);
    EXPECT_EQ(err.text(), first);
    move_away();
    EXPECT_FALSE(LOG_switch(&f, 0));
    EXPECT_EQ(count_of(err.text(), "Unable to switch"), 2U);
}

// For whom the mode of a directory counts, as it does not for root.
class OrdinaryUser {
  public:
    OrdinaryUser() : user_(geteuid()) {
        if (user_ == 0 && seteuid(65534) != 0)
            throw std::runtime_error("root cannot become another user");
    }
    ~OrdinaryUser() {
        if (seteuid(user_) != 0)
            abort();
    }
    OrdinaryUser(const OrdinaryUser &) = delete;
    OrdinaryUser &operator=(const OrdinaryUser &) = delete;

  private:
    uid_t user_;
};

TEST_F(LogSubdirectory, AReadOnlyDirectoryFailsTheSwitchAndTheFileGoesOn) {
    chmod(dir.path().c_str(), 0755);
    chmod(sub.c_str(), 0777);
    {
        const OrdinaryUser user;
        open();
    }
    chmod(sub.c_str(), 0555);
    {
        const OrdinaryUser user;
        EXPECT_FALSE(switch_later());
        EXPECT_FALSE(LOG_switch(&f, 0));
        write(1);
        EXPECT_EQ(data(), line(1));
        EXPECT_EQ(lines_of(err.text()).size(), 1U);
        EXPECT_THAT(err.text(), HasSubstr(": Permission denied (log_file.cpp:"));
    }
    chmod(sub.c_str(), 0777);
    const OrdinaryUser user;
    EXPECT_TRUE(LOG_switch(&f, 0));
    write(2);
    EXPECT_EQ(data(), line(2));
}

// ---- A file or directory that vanishes ----

TEST_F(LogSubdirectory, AVanishedDirectoryIsReportedOnceAndWritingResumesWhenItIsBack) {
    open();
    write(1);
    LOG_flush(&f);
    std::filesystem::remove_all(sub);
    for (DWORD i = 2; i < 12; ++i)
        write(i);
    LOG_flush(&f);
    const std::string gone = err.text();
    EXPECT_THAT(gone, StartsWith("PREINIT: Unable to write to log file \"" + sub + "/X1_"));
    EXPECT_THAT(gone, HasSubstr("Z\": No such file or directory (log_file.cpp:"));
    EXPECT_EQ(lines_of(gone).size(), 1U);
    std::filesystem::create_directory(sub);
    write(12);
    write(13);
    EXPECT_THAT(content(), StartsWith("!fil;FileName,X1_"));
    EXPECT_EQ(data(), line(12) + line(13));
    EXPECT_THAT(err.text().substr(gone.size()),
                StartsWith("PREINIT: Log file \"" + std::string(f.filename) +
                           "\" is written again, 10 lines were lost (log_file.cpp:"));
    EXPECT_EQ(lines_of(err.text()).size(), 2U);
}

TEST_F(LogSubdirectory, AVanishedDirectoryFailsTheSwitchAndASwitchToItsReturnResumes) {
    open();
    std::filesystem::remove_all(sub);
    EXPECT_FALSE(LOG_switch(&f, 0));
    write(1);
    write(2);
    std::filesystem::create_directory(sub);
    EXPECT_TRUE(LOG_switch(&f, 0));
    write(3);
    EXPECT_EQ(data(), line(3));
    EXPECT_THAT(err.text(), HasSubstr("is written again, 2 lines were lost"));
    EXPECT_EQ(lines_of(err.text()).size(), 3U);
}

TEST_F(LogFiles, ADeletedFileIsReplacedByANewOneAndNoLineIsLost) {
    define_simple();
    open();
    write(1);
    LOG_flush(&f);
    const std::string name = f.filename;
    std::filesystem::remove(name);
    write(2);
    write(3);
    EXPECT_EQ(data(), line(2) + line(3));
    EXPECT_THAT(content(), StartsWith("!fil;FileName,X1_"));
    EXPECT_THAT(err.text(), StartsWith("PREINIT: Log file \"" + name +
                                       "\" was not written, going on in "
                                       "\"" +
                                       f.filename + "\" (log_file.cpp:"));
    EXPECT_EQ(lines_of(err.text()).size(), 1U);
}

TEST_F(LogFiles, LinesHeldBackWhenTheFileIsDeletedGoToTheNewOne) {
    root.set("Disk;BufferSize", "100");
    define_simple();
    open();
    std::string expected;
    for (DWORD i = 1; i <= 10; ++i) {
        write(i);
        expected += line(i);
    }
    std::filesystem::remove(f.filename);
    write(11);
    EXPECT_EQ(data(), expected + line(11));
    EXPECT_THAT(err.text(), HasSubstr("was not written, going on in"));
}

TEST_F(LogSubdirectory, LinesHeldBackWhenTheDirectoryVanishesAreCounted) {
    root.set("Disk;BufferSize", "100");
    open();
    for (DWORD i = 1; i <= 10; ++i)
        write(i);
    std::filesystem::remove_all(sub);
    write(11);
    EXPECT_EQ(f.lost, 11U);
    std::filesystem::create_directory(sub);
    write(12);
    EXPECT_EQ(data(), line(12));
    EXPECT_THAT(err.text(), HasSubstr("is written again, 11 lines were lost"));
}

TEST_F(LogFiles, ARenamedFileIsGoneOnWith) {
    define_simple();
    open();
    std::filesystem::rename(f.filename, dir / "renamed");
    write(1);
    LOG_flush(&f);
    EXPECT_THAT(read_file(dir / "renamed"), EndsWith(line(1)));
    EXPECT_EQ(err.text(), "");
}

// ---- A full disk ----

// No file may grow beyond a size; writing then fails as on a full disk, in the middle of a line.
class SizeLimit {
  public:
    explicit SizeLimit(size_t size) : handler_(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit = {size, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~SizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        signal(SIGXFSZ, handler_);
    }
    SizeLimit(const SizeLimit &) = delete;
    SizeLimit &operator=(const SizeLimit &) = delete;

  private:
    rlimit before_ = {};
    sighandler_t handler_;
};

class LogFull : public LogFiles {
  protected:
    LogFull() {
        // The header is larger than what is said on standard error meanwhile.
        zeb::insert_header(&f, ("!fil;long," + std::string(20000, 'x')).c_str());
        define_simple();
    }
    // Opens the file so that lines stay queued until they are flushed.
    void open_holding_back() {
        root.set("Disk;BufferSize", "1000");
        open();
    }
    // Writes lines until one is lost.
    void write_until_lost() {
        while (f.lost == 0 && number < 1000) {
            write(number + 1);
            LOG_flush(&f);
        }
    }
};

TEST_F(LogFull, AFullDiskIsReportedOnceAndWritingResumesInTheSameFileWithoutATornLine) {
    open();
    const std::string name = f.filename;
    DWORD written = 0;
    {
        // Room for two lines of 40 characters and a part of the third.
        const SizeLimit full(read_file(name).size() + 100);
        write_until_lost();
        written = number;
        for (int i = 0; i < 5; ++i)
            write(number + 1);
        EXPECT_EQ(f.lost, 7U) << "the torn line, the one that found the fault, and five";
        const std::string text = err.text();
        EXPECT_EQ(count_of(text, "Unable to write to log file \"" + name +
                                     "\": File too large (log_file.cpp:"),
                  1U);
        EXPECT_EQ(count_of(text, "Error writing to file"), 1U);
        EXPECT_EQ(lines_of(text).size(), 2U);
    }
    write(number + 1);
    write(number + 1);
    EXPECT_EQ(f.filename, name);
    EXPECT_EQ(data(), line(1) + line(2) + line(written + 6) + line(written + 7));
    EXPECT_THAT(err.text(), HasSubstr("Log file \"" + name +
                                      "\" is written again, 7 lines were "
                                      "lost (log_file.cpp:"));
    EXPECT_EQ(lines_of(err.text()).size(), 3U);
}

TEST_F(LogFull, AFaultThatIsOverAtTheNextLineLosesNoneAndSaysSo) {
    open_holding_back();
    {
        // The first line is torn.
        const SizeLimit full(content().size() + 20);
        write(1);
        write(2);
        LOG_flush(&f);
    }
    write(3);
    EXPECT_EQ(data(), line(1) + line(2) + line(3));
    const std::string name = "\"" + std::string(f.filename) + "\"";
    EXPECT_THAT(err.text(),
                HasSubstr("Log file " + name + " was not written, going on in " + name));
    EXPECT_EQ(lines_of(err.text()).size(), 2U);
}

TEST_F(LogFull, OnlyATornLineIsLostWhenTheFileIsGoneTooAfterAnError) {
    open_holding_back();
    {
        const SizeLimit full(read_file(f.filename).size() + 60);
        for (DWORD i = 1; i <= 10; ++i)
            write(i);
        LOG_flush(&f);
    }
    std::filesystem::remove(f.filename);
    write(11);
    std::string expected;
    for (DWORD i = 3; i <= 11; ++i)
        expected += line(i);
    EXPECT_EQ(data(), expected);
    EXPECT_THAT(err.text(), HasSubstr("is written again, 1 lines were lost"));
}

TEST_F(LogFull, ASwitchCountsTheLinesThatAnErrorLeft) {
    open_holding_back();
    {
        const SizeLimit full(read_file(f.filename).size() + 60);
        for (DWORD i = 1; i <= 3; ++i)
            write(i);
        LOG_flush(&f);
    }
    EXPECT_TRUE(switch_later());
    write(4);
    EXPECT_EQ(data(), line(4));
    EXPECT_THAT(err.text(), HasSubstr("is written again, 2 lines were lost"));
}

TEST_F(LogFull, ClosingCountsTheLinesThatAnErrorLeft) {
    open_holding_back();
    {
        const SizeLimit full(read_file(f.filename).size() + 60);
        for (DWORD i = 1; i <= 3; ++i)
            write(i);
        LOG_close(&f);
    }
    EXPECT_THAT(err.text(), HasSubstr("Log file \"" + std::string(f.filename) +
                                      "\" is closed, 2 lines were lost (log.cpp:"));
    EXPECT_EQ(lines_of(err.text()).size(), 2U);
    LOG_close(&f);
    EXPECT_EQ(lines_of(err.text()).size(), 2U);
}

TEST_F(LogFull, AFullDiskFailsTheOpening) {
    const SizeLimit full(10000);
    EXPECT_FALSE(LOG_open(&f, root, local, nullptr));
    EXPECT_THAT(err.text(), HasSubstr("Unable to open log file \"" + dir.path() +
                                      "\": File too large (log.cpp:"));
    EXPECT_TRUE(files().empty());
}

TEST_F(LogFull, AFullDiskFailsTheSwitchLeavesNoPartOfAFileAndTheOldOneStays) {
    open();
    write(1);
    LOG_flush(&f);
    {
        const SizeLimit full(10000);
        EXPECT_FALSE(switch_later());
        EXPECT_FALSE(LOG_switch(&f, 0));
        EXPECT_EQ(files().size(), 1U);
    }
    write(2);
    EXPECT_EQ(data(), line(1) + line(2));
    EXPECT_EQ(lines_of(err.text()).size(), 1U);
}

TEST_F(LogFull, AHeaderThatIsDueWaitsForRoom) {
    local.set("EnableLogging", "0");
    open();
    f.info.enabled = TRUE;
    {
        const SizeLimit full(10000);
        write(1);
        write(2);
        EXPECT_EQ(content(), "");
    }
    write(3);
    EXPECT_THAT(content(), StartsWith("!fil;FileName,X1_"));
    EXPECT_EQ(data(), line(3));
    EXPECT_EQ(count_of(err.text(), "Unable to write to log file"), 1U);
    EXPECT_EQ(count_of(err.text(), "is written again, 2 lines were lost"), 1U);
}

TEST_F(LogFull, AFileThatLostItsHeaderIsNotGoneOnWith) {
    open();
    const std::string name = f.filename;
    {
        const SizeLimit full(read_file(name).size() + 100);
        write_until_lost();
    }
    ASSERT_EQ(truncate(name.c_str(), 100), 0);
    write(7);
    EXPECT_THAT(content(), StartsWith("!fil;FileName,X1_"));
    EXPECT_EQ(data(), line(7));
}

TEST_F(LogFiles, LinesNeverGoToAStrangerUnderTheFilesOldNumber) {
    define_simple();
    open();
    const int fh = f.fh;
    zeb::file_abandon(fh, f.entry);
    // Something that raises the highest descriptor of interest lets the entry go.
    TempDir other;
    const int next = ZEBFILE_open((other / "next").c_str(), ZEBFILE_WRITE, 0);
    ASSERT_TRUE(wait_until([&] {
        ZEBFILE_write(next, ".", 1);
        return zeb::file_id(fh) == 0;
    }));
    const int stranger = ZEBFILE_open((other / "stranger").c_str(), ZEBFILE_WRITE, 0);
    ASSERT_EQ(stranger, fh);
    write(1);
    LOG_flush(&f);
    ZEBFILE_flush(stranger);
    EXPECT_EQ(read_file(other / "stranger"), "");
    EXPECT_EQ(data(), line(1));
}

} // namespace
