#include "table_columns.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <zeb2/util.h>

namespace zebctl {
namespace {

constexpr int k_deepest = 32; // records within records
constexpr std::string_view k_no_time = "INVALID";

bool is_array(NETDSD_field_type type) {
    return type >= NETDSD_FT_A_BOOL && type <= NETDSD_FT_A_FLOAT;
}

NETDSD_field_type scalar_of(NETDSD_field_type type) {
    return is_array(type) ? static_cast<NETDSD_field_type>(type - NETDSD_FT_A_BOOL) : type;
}

bool is_byte(NETDSD_field_type type) {
    return type == NETDSD_FT_CHAR || type == NETDSD_FT_BYTE;
}

std::vector<std::string_view> cells_of(std::string_view line) {
    std::vector<std::string_view> cells;
    for (size_t end; (end = line.find(',')) != std::string_view::npos;) {
        cells.push_back(line.substr(0, end));
        line.remove_prefix(end + 1);
    }
    cells.push_back(line);
    return cells;
}

bool is_hex(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return isxdigit(static_cast<unsigned char>(c)) != 0; });
}

bool are_digits(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool is_whole(std::string_view cell, int64_t lowest, int64_t highest) {
    const std::string text(cell);
    char *end;
    errno = 0;
    const long long value = strtoll(text.c_str(), &end, 0);
    return !text.empty() && *end == '\0' && errno == 0 && value >= lowest && value <= highest;
}

template <typename T> bool is_whole(std::string_view cell) {
    return is_whole(cell, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
}

bool is_real(std::string_view cell) {
    const std::string text(cell);
    char *end;
    strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0';
}

// YYYYMMDD_HHMMSS, for the finer kind with up to four digits more.
bool is_time(std::string_view cell, size_t more) {
    return cell == k_no_time || (cell.size() >= 15 && cell.size() <= 15 + more && cell[8] == '_' &&
                                 are_digits(cell.substr(0, 8)) && are_digits(cell.substr(9)));
}

bool is_no(std::string_view cell) {
    const std::string text(cell);
    return text == "0" || UTIL_strcasecmp(text.c_str(), "FALSE") == 0 ||
           UTIL_strcasecmp(text.c_str(), "NO") == 0;
}

bool is_yes(std::string_view cell) {
    const std::string text(cell);
    return text == "1" || UTIL_strcasecmp(text.c_str(), "TRUE") == 0 ||
           UTIL_strcasecmp(text.c_str(), "YES") == 0;
}

// What a cell of a column must be; null when it is.
const char *fault_of(const TableColumn &column, std::string_view cell) {
    switch (column.type) {
    case NETDSD_FT_BOOL:
        return is_yes(cell) || is_no(cell) ? nullptr : "no truth value";
    case NETDSD_FT_CHAR:
    case NETDSD_FT_BYTE:
    case NETDSD_FT_A_BYTE:
        return is_hex(cell) && cell.size() == 2 * column.count ? nullptr : "not these bytes";
    case NETDSD_FT_SHORT:
        return is_whole<int16_t>(cell) ? nullptr : "no such whole number";
    case NETDSD_FT_USHORT:
        return is_whole<uint16_t>(cell) ? nullptr : "no such whole number";
    case NETDSD_FT_INT:
    case NETDSD_FT_LONG:
        return is_whole<int32_t>(cell) ? nullptr : "no such whole number";
    case NETDSD_FT_UINT:
    case NETDSD_FT_ULONG:
        return is_whole<uint32_t>(cell) ? nullptr : "no such whole number";
    case NETDSD_FT_SIZET: // the library reads it as decimal, whatever it begins with
        return are_digits(cell) && (cell == "0" || cell[0] != '0') && is_whole<uint32_t>(cell)
                   ? nullptr
                   : "no such whole number";
    case NETDSD_FT_TIME:
        return is_time(cell, 0) ? nullptr : "no time";
    case NETDSD_FT_FTIME:
        return is_time(cell, 4) ? nullptr : "no time";
    case NETDSD_FT_STRING:
        return cell.size() < column.count ? nullptr : "longer than its field";
    case NETDSD_FT_BIN:
        return is_hex(cell) ? nullptr : "not these bytes";
    default:
        return is_real(cell) ? nullptr : "no number";
    }
}

// A column of digits as columns of so many digits each.
void append_cut(std::string &line, std::string_view digits, size_t columns, size_t each) {
    for (size_t i = 0; i < columns; ++i) {
        if (i > 0)
            line += ',';
        line += digits.substr(std::min(i * each, digits.size()), each);
    }
}

} // namespace

size_t TableColumn::columns_read() const {
    return type == NETDSD_FT_A_BYTE || type == NETDSD_FT_BIN ? count : 1;
}

TableColumns::TableColumns(const NETDSD_entry &entry) : entry_(entry) {
    add_record(entry, "", 0, 1);
    for (const TableColumn &column : columns_) {
        written_ += column.columns_written();
        read_ += column.columns_read();
    }
}

void TableColumns::add_record(const NETDSD_entry &entry, const std::string &prefix, size_t offset,
                              int depth) {
    for (size_t i = 0; depth <= k_deepest && i < entry.count_fields; ++i)
        add_field(entry.fields[i], prefix + entry.fields[i].name, offset + entry.fields[i].offset,
                  depth);
}

void TableColumns::add_field(const NETDSD_field &field, const std::string &name, size_t offset,
                             int depth) {
    const NETDSD_field_type type = scalar_of(field.ft);
    if (type == NETDSD_FT_STRING) {
        name_columns(name, 1);
        columns_.push_back({name, type, offset, field.count, 1});
        return;
    }
    const NETDSD_entry *nested = type == NETDSD_FT_BIN ? NETPACK_find_ds(field.type_name) : nullptr;
    if (nested != nullptr && nested->total_size != field.size)
        nested = nullptr;
    if (is_byte(type) || (type == NETDSD_FT_BIN && nested == nullptr)) {
        const bool is_many = is_byte(type) && is_array(field.ft);
        name_columns(name, field.count);
        columns_.push_back({field.count > 1 ? name + "_1" : name, is_many ? NETDSD_FT_A_BYTE : type,
                            offset, field.count, field.size});
        return;
    }
    for (size_t i = 0; i < field.count; ++i) {
        const std::string each = field.count > 1 ? name + "_" + std::to_string(i + 1) : name;
        if (nested != nullptr) {
            add_record(*nested, each + "_", offset + i * field.size, depth + 1);
            continue;
        }
        name_columns(each, 1);
        columns_.push_back({each, type, offset + i * field.size, 1, field.size});
    }
}

void TableColumns::name_columns(const std::string &name, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        header_ += header_.empty() ? "" : ",";
        header_ += count > 1 ? name + "_" + std::to_string(i + 1) : name;
    }
}

