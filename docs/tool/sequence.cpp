#include "text.h"

namespace zebdoc {
namespace {

// "int main(void) {" and its like, at the margin.
bool begins_function(const std::string &line) {
    for (const std::string type : {"void ", "int ", "BOOL ", "double "})
        if (begins_with(line, type) && line.ends_with(") {"))
            return true;
    return false;
}

// A function cannot stand in a function, so all up to the end of the last one stands before.
Sequence split(const std::string &text) {
    const Lines lines = split_lines(text);
    size_t above = 0;
    bool inside = false;
    for (size_t i = 0; i < lines.size(); ++i) {
        inside |= begins_function(lines[i]);
        if (inside && lines[i] == "}") {
            inside = false;
            above = i + 1;
        }
    }
    Sequence sequence;
    for (size_t i = 0; i < lines.size(); ++i)
        (i < above ? sequence.file : sequence.function) += lines[i] + "\n";
    return sequence;
}

} // namespace

std::vector<Sequence> call_sequences(const Module &module) {
    std::vector<Sequence> all;
    for (const Block &block : read_contract(module.preface, {}))
        if (block.kind == Block::Kind::code && block.term == "c")
            all.push_back(split(block.text));
    return all;
}

} // namespace zebdoc
