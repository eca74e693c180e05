// unpacking.h - what must hold of every package, on the module's insides.
#pragma once

#include "netpack_int.h"
#include "packages.h"

namespace fuzz {

using zeb::netpack::Catalogue;

// Unpacks into a record whose bytes were `before`; each is written, whatever the package holds.
inline std::string unpacked(const Catalogue &catalogue, std::string_view package,
                            const NETDSD_entry &entry, char before) {
    Exactly from(package);
    Exactly record(std::string(entry.total_size, before));
    const size_t used = zeb::netpack::unpack_ds(catalogue, from.data(), from.size(), record.data(),
                                                record.size(), entry.name);
    MUST(used <= std::max(from.size(), record.size()));
    return std::string(record.view());
}

inline std::string packed(const Catalogue &catalogue, const std::string &record,
                          const NETDSD_entry &entry) {
    size_t size = 0;
    void *package =
        zeb::netpack::package_ds(catalogue, record.data(), entry.name, record.size(), &size);
    const std::string result(static_cast<const char *>(package), package == nullptr ? 0 : size);
    free(package);
    return result;
}

// What a package leaves in a record does not depend on what was there. It survives the way to
// another station, once texts that came raw, without their ends, have been cut.
inline std::string check_package(const Catalogue &catalogue, std::string_view package,
                                 const NETDSD_entry &entry) {
    const std::string record = unpacked(catalogue, package, entry, '\x5A');
    MUST(record == unpacked(catalogue, package, entry, '\xA5'));
    const std::string sent = packed(catalogue, record, entry);
    if (sent.empty()) // a structure that cannot be packed
        return record;
    const std::string arrived = unpacked(catalogue, sent, entry, '\x5A');
    const std::string sent_on = packed(catalogue, arrived, entry);
    MUST(arrived == unpacked(catalogue, sent_on, entry, '\x5A'));
    return record;
}

} // namespace fuzz
