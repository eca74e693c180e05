// A package as a dump, by what it says of itself; and the record that it becomes, dumped and walked
// value by value.
#include "packages.h"

namespace {

using namespace fuzz;

template <class Print> std::string printed(Print print) {
    char *text = nullptr;
    size_t size = 0;
    Stream stream(open_memstream(&text, &size));
    print(stream.get());
    stream.reset();
    const std::string result(text, size);
    free(text);
    return result;
}

// A line stays one: whatever names and texts hold, the dump of a package has no control characters
// but its own.
void check_package(std::string_view bytes) {
    Exactly package(bytes);
    const std::string dump =
        printed([&](FILE *to) { NETPACK_print_ds(package.data(), package.size(), to, "> "); });
    for (const char c : dump)
        MUST(c == '\n' || c == '\t' || !iscntrl(static_cast<unsigned char>(c)));
    for (size_t at = 0; at < dump.size(); at = dump.find('\n', at) + 1)
        MUST(dump.compare(at, 2, "> ") == 0);
    MUST(dump.empty() || dump.back() == '\n');
}

struct Walk {
    std::string_view record;
    size_t values = 0;
};

void take(char *name, NETPACK_ds_iterator_types type, void *value, size_t size, void *param) {
    auto &walk = *static_cast<Walk *>(param);
    ++walk.values;
    MUST(strncmp(name, "p_", 2) == 0 && value != nullptr);
    MUST(type != NETPACK_ITERATOR_LONG || size == sizeof(int32_t));
    MUST(type != NETPACK_ITERATOR_DOUBLE || size == sizeof(double));
    MUST(type != NETPACK_ITERATOR_STRING || strlen(static_cast<char *>(value)) == size);
    MUST(type != NETPACK_ITERATOR_BIN || size <= walk.record.size());
}

void check_record(std::string_view package, const NETDSD_entry &entry) {
    Exactly record(std::string(entry.total_size, '\x5A'));
    NETPACK_unpack_ds(package.data(), package.size(), record.data(), record.size(), entry.name);
    Walk walk{record.view()};
    NETPACK_iterate_ds_raw(record.data(), entry.name, record.size(), take, &walk, "p_");
    MUST(walk.values >= entry.count_fields);
    const std::string dump = printed([&](FILE *to) {
        NETPACK_print_ds_raw(record.data(), entry.name, record.size(), to, nullptr);
    });
    MUST(!dump.empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    const bool made = input.byte() % 8 != 0;
    const NETDSD_entry &entry =
        _ndsd_structures_ext[input.number<uint16_t>() % _ndsd_structures_count_ext];
    const std::string package = made ? PackageMaker(input).make(entry) : std::string(input.rest());
    check_package(package);
    check_record(package, entry);
    return 0;
}
