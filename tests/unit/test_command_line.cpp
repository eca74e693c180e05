#include "command_line/command_line.h"

#include "support.h"

#include <cmath>
#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

using namespace command_line;
using namespace zeb::test;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

// How a line ended, with what was told.
struct Outcome {
    std::optional<int> status;
    std::string out, err;
};

Outcome outcome_of(Parser &parser, const std::vector<std::string> &words) {
    std::vector<const char *> argv = {"program"};
    for (const std::string &word : words)
        argv.push_back(word.c_str());
    Outcome outcome;
    StderrCapture standard_error;
    testing::internal::CaptureStdout();
    outcome.status = parser.parse(static_cast<int>(argv.size()), argv.data());
    outcome.out = testing::internal::GetCapturedStdout();
    outcome.err = standard_error.finish();
    return outcome;
}

std::string help_of(Parser &parser) {
    return outcome_of(parser, {"--help"}).out;
}

// Whether the program goes on, with nothing told.
bool goes_on(Parser &parser, const std::vector<std::string> &words) {
    const Outcome outcome = outcome_of(parser, words);
    EXPECT_EQ(outcome.out + outcome.err, "");
    return !outcome.status;
}

// Whether the line is a usage error, told on standard error only.
bool is_refused(Parser &parser, const std::vector<std::string> &words) {
    const Outcome outcome = outcome_of(parser, words);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err.empty(), !outcome.status.has_value());
    return outcome.status == k_usage;
}

// A parser with the option --value of a type.
template <typename Value> struct OneOption {
    Value value{};
    Parser parser{"Does something."};
    Option option{parser.add_option("-v,--value", value, "what it is")};

    bool takes(const std::string &text) { return goes_on(parser, {"--value=" + text}); }
    bool refuses(const std::string &text) { return is_refused(parser, {"--value=" + text}); }
};

enum class Colour { none, red = 3, green = 7 };

} // namespace

// ---- The program ----

TEST(CommandLineParser, GoesOnWithoutArguments) {
    Parser parser("Does something.");
    EXPECT_TRUE(goes_on(parser, {}));
}

TEST(CommandLineParser, ShowsDescriptionNameAndFooterInTheHelp) {
    for (const char *flag : {"-h", "--help"}) {
        Parser parser("Does something.", "thing");
        parser.footer("That is all.");
        const Outcome outcome = outcome_of(parser, {flag});
        EXPECT_EQ(outcome.status, k_done);
        EXPECT_EQ(outcome.err, "");
        EXPECT_THAT(outcome.out, StartsWith("Does something.\nUsage: thing "));
        EXPECT_THAT(outcome.out, HasSubstr("That is all."));
    }
}

TEST(CommandLineParser, IsNamedAfterTheProgramUnlessNamed) {
    Parser parser("Does something.");
    EXPECT_THAT(help_of(parser), HasSubstr("Usage: program "));
}

TEST(CommandLineParser, PrintsTheVersion) {
    Parser parser("Does something.");
    parser.set_version_flag("-V,--version", "thing 1.0");
    for (const char *flag : {"-V", "--version"}) {
        const Outcome outcome = outcome_of(parser, {flag});
        EXPECT_EQ(outcome.status, k_done);
        EXPECT_EQ(outcome.out, "thing 1.0\n");
        EXPECT_EQ(outcome.err, "");
    }
}

TEST(CommandLineParser, AsksForTheVersionWhenItIsWanted) {
    Parser parser("Does something.");
    int asked = 0;
    parser.set_version_flag("--version", [&asked] { return "thing " + std::to_string(++asked); });
    EXPECT_TRUE(goes_on(parser, {}));
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(outcome_of(parser, {"--version"}).out, "thing 1\n");
}

TEST(CommandLineParser, HasNoVersionUnlessGiven) {
    Parser parser("Does something.");
    EXPECT_TRUE(is_refused(parser, {"--version"}));
}

