// Definition headers: one is refused with the place of each problem, or becomes a catalogue.
#include "fuzz.h"

#include "checks.h"
#include "diff.h"
#include "docs.h"
#include "emit.h"
#include "parser.h"

using namespace zebgen;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    const size_t half = text.find("//----\n");
    Problems problems;
    std::vector<Source> sources;
    sources.push_back(parse("a.h", "\"a.h\"", text.substr(0, half), problems));
    if (half != text.npos)
        sources.push_back(parse("b.h", "\"b.h\"", text.substr(half), problems));
    const Catalogue catalogue = merge(sources, problems);
    for (const Problem &problem : problems) {
        MUST(problem.place.line >= 1 && problem.place.column >= 1 && !problem.what.empty());
        MUST(text_of(problem).find('\n') == std::string::npos);
    }
    if (!problems.empty())
        return 0;
    MUST(compare(catalogue, catalogue).empty());
    MUST(json_of(compare({}, catalogue)).size() > 2 || catalogue.records.empty());
    pages_of(catalogue);
    const EmitOptions options = {};
    MUST(!emit_records_source(catalogue, options).empty());
    MUST(!emit_messages_source(catalogue, options).empty());
    MUST(!emit_messages_header(catalogue, options).empty());
    MUST(!emit_records_header(catalogue, options).empty());
    return 0;
}
