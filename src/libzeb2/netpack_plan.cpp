#include "netpack_int.h"

#include "diag.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>

namespace zeb::netpack {

struct Tables {
    NameIndex structures;
    NameIndex messages;
    Array<const Plan *> plans; // by row, each published with one atomic store
};

namespace {

// Objects on malloc, as everything in the library.
template <class T> T *make_object() {
    void *block = malloc(sizeof(T));
    return ZEB_CHECK_ERRNO(block != nullptr) ? std::construct_at(static_cast<T *>(block)) : nullptr;
}

template <class T> void free_object(const T *object) {
    if (object != nullptr) {
        std::destroy_at(object);
        free(const_cast<T *>(object));
    }
}

struct FreeObject {
    template <class T> void operator()(const T *object) const { free_object(object); }
};

template <class T> using Owned = std::unique_ptr<T, FreeObject>;

// The first to publish wins; the others throw theirs away.
template <class T> T *publish(T *&place, Owned<std::remove_const_t<T>> made) {
    T *found = nullptr;
    if (std::atomic_ref<T *>(place).compare_exchange_strong(found, made.get(),
                                                            std::memory_order_acq_rel))
        return made.release();
    return found;
}

Tables *build_tables(const Catalogue &catalogue) {
    Owned<Tables> tables(make_object<Tables>());
    if (tables == nullptr)
        return nullptr;
    const bool built = tables->structures.build(catalogue.count_structures, [&](size_t i) {
        return catalogue.structures[i].name;
    }) && tables->messages.build(catalogue.count_messages, [&](size_t i) {
        return catalogue.messages[i].name;
    }) && tables->plans.reset(catalogue.count_structures);
    if (!ZEB_CHECK_ERRNO(built))
        return nullptr;
    return publish(catalogue.cache->tables, std::move(tables));
}

Tables *tables_of(const Catalogue &catalogue) {
    Tables *tables =
        std::atomic_ref<Tables *>(catalogue.cache->tables).load(std::memory_order_acquire);
    return tables != nullptr ? tables : build_tables(catalogue);
}

// Without memory for the tables names are found all the same.
template <class Row> const Row *search_rows(const Row *rows, size_t count, std::string_view name) {
    const Row *row =
        std::lower_bound(rows, rows + count, name, [](const Row &a, std::string_view key) {
            return std::string_view(a.name) < key;
        });
    return row != rows + count && row->name == name ? row : nullptr;
}

template <class Integer> void append_number(Array<char> &to, Integer value) {
    char bytes[sizeof value];
    memcpy(bytes, &value, sizeof value);
    to.append(bytes, sizeof bytes);
}

void append_name(Array<char> &to, const char *name) {
    const size_t size = strlen(name);
    append_number(to, static_cast<uint16_t>(size));
    to.append(name, size);
}

void append_opening(Array<char> &to, const NETDSD_entry &entry) {
    append_number(to, uint8_t{1});
    append_name(to, entry.name);
    append_number(to, static_cast<uint16_t>(entry.count_fields));
}

bool sends_count(const NETDSD_field &field) {
    const auto type = static_cast<unsigned>(field.ft);
    return type < k_type_count && g_netpack_field_send_count[type];
}

void append_header(Array<char> &to, const NETDSD_field &field) {
    append_name(to, field.name);
    append_number(to, static_cast<uint16_t>(field.ft));
    if (sends_count(field))
        append_number(to, static_cast<uint16_t>(element_count(field)));
}

bool header_fits(const NETDSD_field &field) {
    return strlen(field.name) <= k_max_name && static_cast<unsigned>(field.ft) < k_type_count &&
           (!sends_count(field) || field.count <= k_max_name);
}

FieldKind kind_of(const Catalogue &catalogue, const NETDSD_field &field) {
    if (static_cast<unsigned>(field.ft) >= k_type_count)
        return FieldKind::unknown;
    if (field.ft == NETDSD_FT_STRING)
        return FieldKind::text;
    if (field.ft != NETDSD_FT_BIN)
        return FieldKind::value;
    return find_structure(catalogue, field.type_name) != nullptr ? FieldKind::records
                                                                 : FieldKind::opaque;
}

// Lists the bytes of a sound record that no field covers.
bool find_gaps(const NETDSD_entry &entry, Array<Range> &gaps) {
    Array<Range> covered;
    for (size_t i = 0; i < entry.count_fields; ++i)
        covered.push({entry.fields[i].offset, field_bytes(entry.fields[i])});
    std::sort(covered.data(), covered.data() + covered.size(),
              [](const Range &a, const Range &b) { return a.offset < b.offset; });
    size_t reached = 0;
    for (const Range &range : covered) {
        if (range.offset > reached)
            gaps.push({reached, range.offset - reached});
        reached = std::max(reached, range.offset + range.size);
    }
    if (reached < entry.total_size)
        gaps.push({reached, entry.total_size - reached});
    return !covered.failed() && !gaps.failed();
}

bool lies_within(const NETDSD_field &field, const NETDSD_entry &entry) {
    const size_t bytes = field_bytes(field);
    return bytes <= entry.total_size && field.offset <= entry.total_size - bytes;
}

bool overlap(const NETDSD_field &a, const NETDSD_field &b) {
    return field_bytes(a) > 0 && field_bytes(b) > 0 && a.offset < b.offset + field_bytes(b) &&
           b.offset < a.offset + field_bytes(a);
}

// A described element without bytes would make packages grow without any record behind them.
bool is_empty_element(const NETDSD_field &field) {
    return field.ft == NETDSD_FT_BIN && field.size == 0;
}

// Writes down the package of a structure as steps, nested structures included.
class PackBuilder {
  public:
    PackBuilder(const Catalogue &catalogue, Plan &plan) : catalogue_(catalogue), plan_(plan) {}

