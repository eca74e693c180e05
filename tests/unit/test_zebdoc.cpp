// What the manual pages and Doxygen's input are made of.

#include "text.h"

#include "support.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zebdoc;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Kind = Block::Kind;

namespace {

const char *const k_header = R"(/* pump.h - drives a pump. One at a time.
 *
 *   PUMP_start(3);
 *
 * Threads: any. */
#ifndef PUMP_H
#define PUMP_H

/* ---- Running ---- */

/* Starts a pump.
 * number, speed: not below 0; the pump and its
 *   revolutions. Returns TRUE when it runs.
 * Threads: the owner. */
ZEB_API BOOL PUMP_start(int number,
                        int speed);

/* Stops pumps. */
ZEB_API void PUMP_stop(int number);
ZEB_API void PUMP_stop_all(void);

typedef struct PUMP_state {
    int speed; /* in 1/s */
} PUMP_state;

ZEB_API int PUMP_bare(void);
#endif
)";

Module pump() {
    return read_header(split_lines(k_header));
}

const Item &named(const Module &module, const std::string &name) {
    for (const Item &item : module.items)
        if (item.name == name)
            return item;
    ADD_FAILURE() << name << " is missing";
    return module.items[0];
}

std::vector<Kind> kinds(const Page &page) {
    std::vector<Kind> all;
    for (const Block &block : page)
        all.push_back(block.kind);
    return all;
}

} // namespace

TEST(ZebdocHeader, takes_file_summary_and_preface_from_its_first_comment) {
    const Module module = pump();
    EXPECT_EQ(module.file, "pump.h");
    EXPECT_EQ(module.summary, "drives a pump");
    EXPECT_EQ(module.preface[0], "One at a time.");
}

TEST(ZebdocHeader, knows_a_function_by_its_name_with_its_parameters) {
    const Module module = pump();
    EXPECT_THAT(named(module, "PUMP_start").parameters, ElementsAre("number", "speed"));
    EXPECT_EQ(named(module, "PUMP_start").declaration.size(), 2u);
}

TEST(ZebdocHeader, gives_functions_without_a_line_between_them_the_same_comment) {
    const Module module = pump();
    EXPECT_EQ(named(module, "PUMP_stop").comment, named(module, "PUMP_stop_all").comment);
}

TEST(ZebdocHeader, tells_a_function_without_a_comment) {
    EXPECT_TRUE(named(pump(), "PUMP_bare").comment.empty());
}

TEST(ZebdocHeader, takes_sections_as_titles) {
    EXPECT_EQ(pump().items[0].title, "Running");
}

TEST(ZebdocSequence, puts_functions_before_what_calls_them) {
    const auto all = call_sequences(read_header(
        {"/* pump.h - drives a pump.", " *", " *   int n = 0;", " *   void stop(void) {",
         " *       PUMP_stop(n);", " *   }", " *   PUMP_start(n, 5);", " */"}));
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].file, "int n = 0;\nvoid stop(void) {\n    PUMP_stop(n);\n}\n");
    EXPECT_EQ(all[0].function, "PUMP_start(n, 5);\n");
}

TEST(ZebdocSequence, leaves_a_loop_in_its_function_and_formulas_out) {
    const auto all =
        call_sequences(read_header({"/* pump.h - drives a pump.", " *", " *   speed = flow / area",
                                    " *", " * The calls:", " *", " *   while (PUMP_next(&n)) {",
                                    " *       PUMP_start(n, 5);", " *   }", " */"}));
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].file, "");
    EXPECT_EQ(all[0].function, "while (PUMP_next(&n)) {\n    PUMP_start(n, 5);\n}\n");
}

TEST(ZebdocSequence, is_missing_in_a_preface_of_words) {
    EXPECT_TRUE(call_sequences(read_header({"/* pump.h - drives a pump. */"})).empty());
}

TEST(ZebdocContract, cuts_parameters_result_and_threads_out_of_the_text) {
    const Module module = pump();
    const Item &item = named(module, "PUMP_start");
    const Page page = read_contract(item.comment, item.parameters);
    ASSERT_EQ(page.size(), 4u);
    EXPECT_EQ(page[0].text, "Starts a pump.");
    EXPECT_EQ(page[1].term, "number, speed");
    EXPECT_EQ(page[1].text, "not below 0; the pump and its revolutions.");
    EXPECT_EQ(page[2].term, "Returns");
    EXPECT_EQ(page[2].text, "TRUE when it runs.");
    EXPECT_EQ(page[3].term, "Threads");
}

