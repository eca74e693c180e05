#include "logfile_testing.h"

#include "log_plot.h"

#include <sys/stat.h>

using namespace zeb::test;
using namespace zebctl;
using testing::HasSubstr;

using testing::StartsWith;

namespace {

LogChoice columns(const std::vector<std::string> &names) {
    LogChoice choice;
    choice.columns = names;
    return choice;
}

TEST(LogPlot, BinsDoubleTheirWidthWhenThereAreTooMany) {
    PlotBins bins;
    bins.add(0, 1);
    bins.add(4095, 3);
    EXPECT_EQ(bins.width(), 1);
    bins.add(1, 5);
    bins.add(4096, 7);
    EXPECT_EQ(bins.width(), 2);
    EXPECT_EQ(bins.bins().at(0).count, 2U);
    EXPECT_EQ(bins.bins().at(0).min, 1);
    EXPECT_EQ(bins.bins().at(0).mean, 3);
    EXPECT_EQ(bins.bins().at(0).max, 5);
    EXPECT_EQ(bins.begin(), 0);
    EXPECT_EQ(bins.end(), 4098);
}

TEST(LogPlot, BinsTakeTimesInAnyOrderAndBefore1970) {
    PlotBins bins;
    bins.add(253402300799, 1);
    bins.add(-62135596800, 2);
    for (int64_t time = -100000; time < 100000; ++time)
        bins.add(time, 0);
    EXPECT_LE(bins.bins().size(), PlotBins::k_most);
    EXPECT_LE(bins.begin(), -62135596800);
    EXPECT_GT(bins.end(), 253402300799);
    size_t count = 0;
    for (const auto &[number, bin] : bins.bins())
        count += bin.count;
    EXPECT_EQ(count, 200002U);
}

TEST(LogPlot, DrawsPointsWithinTheAxes) {
    LogPlot plot(columns({"a"}));
    show(small_header("!var;a;FieldDesc,Flow (lpm)\n") + small_line(60, "0") + small_line(61, "1") +
             small_line(62, "2"),
         plot);
    LogPlot::Look look;
    look.width = 50;
    look.height = 7;
    look.braille = false;
    // Three stretches of a second on 47 columns: their middles are at a sixth, a half, five sixths.
    EXPECT_EQ(plot.text(look), "a (lpm)  Flow (lpm)\n"
                               "2 |                                       *\n"
                               "1 |                       *\n"
                               "  |\n"
                               "0 |       *\n"
                               "   1970-01-01T00:01:00Z       1970-01-01T00:01:03Z\n");
    look.braille = true;
    EXPECT_THAT(plot.text(look), HasSubstr("2 \u2502"));
}

TEST(LogPlot, OneValueAndTheLargestOnesHaveAScale) {
    LogPlot plot(columns({"a"}));
    show(small_header() + small_line(60, "5"), plot);
    EXPECT_THAT(plot.text({}), HasSubstr("5.5 \u2502"));
    LogPlot wide(columns({"a"}));
    show(small_header() + small_line(60, "-1.7e308") + small_line(61, "1.7e308"), wide);
    EXPECT_THAT(wide.text({}), HasSubstr("1.7e+308 \u2502"));
}

TEST(LogPlot, WithoutNumbersThereIsNone) {
    LogPlot plot(columns({"a"}));
    show(small_header() + small_line(60, "9") + small_line(61, "nan"), plot);
    EXPECT_TRUE(plot.empty());
    EXPECT_EQ(plot.text({}), "");
}

TEST(LogPlot, ANarrowTerminalIsNoFailure) {
    LogPlot plot(columns({"T_X1", "n_X1"}));
    show(log_data("one.log"), plot);
    LogPlot::Look look;
    look.width = 1;
    look.height = 1;
    EXPECT_THAT(plot.text(look), StartsWith("T_X1 (C)"));
}

TEST(LogPlot, TheScriptQuotesWhatFilesSay) {
    LogPlot plot(columns({"a"}));
    show(small_header("!var;a;FieldDesc,it's `rm`\x1b\n") + small_line(60, "1.5"), plot);
    const std::string script = plot.gnuplot_script("it's.svg");
    EXPECT_THAT(script, HasSubstr("set terminal svg"));
    EXPECT_THAT(script, HasSubstr("set output 'it''s.svg'\n"));
    EXPECT_THAT(script, HasSubstr("set title 'it''s `rm`?' noenhanced\n"));
    EXPECT_THAT(script, HasSubstr("$data0 << EOD\n60.5 1.5 1.5 1.5\nEOD\n"));
    EXPECT_THAT(script, HasSubstr("set yrange [1.3500000000000001:1.6499999999999999]\n"));
}

TEST(LogPlot, OnlyPngAndSvgFilesArePlotted) {
    EXPECT_TRUE(is_plot_file("a.png"));
    EXPECT_TRUE(is_plot_file("dir/a.svg"));
    for (const char *name : {"", ".png", "a.gif", "a", "a\nb.png"})
        EXPECT_FALSE(is_plot_file(name)) << name;
}

TEST(LogPlot, GnuplotDrawsTheScript) {
    if (system("gnuplot --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "gnuplot is not installed";
    const TempDir directory;
    const std::string picture = directory / "it's.svg";
    LogPlot plot(columns({"T_X1", "n_X1"}));
    show(log_data("one.log"), plot);
    std::string error;
    ASSERT_TRUE(run_gnuplot(plot.gnuplot_script(picture), error)) << error;
    const std::string svg = read_file(picture);
    EXPECT_THAT(svg, HasSubstr("<svg"));
    EXPECT_THAT(svg, HasSubstr("T_X1 (C)"));
    EXPECT_THAT(svg, HasSubstr("</svg>"));
}

TEST(LogPlot, WithoutGnuplotTheErrorSaysSo) {
    const TempDir directory;
    const ScopedEnv path("PATH", directory.path().c_str());
    std::string error;
    EXPECT_FALSE(run_gnuplot("", error));
    EXPECT_THAT(error, HasSubstr("is not installed"));
}

TEST(LogPlot, GnuplotIsGivenTheScript) {
    const TempDir directory;
    const std::string program = directory / "gnuplot";
    write_file(program, "#!/bin/sh\nread line\n[ \"$line\" = 'the script' ]\n");
    ASSERT_EQ(chmod(program.c_str(), 0755), 0);
    const ScopedEnv path("PATH", directory.path().c_str());
    std::string error;
    EXPECT_TRUE(run_gnuplot("the script\n", error)) << error;
    EXPECT_FALSE(run_gnuplot("another\n", error));
    EXPECT_EQ(error, "gnuplot failed");
}

} // namespace