TEST(CommandLineParser, NamesWhatItRefusesAndWhereHelpIs) {
    Parser parser("Does something.");
    const Outcome outcome = outcome_of(parser, {"--colour"});
    EXPECT_EQ(outcome.status, k_usage);
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("--colour"), HasSubstr("Run with --help")));
}

TEST(CommandLineParser, RefusesAnArgumentThatNothingTakes) {
    Parser parser("Does something.");
    EXPECT_TRUE(is_refused(parser, {"surplus"}));
}

// ---- Values ----

TEST(CommandLineOption, TakesText) {
    OneOption<std::string> one;
    EXPECT_TRUE(one.takes("some text"));
    EXPECT_EQ(one.value, "some text");
    EXPECT_TRUE(goes_on(one.parser, {"-v", "other"}));
    EXPECT_EQ(one.value, "other");
    EXPECT_TRUE(is_refused(one.parser, {"-v"}));
    EXPECT_TRUE(is_refused(one.parser, {"-v", "once", "-v", "twice"}));
}

TEST(CommandLineOption, LeavesItsVariableAloneWhenItIsAbsent) {
    OneOption<std::string> one;
    one.value = "default";
    EXPECT_TRUE(goes_on(one.parser, {}));
    EXPECT_EQ(one.value, "default");
}

TEST(CommandLineOption, TellsTextThatIsAbsentFromText) {
    OneOption<std::optional<std::string>> one;
    EXPECT_TRUE(goes_on(one.parser, {}));
    EXPECT_EQ(one.value, std::nullopt);
    EXPECT_TRUE(one.takes("x"));
    EXPECT_EQ(one.value, "x");
    EXPECT_TRUE(is_refused(one.parser, {"--value"}));
}

TEST(CommandLineOption, TakesListsUpToTheNextOption) {
    OneOption<std::vector<std::string>> one;
    bool flag = false;
    one.parser.add_flag("--flag", flag);
    EXPECT_TRUE(goes_on(one.parser, {"-v", "a", "b", "--flag", "-v", "c"}));
    EXPECT_THAT(one.value, ElementsAre("a", "b", "c"));
    EXPECT_TRUE(flag);
    EXPECT_TRUE(is_refused(one.parser, {"-v"}));
}

TEST(CommandLineOption, TakesIntegers) {
    OneOption<int> one;
    EXPECT_TRUE(one.takes("-2147483648"));
    EXPECT_EQ(one.value, std::numeric_limits<int>::min());
    EXPECT_TRUE(one.takes("2147483647"));
    EXPECT_EQ(one.value, std::numeric_limits<int>::max());
    for (const char *text : {"1.5", "99999999999", "2147483648", "x", "3x", "nan", "1e3"})
        EXPECT_TRUE(one.refuses(text)) << text;
}

TEST(CommandLineOption, TakesUnsignedIntegers) {
    OneOption<unsigned> one;
    EXPECT_TRUE(one.takes("4294967295"));
    EXPECT_EQ(one.value, std::numeric_limits<unsigned>::max());
    for (const char *text : {"-1", "4294967296", "1.5", "x", "3x"})
        EXPECT_TRUE(one.refuses(text)) << text;
}

TEST(CommandLineOption, TakesLongIntegers) {
    OneOption<long> one;
    EXPECT_TRUE(one.takes(std::to_string(std::numeric_limits<long>::min())));
    EXPECT_EQ(one.value, std::numeric_limits<long>::min());
    EXPECT_TRUE(one.takes("1000000"));
    EXPECT_EQ(one.value, 1000000);
    for (const char *text : {"1.5", "x", "3x"})
        EXPECT_TRUE(one.refuses(text)) << text;
}

TEST(CommandLineOption, TakesCountsOf64Bits) {
    OneOption<uint64_t> one;
    EXPECT_TRUE(one.takes("18446744073709551615"));
    EXPECT_EQ(one.value, UINT64_MAX);
    for (const char *text : {"1.5", "x", "3x"})
        EXPECT_TRUE(one.refuses(text)) << text;
    one.option.check(non_negative());
    EXPECT_TRUE(one.refuses("-1"));
}

