// The reference pages: what is on them, that their numbers are the compiler's, and that no link
// leads nowhere.
#include "checks.h"
#include "comment.h"
#include "docs.h"
#include "inputs.h"
#include "layout.h"
#include "parser.h"
#include "support.h"

#include <zeb2/libzeb2.h>

#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sys/wait.h>

using namespace zebgen;
using zeb::test::occurrences;
using zeb::test::TempDir;

namespace {

Catalogue catalogue_of(const std::vector<std::pair<std::string, std::string>> &headers) {
    Problems problems;
    std::vector<Source> sources;
    for (const auto &[path, text] : headers)
        sources.push_back(parse(path, '"' + path + '"', text, problems));
    Catalogue catalogue = merge(sources, problems);
    for (const Problem &problem : problems)
        ADD_FAILURE() << text_of(problem);
    return catalogue;
}

Catalogue station() {
    std::vector<Input> inputs;
    Catalogue catalogue;
    EXPECT_TRUE(add_station(zeb::test::source_path("definitions"), inputs));
    EXPECT_TRUE(read_catalogue(inputs, catalogue));
    return catalogue;
}

std::string packed(const std::string &text) {
    return "#pragma pack(push, 4)\n" + text + "#pragma pack(pop)\n";
}

std::string record_comment(const std::string &above) {
    const Catalogue catalogue =
        catalogue_of({{"t.h", packed(above + "typedef struct { int i; } NET_T;\n")}});
    return catalogue.records.at(0).comment;
}

const Page &page_named(const std::vector<Page> &pages, const std::string &name) {
    for (const Page &page : pages)
        if (page.name == name)
            return page;
    ADD_FAILURE() << "no page " << name;
    return pages.at(0);
}

const char k_valve[] = "/* valve.h - a valve with a flow sensor. It answers questions only. */\n"
                       "#ifndef VALVE_H\n#define VALVE_H\n#include <zeb2/port.h>\n"
                       "#pragma pack(push, 4)\n"
                       "typedef struct {\n"
                       "    BYTE n;\n"
                       "    double Q[2]; /* Flow (slpm) | Q${INDEX:1:2}_${INST:V\\d+} | 0;20 */\n"
                       "} NET_VALVE_Flows;\n\n"
                       "/* What it did. */\n"
                       "typedef struct {\n"
                       "    NET_VALVE_Flows flows; /* *instant */\n"
                       "    STRING text[8]; // A|B & <C>\n"
                       "} NET_VALVE_Report;\n"
                       "#pragma pack(pop)\n"
                       "ZEB_MESSAGE(MSG_VALVE_REPORT, \"valve\", NET_VALVE_Report);\n"
                       "ZEB_MESSAGE_BARE(MSG_VALVE_CLOSE, \"valve\");\n"
                       "#endif\n";

} // namespace

TEST(ZebgenLayout, AgreesWithTheCompilerForEveryStructureOfTheStation) {
    const Catalogue catalogue = station();
    ASSERT_EQ(catalogue.records.size(), _ndsd_structures_count_ext);
    for (size_t i = 0; i < catalogue.records.size(); i++) {
        const Record &record = catalogue.records[i];
        const NETDSD_entry &entry = _ndsd_structures_ext[i];
        ASSERT_EQ(record.name, entry.name);
        EXPECT_EQ(record.size, entry.total_size) << record.name;
        ASSERT_EQ(record.fields.size(), entry.count_fields) << record.name;
        for (size_t k = 0; k < record.fields.size(); k++) {
            const Field &field = record.fields[k];
            EXPECT_EQ(field.name, entry.fields[k].name);
            EXPECT_EQ(field.offset, entry.fields[k].offset) << record.name << "." << field.name;
            EXPECT_EQ(field.size, entry.fields[k].size) << record.name << "." << field.name;
            EXPECT_EQ(field.count, entry.fields[k].count) << record.name << "." << field.name;
        }
    }
}

