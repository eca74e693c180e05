// diff.h - what differs between two revisions of the definitions, and who sees what of it while
// both are in use.
#ifndef ZEBGEN_DIFF_H
#define ZEBGEN_DIFF_H

#include "diff_rules.h"

namespace zebgen {

struct Change {
    std::string file;    // name of the header, where the new revision has it
    std::string subject; // record or message
    std::string field;   // empty: the record or message as a whole
    std::string kind;    // one word: "added", "removed", "type", "count", ...
    std::string what;
    Effect to_new; // what a receiver of the new revision sees of a sender of the old
    Effect to_old; // what a receiver of the old revision sees of a sender of the new
    std::vector<std::string> within =
        {}; // "RECORD.member" where the record is nested, some of them

    bool breaking() const { return to_new.lost || to_old.lost; }
};

// By file, record or message, and field.
std::vector<Change> compare(const Catalogue &older, const Catalogue &newer);

// One line, without its end.
std::string text_of(const Change &change);
// One document for all of them.
std::string json_of(const std::vector<Change> &changes);

} // namespace zebgen
#endif
