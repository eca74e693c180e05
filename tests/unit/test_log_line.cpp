// Logging: the values of a line, and where lines go.
#include "log_testing.h"

#include "avg.h"

#include <cmath>
#include <fcntl.h>
#include <limits>
#include <unistd.h>

using namespace zeb::test;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class LogLines : public LogRecords {
  protected:
    void define(const LOG_map_defn *vars, const char *lrd = "*") {
        LOG_define_record(&f, "S", lrd, vars, local, FALSE);
    }
    // The line that LOG_write left, from its fifth field on.
    std::string written() {
        const std::string text = SFMT_get_buffer(&f.sbfr);
        const std::string start = "S,STN,1400000000,2014-05-13T16:53:20Z";
        return text.rfind(start, 0) == 0 ? text.substr(start.size()) : text;
    }
};

// ---- Values in memory ----

TEST_F(LogLines, ALineHasFourLeadingColumns) {
    DWORD n = 5;
    local.set("fil;name", "X1");
    strcpy(f.stncode_u, "ABC");
    const Table vars = {row("n", LVT_DWORD, &n, "%u")};
    define(vars);
    EXPECT_EQ(line(), "X1S,ABC,1400000000,2014-05-13T16:53:20Z,5\n");
}

TEST_F(LogLines, ValuesInMemoryAreTakenByTheirType) {
    double d = -1.25;
    DWORD ptr = 0xFFFFFFF0, dword = 4000000000;
    BYTE byte = 200;
    WORD word = 65535;
    QWORD qword = 18446744073709551615U;
    const Table vars = {row("d", LVT_DOUBLE, &d, "%.2f"),    row("p", LVT_PTR, &ptr, "%08X"),
                        row("b", LVT_BYTE, &byte, "%d"),     row("w", LVT_WORD, &word, "%d"),
                        row("dw", LVT_DWORD, &dword, "%u"),  row("q", LVT_QWORD, &qword, "%llu"),
                        row("m", LVT_MVC, nullptr, "*3.1f"), row("i", LVT_DWORD, &dword, "%d"),
                        row("l", LVT_DWORD, &dword, "%lu")};
    define(vars);
    EXPECT_EQ(columns(),
              ",-1.25,FFFFFFF0,200,65535,4000000000,18446744073709551615,999.9,-294967296,"
              "4000000000");
}

TEST_F(LogLines, ValuesNeedNotBeAligned) {
    char packed[9] = {};
    const double d = 2.5;
    memcpy(packed + 1, &d, sizeof d);
    const Table vars = {row("d", LVT_DOUBLE, packed + 1, "%g")};
    define(vars);
    EXPECT_EQ(columns(), ",2.5");
}

TEST_F(LogLines, AveragesAreTakenFromTheirAveragers) {
    AVG_shifting shifting;
    AVG_shift_init(&shifting);
    for (double x : {1.0, 3.0})
        AVG_shift_add(&shifting, x);
    AVG_shift_clear(&shifting);
    AVG_shift_add(&shifting, 8.0); // the window holds 3 and 8
    AVG_fixed fixed;
    AVG_fixed_init(&fixed, 2);
    for (double x : {1.0, 2.0, 5.0})
        AVG_fixed_add(&fixed, x);
    AVG_simple simple = {};
    AVG_simple_add(&simple, 10);
    AVG_simple_add(&simple, 11);
    const Table vars = {row("p", LVT_AVG_SHIFTING, &shifting, "%g"),
                        row("r", LVT_AVG_SHIFTING_RUNNING, &shifting, "%g"),
                        row("f", LVT_AVG_FIXED, &fixed, "%g"),
                        row("s", LVT_AVG_SIMPLE, &simple, "%g")};
    define(vars);
    EXPECT_EQ(columns(), ",8,5.5,3.5,10.5");
    AVG_shift_delete(&shifting);
    AVG_fixed_delete(&fixed);
}

TEST_F(LogLines, AnAverageWithoutSamplesIsMissing) {
    AVG_simple simple = {};
    const Table vars = {row("s", LVT_AVG_SIMPLE, &simple, "*3.1f")};
    define(vars);
    EXPECT_EQ(columns(), ",999.9");
}

TEST_F(LogLines, ADoubleThatIsExactlyTheMissingValuePrintsTheMissingText) {
    double d = MVC;
    const Table vars = {row("d", LVT_DOUBLE, &d, "%g", "gone")};
    define(vars);
    EXPECT_EQ(columns(), ",gone");
    d = 9.99e-99;
    EXPECT_EQ(columns(), ",9.99e-99");
}

TEST_F(LogLines, NanPrintsThroughTheFormat) {
    double d = std::numeric_limits<double>::quiet_NaN();
    const Table vars = {row("d", LVT_DOUBLE, &d, "*2.1f", "gone"), row("e", LVT_DOUBLE, &d, "%f")};
    define(vars);
    EXPECT_EQ(columns(), ",99.9,nan");
}

TEST_F(LogLines, WithoutAFormatAFieldIsEmpty) {
    double d = 1;
    DWORD n = 2;
    const Table vars = {row("d", LVT_DOUBLE, &d), row("n", LVT_DWORD, &n),
                        row("m", LVT_MVC, nullptr, nullptr, "mv")};
    define(vars);
    EXPECT_EQ(columns(), ",,,mv");
}