TEST(ZebgenLayout, SizesOfArraysWithinArraysDoNotOverflow) {
    std::string text = "typedef struct { int i[65535]; } NET_0;\n";
    for (int i = 1; i <= 32; i++)
        text += "typedef struct { NET_" + std::to_string(i - 1) + " x[65535]; } NET_" +
                std::to_string(i) + ";\n";
    const Catalogue catalogue = catalogue_of({{"t.h", packed(text)}});
    EXPECT_EQ(find_record(catalogue.records, "NET_0")->size, 4u * 65535u);
    EXPECT_EQ(find_record(catalogue.records, "NET_32")->size, uint64_t{1} << 40);
}

TEST(ZebgenComment, TakesDescriptionUnitVariableAndBoundsApart) {
    const CommentParts whole =
        parts_of("Scattering coefficient (1/Mm) | Bs${INDEX:B:G:R}_${INST:S\\d+} | -5;1E6");
    EXPECT_EQ(whole.description, "Scattering coefficient");
    EXPECT_EQ(whole.unit, "1/Mm");
    EXPECT_EQ(whole.variable, "Bs${INDEX:B:G:R}_${INST:S\\d+}");
    EXPECT_EQ(whole.low, "-5");
    EXPECT_EQ(whole.high, "1E6");
    EXPECT_FALSE(whole.main);
    const CommentParts short_one = parts_of("Heater (first) power (%)");
    EXPECT_EQ(short_one.description, "Heater (first) power");
    EXPECT_EQ(short_one.unit, "%");
    EXPECT_EQ(short_one.variable, "");
}

TEST(ZebgenComment, WhatDoesNotFollowTheFormIsDescription) {
    for (const char *text : {"", "The filter runs", "(s)", "f(x)", "a) odd (one", "|", "a|b", ")",
                             "Spot in use (0: none)"}) {
        const CommentParts parts = parts_of(text);
        EXPECT_EQ(parts.description, text);
        EXPECT_EQ(parts.unit + parts.variable + parts.low + parts.high, "") << text;
    }
    EXPECT_TRUE(parts_of("*instant").main);
    EXPECT_EQ(parts_of("*instant").description, "");
    EXPECT_EQ(parts_of("a (s) | V | 3").low, "3");
}

TEST(ZebgenComment, OfAStructureStandsDirectlyAbove) {
    EXPECT_EQ(record_comment("/* What it\n * did. */\n"), "What it did.");
    EXPECT_EQ(record_comment("// What it\n// did.\n"), "What it did.");
    EXPECT_EQ(record_comment("/* Other. */\n\n// What it did.\n"), "What it did.");
    EXPECT_EQ(record_comment("/* Other. */\n\n"), "");
    EXPECT_EQ(record_comment(""), "");
    EXPECT_EQ(record_comment("typedef struct { int i; } NET_A; /* Other. */\n"), "");
}

TEST(ZebgenComment, TheOneThatTheFileBeginsWithIsThePreface) {
    const Catalogue catalogue = catalogue_of(
        {{"a/t.h", "/* t.h - one.\n * Two. */\n// Three.\n#pragma once\n/* Other. */\n" +
                       packed("typedef struct { int i; } NET_T;\n")},
         {"u.h", "#pragma once\n/* Other. */\nZEB_MESSAGE_BARE(MSG_U, \"u\");\n"}});
    ASSERT_EQ(catalogue.headers.size(), 2u);
    EXPECT_EQ(catalogue.headers[0].preface, "t.h - one. Two. Three.");
    EXPECT_EQ(catalogue.headers[1].preface, "");
    EXPECT_EQ(page_named(pages_of(catalogue), "t").intro.at(0).at(0).text, "One. Two. Three.");
}

