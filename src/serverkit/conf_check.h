// conf_check.h - explains a configuration file: what loading it ignores or alters without a word.
//
// The file is read piece by piece with the loader's own rules (conf_int.h), so that what is said
// here is what the station's daemons will do.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace zeb {

enum class ConfSeverity {
    note,    // read otherwise than written, as the format means it
    warning, // part of what was written is lost or replaced
    error,   // the line sets nothing
};

struct ConfFinding {
    size_t line; // from 1
    ConfSeverity severity;
    std::string text; // one printable line
    std::string path; // that the line would set or sets, where it is one
};

// A value that the loaded tree will hold.
struct ConfSetting {
    size_t line;
    std::string path; // as normalised, without a separator at its end
    std::string value;
    bool is_header = false; // "!" in front: it is there for the headers of log files
};

struct ConfCheck {
    std::vector<ConfFinding> findings; // by line; a last one tells how many were left out
    std::vector<ConfSetting> settings; // the surviving ones, sorted by path
};

// More findings than this are counted, not listed.
constexpr size_t k_conf_max_findings = 10000;

// Reads `stream` to its end. Prints nothing.
ConfCheck check_conf(FILE *stream);

} // namespace zeb
