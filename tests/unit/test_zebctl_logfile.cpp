#include "logfile_testing.h"

#include "log_summary.h"

#include <stdexcept>

using namespace zeb::test;
using namespace zebctl;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

namespace {

using Make = std::unique_ptr<LogOutput> (*)(const LogChoice &, FILE *);

// What an output prints of one file after the other.
std::string printed(Make make, const LogChoice &choice, const std::vector<std::string> &texts,
                    Faults *faults = nullptr) {
    const TempDir directory;
    const std::string path = directory / "out";
    FILE *stream = fopen(path.c_str(), "w");
    const auto output = make(choice, stream);
    for (const std::string &text : texts) {
        const Faults found = show(text, *output);
        if (faults != nullptr)
            *faults = found;
        else
            EXPECT_THAT(found, IsEmpty());
    }
    output->end();
    fclose(stream);
    return read_file(path);
}

Faults faults_of(const std::string &text) {
    Faults faults;
    printed(make_csv_output, {}, {text}, &faults);
    return faults;
}

TEST(LogFile, CsvHasAHeadingAndNothingForMissingValues) {
    EXPECT_EQ(printed(make_csv_output, {}, {log_data("one.log")}),
              "STN,EPOCH,DateTime,T_X1,n_X1\n"
              "ABC,1400000000,2014-05-13T16:53:20Z,12.5,\n"
              "ABC,1400000060,2014-05-13T16:54:20Z,-3.5,4\n"
              "ABC,1400000120,2014-05-13T16:55:20Z,,6\n");
}

TEST(LogFile, TextIsAlignedAndHasUnits) {
    LogChoice choice;
    choice.columns = {"T_X1", "n_X1"};
    EXPECT_EQ(printed(make_text_output, choice, {log_data("one.log")}),
              "            DateTime  T_X1 (C)  n_X1\n"
              "2014-05-13T16:53:20Z      12.5     -\n"
              "2014-05-13T16:54:20Z      -3.5     4\n"
              "2014-05-13T16:55:20Z         -     6\n");
}

TEST(LogFile, JsonHasEveryRecordWithNumbersTextsAndNull) {
    EXPECT_EQ(printed(make_json_output, {}, {log_data("two_records.log")}),
              "{\"time\":1400000000,\"type\":\"X1S\",\"station\":\"ABC\","
              "\"record\":{\"T_X1\":12.5,\"n_X1\":1}}\n"
              "{\"time\":1400000000,\"type\":\"X1A\",\"station\":\"ABC\","
              "\"record\":{\"F_X1\":\"0010\"}}\n"
              "{\"time\":1400000060,\"type\":\"X1A\",\"station\":\"ABC\","
              "\"record\":{\"F_X1\":null}}\n");
}

TEST(LogFile, SeveralFilesHaveOneHeading) {
    LogChoice choice;
    choice.columns = {"n_X1"};
    choice.record = "X1S";
    EXPECT_EQ(printed(make_csv_output, choice, {log_data("one.log"), log_data("two_records.log")}),
              "DateTime,n_X1\n2014-05-13T16:53:20Z,\n2014-05-13T16:54:20Z,4\n"
              "2014-05-13T16:55:20Z,6\n2014-05-13T16:53:20Z,1\n");
}

TEST(LogFile, ALaterFileWithOtherColumnsIsNamed) {
    std::string other = small_header() + small_line(60, "1");
    for (size_t at; (at = other.find("X1S;STN;EPOCH;DateTime;a")) != other.npos;)
        other.replace(at + 23, 1, "b");
    Faults faults;
    EXPECT_EQ(printed(make_csv_output, {}, {small_header() + small_line(0, "5"), other}, &faults),
              "STN,EPOCH,DateTime,a\nABC,,1970-01-01T00:00:00Z,5\n"
              "ABC,60,1970-01-01T00:01:00Z,\n");
    EXPECT_THAT(faults, ElementsAre(Pair(0, HasSubstr("no column \"a\"")),
                                    Pair(0, HasSubstr("\"b\" was not there before"))));
}

TEST(LogFile, SeveralRecordsNeedAChoice) {
    EXPECT_THROW(printed(make_csv_output, {}, {log_data("two_records.log")}), std::runtime_error);
    LogChoice choice;
    choice.record = "X1A";
    EXPECT_EQ(printed(make_csv_output, choice, {log_data("two_records.log")}),
              "STN,EPOCH,DateTime,F_X1\nABC,1400000000,2014-05-13T16:53:20Z,0010\n"
              "ABC,1400000060,2014-05-13T16:54:20Z,\n");
}

TEST(LogFile, AnUnknownColumnIsNamed) {
    LogChoice choice;
    choice.columns = {"x"};
    EXPECT_THROW(printed(make_text_output, choice, {log_data("one.log")}), std::runtime_error);
    Faults faults;
    printed(make_json_output, choice, {log_data("one.log")}, &faults);
    EXPECT_THAT(faults, ElementsAre(Pair(0, "there is no column \"x\"")));
}

TEST(LogFile, SinceIsInclusiveAndUntilIsNot) {
    LogChoice choice;
    choice.columns = {"DateTime"};
    choice.since = 1400000060;
    choice.until = 1400000120;
    EXPECT_EQ(printed(make_csv_output, choice, {log_data("one.log")}),
              "DateTime\n2014-05-13T16:54:20Z\n");
}

TEST(LogFile, DamagedLinesAreNamedAndSkipped) {
    Faults faults;
    EXPECT_EQ(printed(make_csv_output, {}, {log_data("damaged.log")}, &faults),
              "STN,EPOCH,DateTime,T_X1,n_X1\nABC,1400000000,2014-05-13T16:53:20Z,12.5,\n"
              "ABC,1400000060,2014-05-13T16:54:20Z,1.5,2\n");
    EXPECT_THAT(faults,
                ElementsAre(Pair(15, HasSubstr("4 fields for 5 columns")),
                            Pair(16, HasSubstr("no record that the header describes, \"?[2J?")),
                            Pair(17, HasSubstr("times are none or differ")),
                            Pair(19, HasSubstr("torn line"))));
}

TEST(LogFile, AFileWithoutHeaderIsNamed) {
    EXPECT_THAT(faults_of(small_line(0, "1")),
                ElementsAre(Pair(0, HasSubstr("does not begin with its header")),
                            Pair(0, "the header has no record"),
                            Pair(1, HasSubstr("no record that the header describes"))));
    EXPECT_THAT(faults_of(""), ElementsAre(Pair(0, HasSubstr("does not begin with its header")),
                                           Pair(0, "the header has no record")));
}

TEST(LogFile, ColumnsThatDoNotMatchTheirFormatsAreNamed) {
    std::string text = small_header();
    text.insert(text.find(";9\n"), ";9");
    EXPECT_THAT(faults_of(text),
                ElementsAre(Pair(0, "record X1S has 5 missing values for 4 columns")));
}

TEST(LogFile, AHeaderLineBehindTheDataIsNamed) {
    EXPECT_THAT(faults_of(small_header() + small_line(0, "1") + "!late,1\n"),
                ElementsAre(Pair(7, HasSubstr("header line behind the header"))));
}

TEST(LogFile, ALineWithoutAnEndIsBounded) {
    const std::string text =
        small_header() + std::string(3 * k_longest_log_line, 'x') + "\n" + small_line(60, "1");
    Faults faults;
    EXPECT_EQ(printed(make_csv_output, {}, {text}, &faults),
              "STN,EPOCH,DateTime,a\nABC,60,1970-01-01T00:01:00Z,1\n");
    EXPECT_THAT(faults, ElementsAre(Pair(6, "a line that is too long")));
}

TEST(LogFile, TooManyColumnsAreRefused) {
    std::string text = small_header();
    std::string many;
    for (int i = 0; i < 10001; ++i)
        many += ";a";
    text.insert(text.find(";a\n"), many);
    EXPECT_THAT(faults_of(text), ElementsAre(Pair(0, HasSubstr("too many columns")),
                                             Pair(0, "the header has no record")));
}

TEST(LogFile, WhatATerminalWouldObeyIsShownAsQuestionMarks) {
    EXPECT_EQ(shown(std::string("a\x1b[1m\0\t\x7f", 8)), "a?[1m???");
    EXPECT_EQ(shown("20 \u00b0C \u20ac"), "20 \u00b0C \u20ac");
    EXPECT_EQ(shown("\x9b \xc2\x9b \xe2\x82 \xed\xa0\x80"), "? ?? ?? ???");
    EXPECT_EQ(shown("\u202e"), "???");
    EXPECT_EQ(shown_width("\u00b0C"), 2U);
}

TEST(LogFile, TimesAreThoseOfTheDate) {
    EXPECT_EQ(log_time(-1), "1969-12-31T23:59:59Z");
    EXPECT_EQ(log_time(1400000000), "2014-05-13T16:53:20Z");
    EXPECT_EQ(parse_time("2014-05-13T16:53:20Z"), 1400000000);
    EXPECT_EQ(parse_time("2014-05-13 16:53"), 1399999980);
    EXPECT_EQ(parse_time("1970-01-02"), 86400);
    for (const char *none : {"", "2014", "2014-02-30", "2014-05-13T25:00", "2014-05-13x", "1e9"})
        EXPECT_FALSE(parse_time(none)) << none;
}

TEST(LogFile, SecondsBefore1970AreAcceptedAsTheyAreWritten) {
    EXPECT_EQ(printed(make_csv_output, {}, {small_header() + small_line(-1, "1")}),
              "STN,EPOCH,DateTime,a\nABC,4294967295,1969-12-31T23:59:59Z,1\n");
}

TEST(LogFile, UnitsComeFromTheHeader) {
    for (const auto &[line, unit] : {std::pair("!var;a;FieldDesc,Flow (l/min)\n", "l/min"),
                                     std::pair("!var;a;FieldDesc,Flow [l/min]\n", "l/min"),
                                     std::pair("!var;a;Units,lpm\n", "lpm"),
                                     std::pair("!var;a;FieldDesc,Flow (cold) of air\n", "")}) {
        LogSummary summary((LogChoice()));
        EXPECT_THAT(show(small_header(line), summary), IsEmpty());
        EXPECT_THAT(summary.json_lines(), HasSubstr("\"unit\":\"" + std::string(unit) + "\""));
    }
}

TEST(LogFile, TheSummaryCountsEachColumn) {
    LogSummary summary((LogChoice()));
    show(log_data("one.log"), summary);
    const ColumnSummary *column = summary.find("X1S", "T_X1");
    ASSERT_NE(column, nullptr);
    EXPECT_EQ(column->count, 2U);
    EXPECT_EQ(column->missing, 1U);
    EXPECT_EQ(column->min, -3.5);
    EXPECT_EQ(column->mean, 4.5);
    EXPECT_EQ(column->max, 12.5);
    EXPECT_EQ(column->first, 1400000000);
    EXPECT_EQ(column->last, 1400000060);
    EXPECT_EQ(summary.find("X1S", "STN"), nullptr);
}

TEST(LogFile, TheLeastIsOneOfTheValues) {
    LogSummary summary((LogChoice()));
    show(small_header() + small_line(60, "12.5") + small_line(61, "3.5"), summary);
    EXPECT_EQ(summary.find("X1S", "a")->min, 3.5);
    LogSummary below((LogChoice()));
    show(small_header() + small_line(60, "-12.5") + small_line(61, "-3.5"), below);
    EXPECT_EQ(below.find("X1S", "a")->max, -3.5);
}

TEST(LogFile, TheSummaryTakesHexadecimalNumbers) {
    LogSummary summary((LogChoice()));
    show(log_data("two_records.log"), summary);
    EXPECT_EQ(summary.find("X1A", "F_X1")->mean, 16);
    EXPECT_EQ(summary.find("X1A", "F_X1")->missing, 1U);
}

TEST(LogFile, ValuesThatAreNoFiniteNumbersCountButHaveNoFigures) {
    LogSummary summary((LogChoice()));
    show(small_header() + small_line(60, "nan") + small_line(61, "text") + small_line(62, "1e308") +
             small_line(63, "1e308"),
         summary);
    const ColumnSummary *column = summary.find("X1S", "a");
    EXPECT_EQ(column->count, 4U);
    EXPECT_EQ(column->numbers, 2U);
    EXPECT_DOUBLE_EQ(column->mean, 1e308);
}

TEST(LogFile, TheHeaderIsReadable) {
    std::string text;
    class Header : public LogOutput {
      public:
        using LogOutput::LogOutput;
        std::vector<std::string> begin(const LogHeader &header) override {
            text = header_text(header);
            json = header_json(header);
            return {};
        }
        void row(const LogRow &) override {}
        std::string text;
        Json json;
    } output((LogChoice()));
    show(log_data("one.log"), output);
    EXPECT_THAT(output.text, HasSubstr("written by: X1\n"));
    EXPECT_THAT(output.text, HasSubstr("T_X1      C     *5.1f"));
    EXPECT_THAT(output.text, HasSubstr("Disk;mounted = yes\nown comment\n"));
    EXPECT_EQ(output.json["records"][0]["columns"][3]["description"], "Temperature (C)");
    EXPECT_EQ(output.json["configuration"][0]["value"], "yes");
}

} // namespace