TEST(ZebgenDocs, MarkdownOfAHeaderReadsAsWritten) {
    const std::vector<Page> pages = pages_of(catalogue_of({{"valve.h", k_valve}}));
    EXPECT_EQ(
        markdown_of(page_named(pages, "valve")),
        "# valve\n\nA valve with a flow sensor. It answers questions only.\n\n"
        "## Messages\n\n"
        "| Number | Message | Class | Structure |\n"
        "|---:|---|---|---|\n"
        "| 0 | `MSG_VALVE_CLOSE` | `valve` |  |\n"
        "| 1 | `MSG_VALVE_REPORT` | `valve` | [`NET_VALVE_Report`](valve.md#NET_VALVE_Report) |\n\n"
        "<a id=\"NET_VALVE_Flows\"></a>\n\n## `NET_VALVE_Flows`\n\n"
        "20 bytes. Nested in [`NET_VALVE_Report`](valve.md#NET_VALVE_Report) as `flows`.\n\n"
        "| Field | Type | Count | Offset | Unit | Description | Variable | Low | High |\n"
        "|---|---|---:|---:|---|---|---|---:|---:|\n"
        "| `n` | `BYTE` |  | 0 |  |  |  |  |  |\n"
        "| `Q` | `double` | 2 | 4 | slpm | Flow | `Q${INDEX:1:2}_${INST:V\\d+}` | 0 | 20 |\n\n"
        "<a id=\"NET_VALVE_Report\"></a>\n\n## `NET_VALVE_Report`\n\n"
        "What it did.\n\n28 bytes. Carried by `MSG_VALVE_REPORT`.\n\n"
        "| Field | Type | Count | Offset | Description |\n"
        "|---|---|---:|---:|---|\n"
        "| `flows` | [`NET_VALVE_Flows`](valve.md#NET_VALVE_Flows) |  | 0 | The record's main "
        "reading |\n"
        "| `text` | `STRING` | 8 | 20 | A\\|B \\& \\<C\\> |\n");
}

TEST(ZebgenDocs, HtmlHoldsTheSameTablesEscaped) {
    const std::vector<Page> pages = pages_of(catalogue_of({{"valve.h", k_valve}}));
    const std::string html = html_of(page_named(pages, "valve"), page_navigation());
    for (const char *part :
         {"<title>valve</title>", "<a href=\"index.html\">Catalogue</a>",
          "<h2 id=\"NET_VALVE_Flows\"><code>NET_VALVE_Flows</code></h2>",
          "<p>20 bytes. Nested in <a href=\"valve.html#NET_VALVE_Report\">"
          "<code>NET_VALVE_Report</code></a> as <code>flows</code>.</p>",
          "<tr><td><code>Q</code></td><td><code>double</code></td><td class=\"n\">2</td>"
          "<td class=\"n\">4</td><td>slpm</td><td>Flow</td>"
          "<td><code>Q${INDEX:1:2}_${INST:V\\d+}</code></td><td class=\"n\">0</td>"
          "<td class=\"n\">20</td></tr>",
          "<td>A|B &amp; &lt;C&gt;</td>"})
        EXPECT_EQ(occurrences(html, part), 1u) << part << "\n" << html;
}

TEST(ZebgenDocs, IndexesListHeadersStructuresAndMessages) {
    const std::vector<Page> pages = pages_of(catalogue_of({{"valve.h", k_valve}}));
    ASSERT_EQ(pages.size(), 4u);
    EXPECT_EQ(occurrences(markdown_of(page_named(pages, "index")),
                          "| [valve](valve.md) | A valve with a flow sensor. | 2 | 2 | `valve` |"),
              1u);
    EXPECT_EQ(occurrences(markdown_of(page_named(pages, "structures")),
                          "| [`NET_VALVE_Report`](valve.md#NET_VALVE_Report) | [valve](valve.md) | "
                          "28 | What it did. | `MSG_VALVE_REPORT` |"),
              1u);
    EXPECT_EQ(occurrences(markdown_of(page_named(pages, "messages")),
                          "| 0 | `MSG_VALVE_CLOSE` | `valve` |  | [valve](valve.md) |"),
              1u);
}

