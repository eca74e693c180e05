// types.h - the words that a definition header may use, and those that it may not.
#ifndef ZEBGEN_TYPES_H
#define ZEBGEN_TYPES_H

#include <string>

namespace zebgen {

struct ScalarType {
    const char *word;      // as written, words separated by one blank
    const char *code;      // NETDSD_FT_ constant without that prefix
    const char *type_name; // as the catalogue states it
};

// What the library makes of a type code, on the wire and in memory alike.
struct CodeProperties {
    const char *code;
    unsigned size; // bytes of an element
    bool number;   // converted into any other number
    bool floating;
    bool is_signed;
    bool marked;    // a missing value can be told from the others
    double missing; // what a field holds that nothing was received for
};

// Of a NETDSD_FT_ constant without that prefix; arrays have the properties of their elements.
const CodeProperties &properties_of(const std::string &code);

// Null when the word is no scalar type.
const ScalarType *find_scalar(const std::string &word);

// How to mend a type that looks usable but is not; null when nothing special is known.
const char *advice_for_type(const std::string &word);

// Words of C or C++ that cannot name anything.
bool is_keyword(const std::string &word);

} // namespace zebgen
#endif
