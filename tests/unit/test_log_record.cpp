// Logging: defining records, and their header lines.
#include "log_testing.h"

using namespace zeb::test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class LogDefinitions : public LogRecords {
  protected:
    void define(const char *lrd, bool prefixnames = false) {
        LOG_define_record(&f, "S", lrd, vars, local, prefixnames);
    }
    // The columns' names as the header gives them.
    std::string column_names() const {
        std::string result;
        for (const std::string &text : headers()) {
            const std::string start = "!row;colhdr;S,S;STN;EPOCH;DateTime";
            if (text.rfind(start, 0) == 0)
                result += text.substr(start.size());
        }
        return result;
    }
    std::string undefined(const char *name) const {
        return std::string("PREINIT: Record defintion for S referencing an undefined variable ") +
               name + " (log_record.cpp:";
    }

    double a = 1, b = 2;
    DWORD c = 3;
    Table vars = {row("a", LVT_DOUBLE, &a, "*2.1f"), row("b", LVT_DOUBLE, &b, "*2.1f"),
                  row("c", LVT_DWORD, &c, "%u")};
};

// ---- What is defined at all ----

TEST_F(LogDefinitions, NothingIsDefinedWithoutATable) {
    LOG_define_record(&f, "S", "*", nullptr, local, FALSE);
    LOG_define_record(&f, "S", "*", &k_end, local, FALSE);
    LOG_define_record(&f, nullptr, "*", vars, local, FALSE);
    EXPECT_EQ(f.records.count, 0);
    EXPECT_EQ(f.headers.count, 0);
    EXPECT_THAT(err.text(), HasSubstr("assertion failed (log_record.cpp:"));
}

TEST_F(LogDefinitions, NothingIsDefinedWithoutAListOfColumns) {
    define(nullptr);
    EXPECT_EQ(f.records.count, 0);
}

TEST_F(LogDefinitions, AConfigurationIsNotNeeded) {
    LOG_define_record(&f, "S", "*", vars, nullptr, FALSE);
    EXPECT_EQ(columns(), ", 1.0, 2.0,3");
}

TEST_F(LogDefinitions, TheCodeIsCutTo31Characters) {
    LOG_define_record(&f, std::string(40, 'C').c_str(), "*", vars, local, FALSE);
    EXPECT_EQ(std::string(record().code), std::string(31, 'C'));
    EXPECT_EQ(std::string(record().rectype), std::string(31, 'C'));
}

TEST_F(LogDefinitions, TheRecordTypeIsTheFileNameAndTheCodeCutTo62Characters) {
    local.set("fil;name", "X1");
    define("*");
    EXPECT_STREQ(record().rectype, "X1S");
    local.set("fil;name", std::string(61, 'n').c_str());
    LOG_define_record(&f, "TU", "*", vars, local, FALSE);
    EXPECT_EQ(std::string(record(1).rectype), std::string(61, 'n') + "T");
}

// ---- Columns ----

TEST_F(LogDefinitions, AStarMeansEveryEnabledVariableInTheOrderOfTheTable) {
    local.set("var;b;enable", "0");
    define("*");
    EXPECT_EQ(column_names(), ";a;c");
    EXPECT_EQ(columns(), ", 1.0,3");
}

TEST_F(LogDefinitions, ColumnsComeInTheOrderOfTheListAndMayRepeat) {
    define("c;a  b\t;\na");
    EXPECT_EQ(column_names(), ";c;a;b;a");
    EXPECT_EQ(columns(), ",3, 1.0, 2.0, 1.0");
}

TEST_F(LogDefinitions, SeparatorsAroundTheListAreNoColumns) {
    define(" ;c; ");
    EXPECT_EQ(column_names(), ";c");
    EXPECT_EQ(err.text(), "");
}

TEST_F(LogDefinitions, TheConfiguredListReplacesTheProgramsOwn) {
    local.set("record;S", "b");
    define("a");
    EXPECT_EQ(column_names(), ";b");
}

TEST_F(LogDefinitions, TheConfiguredListAloneWillDo) {
    local.set("record;S", "b");
    define(nullptr);
    EXPECT_EQ(column_names(), ";b");
}

TEST_F(LogDefinitions, AListThatNamesADisabledVariableLeavesItOutWithoutAMessage) {
    local.set("var;b;enable", "0");
    define("a;b;c");
    EXPECT_EQ(column_names(), ";a;c");
    EXPECT_EQ(err.text(), "");
}

TEST_F(LogDefinitions, ANumberOfAnySizeOtherThan0Enables) {
    local.set("var;b;enable", "4294967296");
    define("a;b");
    EXPECT_EQ(column_names(), ";a;b");
}