TEST(CommandLineOption, TakesTheNearestOfWhatIsBeyond64Bits) {
    OneOption<uint64_t> one;
    EXPECT_TRUE(one.takes("18446744073709551616"));
    EXPECT_EQ(one.value, UINT64_MAX);
}

TEST(CommandLineOption, TakesNumbers) {
    OneOption<double> one;
    EXPECT_TRUE(one.takes("-2.5"));
    EXPECT_EQ(one.value, -2.5);
    EXPECT_TRUE(one.takes("1e3"));
    EXPECT_EQ(one.value, 1000);
    EXPECT_TRUE(one.takes("nan"));
    EXPECT_TRUE(std::isnan(one.value));
    for (const char *text : {"x", "3x", "1,5"})
        EXPECT_TRUE(one.refuses(text)) << text;
}

TEST(CommandLineOption, TakesAWordOfAChoice) {
    Colour colour = Colour::none;
    Parser parser("Does something.");
    parser.add_choice("--colour", colour, {{"red", Colour::red}, {"green", Colour::green}},
                      "of it");
    EXPECT_TRUE(goes_on(parser, {"--colour", "green"}));
    EXPECT_EQ(colour, Colour::green);
    EXPECT_TRUE(goes_on(parser, {"--colour", "3"}));
    EXPECT_EQ(colour, Colour::red);
    for (const char *text : {"blue", "Red", "0", "4", "03"})
        EXPECT_TRUE(is_refused(parser, {"--colour", text})) << text;
    EXPECT_TRUE(is_refused(parser, {"--colour"}));
    EXPECT_EQ(colour, Colour::red);
}

TEST(CommandLineOption, ListsAChoiceInTheHelp) {
    Colour colour = Colour::none;
    Parser parser("Does something.");
    const auto choose = [&](const char *name, auto... choices) {
        parser.add_choice(name, colour, {choices...}, "of it");
    };
    using Pair = std::pair<const char *, Colour>;
    choose("-a", Pair{"red", Colour::red});
    choose("-b", Pair{"red", Colour::red}, Pair{"green", Colour::green});
    choose("-c", Pair{"red", Colour::red}, Pair{"green", Colour::green}, Pair{"no", Colour::none});
    const std::string help = help_of(parser);
    EXPECT_THAT(help, HasSubstr(":red "));
    EXPECT_THAT(help, HasSubstr(":red or green"));
    EXPECT_THAT(help, HasSubstr(":red, green or no"));
}

TEST(CommandLineOption, WithoutDashesIsPositional) {
    std::string file;
    std::vector<std::string> others;
    Parser parser("Does something.");
    parser.add_option("file", file);
    parser.add_option("others", others);
    EXPECT_TRUE(goes_on(parser, {"a", "b", "c"}));
    EXPECT_EQ(file, "a");
    EXPECT_THAT(others, ElementsAre("b", "c"));
}

// ---- Flags ----

TEST(CommandLineFlag, IsTrueWhenItIsGiven) {
    bool flag = false;
    Parser parser("Does something.");
    parser.add_flag("-f,--flag", flag, "that it is so");
    EXPECT_TRUE(goes_on(parser, {}));
    EXPECT_FALSE(flag);
    EXPECT_TRUE(goes_on(parser, {"-f"}));
    EXPECT_TRUE(flag);
    EXPECT_TRUE(is_refused(parser, {"--flag=perhaps"}));
    EXPECT_THAT(help_of(parser), AllOf(HasSubstr("-f,--flag"), HasSubstr("that it is so")));
}

TEST(CommandLineFlag, OfTextHasAValueOfItsOwn) {
    std::string times;
    Parser parser("Does something.");
    parser.add_flag("-t{utc},--times{utc}", times).check(one_of({"utc", "local"}));
    EXPECT_TRUE(goes_on(parser, {"-t"}));
    EXPECT_EQ(times, "utc");
    EXPECT_TRUE(goes_on(parser, {"--times=local"}));
    EXPECT_EQ(times, "local");
    EXPECT_TRUE(is_refused(parser, {"--times=mine"}));
}

