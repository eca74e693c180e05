// page.h - a page of the catalogue's reference, written as Markdown and as HTML.
#ifndef ZEBGEN_PAGE_H
#define ZEBGEN_PAGE_H

#include <string>
#include <utility>
#include <vector>

namespace zebgen {

// A piece of text; with a target it is a link. Targets name a page without its ending ("neph",
// "neph#NET_NEPH_Zero").
struct Span {
    std::string text;
    bool code = false;
    std::string target = {};
};
using Text = std::vector<Span>;

struct Table {
    std::vector<std::string> head;
    std::vector<bool> numeric; // columns that are set to the right
    std::vector<std::vector<Text>> rows;
};

struct Section {
    std::string heading;
    bool code = false;        // the heading is a name, and its own anchor
    std::vector<Text> before; // paragraphs
    Table table;              // without rows: none
};

struct Page {
    std::string name; // of the file, without its ending
    std::string title;
    std::vector<Text> intro;
    std::vector<Section> sections;
};

std::string markdown_of(const Page &page);
// `navigation`: the pages that every page links, and their titles.
std::string html_of(const Page &page,
                    const std::vector<std::pair<std::string, std::string>> &navigation);
// style.css, which the HTML pages refer to.
std::string style_sheet();

} // namespace zebgen
#endif
