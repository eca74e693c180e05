// netpack_int.h - what the sources of netpack share: catalogues, the plans made from descriptions,
// and the bounds-checked reader. Not installed.
//
// A plan holds all that is known of a structure before any record or package is seen. It is built
// when the structure is first used and published with one atomic store.
#ifndef ZEB2_NETPACK_INT_H
#define ZEB2_NETPACK_INT_H

#include "netpack.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <type_traits>

// A name that lies unterminated in a package, as the arguments of "%.*s".
#define NAME_ARGS(name) static_cast<int>((name).size()), (name).data()

namespace zeb::netpack {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "packages carry the native byte order");

constexpr unsigned k_type_count = 30;
constexpr int k_max_depth = 32;                 // records within records
constexpr size_t k_max_name = 0xFFFF;           // lengths and counts are 16 bits wide on the wire
constexpr size_t k_max_fixed_bytes = 16u << 20; // of one package: names, types, counts
constexpr size_t k_write_slack = 16;            // see copy_fixed()
constexpr size_t k_not_found = SIZE_MAX;
constexpr char k_raw_package = 0;               // first byte of a package
constexpr BYTE k_described_elements = 1;        // first byte of a BIN field

// A growable array on malloc for plain values. A failed allocation is remembered, so that a builder
// checks once at its end.
template <class T> class Array {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    Array() = default;
    ~Array() { free(data_); }
    Array(const Array &) = delete;
    Array &operator=(const Array &) = delete;

    bool failed() const { return failed_; }
    size_t size() const { return size_; }
    T *data() { return data_; }
    const T *data() const { return data_; }
    T &operator[](size_t i) { return data_[i]; }
    const T &operator[](size_t i) const { return data_[i]; }
    const T *begin() const { return data_; }
    const T *end() const { return data_ + size_; }

    void push(const T &value) { append(&value, 1); }
    void append(const T *values, size_t count) {
        if (count == 0 || !reserve(size_ + count))
            return;
        memcpy(data_ + size_, values, count * sizeof(T));
        size_ += count;
    }
    // Exactly `count` zeroed values.
    bool reset(size_t count) {
        free(data_);
        data_ = static_cast<T *>(calloc(count + 1, sizeof(T)));
        failed_ = data_ == nullptr;
        size_ = capacity_ = failed_ ? 0 : count;
        return !failed_;
    }

  private:
    bool reserve(size_t count) {
        if (failed_ || count <= capacity_)
            return !failed_;
        const size_t capacity = count < 16 ? 32 : 2 * count;
        T *data = static_cast<T *>(realloc(data_, capacity * sizeof(T)));
        failed_ = data == nullptr;
        if (failed_)
            return false;
        data_ = data;
        capacity_ = capacity;
        return true;
    }

    T *data_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
    bool failed_ = false;
};

template <class T> T load(const void *from) {
    T value;
    memcpy(&value, from, sizeof value);
    return value;
}

// For sizes that are too short for the call of a library function to pay.
inline bool same_bytes(const char *a, const char *b, size_t size) {
    if (size >= 8) {
        for (size_t i = 0; i + 8 < size; i += 8) {
            if (load<uint64_t>(a + i) != load<uint64_t>(b + i))
                return false;
        }
        return load<uint64_t>(a + size - 8) == load<uint64_t>(b + size - 8);
    }
    if (size >= 4)
        return load<uint32_t>(a) == load<uint32_t>(b) &&
               load<uint32_t>(a + size - 4) == load<uint32_t>(b + size - 4);
    return memcmp(a, b, size) == 0;
}

uint32_t hash_name(std::string_view name);

// An open-addressed table from names to row numbers; the names stay where they are.
class NameIndex {
  public:
    template <class NameOf> bool build(size_t count, NameOf name_of) {
        size_t slots = 4;
        while (slots < 3 * count)
            slots *= 2;
        if (!slots_.reset(slots))
            return false;
        for (size_t row = 0; row < count; ++row)
            insert(name_of(row), static_cast<uint32_t>(row));
        return true;
    }
    template <class NameOf> size_t find(std::string_view name, NameOf name_of) const {
        const uint32_t hash = hash_name(name);
        for (size_t i = hash & (slots_.size() - 1);; i = (i + 1) & (slots_.size() - 1)) {
            const Slot &slot = slots_[i];
            if (slot.row_after == 0)
                return k_not_found;
            if (slot.hash == hash && slot.size == name.size() &&
                same_bytes(name.data(), name_of(slot.row_after - 1), name.size()))
                return slot.row_after - 1;
        }
    }

  private:
    struct Slot {
        uint32_t hash;
        uint32_t size;      // of the name
        uint32_t row_after; // row + 1; 0 marks a free slot
    };
    void insert(std::string_view name, uint32_t row) {
        const uint32_t hash = hash_name(name);
        size_t i = hash & (slots_.size() - 1);
        while (slots_[i].row_after != 0)
            i = (i + 1) & (slots_.size() - 1);
        slots_[i] = {hash, static_cast<uint32_t>(name.size()), row + 1};
    }

