// netpack_dump.h - a readable dump on its way to a stream, for the dumps of records and of
// packages. Internal.
#ifndef ZEB2_NETPACK_DUMP_H
#define ZEB2_NETPACK_DUMP_H

#include "netpack_text.h"

#include <cstdio>

namespace zeb::netpack {

// Holds the stream while it lives, so that a dump stays in one piece.
class DumpStream {
  public:
    explicit DumpStream(FILE *file) : file_(file) { flockfile(file_); }
    ~DumpStream() { funlockfile(file_); }
    DumpStream(const DumpStream &) = delete;
    DumpStream &operator=(const DumpStream &) = delete;

    void put(std::string_view text) { fwrite_unlocked(text.data(), 1, text.size(), file_); }
    void put(char c) { putc_unlocked(c, file_); }
    void put_hex(const char *bytes, size_t size);
    // A name or text of unknown origin; control characters and backslashes as \xHH.
    void put_visible(std::string_view text);
    // A whole line of bytes that nothing describes.
    void put_raw(std::string_view prefix, const char *bytes, size_t size);

    // "(KIND)[COUNT]=" behind a field's name.
    void put_kind(unsigned type, size_t count);
    // The values of a field of numbers (codes 0 to 27).
    void put_numbers(NETDSD_field_type type, const char *from, size_t count);
    // Those of undescribed elements, `size` bytes in all.
    void put_opaque(const char *from, size_t size, size_t element_size);
    // Nested records: what stands before and behind one, number `index` from 1; 0 for a record of
    // its own, which has neither.
    void open_block(std::string_view prefix, std::string_view structure, size_t index);
    void close_block(std::string_view prefix, size_t index);

  private:
    FILE *file_;
};

} // namespace zeb::netpack

#endif
