// Logging: opening a file, its name and its header.
#include "log_testing.h"

#include "libzeb2.h"

#include <cstring>
#include <regex>
#include <sys/stat.h>

using namespace zeb::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// ---- A fresh log file ----

TEST(Log, AFreshLogFileHasNothing) {
    LOG_file f;
    memset(&f, 0xFF, sizeof f);
    EXPECT_TRUE(LOG_init(&f));
    EXPECT_EQ(f.fh, -1);
    EXPECT_STREQ(f.basename, "UNDEF");
    EXPECT_STREQ(f.stncode_u, "STN");
    EXPECT_STREQ(f.stncode_l, "stn");
    EXPECT_EQ(f.headers.count, 0);
    EXPECT_EQ(f.records.count, 0);
    EXPECT_FALSE(f.info.enabled);
    EXPECT_EQ(f.max_file_size, 0U);
    EXPECT_FALSE(f.problem_switching);
    EXPECT_EQ(f.sbfr.buffer, nullptr);
    LOG_close(&f);
}

TEST(Log, ALogFileWithoutAFileCanBeClosedTwiceAndUsedAgain) {
    LOG_file f;
    LOG_init(&f);
    LOG_close(&f);
    LOG_close(&f);
    LOG_flush(&f);
    EXPECT_TRUE(LOG_init(&f));
    LOG_close(&f);
}

// ---- File names ----

TEST(Log, AFileIsNamedForItsTimeInUtc) {
    ScopedEnv zone("TZ", "Asia/Kathmandu");
    tzset();
    char name[256];
    LOG_filenamefortime("/oru/db/stn/abc/log/x1d", 1400000000, name);
    EXPECT_STREQ(name, "/oru/db/stn/abc/log/x1d_20140513T165320Z");
}

TEST(Log, NamesChangeAtTheBoundariesOfUtc) {
    const std::pair<time_t, const char *> names[] = {
        {0, "a_19700101T000000Z"},          {86399, "a_19700101T235959Z"},
        {86400, "a_19700102T000000Z"},      {1393631999, "a_20140228T235959Z"},
        {1393632000, "a_20140301T000000Z"}, {1456703999, "a_20160228T235959Z"},
        {1456704000, "a_20160229T000000Z"}, {1456790400, "a_20160301T000000Z"},
        {1420070399, "a_20141231T235959Z"}, {1420070400, "a_20150101T000000Z"},
        {951782400, "a_20000229T000000Z"},  {2147483647, "a_20380119T031407Z"},
        {-1, "a_19691231T235959Z"}};
    for (const auto &[time, expected] : names) {
        char name[256];
        LOG_filenamefortime("a", time, name);
        EXPECT_STREQ(name, expected);
    }
}

TEST(Log, ANameThatIsTooLongIsCut) {
    char name[257] = "";
    name[256] = '#';
    LOG_filenamefortime(std::string(300, 'b').c_str(), 0, name);
    EXPECT_EQ(std::string(name), std::string(255, 'b'));
    EXPECT_EQ(name[256], '#');
}

// ---- Opening ----

TEST_F(LogFiles, OpeningWithoutABaseNameFailsAndDoesNothing) {
    Conf empty;
    EXPECT_FALSE(LOG_open(&f, root, empty, nullptr));
    EXPECT_FALSE(LOG_open_n(&f, root, empty, nullptr, "!fil;x,y", nullptr));
    EXPECT_EQ(f.headers.count, 0);
    EXPECT_STREQ(f.basename, "UNDEF");
    EXPECT_STREQ(f.stncode_l, "stn");
    EXPECT_EQ(err.text(), "");
}

TEST_F(LogFiles, OpeningBeginsAFileNamedForNow) {
    const time_t before = time(nullptr);
    open();
    const time_t after = time(nullptr);
    EXPECT_EQ(f.basename, dir / "X1");
    std::vector<std::string> possible;
    for (time_t t = before; t <= after; ++t) {
        char name[256];
        LOG_filenamefortime(f.basename, t, name);
        possible.emplace_back(name);
    }
    EXPECT_THAT(possible, testing::Contains(std::string(f.filename)));
    EXPECT_NE(f.fh, -1);
    EXPECT_TRUE(f.info.enabled);
    EXPECT_EQ(files().size(), 1U);
}

TEST_F(LogFiles, ABaseNameGivenReplacesTheConfiguredOne) {
    ASSERT_TRUE(LOG_open_basename(&f, "x1d", root, local, nullptr));
    EXPECT_EQ(f.basename, dir / "x1d");
    EXPECT_THAT(content(), HasSubstr("\n!fil;ProcessedBy;x1d,zeb\n"));
}