    Array<Slot> slots_;
};

enum class FieldKind : uint8_t { value, text, records, opaque, unknown };

// One field of a described record, as unpacking needs it.
struct FieldPlan {
    FieldKind kind;
    uint32_t header;      // of Plan::headers: name, type and count as packages carry them
    uint32_t header_size; // 0 when they do not fit a package
    size_t straight_size; // of header and value in a package; SIZE_MAX when it varies
    size_t offset;        // in the record
    size_t bytes;         // in the record
    size_t count;         // elements in the record
    const NETDSD_field *field;
    const NETDSD_entry *elements; // of FieldKind::records
};

enum class StepKind : uint8_t { end, copy, text, bad_description };

// One step of packing: so many bytes of Plan::fixed, then what `kind` says.
struct PackStep {
    StepKind kind;
    uint32_t fixed;
    size_t offset; // in the record
    size_t bytes;  // copy: bytes; text: capacity of the array
    const NETDSD_field *field;
};

// The length of a nested package that holds texts, and so varies from record to record.
struct LengthPatch {
    size_t position; // in a package whose texts are all empty
    uint32_t length; // likewise
    uint32_t first_text;
    uint32_t last_text;
};

struct Range {
    size_t offset;
    size_t size;
};

struct Plan {
    const NETDSD_entry *entry = nullptr;
    // False when fields overlap or reach beyond the record: such a description is never used.
    bool sound = false;
    Array<char> headers; // the package's opening bytes, then each field's
    size_t opening_size = 0;
    Array<FieldPlan> fields;
    NameIndex field_index;
    Array<char> blank; // a record of missing values
    Array<Range> gaps; // padding between fields
    // By field, which field came next in the latest package; the last element is for the first
    // field. A guess only, and the one thing that changes: daemons keep the order of their fields.
    mutable Array<uint32_t> followers;

    const char *refusal = nullptr; // why such a record cannot be packed, or null
    Array<char> fixed;             // what is the same in every package, then k_write_slack bytes
    Array<PackStep> steps;
    Array<LengthPatch> patches;
    size_t count_texts = 0;
    size_t package_size = 0; // with all texts empty

    size_t find_field(std::string_view name) const {
        return field_index.find(name, [this](size_t i) { return fields[i].field->name; });
    }
    size_t follower(size_t i) const {
        return std::atomic_ref<uint32_t>(followers[i]).load(std::memory_order_relaxed);
    }
    void set_follower(size_t i, size_t next) const {
        std::atomic_ref<uint32_t>(followers[i])
            .store(static_cast<uint32_t>(next), std::memory_order_relaxed);
    }
};

// Plans and name tables of one catalogue; nothing is allocated before the first use.
struct PlanCache {
    struct Tables *tables = nullptr;
    const Plan *latest = nullptr; // asked for by name last: a daemon uses the same few all day
};

struct Catalogue {
    const NETDSD_entry *structures;
    size_t count_structures;
    const NETMSG_entry *messages;
    size_t count_messages;
    PlanCache *cache;
};

Catalogue public_catalogue();
Catalogue private_catalogue();

const NETDSD_entry *find_structure(const Catalogue &catalogue, std::string_view name);
const NETMSG_entry *find_message(const Catalogue &catalogue, std::string_view name);
const NETMSG_entry *find_message(const Catalogue &catalogue, NETMSG_type type);

// Builds and publishes the plan when it is first asked for. Null, reported, without memory.
const Plan *plan_of(const Catalogue &catalogue, const NETDSD_entry *entry);
// The same by name; null with a null `*entry` when there is no such structure.
const Plan *find_plan(const Catalogue &catalogue, const char *name, const NETDSD_entry **entry);
// For catalogues that end before the process does: no other thread may be using it.
void free_plans(const Catalogue &catalogue);

// Fields lie within the record, apart from each other, and elements have a size.
bool is_sound(const NETDSD_entry &entry);
// Missing values into a zeroed record of a sound description, nested records included.
void fill_missing(const Catalogue &catalogue, const NETDSD_entry &entry, char *record, int depth);
// Elements in memory and on the wire: a scalar has one, whatever its description says.
size_t element_count(const NETDSD_field &field);
// Bytes of the field in the record; SIZE_MAX when they cannot be counted.
size_t field_bytes(const NETDSD_field &field);
// Whether the description fits a record of that many bytes; both may be null.
bool is_usable(const NETDSD_entry *entry, const Plan *plan, size_t size);
// The description of a record of that many bytes; null when there is none.
const NETDSD_entry *find_usable(const Catalogue &catalogue, const char *name, size_t size);
// Of that name in a description, whose fields are sorted; null when there is none.
const NETDSD_field *find_field(const NETDSD_entry &entry, std::string_view name);
// Bytes of a STRING member before its terminator; all of them, with a warning, when it lacks one.
size_t text_size(const char *text, const NETDSD_field &field);

