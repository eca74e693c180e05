// docs.h - the reference pages of a catalogue.
#ifndef ZEBGEN_DOCS_H
#define ZEBGEN_DOCS_H

#include "model.h"
#include "page.h"

namespace zebgen {

// One page for each definition header, and the three indexes: "index" by instrument, "structures"
// and "messages".
std::vector<Page> pages_of(const Catalogue &catalogue);
// The indexes, which every page links.
std::vector<std::pair<std::string, std::string>> page_navigation();

} // namespace zebgen
#endif
