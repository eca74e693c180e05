// emit.h - the catalogue as C sources and headers.
#ifndef ZEBGEN_EMIT_H
#define ZEBGEN_EMIT_H

#include "model.h"

#include <ctime>

namespace zebgen {

struct EmitOptions {
    bool for_library = false;           // the private tables too, and <zeb2/...> spellings
    std::string name = "catalogue"; // distinguishes include guards
};

// ds_desc.c and msg_list.c: the tables of records and of messages, valid as C11 and as C++17.
std::string emit_records_source(const Catalogue &catalogue, const EmitOptions &options);
std::string emit_messages_source(const Catalogue &catalogue, const EmitOptions &options);
// msg_list.h: the enumeration NETMSG_type.
std::string emit_messages_header(const Catalogue &catalogue, const EmitOptions &options);
// records.h: includes every definition header.
std::string emit_records_header(const Catalogue &catalogue, const EmitOptions &options);
// revision.c: the build stamp of the library.
std::string emit_revision(time_t stamp);

// A C string literal, quotes included, that holds exactly these bytes.
std::string c_string(const std::string &text);

} // namespace zebgen
#endif
