// A package for any of the station's structures.
#include "unpacking.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const auto catalogue = zeb::netpack::public_catalogue();
    const bool made = input.byte() % 8 != 0;
    const size_t row = input.number<uint16_t>() % catalogue.count_structures;
    const NETDSD_entry &entry = catalogue.structures[row];
    const std::string package =
        made ? fuzz::PackageMaker(input).make(entry) : std::string(input.rest());
    fuzz::check_package(catalogue, package, entry);
    return 0;
}