TEST_F(LogFiles, WithoutABaseNameNoFileIsOpenedButTheRestIsDone) {
    EXPECT_TRUE(LOG_open_basename(&f, nullptr, root, local, nullptr));
    EXPECT_EQ(f.fh, -1);
    EXPECT_TRUE(f.info.enabled);
    EXPECT_STREQ(f.stncode_u, "ABC");
    EXPECT_EQ(f.headers.count, 5); // librev, version, STN, EPOCH, DateTime
    EXPECT_TRUE(files().empty());
    define_simple();
    write(1);
    EXPECT_EQ(err.text(), "");
}

TEST_F(LogFiles, TheStationsCodeIsKeptInBothCases) {
    root.set("Disk;StationID", "aB1");
    open();
    EXPECT_STREQ(f.stncode_l, "ab1");
    EXPECT_STREQ(f.stncode_u, "AB1");
}

TEST_F(LogFiles, WithoutAStationTheCodeIsNil) {
    root.set("Disk;StationID", nullptr);
    open();
    EXPECT_STREQ(f.stncode_l, "nil");
    EXPECT_STREQ(f.stncode_u, "NIL");
}

TEST_F(LogFiles, AStationIdentifierLongerThan31CharactersIsCutInBothCases) {
    root.set("Disk;StationID", std::string(40, 'q').c_str());
    open();
    EXPECT_EQ(std::string(f.stncode_l), std::string(31, 'q'));
    EXPECT_EQ(std::string(f.stncode_u), std::string(31, 'Q'));
}

TEST_F(LogFiles, AMaximumSizeOf0OrMinus1OrNoneIsNoLimit) {
    for (const char *value : {"0", "-1", "", "none"}) {
        root.set("Disk;MaxFileSize", value);
        f.max_file_size = 1;
        open();
        EXPECT_EQ(f.max_file_size, 0U) << value;
    }
}

TEST_F(LogFiles, AMaximumSizeIsInKilobytes) {
    root.set("Disk;MaxFileSize", "100");
    open();
    EXPECT_EQ(f.max_file_size, 102400U);
}

TEST_F(LogFiles, AMaximumSizeBeyondAllNumbersIsTheLargest) {
    for (const char *value : {"99999999999999999999", "-5", "-2"}) {
        root.set("Disk;MaxFileSize", value);
        open();
        EXPECT_EQ(f.max_file_size, static_cast<size_t>(LONG_MAX)) << value;
    }
}

TEST_F(LogFiles, ABufferSizeBelow0HoldsLinesBackUntilTheyAreFlushed) {
    for (const char *value : {"-1", "-5"}) {
        root.set("Disk;BufferSize", value);
        open();
        EXPECT_EQ(f.buffer_limit, static_cast<size_t>(LONG_MAX)) << value;
    }
}

// ---- Where files go ----

TEST_F(LogFiles, WithoutDirectoryAndDbFilesGoBelowTheUsualRoot) {
    root.set("Disk;LogDir", nullptr);
    if (LOG_open_basename(&f, "x1d", root, local, nullptr))
        unlink(f.filename); // a host that has the directory
    EXPECT_STREQ(f.basename, "/oru/db/stn/abc/log/x1d");
    char name[256];
    LOG_filenamefortime(f.basename, 1400000000, name);
    EXPECT_STREQ(name, "/oru/db/stn/abc/log/x1d_20140513T165320Z");
}

TEST_F(LogFiles, TheEnvironmentNamesTheRootOfTheLogDirectories) {
    root.set("Disk;LogDir", nullptr);
    root.set("Disk;StationID", "ABC");
    ScopedEnv other("DB", dir.path().c_str());
    std::filesystem::create_directories(dir / "stn/abc/log");
    open();
    EXPECT_EQ(f.basename, dir / "stn/abc/log/X1");
}

TEST_F(LogFiles, ARelativeDirectoryIsBelowTheInstallationRoot) {
    root.set("Disk;LogDir", "var/log");
    ScopedEnv installed("ZEB2", dir.path().c_str());
    std::filesystem::create_directories(dir / "var/log");
    open();
    EXPECT_EQ(f.basename, dir / "var/log/X1");
}

TEST_F(LogFiles, ADirectoryThatIsMissingFailsWithItsNameAndTheReason) {
    root.set("Disk;LogDir", (dir / "none").c_str());
    EXPECT_FALSE(LOG_open(&f, root, local, nullptr));
    EXPECT_EQ(f.fh, -1);
    EXPECT_FALSE(f.info.enabled);
    const std::string text = err.text();
    EXPECT_THAT(text, StartsWith("PREINIT: Unable to open file " + (dir / "none/X1_")));
    EXPECT_THAT(text, HasSubstr("Z: No such file or directory (log.cpp:"));
    EXPECT_THAT(text, HasSubstr("\nPREINIT: Unable to open log file \"" + (dir / "none") +
                                "\": No such file or directory (log.cpp:"));
    EXPECT_EQ(lines_of(text).size(), 2U);
}

