// model.h - what definition headers say, and what is wrong with them.
#ifndef ZEBGEN_MODEL_H
#define ZEBGEN_MODEL_H

#include <cstdint>
#include <string>
#include <vector>

namespace zebgen {

// Lines and columns count from 1; columns are bytes.
struct Place {
    std::string file;
    int line = 1;
    int column = 1;
};

// One refusal: what is wrong, and how to mend it.
struct Problem {
    Place place;
    std::string what;
    std::string mend;
};
using Problems = std::vector<Problem>;

// "FILE:LINE:COLUMN: error: WHAT; MEND"
std::string text_of(const Problem &problem);

// An integer #define, usable as an array length.
struct Define {
    std::string name;
    Place place;
    int64_t value = 0;
};

struct Field {
    std::string name;
    Place place;      // of the name
    Place type_place; // of the first word of the type
    std::string code; // NETDSD_FT_ constant without that prefix
    std::string type; // as the catalogue states it
    bool nested = false;
    bool array = false;
    std::string length; // as written: a number or the name of a define
    Place length_place;
    std::string comment;
    // Known once the catalogue is merged: elements, and bytes in memory.
    uint64_t count = 1;
    uint64_t offset = 0;
    uint64_t size = 0; // of one element
};

struct Record {
    std::string name;
    Place place;
    std::string comment;       // of the lines directly above
    std::vector<Field> fields; // as declared; sorted by name once the catalogue is merged
    uint64_t size = 0;         // bytes in memory, once the catalogue is merged
};

struct Message {
    std::string name;
    Place place;
    std::string meta;
    Place meta_place;
    std::string record; // empty: carries none
    Place record_place;
};

// One definition header.
struct Source {
    std::string path;
    std::string include; // as in #include, with its brackets or quotes
    std::string preface; // the comment that the header begins with
    std::vector<Define> defines;
    std::vector<Record> records;
    std::vector<Message> messages;
};

// A definition header as readers of the catalogue want it.
struct Header {
    std::string path;
    std::string preface;
};

// Everything of a run, sorted by name in byte order.
struct Catalogue {
    std::vector<std::string> includes; // as given
    std::vector<Header> headers;       // likewise
    std::vector<Record> records;
    std::vector<Message> messages;
};

} // namespace zebgen
#endif