// ---- What options are to each other ----

TEST(CommandLineOption, IsRefusedWithoutWhenRequired) {
    OneOption<int> one;
    one.option.required();
    EXPECT_TRUE(one.takes("1"));
    const Outcome outcome = outcome_of(one.parser, {});
    EXPECT_EQ(outcome.status, k_usage);
    EXPECT_THAT(outcome.err, HasSubstr("--value is required"));
}

TEST(CommandLineOption, IsRefusedWithoutWhatItNeeds) {
    OneOption<int> one;
    bool other = false;
    one.option.needs(one.parser.add_flag("--other", other));
    EXPECT_TRUE(goes_on(one.parser, {"--value=1", "--other"}));
    EXPECT_TRUE(goes_on(one.parser, {"--other"}));
    EXPECT_TRUE(goes_on(one.parser, {}));
    EXPECT_TRUE(is_refused(one.parser, {"--value=1"}));
}

TEST(CommandLineOption, IsRefusedTogetherWithWhatItExcludes) {
    OneOption<int> one;
    bool other = false;
    one.option.excludes(one.parser.add_flag("--other", other));
    EXPECT_TRUE(goes_on(one.parser, {"--value=1"}));
    EXPECT_TRUE(goes_on(one.parser, {"--other"}));
    EXPECT_TRUE(is_refused(one.parser, {"--value=1", "--other"}));
    EXPECT_TRUE(is_refused(one.parser, {"--other", "--value=1"}));
}

TEST(CommandLineOption, CountsHowOftenItWasGiven) {
    OneOption<std::vector<std::string>> one;
    EXPECT_EQ(one.option.count(), 0u);
    EXPECT_TRUE(goes_on(one.parser, {"-v", "a", "-v", "b"}));
    EXPECT_EQ(one.option.count(), 2u);
    EXPECT_TRUE(goes_on(one.parser, {}));
    EXPECT_EQ(one.option.count(), 0u);
}

TEST(CommandLineOption, TakesTheNumberOfValuesThatIsExpected) {
    OneOption<std::vector<std::string>> one;
    one.option.expected(2);
    EXPECT_TRUE(goes_on(one.parser, {"-v", "a", "b"}));
    EXPECT_THAT(one.value, ElementsAre("a", "b"));
    EXPECT_TRUE(is_refused(one.parser, {"-v", "a"}));
    EXPECT_TRUE(is_refused(one.parser, {"-v", "a", "b", "c"}));
}

TEST(CommandLineOption, TakesOneValueATimeWithoutExtraArguments) {
    OneOption<std::vector<std::string>> one;
    std::string file;
    one.parser.add_option("file", file);
    one.option.allow_extra_args(false);
    EXPECT_TRUE(goes_on(one.parser, {"-v", "a", "-v", "b", "file"}));
    EXPECT_THAT(one.value, ElementsAre("a", "b"));
    EXPECT_EQ(file, "file");
    one.option.allow_extra_args(true);
    EXPECT_TRUE(goes_on(one.parser, {"-v", "a", "b"}));
    EXPECT_THAT(one.value, ElementsAre("a", "b"));
}

// ---- What the help shows of options ----

TEST(CommandLineOption, ShowsTheNameOfItsType) {
    OneOption<std::string> one;
    EXPECT_THAT(help_of(one.parser), Not(HasSubstr("FILE")));
    one.option.type_name("FILE");
    EXPECT_THAT(help_of(one.parser), HasSubstr("-v,--value FILE"));
}

TEST(CommandLineOption, ShowsItsDefault) {
    OneOption<int> one;
    one.value = 4711;
    EXPECT_THAT(help_of(one.parser), Not(HasSubstr("4711")));
    one.option.capture_default_str();
    EXPECT_THAT(help_of(one.parser), HasSubstr("=4711"));
}

