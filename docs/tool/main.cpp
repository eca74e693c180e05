// zebdoc - from the public headers and the pages in docs/ to manual pages and to what Doxygen
// reads.
//   zebdoc filter DOCS FILE               the file as Doxygen is to read it; pages lie below DOCS
//   zebdoc page NAME SECTION DATE MANUAL FILE   a manual page of a header or a page
//   zebdoc names HEADER                   the functions of a header, one a line
//   zebdoc sequences HEADER OUT           the call sequences of its preface: OUT.1.file and
//                                         OUT.1.function, OUT.2.file, ...; an error without one
//   zebdoc links DIRECTORY                names broken links of a site
#include "text.h"

#include <cctype>
#include <fstream>
#include <iostream>
#include <sstream>

using namespace zebdoc;

namespace {

Lines read(const std::string &file) {
    std::ifstream in(file);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in)
        std::cerr << "zebdoc: cannot read " << file << "\n";
    return split_lines(text.str());
}

bool is_page(const std::string &file) {
    return file.ends_with(".md");
}

int filter(const std::string &docs, const std::string &file) {
    const Lines lines = read(file);
    if (lines.empty())
        return 1;
    std::cout << (is_page(file) ? doxygen_markdown(lines, file.substr(docs.size() + 1))
                                : doxygen_header(read_header(lines)));
    return 0;
}

// Every function and global of the interface has its contract.
bool complete(const Module &module) {
    bool good = true;
    for (const Item &item : module.items)
        if (!item.name.empty() && item.comment.empty()) {
            std::cerr << module.file << ": " << item.name << " has no contract\n";
            good = false;
        }
    return good;
}

// Of a page, its title: "# Log file".
std::string summary(const Page &page) {
    std::string text = page.at(0).text;
    text[0] = char(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

int page(const ManTitle &title, const std::string &file) {
    const Lines lines = read(file);
    if (lines.empty())
        return 1;
    if (!is_page(file)) {
        const Module module = read_header(lines);
        std::cout << man_page(title, module);
        return complete(module) ? 0 : 1;
    }
    const Page text = read_markdown(lines);
    ManTitle full = title;
    full.summary = summary(text);
    std::cout << man_page(full, text);
    return 0;
}

int names(const std::string &file) {
    for (const Item &item : read_header(read(file)).items)
        if (!item.name.empty())
            std::cout << item.name << "\n";
    return 0;
}

bool write(const std::string &file, const std::string &text) {
    std::ofstream out(file);
    out << text;
    out.close();
    if (!out)
        std::cerr << "zebdoc: cannot write " << file << "\n";
    return bool(out);
}

int sequences(const std::string &header, const std::string &out) {
    const std::vector<Sequence> all = call_sequences(read_header(read(header)));
    bool good = !all.empty();
    if (all.empty())
        std::cerr << header << ": no call sequence in its preface\n";
    for (size_t i = 0; i < all.size(); ++i) {
        const std::string name = out + "." + std::to_string(i + 1);
        good &= write(name + ".file", all[i].file) && write(name + ".function", all[i].function);
    }
    return good ? 0 : 1;
}

} // namespace

int main(int argc, char **argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::string mode = arguments.empty() ? "" : arguments[0];
    if (mode == "filter" && arguments.size() == 3)
        return filter(arguments[1], arguments[2]);
    if (mode == "page" && arguments.size() == 6)
        return page({arguments[1], arguments[2], arguments[3], arguments[4], ""}, arguments[5]);
    if (mode == "names" && arguments.size() == 2)
        return names(arguments[1]);
    if (mode == "sequences" && arguments.size() == 3)
        return sequences(arguments[1], arguments[2]);
    if (mode == "links" && arguments.size() == 2)
        return check_links(arguments[1]) ? 0 : 1;
    std::cerr << "usage: zebdoc filter|page|names|sequences|links ..., see main.cpp\n";
    return 2;
}
