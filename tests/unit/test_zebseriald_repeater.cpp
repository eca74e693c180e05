#include "zebseriald/repeater.h"

#include "support.h"

#include <algorithm>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace zebseriald;
using namespace zeb::test;
using testing::HasSubstr;

namespace {

class RepeaterTest : public testing::Test {
  protected:
    TempDir dir;
    serverkit::Complaints complaints;
    std::string why;

    std::optional<Repeater> make(const std::string &name, unsigned char mode = 3,
                                 bool by_line = false) {
        return Repeater::open(name, mode, by_line, dir.path(), complaints, why);
    }
    static void write(std::optional<Repeater> &repeater, Direction direction,
                      std::string_view bytes) {
        repeater->write(direction, bytes, 0);
    }
    std::string refusal(const std::string &name) {
        EXPECT_FALSE(make(name)) << name;
        return why;
    }
};

TEST_F(RepeaterTest, AppendsToAFileThatItMakes) {
    auto repeater = make("traffic");
    ASSERT_TRUE(repeater) << why;
    write(repeater, Direction::input, "in ");
    write(repeater, Direction::output, "out ");
    auto again = make(dir / "traffic");
    ASSERT_TRUE(again) << why;
    write(again, Direction::input, "more");
    EXPECT_EQ(read_file(dir / "traffic"), "in out more");
}

TEST_F(RepeaterTest, TheModeChoosesTheDirections) {
    auto in = make("in", 1);
    auto out = make("out", 2);
    ASSERT_TRUE(in && out);
    for (auto *repeater : {&in, &out}) {
        write(*repeater, Direction::input, "i");
        write(*repeater, Direction::output, "o");
    }
    EXPECT_EQ(read_file(dir / "in"), "i");
    EXPECT_EQ(read_file(dir / "out"), "o");
    for (const int mode : {0, 4, 255})
        EXPECT_FALSE(make("none", static_cast<unsigned char>(mode)));
    EXPECT_THAT(why, HasSubstr("mode 255"));
}

TEST_F(RepeaterTest, LinesAreWrittenWholeAndTheDirectionsDoNotMix) {
    auto repeater = make("lines", 3, true);
    ASSERT_TRUE(repeater);
    write(repeater, Direction::input, "ab");
    write(repeater, Direction::output, "out\nrest");
    EXPECT_EQ(read_file(dir / "lines"), "out\n");
    write(repeater, Direction::input, "c\nde\nf");
    EXPECT_EQ(read_file(dir / "lines"), "out\nabc\nde\n");
}

TEST_F(RepeaterTest, ALineThatDoesNotEndIsWrittenInPieces) {
    auto repeater = make("lines", 1, true);
    ASSERT_TRUE(repeater);
    write(repeater, Direction::input, std::string(5000, 'x'));
    EXPECT_EQ(read_file(dir / "lines").size(), 4096u);
    write(repeater, Direction::input, "\n");
    EXPECT_EQ(read_file(dir / "lines").size(), 5001u);
}

TEST_F(RepeaterTest, FilesElsewhereAreRefused) {
    TempDir other;
    EXPECT_THAT(refusal(other / "file"), HasSubstr("not below " + dir.path()));
    EXPECT_THAT(refusal("/etc/passwd"), HasSubstr("not below"));
    EXPECT_THAT(refusal(dir.path() + "x/file"), HasSubstr("cannot be used"));
    for (const std::string &name : {std::string(), std::string("../x"), std::string("a/../../x"),
                                    dir / "..", std::string("sub/")})
        EXPECT_EQ(refusal(name), "it is no name of a file") << name;
    EXPECT_THAT(refusal("missing/file"), HasSubstr("No such file"));
}

TEST_F(RepeaterTest, LinksDoNotLeadElsewhere) {
    TempDir other;
    write_file(other / "target", "");
    ASSERT_EQ(symlink((other / "target").c_str(), (dir / "link").c_str()), 0);
    ASSERT_EQ(symlink(other.path().c_str(), (dir / "sub").c_str()), 0);
    EXPECT_FALSE(make("link"));
    EXPECT_THAT(refusal("sub/file"), HasSubstr("not below"));
}

TEST_F(RepeaterTest, ADirectoryAndADeviceAreNoFiles) {
    ASSERT_EQ(mkdir((dir / "sub").c_str(), 0700), 0);
    EXPECT_FALSE(make("sub"));
    ASSERT_EQ(symlink("/dev/null", (dir / "null").c_str()), 0);
    EXPECT_FALSE(make("null"));
}

TEST_F(RepeaterTest, APipeMayBeAnywhereAndNeedsNoReader) {
    TempDir other;
    ASSERT_EQ(mkfifo((other / "pipe").c_str(), 0600), 0);
    auto repeater = make(other / "pipe");
    ASSERT_TRUE(repeater) << why;
    write(repeater, Direction::input, "abc");
    const int fd = open((other / "pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    char bytes[10];
    EXPECT_EQ(read(fd, bytes, sizeof bytes), 3);
    close(fd);
    write(repeater, Direction::input, "def"); // nobody reads: no harm
}

TEST_F(RepeaterTest, AFullPipeIsReportedOnceAndWhenItIsWrittenAgain) {
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    auto repeater = make("pipe", 1, true);
    ASSERT_TRUE(repeater) << why;
    const std::string line = std::string(1023, 'x') + "\n";
    StderrCapture errors;
    for (int i = 0; i < 1000; ++i)
        write(repeater, Direction::input, line);
    const int fd = open((dir / "pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    char bytes[4096];
    while (read(fd, bytes, sizeof bytes) > 0)
        ;
    write(repeater, Direction::input, line);
    EXPECT_EQ(read(fd, bytes, sizeof bytes), 1024); // whole lines only
    close(fd);
    const std::string text = errors.finish();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << text;
    EXPECT_THAT(text, HasSubstr("repeater \"pipe\": it misses what comes"));
    EXPECT_THAT(text, HasSubstr("it is written again; pieces lost: "));
}

TEST_F(RepeaterTest, AFullDiskIsReportedOnce) {
    if (access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "no /dev/full";
    auto repeater = make("file");
    ASSERT_TRUE(repeater);
    // The descriptor of the file comes to be one of a full disk.
    int file = -1;
    char link[64], path[4096];
    for (int fd = 3; fd < 64 && file < 0; ++fd) {
        snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
        const ssize_t length = readlink(link, path, sizeof path);
        if (length > 0 && std::string(path, static_cast<size_t>(length)) == dir / "file")
            file = fd;
    }
    ASSERT_GE(file, 0);
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    dup2(full, file);
    close(full);
    StderrCapture errors;
    for (int i = 0; i < 10; ++i)
        write(repeater, Direction::input, "x");
    const std::string text = errors.finish();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    EXPECT_THAT(text, HasSubstr("No space left on device"));
}

} // namespace