TEST_F(LogLines, AFormatForTextNeverTakesANumberForAnAddress) {
    double d = 1e300;
    DWORD n = 2;
    local.set("var;n;format", "<%s>");
    const Table vars = {row("d", LVT_DOUBLE, &d, "[%s]"), row("n", LVT_DWORD, &n, "%u"),
                        row("i", LVT_DOUBLE, &d, "%d")};
    define(vars);
    EXPECT_EQ(columns(), ",[],<>,0");
}

TEST_F(LogLines, AVariableWithoutDataIsReported) {
    const Table vars = {row("d", LVT_DOUBLE, nullptr, "%g"),
                        row("a", LVT_AVG_SIMPLE, nullptr, "%g", "none")};
    define(vars);
    EXPECT_EQ(columns(), ",0,none");
    EXPECT_THAT(err.text(), HasSubstr("assertion failed (log_line.cpp:"));
}

// ---- Functions ----

BOOL say(void *pd, LOG_record_var_defn *var, SFMT_buffer *out) {
    SFMT_printf(out, "%s=%s", var->defn->name, static_cast<const char *>(pd));
    return TRUE;
}

BOOL fail(void *, LOG_record_var_defn *, SFMT_buffer *out) {
    SFMT_copystr(out, "rubbish");
    return FALSE;
}

TEST_F(LogLines, AFunctionMakesItsText) {
    char text[] = "hello";
    Table vars = {row("f", LVT_FUNCTION, text)};
    vars.at(0).map = say;
    define(vars);
    EXPECT_EQ(columns(), ",f=hello");
}

TEST_F(LogLines, AFunctionThatFailsOrIsMissingLeavesTheMissingTextOrNothing) {
    Table vars = {row("f", LVT_FUNCTION, nullptr, nullptr, "none"), row("g", LVT_FUNCTION),
                  row("h", LVT_FUNCTION, nullptr, nullptr, "no map"), row("i", LVT_FUNCTION)};
    vars.at(0).map = vars.at(1).map = fail;
    define(vars);
    EXPECT_EQ(columns(), ",none,,no map,");
}

TEST_F(LogLines, AnUnknownTypeIsReportedAndItsFieldEmpty) {
    DWORD n = 1;
    const Table vars = {row("n", LVT_DWORD, &n, "%u"), row("x", static_cast<LOG_VAR_TYPE>(77))};
    define(vars);
    EXPECT_EQ(columns(), ",1,");
    EXPECT_THAT(err.text(), StartsWith("PREINIT: Unrecognized field type in record S (77) at "
                                       "index 1 (log_line.cpp:"));
}

// ---- Arguments ----

TEST_F(LogLines, ArgumentsAreTakenInTheOrderOfTheTable) {
    const Table vars = {
        row("d", LVT_VA_DOUBLE, nullptr, "%g"),   row("b", LVT_VA_BYTE, nullptr, "%d"),
        row("w", LVT_VA_WORD, nullptr, "%d"),     row("q", LVT_VA_QWORD, nullptr, "%llu"),
        row("dw", LVT_VA_DWORD, nullptr, "%u"),   row("p", LVT_VA_PTR, nullptr, "%08X"),
        row("e", LVT_VA_DOUBLE, nullptr, "*2.1f")};
    define(vars, "e p dw q w b d");
    LOG_write(&f, nullptr, "S", 1400000000, 1.5, 0x1FF, 0x1FFFF, QWORD{1} << 63, DWORD{4000000000},
              reinterpret_cast<void *>(0x12345678), MVC);
    EXPECT_EQ(written(), ",99.9,12345678,4000000000,9223372036854775808,65535,255,1.5\n");
}

TEST_F(LogLines, ArgumentsOfDisabledVariablesAreStillConsumed) {
    for (const char *name : {"d", "p", "b", "w", "dw", "q"})
        local.set((std::string("var;") + name + ";enable").c_str(), "0");
    const Table vars = {
        row("d", LVT_VA_DOUBLE, nullptr, "%g"),  row("x1", LVT_VA_DWORD, nullptr, "%u"),
        row("p", LVT_VA_PTR, nullptr, "%u"),     row("x2", LVT_VA_QWORD, nullptr, "%llu"),
        row("b", LVT_VA_BYTE, nullptr, "%d"),    row("x3", LVT_VA_DOUBLE, nullptr, "%g"),
        row("w", LVT_VA_WORD, nullptr, "%d"),    row("x4", LVT_VA_BYTE, nullptr, "%d"),
        row("dw", LVT_VA_DWORD, nullptr, "%u"),  row("x5", LVT_VA_WORD, nullptr, "%d"),
        row("q", LVT_VA_QWORD, nullptr, "%llu"), row("x6", LVT_VA_PTR, nullptr, "%u")};
    define(vars);
    LOG_write(&f, nullptr, "S", 1400000000, 0.5, DWORD{1}, &f, QWORD{2}, 0, 3.5, 0, 4, DWORD{0}, 5,
              QWORD{0}, reinterpret_cast<void *>(6));
    EXPECT_EQ(written(), ",1,2,3.5,4,5,6\n");
}

