#include "text.h"

#include <algorithm>
#include <cctype>

namespace zebdoc {
namespace {

std::string escaped(const std::string &text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool word_start = i == 0 || !std::isalnum(static_cast<unsigned char>(text[i - 1]));
        if (std::string("\\@<>#%*&|~").find(c) != std::string::npos || (c == '_' && word_start))
            out += '\\';
        out += c;
    }
    return out;
}

// Doxygen ends a code span at a quote, but not one between two backticks. In these it stumbles over
// double quotes.
std::string code_span(const std::string &text) {
    if (text.find('"') == std::string::npos)
        return "``" + text + "``";
    return "<code>" + replace_all(replace_all(escaped(text), "\"", "&quot;"), "--", "\\--") +
           "</code>";
}

std::string inline_text(const std::string &text) {
    std::string out;
    for (const Span &span : spans(text))
        out += span.kind == Span::Kind::code ? code_span(span.text) : escaped(span.text);
    return out;
}

// ---- Headers: the contract blocks become Doxygen's ----

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return text;
}

std::string definition(const Block &block, bool is_void) {
    const std::string text = inline_text(block.text) + "\n\n";
    if (block.term == "Returns")
        return (is_void ? "@par Result\n" : "@return ") + text;
    if (std::isupper(static_cast<unsigned char>(block.term[0])))
        return "@par " + block.term + "\n" + text;
    return "@param " + replace_all(block.term, ", ", ",") + " " + text;
}

std::string block_text(const Block &block, bool is_void) {
    switch (block.kind) {
    case Block::Kind::code:
        return block.term == "c" ? "@code{.c}\n" + block.text + "@endcode\n\n"
                                 : "@verbatim\n" + block.text + "@endverbatim\n\n";
    case Block::Kind::item:
        return "- " + inline_text(block.text) + "\n";
    case Block::Kind::definition:
        return definition(block, is_void);
    default:
        return inline_text(block.text) + "\n\n";
    }
}

std::string comment(const std::string &head, const Lines &contract,
                    const std::set<std::string> &names, bool is_void = false) {
    std::string text = head;
    bool in_list = false;
    for (const Block &block : read_contract(contract, names)) {
        const bool item = block.kind == Block::Kind::item;
        text += (in_list && !item ? "\n" : "") + block_text(block, is_void);
        in_list = item;
    }
    std::string out = "/**\n";
    for (const std::string &line : split_lines(text))
        out += " * " + line + "\n";
    return out + " */\n";
}

// A comment behind a member belongs to it.
Lines member_comments(const Lines &declaration) {
    Lines out;
    bool trailing = false;
    for (const std::string &line : declaration) {
        const size_t start = line.find("/* ");
        const bool behind = start != std::string::npos && !trim(line.substr(0, start)).empty();
        std::string text = line;
        if (behind)
            text = line.substr(0, start) + "/**< " +
                   replace_all(escaped(line.substr(start + 3)), "\\*/", "*/");
        else if (trailing && trim(line).find("*/") != std::string::npos)
            text = "/**< " + replace_all(escaped(trim(line).substr(1)), "\\*/", "*/");
        trailing = behind && line.find("*/") == std::string::npos;
        if (trailing && out.size() + 1 < declaration.size())
            text += " */";
        out.push_back(text);
    }
    return out;
}

std::string item_text(const Item &item, const std::string &file) {
    std::string out;
    if (item.declaration.empty())
        return comment("@file " + file + "\n" +
                           (item.title.empty() ? "" : "@par " + item.title + "\n"),
                       item.comment, {});
    if (!item.comment.empty())
        out = comment("", item.comment, item.parameters,
                      begins_with(item.declaration[0], "ZEB_API void "));
    for (const std::string &line : member_comments(item.declaration))
        out += line + "\n";
    return out;
}

// ---- Pages: links, headings and code as Doxygen wants them ----

std::string page_id(const std::string &path) {
    return path == "index.md" ? "mainpage" : replace_all(path.substr(0, path.rfind('.')), "/", "_");
}

