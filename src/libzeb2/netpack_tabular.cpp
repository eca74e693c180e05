#include "netpack_text.h"

#include "diag.h"
#include "util.h"
#include "zebfile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace zeb::netpack {
namespace {

// Text on its way to a descriptor: each call of zebfile takes a lock and wakes a thread, so columns
// are gathered first.
class ColumnWriter {
  public:
    explicit ColumnWriter(int fh) : fh_(fh) {}
    ~ColumnWriter() { flush(); }
    ColumnWriter(const ColumnWriter &) = delete;
    ColumnWriter &operator=(const ColumnWriter &) = delete;

    void put(std::string_view text) {
        while (!text.empty()) {
            const size_t size = std::min(text.size(), sizeof buffer_ - used_);
            memcpy(buffer_ + used_, text.data(), size);
            used_ += size;
            text.remove_prefix(size);
            if (used_ == sizeof buffer_)
                flush();
        }
    }
    void put(char c) { put({&c, 1}); }
    void put_hex(char byte) {
        char digits[2];
        hex_text(byte, digits);
        put({digits, sizeof digits});
    }
    // A time is its own format: it holds digits, "_", "-" or letters, and no conversion.
    void put_time(const char *text) {
        flush();
        ZEBFILE_printf(fh_, text);
    }

  private:
    void flush() {
        if (used_ != 0)
            ZEBFILE_printf(fh_, "%.*s", static_cast<int>(used_), buffer_);
        used_ = 0;
    }

    int fh_;
    size_t used_ = 0;
    char buffer_[2048];
};

bool is_byte_array(NETDSD_field_type type) {
    return type == NETDSD_FT_A_CHAR || type == NETDSD_FT_A_BYTE;
}

bool is_time(NETDSD_field_type scalar) {
    return scalar == NETDSD_FT_TIME || scalar == NETDSD_FT_FTIME;
}

// ---- The header

class HeaderWriter {
  public:
    HeaderWriter(const Catalogue &catalogue, int fh) : catalogue_(catalogue), out_(fh) {}

    // False, reported, when the header is to stop.
    bool write(const NETDSD_entry *desc, std::string_view prefix, int depth);

  private:
    void write_names(const NETDSD_field &field, std::string_view prefix);
    bool write_records(const NETDSD_field &field, const NETDSD_entry *nested,
                       std::string_view prefix, int depth);

    const Catalogue &catalogue_;
    ColumnWriter out_;
};

bool HeaderWriter::write(const NETDSD_entry *desc, std::string_view prefix, int depth) {
    if (desc == nullptr) {
        out_.put("RawContents");
        return true;
    }
    if (depth > k_max_depth) {
        ZEB_REPORT("Structure \"%s\" is nested too deeply", desc->name);
        return true;
    }
    for (size_t i = 0; i < desc->count_fields; ++i) {
        const NETDSD_field &field = desc->fields[i];
        if (i > 0)
            out_.put(',');
        if (static_cast<unsigned>(field.ft) >= k_type_count) {
            ZEB_REPORT("BUG: Unknown type (%u) in local description of field \"%s\"",
                       static_cast<unsigned>(field.ft), field.name);
            continue;
        }
        const NETDSD_entry *nested =
            field.ft == NETDSD_FT_BIN ? find_structure(catalogue_, field.type_name) : nullptr;
        if (nested == nullptr)
            write_names(field, prefix);
        else if (!write_records(field, nested, prefix, depth))
            return false;
    }
    return true;
}

void HeaderWriter::write_names(const NETDSD_field &field, std::string_view prefix) {
    const size_t count = field.ft == NETDSD_FT_STRING ? 1 : element_count(field);
    for (size_t j = 0; j < count; ++j) {
        if (j > 0)
            out_.put(',');
        out_.put(prefix);
        out_.put(field.name);
        if (count > 1) {
            char number[k_number_text];
            out_.put({number, number_text(j + 1, number)});
        }
    }
}

bool HeaderWriter::write_records(const NETDSD_field &field, const NETDSD_entry *nested,
                                 std::string_view prefix, int depth) {
    NameText extended;
    for (size_t j = 0; j < field.count; ++j) {
        if (j > 0)
            out_.put(',');
        if (!extended.compose(prefix, field.name, element_number(j, field.count), "_") ||
            !write(nested, extended.view(), depth + 1))
            return false;
    }
    return true;
}

// ---- Values

class RowWriter {
  public:
    RowWriter(const Catalogue &catalogue, int fh) : catalogue_(catalogue), out_(fh) {}

