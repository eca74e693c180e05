#include "text.h"

#include <algorithm>
#include <cctype>

namespace zebdoc {
namespace {

std::string escaped(const std::string &text) {
    return replace_all(replace_all(text, "\\", "\\e"), "-", "\\-");
}

// A line that begins with a control character would be a request.
std::string guarded(const std::string &line) {
    return !line.empty() && (line[0] == '.' || line[0] == '\'') ? "\\&" + line : line;
}

std::string inline_text(const std::string &text) {
    std::string out;
    for (const Span &span : spans(text)) {
        const std::string plain =
            span.kind == Span::Kind::link ? inline_text(span.text) : escaped(span.text);
        const bool bold = span.kind == Span::Kind::code || span.kind == Span::Kind::bold;
        out += bold ? "\\fB" + plain + "\\fR" : plain;
    }
    return out;
}

std::string code(const std::string &text) {
    std::string out = ".RS 4\n.EX\n";
    for (const std::string &line : split_lines(text))
        out += guarded(escaped(line)) + "\n";
    return out + ".EE\n.RE\n";
}

constexpr size_t k_narrow = 24; // columns that a cell may take before its text is filled

bool is_wide(const std::vector<Lines> &rows) {
    return std::any_of(rows.begin(), rows.end(),
                       [](const Lines &row) { return row[0].size() > k_narrow; });
}

// Two columns, of which the first is wide.
std::string list(const std::vector<Lines> &rows) {
    std::string out;
    for (size_t r = 1; r < rows.size(); ++r)
        out += ".TP 8\n" + guarded(inline_text(rows[r][0])) + "\n" +
               guarded(inline_text(rows[r].size() > 1 ? rows[r][1] : "")) + "\n";
    return out;
}

std::string cell(const std::string &text, bool fill) {
    const std::string out = guarded(inline_text(text));
    return fill && text.size() > k_narrow ? "T{\n" + out + "\nT}" : out;
}

std::string table(const std::vector<Lines> &rows) {
    const size_t columns = rows[0].size();
    if (columns == 2 && is_wide(rows))
        return list(rows);
    std::string heading = "lb", format = columns > 1 ? "l" : "lx";
    for (size_t i = 1; i < columns; ++i) {
        heading += " lb";
        format += i + 1 < columns ? " l" : " lx";
    }
    std::string out = ".PP\n.na\n.TS\ntab(@);\n" + heading + "\n" + format + ".\n";
    for (const Lines &row : rows) {
        for (size_t i = 0; i < columns; ++i)
            out += (i > 0 ? "@" : "") +
                   (i < row.size() ? cell(row[i], &row != &rows[0]) : std::string());
        out += "\n";
    }
    return out + ".TE\n.ad\n";
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::toupper(c)); });
    return text;
}

std::string block_text(const Block &block) {
    const std::string text = guarded(inline_text(block.text)) + "\n";
    switch (block.kind) {
    case Block::Kind::heading:
        return block.level <= 2 ? ".SH " + upper(inline_text(block.text)) + "\n" : ".SS " + text;
    case Block::Kind::paragraph:
        return ".PP\n" + text;
    case Block::Kind::item:
        return ".IP " + (block.term == "-" ? std::string("\\(bu 2") : block.term + " 4") + "\n" +
               text;
    case Block::Kind::definition:
        return ".TP 4\n.I " + escaped(block.term) + "\n" + text;
    case Block::Kind::code:
        return code(block.text);
    case Block::Kind::table:
        return table(block.rows);
    }
    return "";
}

std::string pages_text(const Page &page) {
    std::string out;
    for (const Block &block : page)
        out += block_text(block);
    return out;
}

// A paragraph that begins behind a heading, or at once behind an indentation, is none.
std::string tidy(const std::string &text) {
    std::string out;
    bool begun = false;
    for (const std::string &line : split_lines(text)) {
        if (!begun || line != ".PP")
            out += line + "\n";
        begun = begins_with(line, ".SH") || begins_with(line, ".SS") || line == ".RS 4";
    }
    return out;
}

std::string head(const ManTitle &title) {
    return "'\\\" t\n.TH " + upper(title.name) + " " + title.section + " " + title.date +
           " zeb2 \"" + title.manual + "\"\n.SH NAME\n" + escaped(title.name) + " \\- " +
           inline_text(title.summary) + "\n";
}

// Without "ZEB_API " in front, and lines that follow it as much further left.
std::string without_mark(const std::string &line, bool exported) {
    const bool blank = line.find_first_not_of(' ') >= 8 && line.size() > 8;
    return exported && (begins_with(line, "ZEB_API ") || blank) ? line.substr(8) : line;
}

std::string declaration_text(const Lines &declaration) {
    const bool exported = begins_with(declaration[0], "ZEB_API ");
    std::string out = ".PP\n.nf\n.ft B\n";
    for (const std::string &line : declaration)
        out += guarded(escaped(without_mark(line, exported))) + "\n";
    return out + ".ft R\n.fi\n";
}

std::string item_text(const Item &item, bool shares_comment) {
    std::string out;
    if (!item.title.empty())
        out += ".SS " + escaped(item.title) + "\n";
    if (!item.declaration.empty())
        out += declaration_text(item.declaration);
    const Page contract = read_contract(item.comment, item.parameters);
    if (contract.empty() || shares_comment)
        return out;
    if (item.declaration.empty())
        return out + pages_text(contract);
    return out + ".RS 4\n" + pages_text(contract) + ".RE\n";
}

} // namespace

std::string man_page(const ManTitle &title, const Page &page) {
    Page body = page;
    body.erase(body.begin()); // the title
    std::string out = head(title);
    if (body.empty() || body[0].kind != Block::Kind::heading)
        out += ".SH DESCRIPTION\n";
    return tidy(out + pages_text(body)) + ".SH SEE ALSO\n.BR zebctl (1),\n.BR libzeb2 (3)\n";
}

std::string man_page(const ManTitle &title, const Module &module) {
    ManTitle named = title;
    named.summary = module.summary;
    std::string out = head(named);
    out += ".SH SYNOPSIS\n.nf\n.B #include <zeb2/" + module.file +
           ">\n.fi\n.PP\nLink with\n.BR "
           "\\-lzeb2 .\n.SH DESCRIPTION\n" +
           pages_text(read_contract(module.preface, {})) + ".SH INTERFACE\n";
    for (size_t i = 0; i < module.items.size(); ++i) {
        const bool shared = i + 1 < module.items.size() && !module.items[i].comment.empty() &&
                            !module.items[i + 1].declaration.empty() &&
                            module.items[i].title.empty() &&
                            module.items[i + 1].comment == module.items[i].comment;
        out += item_text(module.items[i], shared);
    }
    return tidy(out) + ".SH SEE ALSO\n.BR libzeb2 (3)\n";
}

} // namespace zebdoc