TEST_F(LogDefinitions, AListThatNamesAnUnknownVariableReportsItAndLeavesItOut) {
    define("a;nix;c");
    EXPECT_EQ(column_names(), ";a;c");
    const std::string text = err.text();
    EXPECT_THAT(text, StartsWith(undefined("nix")));
    EXPECT_EQ(lines_of(text).size(), 1U);
}

TEST_F(LogDefinitions, NamesOfColumnsMatterWithTheirCase) {
    define("A");
    EXPECT_EQ(record().n_cols, 0U);
    EXPECT_THAT(err.text(), HasSubstr(undefined("A")));
}

TEST_F(LogDefinitions, AColumnIsFoundByItsHeaderNameAndByItsRowName) {
    local.set("fil;name", "X1");
    define("a_X1;b");
    EXPECT_EQ(record().n_cols, 2U);
    EXPECT_THAT(headers(), Contains("!row;colhdr;X1S,X1S;STN;EPOCH;DateTime;a_X1;b_X1"));
}

TEST_F(LogDefinitions, AnEmptyListKeepsTheRecordWritesNothingAndAddsNoHeaders) {
    define("");
    EXPECT_EQ(f.records.count, 1);
    EXPECT_EQ(record().n_cols, 0U);
    EXPECT_EQ(line(), "");
    EXPECT_EQ(f.headers.count, 0);
}

TEST_F(LogDefinitions, ARecordOfUnknownColumnsOnlyAddsNoHeaders) {
    define("x y");
    EXPECT_EQ(f.records.count, 1);
    EXPECT_EQ(f.headers.count, 0);
}

TEST_F(LogDefinitions, NamesInAListAreCutTo63Characters) {
    const std::string name(63, 'v');
    vars.at(0).name = name.c_str();
    define((name + "tail").c_str());
    EXPECT_EQ(record().n_cols, 1U);
}

TEST_F(LogDefinitions, ALongListHasRoom) {
    std::string list;
    for (int i = 0; i < 1000; ++i)
        list += "a;";
    define(list.c_str());
    EXPECT_EQ(record().n_cols, 1000U);
}

TEST_F(LogDefinitions, TheFirstOfTwoRecordsWithTheSameCodeIsWritten) {
    define("a");
    define("b");
    EXPECT_EQ(f.records.count, 2);
    EXPECT_EQ(columns(), ", 1.0");
}

TEST_F(LogDefinitions, AnUnnamedVariableIsReportedAndSkipped) {
    vars.at(1).name = nullptr;
    define("*");
    EXPECT_THAT(err.text(), StartsWith("PREINIT: Un-named variable at index 1 in defintion of S "
                                       "(log_record.cpp:"));
    EXPECT_EQ(column_names(), ";a;c");
    EXPECT_EQ(columns(), ", 1.0,3");
    EXPECT_EQ(record().vars[1].hdrname, nullptr);
}

// ---- Names of columns ----

struct NameCase {
    const char *row, *file;
    bool prefixnames;
    const char *expected;
};

TEST_F(LogDefinitions, ColumnsAreNamedForTheFileUnlessTheyAreMarkedAlready) {
    const NameCase cases[] = {
        {"a", "X1", false, "a_X1"}, {"a_b", "X1", false, "a_b"}, {"a_b", "X1", true, "a_b_X1"},
        {"a", "X1", true, "a_X1"},  {"a", nullptr, false, "a"},  {"a_b", nullptr, true, "a_b"},
        {"a", nullptr, true, "a"},
    };
    for (const NameCase &one : cases) {
        LOG_close(&f);
        LOG_init(&f);
        local.set("fil;name", one.file);
        vars.at(0).name = one.row;
        define("*", one.prefixnames);
        EXPECT_STREQ(record().vars[0].hdrname, one.expected);
    }
}

TEST_F(LogDefinitions, AVariableIsConfiguredUnderItsHeaderName) {
    local.set("fil;name", "X1");
    local.set("var;a_X1;format", "*1.3f");
    local.set("var;b;format", "*1.3f");
    define("*");
    EXPECT_STREQ(record().vars[0].format, "*1.3f");
    EXPECT_STREQ(record().vars[1].format, "*2.1f");
}

// ---- Enabling ----

TEST_F(LogDefinitions, EnableSetToTRUEOrTOr7Enables) {
    for (const char *value : {"TRUE", "t", "7", "true", "-1", "1x"}) {
        local.set("var;a;enable", value);
        define("*");
        EXPECT_TRUE(record(f.records.count - 1).vars[0].enabled) << value;
    }
}

TEST_F(LogDefinitions, EnableSetToYesDisables) {
    for (const char *value : {"yes", "0", "F", "false", "x1"}) {
        local.set("var;a;enable", value);
        define("*");
        EXPECT_FALSE(record(f.records.count - 1).vars[0].enabled) << value;
    }
}

// ---- Formats and missing values ----

