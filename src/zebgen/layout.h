// layout.h - where members lie in memory, for readers of the catalogue. The generated tables leave
// it to the compiler; a test compares the two.
#ifndef ZEBGEN_LAYOUT_H
#define ZEBGEN_LAYOUT_H

#include "model.h"

namespace zebgen {

// Offsets and sizes of all fields, under '#pragma pack(push, 4)'. The records are sorted by name,
// their fields as declared; nested records are among them, nested in nothing but each other.
void lay_out(std::vector<Record> &records);

// The record of that name among records sorted by name, or null.
const Record *find_record(const std::vector<Record> &records, const std::string &name);

} // namespace zebgen
#endif