    void write(const char *record, const char *dstype, size_t dssize, int depth);

  private:
    void write_field(const char *record, const NETDSD_field &field, int depth);
    void write_numbers(const char *from, const NETDSD_field &field);
    void write_bytes(const char *from, const NETDSD_field &field, int depth);

    const Catalogue &catalogue_;
    ColumnWriter out_;
};

void RowWriter::write(const char *record, const char *dstype, size_t dssize, int depth) {
    const NETDSD_entry *entry = find_usable(catalogue_, dstype, dssize);
    if (entry == nullptr) {
        ZEB_REPORT("WARNING: Bad structure description for \"%s\"", dstype);
        for (size_t k = 0; k < dssize; ++k)
            out_.put_hex(record[k]);
        out_.put('\n');
        return;
    }
    if (depth > k_max_depth) {
        ZEB_REPORT("Structure \"%s\" is nested too deeply", dstype);
        return;
    }
    for (size_t i = 0; i < entry->count_fields; ++i) {
        if (i > 0)
            out_.put(',');
        write_field(record, entry->fields[i], depth);
    }
}

void RowWriter::write_field(const char *record, const NETDSD_field &field, int depth) {
    const char *from = record + field.offset;
    if (static_cast<unsigned>(field.ft) >= k_type_count)
        ZEB_REPORT("BUG: Unknown type (%u) in local description of field \"%s\"",
                   static_cast<unsigned>(field.ft), field.name);
    else if (field.ft == NETDSD_FT_STRING)
        out_.put({from, text_size(from, field)});
    else if (field.ft == NETDSD_FT_BIN)
        write_bytes(from, field, depth);
    else
        write_numbers(from, field);
}

void RowWriter::write_numbers(const char *from, const NETDSD_field &field) {
    const NETDSD_field_type scalar = scalar_of(field.ft);
    const size_t size = g_netpack_field_sizes[scalar];
    const size_t count = element_count(field);
    for (size_t j = 0; j < count; ++j) {
        if (j > 0 && !is_byte_array(field.ft))
            out_.put(',');
        char text[k_value_text];
        const size_t length = value_text(scalar, from + j * size, text);
        if (is_time(scalar))
            out_.put_time(text);
        else
            out_.put({text, length});
    }
}

void RowWriter::write_bytes(const char *from, const NETDSD_field &field, int depth) {
    if (find_structure(catalogue_, field.type_name) != nullptr) {
        for (size_t j = 0; j < field.count; ++j) {
            if (j > 0)
                out_.put(',');
            write(from + j * field.size, field.type_name, field.size, depth + 1);
        }
        return;
    }
    const size_t bytes = field_bytes(field);
    for (size_t k = 0; k < bytes; ++k) {
        out_.put_hex(from[k]);
        if (comma_follows(k, field.size))
            out_.put(',');
    }
}

// ---- Reading

// One pair of hex digits, two characters further each time; the end of the text is not passed.
// Blanks before a pair are skipped, but not counted. Only the pair is shown to sscanf, which else
// measures the whole text each time.
bool read_hex(const char **at, char *to) {
    const char *from = *at + strspn(*at, " \t\n\v\f\r");
    const char pair[] = {from[0], from[0] == '\0' ? '\0' : from[1], '\0'};
    unsigned value;
    if (sscanf(pair, "%02X", &value) != 1)
        return false;
    *to = static_cast<char>(value);
    *at += strnlen(*at, 2);
    return true;
}

template <class T> void store(T value, char *to) {
    memcpy(to, &value, sizeof value);
}

// Integers are read with 64 bits on every host, so that unsigned values come back everywhere.
template <class T> void store_integer(const char *text, int base, char *to) {
    store(static_cast<T>(strtoll(text, nullptr, base)), to);
}

void store_size(const char *text, char *to) {
    unsigned long long value;
    if (sscanf(text, "%llu", &value) == 1)
        store(static_cast<SIZET>(value), to);
}

void store_number(NETDSD_field_type scalar, const char *text, char *to) {
    switch (static_cast<unsigned>(scalar)) {
    case NETDSD_FT_BOOL:
        // Whatever it says, a zero and "FALSE" included: the station's files have always been read
        // so.
        store(BOOL{TRUE}, to);
        return;
    case NETDSD_FT_CHAR:
    case NETDSD_FT_BYTE:
        return store_integer<BYTE>(text, 16, to);
    case NETDSD_FT_SHORT:
    case NETDSD_FT_USHORT:
        return store_integer<uint16_t>(text, 0, to);
    case NETDSD_FT_SIZET:
        return store_size(text, to);
    case NETDSD_FT_TIME:
        return store(static_cast<TIME>(UTIL_string2time(text)), to);
    case NETDSD_FT_FTIME:
        return store(UTIL_string2ftime(text), to);
    case NETDSD_FT_DOUBLE:
        return store(atof(text), to);
    case NETDSD_FT_FLOAT:
        return store(static_cast<float>(atof(text)), to);
    default: // INT UINT LONG ULONG
        return store_integer<uint32_t>(text, 0, to);
    }
}

// A line that is cut into its columns as they are taken. Nested records go on where their record
// is, each knowing where its own part began.
class RowReader {
  public:
    RowReader(const Catalogue &catalogue, char *line, size_t size)
        : catalogue_(catalogue), next_(line), end_(line + size) {}