bool TableColumns::read(std::string_view line, void *record, std::string &error) const {
    const std::vector<std::string_view> cells = cells_of(line);
    if (cells.size() != written_) {
        error = std::to_string(cells.size()) + " columns, not " + std::to_string(written_);
        return false;
    }
    std::string readable;
    size_t next = 0;
    for (const TableColumn &column : columns_) {
        std::string digits;
        for (size_t i = 0; i < column.columns_written(); ++i, ++next) {
            if (const char *fault = fault_of(column, cells[next])) {
                error = column.name + ": " + fault + ": " + std::string(cells[next].substr(0, 60));
                return false;
            }
            digits += cells[next];
        }
        if (column.type == NETDSD_FT_BIN && digits.size() != 2 * column.count * column.size) {
            error = column.name + ": not these bytes";
            return false;
        }
        readable += &column != columns_.data() ? "," : "";
        if (column.columns_read() > 1)
            append_cut(readable, digits, column.count, 2 * column.size);
        else
            readable += digits;
    }
    // Of the last column of a line the library would read one byte of an opaque field and stop.
    readable += ',';
    NETPACK_fill_mvc(record, entry_.name, entry_.total_size);
    if (NETPACK_read_ds_tabular_raw(record, entry_.name, entry_.total_size, readable.c_str()) !=
        read_) {
        error = "it cannot be read";
        return false;
    }
    restore(cells, static_cast<char *>(record));
    return true;
}

// The library reads every truth value as true and a time that is missing as 1970.
void TableColumns::restore(const std::vector<std::string_view> &cells, char *record) const {
    size_t next = 0;
    for (const TableColumn &column : columns_) {
        if (column.columns_written() == 0)
            continue;
        const std::string_view cell = cells[next];
        const double no_ftime = -1.0;
        next += column.columns_written();
        if (column.type == NETDSD_FT_BOOL && is_no(cell))
            record[column.offset] = 0;
        else if (column.type == NETDSD_FT_TIME && cell == k_no_time)
            memset(record + column.offset, 0xFF, column.size);
        else if (column.type == NETDSD_FT_FTIME && cell == k_no_time)
            memcpy(record + column.offset, &no_ftime, sizeof no_ftime);
    }
}

bool TableColumns::make_fit(void *record) const {
    bool changed = false;
    for (const TableColumn &column : columns_) {
        char *text = static_cast<char *>(record) + column.offset;
        for (size_t i = 0; column.type == NETDSD_FT_STRING && i < column.count && text[i] != '\0';
             ++i)
            if (text[i] == ',' || static_cast<unsigned char>(text[i]) < 0x20) {
                text[i] = text[i] == ',' ? ';' : ' ';
                changed = true;
            }
    }
    return changed;
}

} // namespace zebctl