    void build() {
        add_structure(*plan_.entry, 0, 0);
        add_step(StepKind::end, 0, 0, nullptr);
        plan_.package_size = position_;
        const char slack[k_write_slack] = {};
        plan_.fixed.append(slack, sizeof slack);
    }

  private:
    // What `append` adds to the fixed bytes of the package.
    template <class Append> void add_fixed(Append append) {
        const size_t before = plan_.fixed.size();
        append(plan_.fixed);
        pending_ += plan_.fixed.size() - before;
        position_ += plan_.fixed.size() - before;
        if (plan_.fixed.size() > k_max_fixed_bytes)
            refuse("its names and counts alone are too many");
    }

    void add_step(StepKind kind, size_t offset, size_t bytes, const NETDSD_field *field) {
        plan_.steps.push({kind, static_cast<uint32_t>(pending_), offset, bytes, field});
        pending_ = 0;
    }

    void add_copy(size_t offset, size_t bytes) {
        add_step(StepKind::copy, offset, bytes, nullptr);
        position_ += bytes;
    }

    void refuse(const char *reason) {
        if (plan_.refusal == nullptr)
            plan_.refusal = reason;
    }

    void add_structure(const NETDSD_entry &entry, size_t base, int depth) {
        if (depth > k_max_depth)
            refuse("it is nested too deeply");
        if (strlen(entry.name) > k_max_name || entry.count_fields > k_max_name)
            refuse("a name or the number of fields exceeds 65535");
        if (plan_.refusal != nullptr)
            return;
        add_fixed([&](Array<char> &to) { append_opening(to, entry); });
        size_t unsized = 0;
        for (size_t i = 0; i < entry.count_fields && plan_.refusal == nullptr; ++i)
            unsized += add_field(entry.fields[i], base, depth) ? 0 : 1;
        // A field of undescribed elements has room for an element size that is not sent; the
        // room is left at the end of the package.
        for (; unsized > 0; --unsized)
            add_fixed([](Array<char> &to) { append_number(to, uint32_t{0}); });
    }