TEST_F(LogLines, ArgumentsThatAreNoColumnAreStillConsumed) {
    const Table vars = {row("a", LVT_VA_DOUBLE, nullptr, "%g"),
                        row("b", LVT_VA_DOUBLE, nullptr, "%g")};
    define(vars, "b");
    LOG_write(&f, nullptr, "S", 1400000000, 1.0, 2.0);
    EXPECT_EQ(written(), ",2\n");
}

TEST_F(LogLines, TheArgumentOfAnUnnamedVariableIsStillConsumed) {
    const Table vars = {row(nullptr, LVT_VA_DOUBLE, nullptr, "%g"),
                        row("b", LVT_VA_DOUBLE, nullptr, "%g")};
    define(vars);
    LOG_write(&f, nullptr, "S", 1400000000, 1.0, 2.0);
    EXPECT_EQ(written(), ",2\n");
}

// ---- Times ----

TEST_F(LogLines, TheTimeIsTruncatedToTheSecondAndPrintedInUtc) {
    ScopedEnv zone("TZ", "America/Denver");
    tzset();
    DWORD n = 1;
    const Table vars = {row("n", LVT_DWORD, &n, "%u")};
    define(vars);
    const std::pair<double, const char *> times[] = {
        {1400000000.999, "1400000000,2014-05-13T16:53:20Z"},
        {0.0, "0,1970-01-01T00:00:00Z"},
        {1419983999.0, "1419983999,2014-12-30T23:59:59Z"},
        {1420070399.5, "1420070399,2014-12-31T23:59:59Z"},
        {1420070400.0, "1420070400,2015-01-01T00:00:00Z"},
        {2147483648.0, "2147483648,2038-01-19T03:14:08Z"},
        {4102444800.0, "4102444800,2100-01-01T00:00:00Z"},
        {-1.0, "4294967295,1969-12-31T23:59:59Z"},
        {std::nan(""), "4294967295,1969-12-31T23:59:59Z"},
        {HUGE_VAL, "4294967295,1969-12-31T23:59:59Z"},
        {-1e300, "4294967295,1969-12-31T23:59:59Z"}};
    for (const auto &[time, expected] : times)
        EXPECT_EQ(line("S", time), std::string("S,STN,") + expected + ",1\n");
}

// ---- Where lines go ----

TEST_F(LogLines, AnUnknownCodeWritesNothing) {
    DWORD n = 1;
    const Table vars = {row("n", LVT_DWORD, &n, "%u")};
    define(vars);
    EXPECT_EQ(line("s"), "");
    EXPECT_EQ(line(""), "");
    EXPECT_EQ(line(nullptr), "");
}

TEST_F(LogLines, APercentInTheDataIsInterpretedOnItsWayToAStream) {
    char text[] = "100%% of 5%";
    Table vars = {row("f", LVT_FUNCTION, text)};
    vars.at(0).map = say;
    define(vars);
    LOG_write(&f, nullptr, "S", 1400000000);
    EXPECT_EQ(written(), ",f=100%% of 5%\n");
    strcpy(text, "100%%");
    EXPECT_EQ(columns(), ",f=100%");
}

TEST_F(LogLines, ALineGoesToADescriptorAsItIs) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    char text[] = "5%% %s";
    Table vars = {row("f", LVT_FUNCTION, text)};
    vars.at(0).map = say;
    define(vars);
    LOG_write_fd(&f, ends[1], "S", 1400000000);
    LOG_write_fd(&f, ends[1], "none", 1400000000);
    close(ends[1]);
    char got[256] = "";
    EXPECT_GT(read(ends[0], got, sizeof got - 1), 0);
    EXPECT_STREQ(got, "S,STN,1400000000,2014-05-13T16:53:20Z,f=5%% %s\n");
    close(ends[0]);
}

TEST_F(LogLines, AnEmptyLineIsWrittenToADescriptorToo) {
    errno = 0;
    LOG_write_fd(&f, -1, "none", 0);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(err.text(), "");
}

TEST_F(LogFiles, LinesGoToTheFileOneAfterTheOther) {
    define_simple();
    open();
    write(1);
    write(2);
    LOG_write(&f, nullptr, "none", 1400000000);
    write(3);
    EXPECT_EQ(data(), line(1) + line(2) + line(3));
}

TEST_F(LogFiles, APercentInTheDataIsNotInterpretedOnItsWayToTheFile) {
    char text[] = "5%% %s %n";
    Table vars = {row("f", LVT_FUNCTION, text)};
    vars.at(0).map = say;
    LOG_define_record(&f, "S", "*", vars, local, FALSE);
    open();
    LOG_write(&f, nullptr, "S", 1400000000);
    EXPECT_THAT(content(), testing::EndsWith("20Z,f=5%% %s %n\n"));
}

TEST_F(LogFiles, WithoutAFileNothingIsWritten) {
    define_simple();
    write(1);
    EXPECT_EQ(err.text(), "");
    EXPECT_TRUE(files().empty());
}

} // namespace