TEST(ZebgenDocs, PagesOfHeadersOfOneNameDoNotMeet) {
    const std::vector<Page> pages =
        pages_of(catalogue_of({{"a/index.h", "ZEB_MESSAGE_BARE(MSG_A, \"a\");"},
                               {"a/valve.h", "ZEB_MESSAGE_BARE(MSG_B, \"a\");"},
                               {"b/valve.h", "ZEB_MESSAGE_BARE(MSG_C, \"a\");"}}));
    std::set<std::string> names;
    for (const Page &page : pages)
        names.insert(page.name);
    EXPECT_EQ(names, (std::set<std::string>{"index", "index-2", "messages", "structures", "valve",
                                            "valve-2"}));
}

TEST(ZebgenDocs, EveryStructureAndMessageOfTheStationIsThere) {
    const Catalogue catalogue = station();
    const std::vector<Page> pages = pages_of(catalogue);
    EXPECT_EQ(pages.size(), catalogue.headers.size() + 3);
    std::string all;
    for (const Page &page : pages)
        all += html_of(page, page_navigation());
    for (const Record &record : catalogue.records)
        EXPECT_EQ(occurrences(all, "<h2 id=\"" + record.name + "\">"), 1u) << record.name;
    const std::string list = markdown_of(page_named(pages, "messages"));
    for (size_t i = 0; i < catalogue.messages.size(); i++) {
        const Message &message = catalogue.messages[i];
        EXPECT_EQ(occurrences(list, "\n| " + std::to_string(i) + " | `" + message.name + "` | `" +
                                        message.meta + "` | "),
                  1u)
            << message.name;
    }
}

TEST(ZebgenDocs, NoLinkOfTheStationLeadsNowhere) {
    const std::vector<Page> pages = pages_of(station());
    std::set<std::string> places;
    for (const Page &page : pages) {
        places.insert(page.name + ".html");
        for (const Section &section : page.sections)
            if (section.code)
                places.insert(page.name + ".html#" + section.heading);
    }
    const std::regex link("href=\"([^\"]*)\"");
    for (const Page &page : pages) {
        const std::string html = html_of(page, page_navigation());
        for (std::sregex_iterator i(html.begin(), html.end(), link), end; i != end; ++i) {
            const std::string target = (*i)[1];
            EXPECT_TRUE(target == "style.css" || places.count(target))
                << page.name << ": " << target;
        }
    }
}

namespace {

int run_zebgen(const TempDir &dir, const std::string &arguments) {
    const std::string command = "cd " + dir.path() + " && " +
                                zeb::test::built_path("src/zebgen/zebgen") + " " + arguments +
                                " 2>log";
    const int status = system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

TEST(ZebgenDocsProgram, WritesPagesBesideSourcesOrAlone) {
    const TempDir dir;
    zeb::test::write_file(dir / "valve.h", k_valve);
    ASSERT_EQ(run_zebgen(dir, "--docs pages valve.h"), 0);
    for (const char *page : {"index", "structures", "messages", "valve"})
        for (const char *ending : {".md", ".html"})
            EXPECT_NE(zeb::test::read_file(dir / ("pages/" + std::string(page) + ending)), "");
    EXPECT_NE(zeb::test::read_file(dir / "pages/style.css"), "");
    EXPECT_EQ(run_zebgen(dir, "--docs both --out both valve.h"), 0);
    EXPECT_NE(zeb::test::read_file(dir / "both/records.h"), "");
    EXPECT_NE(zeb::test::read_file(dir / "both/valve.md"), "");
}

TEST(ZebgenDocsProgram, FailsWhereNothingCanBeWritten) {
    const TempDir dir;
    zeb::test::write_file(dir / "valve.h", k_valve);
    zeb::test::write_file(dir / "pages", "a file");
    EXPECT_EQ(run_zebgen(dir, "--docs pages valve.h"), 1);
    EXPECT_EQ(zeb::test::read_file(dir / "log").rfind("pages", 0), 0u);
    EXPECT_EQ(run_zebgen(dir, "--docs more"), 2);
}