    // False for a field of undescribed elements.
    bool add_field(const NETDSD_field &field, size_t base, int depth) {
        if (!header_fits(field)) {
            refuse("a field's name or count exceeds 65535, or its type is unknown");
            return true;
        }
        add_fixed([&](Array<char> &to) { append_header(to, field); });
        const size_t offset = base + field.offset;
        switch (kind_of(catalogue_, field)) {
        case FieldKind::text:
            add_step(StepKind::text, offset, field.count, &field);
            position_ += sizeof(uint16_t);
            ++plan_.count_texts;
            return true;
        case FieldKind::records:
            add_records(field, offset, depth);
            return true;
        case FieldKind::opaque:
            add_fixed([](Array<char> &to) { append_number(to, uint8_t{0}); });
            add_copy(offset, field_bytes(field));
            return false;
        default:
            add_copy(offset, field_bytes(field));
            return true;
        }
    }

    void add_records(const NETDSD_field &field, size_t offset, int depth) {
        const NETDSD_entry &entry = *find_structure(catalogue_, field.type_name);
        add_fixed([&](Array<char> &to) {
            append_number(to, uint8_t{1});
            append_number(to, static_cast<uint32_t>(field.size));
        });
        const bool usable = entry.total_size == field.size && is_sound(entry);
        for (size_t i = 0; i < field.count && plan_.refusal == nullptr; ++i)
            add_record(field, usable ? &entry : nullptr, offset + i * field.size, depth);
        add_copy(offset, field_bytes(field));
    }

    // A null `entry` sends the element raw.
    void add_record(const NETDSD_field &field, const NETDSD_entry *entry, size_t offset,
                    int depth) {
        const size_t length_at = plan_.fixed.size();
        add_fixed([](Array<char> &to) { append_number(to, uint32_t{0}); });
        const size_t start = position_;
        const size_t first_text = plan_.count_texts;
        if (entry != nullptr) {
            add_structure(*entry, offset, depth + 1);
        } else {
            add_step(StepKind::bad_description, 0, 0, &field);
            add_fixed([](Array<char> &to) { append_number(to, uint8_t{0}); });
            add_copy(offset, field.size);
        }
        const auto length = static_cast<uint32_t>(position_ - start);
        if (plan_.fixed.failed())
            return;
        memcpy(&plan_.fixed[length_at], &length, sizeof length);
        if (plan_.count_texts > first_text)
            plan_.patches.push({start - sizeof length, length, static_cast<uint32_t>(first_text),
                                static_cast<uint32_t>(plan_.count_texts)});
    }

