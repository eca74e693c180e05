// text.h - what a page is made of, between the forms that it is read from and written in.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace zebdoc {

using Lines = std::vector<std::string>;

struct Block {
    enum class Kind { heading, paragraph, item, definition, code, table };
    Kind kind;
    std::string text; // with Markdown's `code`, **bold** and [links](target)
    std::string term; // of a definition: "lnk, name", "Returns", "Threads"; of code: its language
    int level = 0;    // of a heading
    std::vector<Lines> rows = {}; // of a table, its heading first
};
using Page = std::vector<Block>;

Lines split_lines(const std::string &text);
std::string trim(const std::string &text);
bool begins_with(const std::string &text, const std::string &start);
std::string replace_all(std::string text, const std::string &from, const std::string &to);

// A piece of a text: plain, or one of Markdown's.
struct Span {
    enum class Kind { plain, code, bold, link };
    Kind kind;
    std::string text;
    std::string target = {};
};
std::vector<Span> spans(const std::string &text);

// ---- Markdown, as far as the pages in docs/ use it ----

Page read_markdown(const Lines &lines);

// ---- The public headers ----

// The text of a contract block, without its comment marks. `names` are the parameters that a
// definition may be about.
Page read_contract(const Lines &lines, const std::set<std::string> &names);

struct Item {
    std::string title; // of a section; else a comment, a declaration, or both
    Lines comment;
    Lines declaration;
    std::set<std::string> parameters = {};
    std::string name = {}; // of a function or global of the interface
};
struct Module {
    std::string file;    // "conf.h"
    std::string summary; // its first sentence
    Lines preface;
    std::vector<Item> items;
};
Module read_header(const Lines &lines);

// A call sequence of a preface: what stands in a function, and before it what cannot.
struct Sequence {
    std::string file, function;
};
std::vector<Sequence> call_sequences(const Module &module);

// ---- Output ----

struct ManTitle {
    std::string name, section, date, manual, summary;
};
std::string man_page(const ManTitle &title, const Page &page);
std::string man_page(const ManTitle &title, const Module &module);
std::string doxygen_header(const Module &module);
// `path` is that of the page below docs/.
std::string doxygen_markdown(const Lines &lines, const std::string &path);

// Names on standard error what links of the HTML files below a directory lead to nothing.
bool check_links(const std::string &directory);

} // namespace zebdoc
