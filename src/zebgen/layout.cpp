#include "layout.h"

#include "types.h"

#include <algorithm>
#include <map>

namespace zebgen {
namespace {

constexpr uint64_t k_pack = 4;
// No record gets near; sizes stop here so that arrays of arrays of records cannot overflow.
constexpr uint64_t k_max_size = uint64_t{1} << 40;

struct Shape {
    uint64_t size = 0;
    uint64_t alignment = 1;
};

class Placer {
  public:
    explicit Placer(std::vector<Record> &records) {
        for (Record &record : records)
            records_.emplace(record.name, &record);
    }

    void run() {
        for (const auto &[name, record] : records_)
            place(*record);
    }

  private:
    Shape place(Record &record) {
        const auto known = shapes_.find(record.name);
        if (known != shapes_.end())
            return known->second;
        Shape shape;
        for (Field &field : record.fields) {
            const Shape element = shape_of(field);
            field.size = element.size;
            field.offset = rounded(shape.size, element.alignment);
            shape.size = std::min(field.offset + field.count * field.size, k_max_size);
            shape.alignment = std::max(shape.alignment, element.alignment);
        }
        shape.size = rounded(shape.size, shape.alignment);
        record.size = shape.size;
        shapes_.emplace(record.name, shape);
        return shape;
    }

    Shape shape_of(const Field &field) {
        if (!field.nested) {
            const uint64_t size = properties_of(field.code).size;
            return {size, std::min(size, k_pack)};
        }
        const auto nested = records_.find(field.type);
        return nested == records_.end() ? Shape() : place(*nested->second);
    }

    static uint64_t rounded(uint64_t size, uint64_t alignment) {
        return (size + alignment - 1) / alignment * alignment;
    }

    std::map<std::string, Record *> records_;
    std::map<std::string, Shape> shapes_;
};

} // namespace

void lay_out(std::vector<Record> &records) {
    Placer(records).run();
}

const Record *find_record(const std::vector<Record> &records, const std::string &name) {
    const auto found = std::lower_bound(
        records.begin(), records.end(), name,
        [](const Record &record, const std::string &key) { return record.name < key; });
    return found != records.end() && found->name == name ? &*found : nullptr;
}

} // namespace zebgen
