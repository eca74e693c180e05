// A line of columns, read into any of the station's records: it sets the same bytes whatever was
// there, and takes no more columns than it has.
#include "fuzz.h"

#include "netpack.h"

namespace {

using namespace fuzz;

struct Result {
    std::string record;
    size_t columns;
};

Result read(const NETDSD_entry &entry, size_t size, const std::string &line, char before) {
    Exactly record(std::string(size, before));
    Exactly text({line.c_str(), line.size() + 1});
    const size_t columns =
        NETPACK_read_ds_tabular_raw(record.data(), entry.name, record.size(), text.data());
    return {std::string(record.view()), columns};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    const NETDSD_entry &entry =
        _ndsd_structures_ext[input.number<uint16_t>() % _ndsd_structures_count_ext];
    const bool described = input.byte() != 0;
    std::string line(input.rest());
    line.resize(strlen(line.c_str()));
    const size_t record_size = described ? entry.total_size : 16;
    const Result one = read(entry, record_size, line, '\0');
    const Result other = read(entry, record_size, line, '\xFF');
    MUST(one.columns == other.columns);
    MUST(one.columns <= 1 + static_cast<size_t>(std::count(line.begin(), line.end(), ',')));
    for (size_t i = 0; i < record_size; ++i)
        MUST(one.record[i] == other.record[i] ||
             (one.record[i] == '\0' && other.record[i] == '\xFF'));
    return 0;
}
