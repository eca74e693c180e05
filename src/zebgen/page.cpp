#include "page.h"

namespace zebgen {
namespace {

// "neph#NET_NEPH_Zero" with the ending of the page put in.
std::string target_with(const std::string &target, const std::string &ending) {
    const size_t anchor = target.find('#');
    return anchor == std::string::npos ? target + ending
                                       : target.substr(0, anchor) + ending + target.substr(anchor);
}

// Markdown

bool is_word(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// Only what would be taken for a mark: the source is to be read too.
std::string markdown_escaped(const std::string &text) {
    std::string out;
    for (size_t i = 0; i < text.size(); i++) {
        const bool within =
            i > 0 && i + 1 < text.size() && is_word(text[i - 1]) && is_word(text[i + 1]);
        if (std::string("\\`*[]<>|~&").find(text[i]) != std::string::npos ||
            (text[i] == '_' && !within))
            out += '\\';
        out += text[i];
    }
    return out;
}

// In a table a '|' ends the cell even within backticks, unless it is escaped.
std::string markdown_code(const std::string &text) {
    std::string out = "`";
    for (const char c : text)
        out += c == '|' ? "\\|" : c == '`' ? "'" : std::string(1, c);
    return out + "`";
}

std::string markdown(const Span &span) {
    const std::string text = span.code ? markdown_code(span.text) : markdown_escaped(span.text);
    return span.target.empty() ? text : "[" + text + "](" + target_with(span.target, ".md") + ")";
}

std::string markdown(const Text &text) {
    std::string out;
    for (const Span &span : text)
        out += markdown(span);
    return out;
}

std::string markdown(const Table &table) {
    if (table.rows.empty())
        return "";
    std::string out = "|";
    for (const std::string &cell : table.head)
        out += " " + markdown_escaped(cell) + " |";
    out += "\n|";
    for (const bool numeric : table.numeric)
        out += numeric ? "---:|" : "---|";
    for (const std::vector<Text> &row : table.rows) {
        out += "\n|";
        for (const Text &cell : row)
            out += " " + markdown(cell) + " |";
    }
    return out + "\n\n";
}

std::string markdown(const std::vector<Text> &paragraphs) {
    std::string out;
    for (const Text &paragraph : paragraphs) {
        const std::string text = markdown(paragraph);
        // Not a heading or a list.
        const bool mark = !text.empty() && std::string("#+-").find(text[0]) != std::string::npos;
        out += (mark ? "\\" : "") + text + "\n\n";
    }
    return out;
}

// HTML

std::string html_escaped(const std::string &text) {
    std::string out;
    for (const char c : text)
        out += c == '&'   ? "&amp;"
               : c == '<' ? "&lt;"
               : c == '>' ? "&gt;"
               : c == '"' ? "&quot;"
                          : std::string(1, c);
    return out;
}

std::string html(const Span &span) {
    std::string out = html_escaped(span.text);
    if (span.code)
        out = "<code>" + out + "</code>";
    if (!span.target.empty())
        out = "<a href=\"" + html_escaped(target_with(span.target, ".html")) + "\">" + out + "</a>";
    return out;
}

std::string html(const Text &text) {
    std::string out;
    for (const Span &span : text)
        out += html(span);
    return out;
}

std::string html_cell(const char *tag, bool numeric, const std::string &content) {
    return std::string("<") + tag + (numeric ? " class=\"n\">" : ">") + content + "</" + tag + ">";
}

std::string html(const Table &table) {
    if (table.rows.empty())
        return "";
    std::string out = "<table>\n<thead><tr>";
    for (size_t i = 0; i < table.head.size(); i++)
        out += html_cell("th", table.numeric[i], html_escaped(table.head[i]));
    out += "</tr></thead>\n<tbody>\n";
    for (const std::vector<Text> &row : table.rows) {
        out += "<tr>";
        for (size_t i = 0; i < row.size(); i++)
            out += html_cell("td", table.numeric[i], html(row[i]));
        out += "</tr>\n";
    }
    return out + "</tbody>\n</table>\n";
}

std::string html(const std::vector<Text> &paragraphs) {
    std::string out;
    for (const Text &paragraph : paragraphs)
        out += "<p>" + html(paragraph) + "</p>\n";
    return out;
}

std::string html(const Section &section) {
    const std::string heading = html_escaped(section.heading);
    const std::string title = section.code
                                  ? "<h2 id=\"" + heading + "\"><code>" + heading + "</code></h2>\n"
                                  : "<h2>" + heading + "</h2>\n";
    return "<section>\n" + title + html(section.before) + html(section.table) + "</section>\n";
}

} // namespace

std::string markdown_of(const Page &page) {
    std::string out = "# " + markdown_escaped(page.title) + "\n\n" + markdown(page.intro);
    for (const Section &section : page.sections) {
        // Names keep their case and underscores as anchors.
        if (section.code)
            out += "<a id=\"" + section.heading + "\"></a>\n\n";
        out += "## " +
               (section.code ? markdown_code(section.heading) : markdown_escaped(section.heading)) +
               "\n\n" + markdown(section.before) + markdown(section.table);
    }
    out.pop_back();
    return out;
}

std::string html_of(const Page &page,
                    const std::vector<std::pair<std::string, std::string>> &navigation) {
    std::string links;
    for (const auto &[name, title] : navigation)
        links +=
            (links.empty() ? "" : " | ") + (name == page.name ? "<b>" + html_escaped(title) + "</b>"
                                                              : html(Span{title, false, name}));
    std::string out = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                      "<meta name=\"viewport\" content=\"width=device-width\">\n<title>" +
                      html_escaped(page.title) +
                      "</title>\n<link rel=\"stylesheet\" href=\"style.css\">\n</head>\n<body>\n"
                      "<nav>" +
                      links + "</nav>\n<h1>" + html_escaped(page.title) + "</h1>\n" +
                      html(page.intro);
    for (const Section &section : page.sections)
        out += html(section);
    return out + "</body>\n</html>\n";
}

std::string style_sheet() {
    return R"(body { font: 15px/1.45 sans-serif; color: #222; max-width: 75em; margin: 1.5em auto;
       padding: 0 1em; }
nav { font-size: 90%; border-bottom: 1px solid #ccc; padding-bottom: .4em; }
h1 { font-size: 170%; margin: .8em 0 .3em; }
h2 { font-size: 120%; margin: 1.8em 0 .2em; }
p { margin: .3em 0; max-width: 50em; }
code { font: 90% monospace; }
td code { overflow-wrap: anywhere; }
a { color: #0a4d8c; text-decoration: none; }
a:hover { text-decoration: underline; }
table { border-collapse: collapse; margin: .6em 0; }
th, td { text-align: left; vertical-align: top; padding: .15em .9em .15em 0;
         border-bottom: 1px solid #e4e4e4; }
th { border-bottom: 1px solid #888; white-space: nowrap; }
.n { text-align: right; font-variant-numeric: tabular-nums; }
:target { background: #fff6cc; }
@media print { nav { display: none; } }
)";
}

} // namespace zebgen