TEST_F(LogFiles, AnOpeningThatFailsNamesTheDirectoryWhateverTheBaseName) {
    const std::string reported = "Unable to open log file \"" + dir.path() + "\": ";
    EXPECT_FALSE(LOG_open_basename(&f, "none/X1", root, local, nullptr));
    EXPECT_FALSE(LOG_open_basename(&f, (std::string(200, 'x') + "/" + std::string(99, 'y')).c_str(),
                                   root, local, nullptr));
    EXPECT_THAT(err.text(), HasSubstr(reported + "No such file or directory (log.cpp:"));
    EXPECT_THAT(err.text(), HasSubstr(reported + "File name too long (log.cpp:"));
}

TEST_F(LogFiles, ADirectoryWhoseNameIsCutIsReportedWhole) {
    const std::string longest = dir / std::string(300, 'd');
    root.set("Disk;LogDir", longest.c_str());
    EXPECT_FALSE(LOG_open(&f, root, local, nullptr));
    EXPECT_THAT(err.text(), HasSubstr("Unable to open log file \"" + longest + "\": "));
}

TEST_F(LogFiles, AnOpeningThatFailedCanBeRepeated) {
    root.set("Disk;LogDir", (dir / "late").c_str());
    define_simple();
    EXPECT_FALSE(LOG_open(&f, root, local, nullptr));
    write(1);
    std::filesystem::create_directory(dir / "late");
    open();
    write(2);
    EXPECT_EQ(data(), line(2));
}

TEST_F(LogFiles, ANameTooLongForAFileFailsWithTheReason) {
    EXPECT_FALSE(LOG_open_basename(&f, std::string(250, 'x').c_str(), root, local, nullptr));
    EXPECT_THAT(err.text(), HasSubstr("Unable to open log file \"" + dir.path() +
                                      "\": File name too long (log.cpp:"));
    EXPECT_TRUE(files().empty());
}

TEST_F(LogFiles, AFileOfTheSameNameIsReplaced) {
    char name[256];
    const time_t now = time(nullptr);
    for (time_t t = now; t < now + 60; ++t) {
        LOG_filenamefortime((dir / "X1").c_str(), t, name);
        write_file(name, "old\n");
    }
    open();
    EXPECT_THAT(content(), StartsWith("!fil;FileName,X1_"));
    EXPECT_THAT(content(), testing::Not(HasSubstr("old")));
    EXPECT_EQ(files().size(), 60U);
}