    const Catalogue &catalogue_;
    Plan &plan_;
    size_t position_ = 0; // in a package whose texts are all empty
    size_t pending_ = 0;  // fixed bytes since the last step
};

void add_field_plan(const Catalogue &catalogue, const NETDSD_field &field, Plan &plan) {
    const size_t start = plan.headers.size();
    if (header_fits(field))
        append_header(plan.headers, field);
    FieldPlan to = {};
    to.kind = kind_of(catalogue, field);
    to.header = static_cast<uint32_t>(start);
    to.header_size = static_cast<uint32_t>(plan.headers.size() - start);
    to.offset = field.offset;
    to.bytes = field_bytes(field);
    to.count = element_count(field);
    to.straight_size =
        to.kind == FieldKind::value && to.header_size > 0 ? to.header_size + to.bytes : SIZE_MAX;
    to.field = &field;
    if (to.kind == FieldKind::records)
        to.elements = find_structure(catalogue, field.type_name);
    plan.fields.push(to);
}

bool add_field_plans(const Catalogue &catalogue, Plan &plan) {
    const size_t count = plan.entry->count_fields;
    append_opening(plan.headers, *plan.entry);
    plan.opening_size = plan.headers.size();
    if (!plan.followers.reset(count + 1))
        return false;
    for (size_t i = 0; i < count; ++i) {
        add_field_plan(catalogue, plan.entry->fields[i], plan);
        plan.followers[i] = static_cast<uint32_t>(i + 1);
    }
    return !plan.headers.failed() && !plan.fields.failed() &&
           plan.field_index.build(count, [&](size_t i) { return plan.fields[i].field->name; });
}

bool fill_plan(const Catalogue &catalogue, Plan &plan) {
    plan.sound = is_sound(*plan.entry);
    if (!plan.sound)
        return true;
    if (!find_gaps(*plan.entry, plan.gaps) || !add_field_plans(catalogue, plan) ||
        !plan.blank.reset(plan.entry->total_size))
        return false;
    fill_missing(catalogue, *plan.entry, plan.blank.data(), 0);
    PackBuilder(catalogue, plan).build();
    return !plan.fixed.failed() && !plan.steps.failed() && !plan.patches.failed();
}

const Plan *build_plan(const Catalogue &catalogue, const NETDSD_entry *entry, const Plan *&place) {
    Owned<Plan> plan(make_object<Plan>());
    if (plan == nullptr)
        return nullptr;
    plan->entry = entry;
    if (!ZEB_CHECK_ERRNO(fill_plan(catalogue, *plan)))
        return nullptr;
    return publish(place, std::move(plan));
}

template <class T> void fill_with(char *to, size_t count, T value) {
    for (size_t i = 0; i < count; ++i)
        memcpy(to + i * sizeof value, &value, sizeof value);
}

} // namespace

// Names of one catalogue share long beginnings and ends, so the middle takes part.
uint32_t hash_name(std::string_view name) {
    uint64_t first = 0, middle = 0, last = 0;
    const size_t size = name.size();
    if (size >= 8) {
        first = load<uint64_t>(name.data());
        middle = load<uint64_t>(name.data() + (size - 8) / 2);
        last = load<uint64_t>(name.data() + size - 8);
    } else {
        for (size_t i = 0; i < size; ++i)
            first = first << 8 | static_cast<unsigned char>(name[i]);
    }
    uint64_t hash = (first ^ size) * 0x9E3779B97F4A7C15u ^ middle * 0xBF58476D1CE4E5B9u ^
                    last * 0x94D049BB133111EBu;
    hash = (hash ^ hash >> 32) * 0xD6E8FEB86659FD93u;
    return static_cast<uint32_t>(hash >> 32);
}

// Compares in pairs: without memory of its own it cannot fail, and it runs once per structure.
bool is_sound(const NETDSD_entry &entry) {
    for (size_t i = 0; i < entry.count_fields; ++i) {
        const NETDSD_field &field = entry.fields[i];
        if (!lies_within(field, entry) || is_empty_element(field))
            return false;
        for (size_t j = 0; j < i; ++j) {
            if (overlap(field, entry.fields[j]))
                return false;
        }
    }
    return true;
}

size_t element_count(const NETDSD_field &field) {
    return static_cast<unsigned>(field.ft) < NETDSD_FT_A_BOOL ? 1 : field.count;
}

size_t field_bytes(const NETDSD_field &field) {
    if (static_cast<unsigned>(field.ft) >= k_type_count)
        return 0;
    const size_t size = field.ft == NETDSD_FT_BIN ? field.size : g_netpack_field_sizes[field.ft];
    size_t bytes;
    return __builtin_mul_overflow(element_count(field), size, &bytes) ? SIZE_MAX : bytes;
}

const NETDSD_entry *find_structure(const Catalogue &catalogue, std::string_view name) {
    const Tables *tables = tables_of(catalogue);
    if (tables == nullptr)
        return search_rows(catalogue.structures, catalogue.count_structures, name);
    const size_t row =
        tables->structures.find(name, [&](size_t i) { return catalogue.structures[i].name; });
    return row == k_not_found ? nullptr : &catalogue.structures[row];
}

const NETMSG_entry *find_message(const Catalogue &catalogue, std::string_view name) {
    const Tables *tables = tables_of(catalogue);
    if (tables == nullptr)
        return search_rows(catalogue.messages, catalogue.count_messages, name);
    const size_t row =
        tables->messages.find(name, [&](size_t i) { return catalogue.messages[i].name; });
    return row == k_not_found ? nullptr : &catalogue.messages[row];
}

const NETDSD_field *find_field(const NETDSD_entry &entry, std::string_view name) {
    return search_rows(entry.fields, entry.count_fields, name);
}

const Plan *plan_of(const Catalogue &catalogue, const NETDSD_entry *entry) {
    Tables *tables = tables_of(catalogue);
    if (tables == nullptr)
        return nullptr;
    const Plan *&place = tables->plans[static_cast<size_t>(entry - catalogue.structures)];
    const Plan *plan = std::atomic_ref<const Plan *>(place).load(std::memory_order_acquire);
    return plan != nullptr ? plan : build_plan(catalogue, entry, place);
}

const Plan *find_plan(const Catalogue &catalogue, const char *name, const NETDSD_entry **entry) {
    const std::atomic_ref<const Plan *> latest(catalogue.cache->latest);
    const Plan *plan = latest.load(std::memory_order_acquire);
    if (plan != nullptr && strcmp(plan->entry->name, name) == 0) {
        *entry = plan->entry;
        return plan;
    }
    *entry = find_structure(catalogue, name);
    plan = *entry == nullptr ? nullptr : plan_of(catalogue, *entry);
    if (plan != nullptr)
        latest.store(plan, std::memory_order_release);
    return plan;
}

bool is_usable(const NETDSD_entry *entry, const Plan *plan, size_t size) {
    return entry != nullptr && entry->total_size == size &&
           (plan != nullptr ? plan->sound : is_sound(*entry));
}

const NETDSD_entry *find_usable(const Catalogue &catalogue, const char *name, size_t size) {
    const NETDSD_entry *entry;
    const Plan *plan = find_plan(catalogue, name, &entry);
    return is_usable(entry, plan, size) ? entry : nullptr;
}

void free_plans(const Catalogue &catalogue) {
    Tables *tables = catalogue.cache->tables;
    *catalogue.cache = {};
    if (tables == nullptr)
        return;
    for (const Plan *plan : tables->plans)
        free_object(plan);
    free_object(tables);
}

// The codes are part of the format between daemons and their readers: short integers and single
// floats have none of their own, and the missing time is one second before the epoch.
void fill_missing(const Catalogue &catalogue, const NETDSD_entry &entry, char *record, int depth) {
    for (size_t i = 0; i < entry.count_fields && depth <= k_max_depth; ++i) {
        const NETDSD_field &field = entry.fields[i];
        char *to = record + field.offset;
        const size_t bytes = field_bytes(field);
        switch (static_cast<unsigned>(field.ft)) {
        case NETDSD_FT_INT:
        case NETDSD_FT_UINT:
        case NETDSD_FT_LONG:
        case NETDSD_FT_ULONG:
        case NETDSD_FT_A_INT:
        case NETDSD_FT_A_UINT:
        case NETDSD_FT_A_LONG:
        case NETDSD_FT_A_ULONG:
            memset(to, 0x55, bytes);
            break;
        case NETDSD_FT_SIZET:
        case NETDSD_FT_TIME:
        case NETDSD_FT_A_SIZET:
        case NETDSD_FT_A_TIME:
            memset(to, 0xFF, bytes);
            break;
        case NETDSD_FT_FTIME:
        case NETDSD_FT_A_FTIME:
            fill_with(to, element_count(field), FTIME{-1.0});
            break;
        case NETDSD_FT_DOUBLE:
        case NETDSD_FT_A_DOUBLE:
            fill_with(to, element_count(field), double{MVC});
            break;
        case NETDSD_FT_BIN: {
            const NETDSD_entry *nested = find_structure(catalogue, field.type_name);
            if (nested == nullptr || nested->total_size != field.size || !is_sound(*nested))
                break;
            for (size_t j = 0; j < field.count; ++j)
                fill_missing(catalogue, *nested, to + j * field.size, depth + 1);
            break;
        }
        default:
            break;
        }
    }
}

} // namespace zeb::netpack
