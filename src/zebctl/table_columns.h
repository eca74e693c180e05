// table_columns.h - the columns of a record's tabular file (docs/formats/tabular.md): what each
// line of such a file must hold to be read into a record as it was written.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <zeb2/netpack.h>

namespace zebctl {

// Columns that belong together: of one value, of one element, or of a field of bytes.
struct TableColumn {
    std::string name;
    NETDSD_field_type type; // a scalar, NETDSD_FT_STRING, NETDSD_FT_A_BYTE or NETDSD_FT_BIN
    size_t offset;          // in the record
    size_t count;           // elements; characters of a text
    size_t size;            // of an element
    // Bytes are written as one column and read from many; records without a description are cut
    // into columns differently on either way.
    size_t columns_written() const { return type == NETDSD_FT_BIN ? count : 1; }
    size_t columns_read() const;
};

class TableColumns {
  public:
    explicit TableColumns(const NETDSD_entry &entry);

    // The header line, without its end.
    const std::string &header() const { return header_; }
    // Reads a line into a record of the described size. False with the reason in `error`; the
    // record is then of no use.
    bool read(std::string_view line, void *record, std::string &error) const;
    // Makes the record's texts fit into columns: commas become semicolons, control characters
    // blanks. True when something was changed.
    bool make_fit(void *record) const;

  private:
    void add_record(const NETDSD_entry &entry, const std::string &prefix, size_t offset, int depth);
    void add_field(const NETDSD_field &field, const std::string &prefix, size_t offset, int depth);
    void name_columns(const std::string &name, size_t count);
    void restore(const std::vector<std::string_view> &cells, char *record) const;

    const NETDSD_entry &entry_;
    std::vector<TableColumn> columns_;
    std::string header_;
    size_t written_ = 0, read_ = 0; // columns of a line
};

} // namespace zebctl