// The scalar type of an array; codes 0 to 27.
inline NETDSD_field_type scalar_of(NETDSD_field_type type) {
    return type < NETDSD_FT_A_BOOL ? type : static_cast<NETDSD_field_type>(type - NETDSD_FT_A_BOOL);
}

void *package_ds(const Catalogue &catalogue, const void *pds, const char *dstype, size_t dssize,
                 size_t *out_size);
size_t unpack_ds(const Catalogue &catalogue, const void *pkg, size_t pkgsize, void *dest,
                 size_t destsize, const char *dstype);
void fill_mvc(const Catalogue &catalogue, void *pds, const char *dstype, size_t dssize);
void *package_message(const Catalogue &catalogue, const NETPACK_message *in, size_t *out_size);
bool unpack_message(const Catalogue &catalogue, const void *msg, size_t size, NETPACK_message *out);
void iterate_ds_raw(const Catalogue &catalogue, const void *pds, const char *dstype, size_t dssize,
                    NETPACK_ds_iterator_cb cb, void *param, const char *field_prefix);
// `print_recurse` is 0 for a record of its own and the number, from 1, of a nested element.
void print_ds_raw(const Catalogue &catalogue, const void *pds, const char *dstype, size_t dssize,
                  FILE *print_file, const char *line_prefix, size_t print_recurse);
void print_ds(const Catalogue &catalogue, const void *pds, size_t dssize, FILE *print_file,
              const char *line_prefix);
void print_tabular_header(const Catalogue &catalogue, const NETDSD_entry *desc, int fh,
                          const char *prefix);
void print_tabular(const Catalogue &catalogue, const void *pds, const char *dstype, size_t dssize,
                   int fh);
size_t read_tabular(const Catalogue &catalogue, void *pds, const char *dstype, size_t dssize,
                    const char *line);

// A record about to be packed: measured first, so that the package can be written straight into
// the place where it belongs.
class Packing {
  public:
    Packing() = default;
    ~Packing() { free(sums_heap_); }
    Packing(const Packing &) = delete;
    Packing &operator=(const Packing &) = delete;

    // False, reported, when the record cannot be packed.
    bool prepare(const Catalogue &catalogue, const void *pds, const char *dstype, size_t dssize);
    size_t size() const { return size_; }
    // `out` has room for size() + k_write_slack bytes.
    void write(char *out) const;

  private:
    bool measure_texts();
    void write_lengths(char *out) const;

    static constexpr size_t k_inline_texts = 64;
    const Plan *plan_ = nullptr; // null: a raw package
    const char *record_ = nullptr;
    size_t size_ = 0;
    size_t *sums_ = sums_inline_; // bytes of the texts before text i
    size_t *sums_heap_ = nullptr;
    size_t sums_inline_[k_inline_texts + 1];
};

// One field as a package announces it.
struct PackageField {
    std::string_view name;
    unsigned type = 0;
    uint16_t count = 1;
};

// Reads bytes from outside: whatever is not there yields false or null, never a read.
class Reader {
  public:
    Reader(const void *data, size_t size)
        : at_(static_cast<const char *>(data)), end_(size == 0 ? at_ : at_ + size) {}

    size_t remaining() const { return static_cast<size_t>(end_ - at_); }
    const char *at() const { return at_; }

    const char *take(uint64_t size) {
        if (size > remaining())
            return nullptr;
        const char *taken = at_;
        at_ += size;
        return taken;
    }
    template <class T> bool read(T *value) {
        const char *from = take(sizeof(T));
        if (from != nullptr)
            memcpy(value, from, sizeof(T));
        return from != nullptr;
    }
    // A 16-bit length and that many characters.
    bool read_text(std::string_view *text) {
        uint16_t size;
        if (!read(&size))
            return false;
        const char *from = take(size);
        *text = {from, from == nullptr ? 0 : size_t{size}};
        return from != nullptr;
    }
    bool read_header(PackageField *field) {
        uint16_t type;
        if (!read_text(&field->name) || !read(&type))
            return false;
        field->type = type;
        return type >= k_type_count || !g_netpack_field_send_count[type] || read(&field->count);
    }
    bool skip_if(const char *expected, size_t size) {
        if (size > remaining() || !same_bytes(at_, expected, size))
            return false;
        at_ += size;
        return true;
    }

  private:
    const char *at_;
    const char *end_;
};

// Nearly all fields are one number or a few; a fixed size compiles to one move.
inline void copy_value(char *to, const char *from, size_t size) {
    switch (size) {
    case 8:
        memcpy(to, from, 8);
        return;
    case 4:
        memcpy(to, from, 4);
        return;
    case 2:
        memcpy(to, from, 2);
        return;
    case 1:
        *to = *from;
        return;
    default:
        break;
    }
    if (size < 16 || size > 128) {
        memcpy(to, from, size);
        return;
    }
    for (size_t i = 0; i + 16 < size; i += 16)
        memcpy(to + i, from + i, 16);
    memcpy(to + size - 16, from + size - 16, 16);
}

} // namespace zeb::netpack

#endif