TEST_F(LogFiles, AFileIsCreatedReadableForAllUpToTheMask) {
    const mode_t before = umask(022);
    open();
    umask(before);
    struct stat status;
    ASSERT_EQ(stat(f.filename, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
}

TEST_F(LogFiles, OpeningAgainClosesTheFileBefore) {
    define_simple();
    open();
    write(1);
    const std::string first = f.filename;
    ASSERT_TRUE(LOG_open_basename(&f, "other", root, local, nullptr));
    EXPECT_THAT(read_file(first), testing::EndsWith(line(1)));
}

// ---- Whether logging is enabled ----

TEST_F(LogFiles, LoggingIsDisabledBy0AndFalseAndNoAndEvenTRUE) {
    for (const char *value : {"0", "false", "TRUE", "no", "f", "-"}) {
        local.set("EnableLogging", value);
        open();
        EXPECT_FALSE(f.info.enabled) << value;
    }
}

TEST_F(LogFiles, LoggingStaysEnabledBy1AndTrueAndEvenFalseWithACapital) {
    for (const char *value : {"1", "true", "False", "t", "F", "2x", "-1", "4294967296", ""}) {
        local.set("EnableLogging", value);
        open();
        EXPECT_TRUE(f.info.enabled) << value;
    }
}

TEST_F(LogFiles, DisabledLoggingWritesNeitherHeaderNorLines) {
    local.set("EnableLogging", "0");
    define_simple();
    open();
    write(1);
    EXPECT_EQ(content(), "");
    EXPECT_EQ(files().size(), 1U);
}

TEST_F(LogFiles, AFileBegunWhileDisabledGetsItsHeaderBeforeItsFirstLine) {
    local.set("EnableLogging", "0");
    define_simple();
    open();
    f.info.enabled = TRUE;
    write(1);
    write(2);
    EXPECT_THAT(content(), StartsWith("!fil;FileName,X1_"));
    EXPECT_EQ(data(), line(1) + line(2));
    EXPECT_EQ(files().size(), 1U);
    EXPECT_EQ(err.text(), "");
}

// ---- The header ----

std::string expected_header(const LOG_file &f) {
    std::string text = read_file(data_path("log/header.txt"));
    const std::string name = std::filesystem::path(f.filename).filename();
    text = std::regex_replace(text, std::regex("@NAME@"), name);
    return std::regex_replace(text, std::regex("@REVISION@"), g_libzeb2_revision);
}

TEST_F(LogFiles, AFileIsAsWrittenByHand) {
    local.load("record;S,a;b\nvar;a_X1;format,*5.1f\n");
    root.load("Global;station,Hilltop !fil;station,Hilltop\n!Disk;mounted,yes\n"
              "Control;x,1 !fil;Control,by hand\n");
    double a = 12.54, b = MVC;
    Table vars = {row("a", LVT_DOUBLE, &a), row("b", LVT_DOUBLE, &b, "*4.0f")};
    vars.at(0).desc = "Aerosol";
    LOG_define_record(&f, "S", nullptr, vars, local, FALSE);
    ASSERT_TRUE(LOG_open_basename_n(&f, "X1", root, local, nullptr, "!fil;own,line",
                                    "!FIL;OWN,LINE", nullptr));
    LOG_write(&f, nullptr, "S", 1400000000.9);
    a = -3;
    LOG_write(&f, nullptr, "S", 1400000060);
    EXPECT_EQ(content(), expected_header(f));
}

TEST_F(LogFiles, TheLineOfTheFileNameIsCutButKeepsItsEnd) {
    const std::string name(300, 'n');
    const auto text = zeb::header_text(&f, ("/tmp/" + name).c_str());
    EXPECT_EQ(std::string(text.get()), "!fil;FileName," + name.substr(0, 240) + "\n");
}

TEST_F(LogFiles, TheHeaderIsThereWhenOpeningReturns) {
    root.set("Disk;BufferSize", "64");
    open();
    EXPECT_THAT(read_file(f.filename), StartsWith("!fil;FileName,X1_"));
}

TEST_F(LogFiles, LinesAreHeldBackUpToTheBufferSizeAndByFlushOut) {
    root.set("Disk;BufferSize", "1");
    define_simple();
    open();
    const size_t header = read_file(f.filename).size();
    while (read_file(f.filename).size() == header && number < 100)
        write(number + 1);
    // A line has 42 bytes and more: 24 of them fill a kilobyte.
    EXPECT_GE(number, 20U);
    EXPECT_TRUE(zeb::test::wait_until([&] { return read_file(f.filename).size() > header; }));
    LOG_flush(&f);
    write(7);
    const std::string before = read_file(f.filename);
    LOG_flush(&f);
    EXPECT_EQ(read_file(f.filename), before + line(7));
}

// ---- Header lines ----

TEST_F(LogRecords, HeaderLinesAreSortedWithoutRegardToCase) {
    for (const char *text : {"!c", "!A", "!b", "!B2", "!ab"})
        zeb::insert_header(&f, text);
    // A text stands before its own beginning.
    EXPECT_THAT(headers(), ElementsAre("!ab", "!A", "!B2", "!b", "!c"));
}

TEST_F(LogRecords, TheSameHeaderLineInsertedByTwoDaemonsIsWrittenOnce) {
    zeb::insert_header(&f, "!var;STN;FieldDesc,Station ID code");
    zeb::insert_header(&f, "!var;STN;FieldDesc,Station ID code");
    EXPECT_THAT(headers(), ElementsAre("!var;STN;FieldDesc,Station ID code"));
}

TEST_F(LogRecords, HeaderLinesThatDifferOnlyInCaseCountAsTheSame) {
    zeb::insert_header(&f, "!fil;Site,a");
    zeb::insert_header(&f, "!FIL;SITE,A");
    EXPECT_THAT(headers(), ElementsAre("!fil;Site,a"));
}

TEST_F(LogFiles, AnEmptyHeaderLineIsABlankLine) {
    ASSERT_TRUE(LOG_open_basename_n(&f, "X1", root, local, nullptr, "", "!a", nullptr));
    // Behind all others, as a text stands before its own beginning.
    EXPECT_THAT(content(), testing::EndsWith("ID code\n\n"));
    EXPECT_EQ(err.text(), "");
}

TEST_F(LogRecords, NoTextIsNoHeaderLine) {
    zeb::insert_header(&f, nullptr);
    EXPECT_EQ(f.headers.count, 0);
}

TEST_F(LogRecords, CommentsOfABranchAreHeaderLines) {
    Conf conf;
    conf.load("!Global;b,2\nGlobal;a,1 !note of a\nGlobal;b;deep,3 !note of deep\nOther;x,1 !no\n");
    LOG_add_conf_headers(&f, CONF_lookup_tree(conf, "Global"));
    LOG_add_conf_headers(&f, nullptr);
    EXPECT_THAT(headers(), ElementsAre("!Global;b,2", "!note of a", "!note of deep"));
}

} // namespace