TEST(CommandLineOption, IsShownBeneathTheHeadingOfItsGroup) {
    OneOption<int> one;
    EXPECT_THAT(help_of(one.parser), HasSubstr("--value"));
    one.option.group("Rare");
    EXPECT_THAT(help_of(one.parser), HasSubstr("Rare:\n  -v,--value"));
    one.option.group("");
    EXPECT_THAT(help_of(one.parser), Not(HasSubstr("--value")));
    EXPECT_TRUE(one.takes("1"));
}

// ---- Checks ----

TEST(CommandLineCheck, OfPositiveNumbers) {
    OneOption<double> one;
    one.option.check(positive());
    EXPECT_TRUE(one.takes("1"));
    EXPECT_TRUE(one.takes("0.001"));
    for (const char *text : {"0", "-1", "x", "inf", "nan", "-nan"})
        EXPECT_TRUE(one.refuses(text)) << text;
}

TEST(CommandLineCheck, OfPositiveIntegers) {
    OneOption<long> one;
    one.option.check(positive());
    EXPECT_TRUE(one.takes("1"));
    for (const char *text : {"0", "-1", "1.5", "x"})
        EXPECT_TRUE(one.refuses(text)) << text;
}

TEST(CommandLineCheck, OfNumbersThatAreNotNegative) {
    OneOption<double> one;
    one.option.check(non_negative());
    EXPECT_TRUE(one.takes("0"));
    EXPECT_TRUE(one.takes("2.5"));
    for (const char *text : {"-0.001", "x", "inf", "nan"})
        EXPECT_TRUE(one.refuses(text)) << text;
}

TEST(CommandLineCheck, OfIntegersInARange) {
    OneOption<int> one;
    one.option.check(in_range(-1, 99));
    EXPECT_TRUE(one.takes("-1"));
    EXPECT_TRUE(one.takes("99"));
    for (const char *text : {"-2", "100", "1.5", "99999999999", "nan"})
        EXPECT_TRUE(one.refuses(text)) << text;
    EXPECT_THAT(help_of(one.parser), HasSubstr("[-1 - 99]"));
}

TEST(CommandLineCheck, OfNumbersInARange) {
    OneOption<double> one;
    one.option.check(in_range(0.5, 2.0));
    EXPECT_TRUE(one.takes("0.5"));
    EXPECT_TRUE(one.takes("2"));
    for (const char *text : {"0.49", "2.01", "x", "nan"})
        EXPECT_TRUE(one.refuses(text)) << text;
}

TEST(CommandLineCheck, OfWords) {
    OneOption<std::string> one;
    one.option.check(one_of({"cr", "lf"}));
    EXPECT_TRUE(one.takes("lf"));
    EXPECT_EQ(one.value, "lf");
    for (const char *text : {"LF", "crlf", "c"})
        EXPECT_TRUE(one.refuses(text)) << text;
    EXPECT_THAT(help_of(one.parser), HasSubstr("{cr,lf}"));
}

TEST(CommandLineCheck, OfFilesThatExist) {
    const TempDir dir;
    write_file(dir / "file", "");
    OneOption<std::string> one;
    one.option.check(existing_file());
    EXPECT_TRUE(one.takes(dir / "file"));
    EXPECT_TRUE(one.refuses(dir / "other"));
    EXPECT_TRUE(one.refuses(dir.path()));
}

TEST(CommandLineCheck, MayBeAnyFunction) {
    OneOption<std::string> one;
    one.option.check([](const std::string &text) { return text == "good" ? "" : "is not good"; });
    EXPECT_TRUE(one.takes("good"));
    const Outcome outcome = outcome_of(one.parser, {"--value=bad"});
    EXPECT_EQ(outcome.status, k_usage);
    EXPECT_THAT(outcome.err, StartsWith("--value: is not good\n"));
}