std::string anchor(const std::string &heading) {
    std::string out;
    for (const char c : lower(heading)) {
        if (std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_')
            out += c;
        else if (c == ' ')
            out += '-';
    }
    return out;
}

// "a/b/../c" without its detours.
std::string resolved(const std::string &directory, const std::string &target) {
    std::vector<std::string> parts;
    std::string part;
    for (const char c : directory + target + "/") {
        if (c != '/') {
            part += c;
            continue;
        }
        if (part == ".." && !parts.empty() && parts.back() != "..")
            parts.pop_back();
        else if (!part.empty())
            parts.push_back(part);
        part.clear();
    }
    std::string out;
    for (const std::string &one : parts)
        out += (out.empty() ? "" : "/") + one;
    return out;
}

std::string base(const std::string &path) {
    return path.substr(path.rfind('/') + 1);
}

bool is_man_page(const std::string &file) {
    return file.size() > 2 && file[file.size() - 2] == '.' &&
           std::isdigit(static_cast<unsigned char>(file.back()));
}

std::string link(const std::string &text, const std::string &target, const std::string &path) {
    if (target.find("://") != std::string::npos || target.find(".html") != std::string::npos)
        return "[" + text + "](" + target + ")";
    const size_t hash = target.find('#');
    const std::string anchor_part = hash == std::string::npos ? "" : target.substr(hash + 1);
    const std::string directory = path.substr(0, path.rfind('/') + 1);
    const std::string file = hash == 0 ? path : resolved(directory, target.substr(0, hash));
    if (file.ends_with(".md") && !begins_with(file, "../"))
        return "[" + text + "](@ref " + page_id(file) +
               (anchor_part.empty() ? "" : "_" + anchor_part) + ")";
    if (is_man_page(base(file)))
        return "[" + text + "](man/" + base(file) + ".html)";
    if (file.ends_with(".h") && file.find("libzeb2/") != std::string::npos)
        return "[" + text + "](@ref " + base(file) + ")";
    if (file.ends_with(".svg"))
        return "[" + text + "](" + base(file) + ")";
    return text; // a file of the source tree
}

std::string page_line(const std::string &line, const std::string &path) {
    std::string out;
    for (const Span &span : spans(line)) {
        if (span.kind == Span::Kind::code)
            out += code_span(span.text);
        else if (span.kind == Span::Kind::link)
            out += link(page_line(span.text, path), span.target, path);
        else if (span.kind == Span::Kind::bold)
            out += "**" + page_line(span.text, path) + "**";
        else
            out += span.text;
    }
    return out;
}

} // namespace

std::string doxygen_header(const Module &module) {
    std::string summary = module.summary;
    summary[0] = char(std::toupper(static_cast<unsigned char>(summary[0])));
    std::string out = comment("@file " + module.file + "\n@brief " + inline_text(summary) + "\n\n",
                              module.preface, {});
    for (const Item &item : module.items)
        out += item_text(item, module.file) + "\n";
    return out;
}

std::string doxygen_markdown(const Lines &lines, const std::string &path) {
    std::string out;
    bool code = false;
    for (const std::string &line : lines) {
        if (begins_with(trim(line), "```")) {
            code = !code;
            const std::string language = trim(line).substr(3);
            const bool known = language == "c" || language == "cpp";
            out += line.substr(0, line.find('`')) + "```" + (known ? language : "") + "\n";
        } else if (!code && begins_with(line, "# ") && path == "index.md") {
            out += "# " + line.substr(2) + " {#mainpage}\n";
        } else if (!code && begins_with(line, "# ")) {
            out += line + " {#" + page_id(path) + "}\n";
        } else if (!code && begins_with(line, "##")) {
            const std::string heading = trim(line.substr(line.find_first_not_of('#')));
            out += page_line(line, path) + " {#" + page_id(path) + "_" + anchor(heading) + "}\n";
        } else {
            out += (code ? line : page_line(line, path)) + "\n";
        }
    }
    return out;
}

} // namespace zebdoc
