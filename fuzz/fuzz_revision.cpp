// Two revisions of a catalogue, both up to the input, and what goes from one to the other.
#include "unpacking.h"

#include <vector>

namespace {

using namespace fuzz;

constexpr size_t k_structures = 4;
constexpr const char *k_structure_names[k_structures] = {"A", "B", "C", "D"};
constexpr const char *k_field_names[] = {"a", "b", "c", "d", "e", "f", "g", "h"};

// Structures in the order of their names. Most are sound; some fields overlap, reach beyond the
// record, have no bytes, or contain themselves.
class Revision {
  public:
    explicit Revision(Input &input) {
        const size_t count = 1 + input.below(k_structures);
        for (size_t i = 0; i < count; ++i)
            add_structure(input, i);
        for (size_t i = 0; i < count; ++i)
            entries_[i].fields = fields_[i].data();
    }
    ~Revision() { zeb::netpack::free_plans(catalogue()); }

    Catalogue catalogue() { return {entries_, count_, nullptr, 0, &cache_}; }
    const NETDSD_entry &entry(size_t i) const { return entries_[i % count_]; }
    // As if nothing had been unpacked yet.
    void forget() { zeb::netpack::free_plans(catalogue()); }

  private:
    void add_structure(Input &input, size_t row) {
        const uint8_t present = input.byte();
        size_t end = 0;
        for (size_t i = 0; i < std::size(k_field_names); ++i)
            if ((present >> i & 1) != 0)
                add_field(input, row, k_field_names[i], end);
        end += input.below(8);
        entries_[row] = {nullptr, fields_[row].size(), k_structure_names[row],
                         std::min<size_t>(end, 4096)};
        ++count_;
    }

    void add_field(Input &input, size_t row, const char *name, size_t &end) {
        const uint8_t how = input.byte();
        NETDSD_field field = {
            static_cast<NETDSD_field_type>(input.below(31)), name, end, 1, "", 0, "int"};
        field.count = how & 7;
        field.offset += how >> 3 & 3;
        if ((how & 0xE0) == 0xE0)
            field.offset = input.byte();
        if (field.ft == NETDSD_FT_BIN)
            choose_element(input, row, field);
        else if (field.ft < NETDSD_FT_BIN)
            field.size = g_netpack_field_sizes[field.ft];
        fields_[row].push_back(field);
        end = std::max(end, field.offset + std::min<size_t>(zeb::netpack::field_bytes(field), 512));
    }

    void choose_element(Input &input, size_t row, NETDSD_field &field) {
        const uint8_t which = input.byte();
        const size_t element = which % k_structures;
        field.type_name = (which & 0x80) != 0 ? "opaque" : k_structure_names[element];
        const bool known = (which & 0x80) == 0 && element < row && (which & 0x40) == 0;
        field.size = known ? entries_[element].total_size : input.below(32);
    }

    NETDSD_entry entries_[k_structures];
    std::vector<NETDSD_field> fields_[k_structures];
    size_t count_ = 0;
    zeb::netpack::PlanCache cache_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    Revision ours(input), theirs(input);
    const NETDSD_entry &entry = ours.entry(input.byte());
    std::string record(input.bytes(entry.total_size));
    record.resize(entry.total_size, '\x33');
    const std::string sent = packed(ours.catalogue(), record, entry);
    check_package(ours.catalogue(), sent, entry);
    const NETDSD_entry &local = theirs.entry(static_cast<size_t>(entry.name[0] - 'A'));
    const std::string received = check_package(theirs.catalogue(), sent, local);
    const Catalogue catalogue = ours.catalogue();
    const auto find = [&](const char *name) {
        return zeb::netpack::find_structure(catalogue, name);
    };
    const std::string made = PackageMaker(input, find).make(entry);
    check_package(ours.catalogue(), made, entry);
    check_package(theirs.catalogue(), made, local);
    theirs.forget();
    MUST(unpacked(theirs.catalogue(), sent, local, '\0') == received);
    return 0;
}