TEST_F(LogDefinitions, TheConfiguredFormatAndMissingTextReplaceTheRows) {
    vars.at(0).defmvc = "none";
    local.set("var;a;format", "*4.0f");
    local.set("var;a;mvc", "ZZ");
    define("*");
    EXPECT_STREQ(record().vars[0].format, "*4.0f");
    EXPECT_STREQ(record().vars[0].mvc, "ZZ");
}

TEST_F(LogDefinitions, TheRowsMissingTextIsUsedWhenNoneIsConfigured) {
    vars.at(0).defmvc = "none";
    define("*");
    EXPECT_STREQ(record().vars[0].mvc, "none");
}

TEST_F(LogDefinitions, AMissingTextIsMadeByFormattingTheMissingValue) {
    vars.at(0).format = "*4.2f";
    vars.at(1).format = "*~3.0f";
    define("*");
    EXPECT_STREQ(record().vars[0].mvc, "9999.99");
    EXPECT_STREQ(record().vars[1].mvc, "   ");
    EXPECT_EQ(record().vars[2].mvc, nullptr); // an integer
}

TEST_F(LogDefinitions, AMissingTextIsMadeForEveryTypeThatYieldsADouble) {
    const LOG_VAR_TYPE doubles[] = {LVT_AVG_SHIFTING, LVT_AVG_SHIFTING_RUNNING,
                                    LVT_AVG_FIXED,    LVT_AVG_SIMPLE,
                                    LVT_DOUBLE,       LVT_MVC,
                                    LVT_VA_DOUBLE,    LVT_FUNCTION};
    for (int type = LVT_AVG_SHIFTING; type < LVT_END; ++type) {
        vars.at(0).type = static_cast<LOG_VAR_TYPE>(type);
        define("*");
        const char *mvc = record(f.records.count - 1).vars[0].mvc;
        if (std::find(std::begin(doubles), std::end(doubles), type) != std::end(doubles))
            EXPECT_STREQ(mvc, "99.9") << type;
        else
            EXPECT_EQ(mvc, nullptr) << type;
    }
}

TEST_F(LogDefinitions, NoMissingTextIsMadeWithoutAFormatOrOfAnEmptyOne) {
    vars.at(0).format = nullptr;
    vars.at(1).format = "";
    define("*");
    EXPECT_EQ(record().vars[0].mvc, nullptr);
    EXPECT_EQ(record().vars[1].mvc, nullptr);
}

TEST_F(LogDefinitions, AFormatForTextMakesNoMissingText) {
    vars.at(0).type = LVT_FUNCTION;
    vars.at(0).format = "%s";
    define("*");
    EXPECT_EQ(record().vars[0].mvc, nullptr);
    EXPECT_EQ(err.text(), "");
}

// ---- Header lines ----

TEST_F(LogDefinitions, TheHeaderDescribesTheColumns) {
    local.set("fil;name", "X1");
    vars.at(0).desc = "Aerosol number";
    vars.at(1).format = nullptr;
    vars.at(2).desc = "Counts";
    define("c a b");
    EXPECT_THAT(headers(),
                ElementsAre("!row;colhdr;X1S,X1S;STN;EPOCH;DateTime;c_X1;a_X1;b_X1",
                            "!row;mvc;X1S,X1S;ZZZ;0;9999-99-99T99:99:99Z;;99.9;",
                            "!row;varfmt;X1S,X1S;%s;%u;%04d-%02d-%02dT%02d:%02d:%02dZ;%u;*2.1f;",
                            "!var;a_X1;FieldDesc,Aerosol number", "!var;c_X1;FieldDesc,Counts"));
}

BOOL two_lines(void *pdhdr, size_t index, LOG_record_var_defn *var, SFMT_buffer *out) {
    ++*static_cast<int *>(pdhdr);
    EXPECT_STREQ(SFMT_get_buffer(out), "");
    SFMT_printf(out, "!var;%s;line%zu,x", var->hdrname, index);
    return index < 2;
}

TEST_F(LogDefinitions, FurtherHeaderLinesAreAskedForUntilThereAreNoMore) {
    int calls = 0;
    vars.at(0).gethdrs = two_lines;
    vars.at(0).pdhdr = &calls;
    define("a");
    EXPECT_EQ(calls, 3);
    EXPECT_THAT(headers(), Contains("!var;a;line0,x"));
    EXPECT_THAT(headers(), Contains("!var;a;line1,x"));
    EXPECT_THAT(headers(), Not(Contains("!var;a;line2,x")));
}

TEST_F(LogDefinitions, AVariableThatIsNoColumnHasNoHeaderLines) {
    int calls = 0;
    vars.at(0).gethdrs = two_lines;
    vars.at(0).pdhdr = &calls;
    vars.at(0).desc = "x";
    define("b");
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(f.headers.count, 3);
}

} // namespace
