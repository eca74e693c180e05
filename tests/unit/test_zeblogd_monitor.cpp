#include "zeblogd/monitor.h"

#include "support.h"

#include <cmath>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace zeb::test;
using namespace zeblogd;

namespace {

constexpr FTIME k_arrival = 1416571200.5; // 2014-11-21T12:00:00.5Z
const std::string k_file = "monitor_20141121.txt";

NET_LOG_MonitorMessage message(const std::string &text, FTIME time = 1416571199.25) {
    NET_LOG_MonitorMessage result = {};
    result.msgtime = time;
    text.copy(result.msg, sizeof result.msg);
    return result;
}

std::string line(const std::string &text, FTIME time = 1416571199.25) {
    return monitor_line(k_arrival, "gps", message(text, time));
}

TEST(ZeblogdMonitor, ALineHoldsTimeProgramAndText) {
    EXPECT_EQ(line("no fix yet"), "2014-11-21T11:59:59.250Z gps no fix yet\n");
}

TEST(ZeblogdMonitor, AMessageWithoutAUsableTimeHasThatOfItsArrival) {
    for (const FTIME time : {0.0, -1.0, MVC, std::nan(""), HUGE_VAL, -HUGE_VAL, 253402300800.0})
        EXPECT_EQ(line("x", time), "2014-11-21T12:00:00.500Z gps x\n") << time;
}

TEST(ZeblogdMonitor, TimesGoBeyond2038) {
    EXPECT_EQ(utc_time(4102444800.0), "2100-01-01T00:00:00.000Z");
    EXPECT_EQ(utc_time(253402300799.0), "9999-12-31T23:59:59.000Z");
    EXPECT_EQ(utc_time(std::nextafter(253402300800.0, 0)), "9999-12-31T23:59:59.000Z");
}

TEST(ZeblogdMonitor, ALineOfAProgramWithoutANameSaysSo) {
    EXPECT_EQ(monitor_line(k_arrival, nullptr, message("x")), "2014-11-21T11:59:59.250Z - x\n");
    EXPECT_EQ(monitor_line(k_arrival, "", message("x")), "2014-11-21T11:59:59.250Z - x\n");
}

TEST(ZeblogdMonitor, ANameIsOneWord) {
    EXPECT_EQ(monitor_line(k_arrival, "a b\tc", message("x")),
              "2014-11-21T11:59:59.250Z a\\x20b\\x09c x\n");
}

TEST(ZeblogdMonitor, SeveralLinesOfTextAreOneLine) {
    EXPECT_EQ(line("first\nsecond\r\n\n"), "2014-11-21T11:59:59.250Z gps first\\x0asecond\n");
    EXPECT_EQ(line("\n"), "2014-11-21T11:59:59.250Z gps \n");
}

TEST(ZeblogdMonitor, WhatATerminalWouldObeyIsVisible) {
    EXPECT_EQ(line("a\x1b[2Jb\x7f\xc2\x9b"),
              "2014-11-21T11:59:59.250Z gps a\\x1b[2Jb\\x7f\\xc2\\x9b\n");
}

TEST(ZeblogdMonitor, ATextWithoutAnEndIsTakenWhole) {
    const std::string text(8192, 't');
    EXPECT_EQ(line(text), "2014-11-21T11:59:59.250Z gps " + text + "\n");
}

TEST(ZeblogdMonitor, AFileIsNamedForTheDay) {
    EXPECT_EQ(monitor_file_name(1416527999.9994), "monitor_20141120.txt");
    EXPECT_EQ(monitor_file_name(1416528000), "monitor_20141121.txt");
    EXPECT_EQ(monitor_file_name(-5), "monitor_19700101.txt");
    EXPECT_EQ(monitor_file_name(1e300), "monitor_99991231.txt");
}

TEST(ZeblogdMonitorFile, AppendsToTheFileOfTheDay) {
    const TempDir dir;
    MonitorFile file(dir.path());
    write_file(dir / k_file, "earlier\n");
    file.append(k_arrival, "one\n");
    file.append(k_arrival, "two\n");
    file.append(k_arrival + 86400, "next day\n");
    EXPECT_EQ(read_file(dir / k_file), "earlier\none\ntwo\n");
    EXPECT_EQ(read_file(dir / "monitor_20141122.txt"), "next day\n");
}

TEST(ZeblogdMonitorFile, ADirectoryThatVanishesIsReportedOnceAndAgainWhenItIsBack) {
    const TempDir dir;
    const std::string place = dir / "log";
    MonitorFile file(place);
    const std::string path = place + "/" + k_file;
    for (int round = 0; round < 2; ++round) {
        StderrCapture capture;
        file.append(k_arrival, "lost\n");
        file.append(k_arrival, "lost\n");
        const std::string fault = capture.text();
        EXPECT_NE(fault.find("cannot write to the monitor file \"" + path +
                             "\": No such file or directory\n"),
                  std::string::npos)
            << fault;
        EXPECT_EQ(fault.find('\n'), fault.size() - 1) << "one line: " << fault;
        std::filesystem::create_directory(place);
        file.append(k_arrival, "kept\n");
        file.append(k_arrival, "kept\n");
        EXPECT_NE(capture.finish().find("is written to again; lines lost: 2\n"), std::string::npos);
        EXPECT_EQ(read_file(path), "kept\nkept\n");
        std::filesystem::remove_all(place);
    }
}

TEST(ZeblogdMonitorFile, AFileThatCannotGrowLeavesNoLineJoinedToAnother) {
    const TempDir dir;
    MonitorFile file(dir.path());
    StderrCapture capture;
    rlimit usual = {};
    getrlimit(RLIMIT_FSIZE, &usual);
    signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {1000, usual.rlim_max}; // the captured report fits too
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string first = std::string(997, 'f') + "\n";
    file.append(k_arrival, first);
    file.append(k_arrival, "does not fit\n");
    file.append(k_arrival, "does not fit\n");
    setrlimit(RLIMIT_FSIZE, &usual);
    file.append(k_arrival, "whole\n");
    file.append(k_arrival, "whole\n");
    const std::string report = capture.finish();
    EXPECT_NE(report.find("No space left"), std::string::npos) << report;
    EXPECT_EQ(read_file(dir / k_file), first + "do\nwhole\nwhole\n");
}

TEST(ZeblogdMonitorFile, APipeInTheWayHoldsUpNothing) {
    const TempDir dir;
    ASSERT_EQ(mkfifo((dir / k_file).c_str(), 0600), 0);
    MonitorFile file(dir.path());
    StderrCapture capture;
    file.append(k_arrival, "line\n");
    EXPECT_NE(capture.finish().find("cannot write to the monitor file"), std::string::npos);
}

TEST(ZeblogdMonitorFile, ADirectoryInTheWayIsReported) {
    const TempDir dir;
    std::filesystem::create_directory(dir / k_file);
    MonitorFile file(dir.path());
    StderrCapture capture;
    file.append(k_arrival, "line\n");
    EXPECT_NE(capture.finish().find("Is a directory"), std::string::npos);
}

} // namespace