TEST(ZebdocContract, leaves_a_word_that_is_no_parameter_in_the_text) {
    const Page page = read_contract({"Says so.", "other: a word."}, {"number"});
    ASSERT_EQ(page.size(), 1u);
    EXPECT_EQ(page[0].text, "Says so. other: a word.");
}

TEST(ZebdocContract, takes_indented_lines_for_code_and_dashes_for_items) {
    const Page page =
        read_contract({"Do:", "  a(b);", "", "Or", "  - one", "    more", "end."}, {});
    EXPECT_THAT(kinds(page), ElementsAre(Kind::paragraph, Kind::code, Kind::paragraph, Kind::item,
                                         Kind::paragraph));
    EXPECT_EQ(page[1].text, "a(b);\n");
    EXPECT_EQ(page[3].text, "one more");
}

TEST(ZebdocContract, ends_for_a_text_that_begins_with_no_result) {
    const Page page = read_contract({"No result; reported."}, {});
    ASSERT_EQ(page.size(), 1u);
    EXPECT_EQ(page[0].text, "No result; reported.");
}

TEST(ZebdocMarkdown, reads_tables_with_bars_within_code) {
    const Page page = read_markdown({"| a | b |", "|---|---|", "| `x|y` | z |"});
    ASSERT_EQ(page.size(), 1u);
    EXPECT_THAT(page[0].rows, ElementsAre(ElementsAre("a", "b"), ElementsAre("`x|y`", "z")));
}

TEST(ZebdocMan, guards_lines_that_would_be_requests_and_backslashes) {
    const std::string text = man_page({"x", "5", "2026-01-01", "m", "s"},
                                      read_markdown({"# X", "", ".so it goes, `\\r` is -1"}));
    EXPECT_THAT(text, HasSubstr("\n\\&.so it goes, \\fB\\er\\fR is \\-1\n"));
}

TEST(ZebdocMan, writes_declarations_without_the_librarys_mark) {
    const std::string text = man_page({"zeb2-pump", "3", "2026-01-01", "m", ""}, pump());
    EXPECT_THAT(text, HasSubstr("\nBOOL PUMP_start(int number,\n                int speed);\n"));
    EXPECT_THAT(text, HasSubstr("zeb2\\-pump \\- drives a pump\n"));
}

TEST(ZebdocDoxygen, writes_contracts_as_its_commands) {
    const std::string text = doxygen_header(pump());
    EXPECT_THAT(text, HasSubstr(" * @param number,speed not below 0;"));
    EXPECT_THAT(text, HasSubstr(" * @return TRUE when it runs."));
    EXPECT_THAT(text, HasSubstr("int speed; /**< in 1/s */"));
}

TEST(ZebdocDoxygen, leads_links_of_pages_to_pages_headers_and_manual_pages) {
    const auto filtered = [](const std::string &line) {
        return doxygen_markdown({line}, "howto/x.md");
    };
    EXPECT_EQ(filtered("[a](../formats/log.md#data-lines)"), "[a](@ref formats_log_data-lines)\n");
    EXPECT_EQ(filtered("[a](../../src/zebctl/zebctl.1)"), "[a](man/zebctl.1.html)\n");
    EXPECT_EQ(filtered("[a](../../src/libzeb2/io.h)"), "[a](@ref io.h)\n");
    EXPECT_EQ(filtered("[a](../../etc/zeb.conf)"), "a\n");
    EXPECT_EQ(filtered("## B c"), "## B c {#howto_x_b-c}\n");
}

TEST(ZebdocLinks, names_files_and_anchors_that_are_missing) {
    zeb::test::TempDir dir;
    std::ofstream(dir.path() + "/a.html")
        << "<p id=\"here\"><a href=\"#here\"> <a href=\"b.html\"> <a href=\"a.html#gone\">";
    testing::internal::CaptureStderr();
    EXPECT_FALSE(check_links(dir.path()));
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_THAT(told, HasSubstr("b.html"));
    EXPECT_THAT(told, HasSubstr("a.html#gone"));
    EXPECT_THAT(told, Not(HasSubstr("link to #here")));
}
