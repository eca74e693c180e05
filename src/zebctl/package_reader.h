// package_reader.h - records read from their packages alone: a package names its structure and
// every field, so no catalogue is needed.
//
// Nothing in a package is trusted: what a length or a count announces must be there.
#pragma once

#include <string>
#include <string_view>

#include <zeb2/netpack.h>

namespace zebctl {

struct PackageField {
    std::string_view name;
    NETDSD_field_type type = NETDSD_FT_BOOL;
    size_t count = 1; // elements
};

// Gets what a package holds, in its order. Every begin_ has its end_ unless reading fails between.
class PackageVisitor {
  public:
    virtual ~PackageVisitor() = default;
    virtual void begin_record(std::string_view /*structure*/) {}
    virtual void end_record() {}
    virtual void begin_field(const PackageField & /*field*/) {}
    virtual void end_field() {}
    // The elements of a field; of a described BIN field each is a record instead.
    virtual void numbers(const PackageField & /*field*/, const char * /*elements*/) {}
    virtual void text(std::string_view /*text*/) {}
    // The bytes of a BIN field without a description. A whole record without one is shown as a
    // record without a name and with one such field, "raw".
    virtual void opaque(std::string_view /*bytes*/) {}
};

// Shows a package to the visitor. A raw package takes its fields from the catalogue's description
// of `structure`, when that is of its size. Returns the bytes used; 0 with the reason in `error`.
size_t read_package(std::string_view package, const std::string &structure, PackageVisitor &visitor,
                    std::string &error);

// "DOUBLE", "DOUBLE[7]", as the catalogue's codes are called.
std::string type_text(const PackageField &field);

} // namespace zebctl