    void read(char *record, const char *dstype, size_t dssize, int depth);
    size_t columns() const { return columns_; }

  private:
    enum class Outcome { done, no_column, ended };

    Outcome read_field(char *record, const NETDSD_field &field, int depth);
    Outcome read_numbers(char *to, const NETDSD_field &field);
    Outcome read_text(char *to, const NETDSD_field &field);
    Outcome read_records(char *to, const NETDSD_field &field, int depth);
    Outcome read_bytes(char *to, const NETDSD_field &field);
    void read_raw(char *record, size_t size);
    const char *take();
    void report_short(char *line);

    const Catalogue &catalogue_;
    char *next_; // null when the last column is taken
    char *end_;
    size_t columns_ = 0;
};

// The next column, or null when there is none.
const char *RowReader::take() {
    if (next_ == nullptr)
        return nullptr;
    char *column = next_;
    char *comma = strchr(column, ',');
    if (comma != nullptr)
        *comma = '\0';
    next_ = comma == nullptr ? nullptr : comma + 1;
    ++columns_;
    return column;
}

// The part of the line that began there, its commas put back.
void RowReader::report_short(char *line) {
    std::replace(line, end_, '\0', ',');
    ZEB_REPORT("Error parsing %s", line);
}

void RowReader::read(char *record, const char *dstype, size_t dssize, int depth) {
    const NETDSD_entry *entry = find_usable(catalogue_, dstype, dssize);
    if (entry == nullptr) {
        ZEB_REPORT("WARNING: Bad structure description for \"%s\"", dstype);
        read_raw(record, dssize);
        return;
    }
    if (depth > k_max_depth) {
        ZEB_REPORT("Structure \"%s\" is nested too deeply", dstype);
        return;
    }
    char *const line = next_;
    for (size_t i = 0; i < entry->count_fields; ++i) {
        switch (read_field(record, entry->fields[i], depth)) {
        case Outcome::done:
            break;
        case Outcome::no_column:
            report_short(line);
            return;
        case Outcome::ended:
            return;
        }
    }
}

// However far the digits go, they are one column.
void RowReader::read_raw(char *record, size_t size) {
    const char *at = next_;
    size_t k = 0;
    while (k < size && read_hex(&at, record + k))
        ++k;
    take();
}

RowReader::Outcome RowReader::read_field(char *record, const NETDSD_field &field, int depth) {
    char *to = record + field.offset;
    if (static_cast<unsigned>(field.ft) >= k_type_count) {
        ZEB_REPORT("BUG: Unknown type (%u) in local description of field \"%s\"",
                   static_cast<unsigned>(field.ft), field.name);
        return Outcome::done;
    }
    if (field.ft == NETDSD_FT_STRING)
        return read_text(to, field);
    if (field.ft != NETDSD_FT_BIN)
        return read_numbers(to, field);
    return find_structure(catalogue_, field.type_name) != nullptr ? read_records(to, field, depth)
                                                                  : read_bytes(to, field);
}

RowReader::Outcome RowReader::read_numbers(char *to, const NETDSD_field &field) {
    const NETDSD_field_type scalar = scalar_of(field.ft);
    const size_t count = element_count(field);
    for (size_t j = 0; j < count; ++j, to += g_netpack_field_sizes[scalar]) {
        const char *column = take();
        if (column == nullptr)
            return Outcome::no_column;
        store_number(scalar, column, to);
    }
    return Outcome::done;
}

RowReader::Outcome RowReader::read_text(char *to, const NETDSD_field &field) {
    const char *column = take();
    if (column == nullptr)
        return Outcome::no_column;
    if (field.count > 0)
        UTIL_strncpynt(to, column, field.count);
    return Outcome::done;
}

RowReader::Outcome RowReader::read_records(char *to, const NETDSD_field &field, int depth) {
    for (size_t j = 0; j < field.count; ++j) {
        if (next_ == nullptr)
            return Outcome::no_column;
        read(to + j * field.size, field.type_name, field.size, depth + 1);
    }
    return Outcome::done;
}

// Of the last column of a line only one byte is read, and with it the reading ends.
RowReader::Outcome RowReader::read_bytes(char *to, const NETDSD_field &field) {
    const size_t bytes = field_bytes(field);
    const char *column = nullptr;
    for (size_t k = 0; k < bytes; ++k) {
        if (k % field.size == 0 && (column = take()) == nullptr)
            return Outcome::no_column;
        if (!read_hex(&column, to + k))
            return Outcome::done;
        if (next_ == nullptr)
            return Outcome::ended;
    }
    return Outcome::done;
}

} // namespace

void print_tabular_header(const Catalogue &catalogue, const NETDSD_entry *desc, int fh,
                          const char *prefix) {
    HeaderWriter(catalogue, fh).write(desc, prefix != nullptr ? prefix : "", 0);
}

void print_tabular(const Catalogue &catalogue, const void *pds, const char *dstype, size_t dssize,
                   int fh) {
    if (!ZEB_CHECK(pds != nullptr) || !ZEB_CHECK(dstype != nullptr))
        return;
    RowWriter(catalogue, fh).write(static_cast<const char *>(pds), dstype, dssize, 0);
}

size_t read_tabular(const Catalogue &catalogue, void *pds, const char *dstype, size_t dssize,
                    const char *line) {
    if (!ZEB_CHECK(pds != nullptr) || !ZEB_CHECK(dstype != nullptr) || !ZEB_CHECK(line != nullptr))
        return 0;
    NameText copy;
    if (!copy.compose(line, "", 0, ""))
        return 0;
    RowReader reader(catalogue, copy.text(), copy.view().size());
    reader.read(static_cast<char *>(pds), dstype, dssize, 0);
    return reader.columns();
}

} // namespace zeb::netpack