TEST(CommandLineCheck, IsMadeOfEachValue) {
    OneOption<std::vector<std::string>> one;
    one.option.check(one_of({"a", "b"})).check([](const std::string &text) {
        return text == "a" ? "" : "is not a";
    });
    EXPECT_TRUE(goes_on(one.parser, {"-v", "a", "a"}));
    EXPECT_THAT(outcome_of(one.parser, {"-v", "a", "b"}).err, StartsWith("--value: is not a\n"));
    EXPECT_TRUE(is_refused(one.parser, {"-v", "a", "c"}));
}

// ---- Subcommands ----

TEST(CommandLineCommand, CallsBackTheSubcommandThatIsNamed) {
    Parser parser("Does something.");
    std::string called, text;
    const Command first = parser.add_subcommand("first", "Does one thing");
    first.add_option("text", text);
    first.callback([&] { called += "first " + text; });
    parser.add_subcommand("second", "Does another").callback([&] { called += "second"; });
    EXPECT_TRUE(goes_on(parser, {"first", "x"}));
    EXPECT_EQ(called, "first x");
    called.clear();
    EXPECT_TRUE(goes_on(parser, {}));
    EXPECT_EQ(called, "");
    EXPECT_TRUE(is_refused(parser, {"third"}));
    EXPECT_TRUE(is_refused(parser, {"second", "x"}));
    EXPECT_EQ(called, "");
}

TEST(CommandLineCommand, ShowsHelpOfItsOwn) {
    Parser parser("Does something.", "thing");
    int count = 0;
    parser.add_subcommand("first", "Does one thing").add_option("--count", count, "how often");
    EXPECT_THAT(help_of(parser), AllOf(HasSubstr("first"), HasSubstr("Does one thing"),
                                       Not(HasSubstr("how often"))));
    const Outcome outcome = outcome_of(parser, {"first", "--help"});
    EXPECT_EQ(outcome.status, k_done);
    EXPECT_THAT(outcome.out, AllOf(HasSubstr("Does one thing"), HasSubstr("how often")));
}

TEST(CommandLineCommand, RequiresExactlyOneSubcommand) {
    Parser parser("Does something.");
    parser.add_subcommand("first", "Does one thing");
    const Command second = parser.add_subcommand("second", "Does another");
    second.add_subcommand("part", "Does a part of it");
    second.require_subcommand();
    parser.require_subcommand();
    EXPECT_TRUE(goes_on(parser, {"first"}));
    EXPECT_TRUE(goes_on(parser, {"second", "part"}));
    EXPECT_TRUE(is_refused(parser, {}));
    EXPECT_TRUE(is_refused(parser, {"second"}));
    EXPECT_TRUE(is_refused(parser, {"first", "second", "part"}));
}

TEST(CommandLineCommand, CallsBackTheProgramOnceAllIsInOrder) {
    OneOption<int> one;
    int called = 0;
    one.parser.callback([&] { called += 100; });
    one.parser.callback([&] { called += one.value; });
    EXPECT_TRUE(one.takes("3"));
    EXPECT_EQ(called, 3);
    EXPECT_TRUE(one.refuses("x"));
    EXPECT_EQ(outcome_of(one.parser, {"--help"}).status, k_done);
    EXPECT_EQ(called, 3);
}

TEST(CommandLineCommand, ShowsWhatACallbackFindsWrong) {
    Parser parser("Does something.");
    parser.add_subcommand("first", "Does one thing").callback([] {
        throw UsageError("--value", "is not good");
    });
    parser.add_subcommand("second", "Does another").callback([] {
        throw UsageError("a or b is required");
    });
    const Outcome first = outcome_of(parser, {"first"});
    EXPECT_EQ(first.status, k_usage);
    EXPECT_EQ(first.out, "");
    EXPECT_EQ(first.err, "--value: is not good\nRun with --help for more information.\n");
    const Outcome second = outcome_of(parser, {"second"});
    EXPECT_EQ(second.status, k_usage);
    EXPECT_THAT(second.err, StartsWith("a or b is required\n"));
}
