// log_int.h - what the sources of log share. Not installed.
#ifndef ZEB2_LOG_INT_H
#define ZEB2_LOG_INT_H

#include "log.h"

#include <cstdlib>
#include <ctime>
#include <memory>

namespace zeb {

struct FreeBlock {
    void operator()(void *block) const { free(block); }
};
template <class T> using OwnedBlock = std::unique_ptr<T, FreeBlock>;

// A time in UTC, on every host alike, also beyond what its time_t can hold.
struct UtcTime {
    int year;
    unsigned month, day, hour, minute, second; // month and day from 1
};
UtcTime utc_time(long long seconds);

// log_header.cpp

// Inserts a header line, which may be empty, unless the list has it already; case does not count.
// Null, as of a buffer that got no memory, inserts nothing.
void insert_header(LOG_file *f, const char *text);
// Inserts the lines that every file has.
void insert_standard_headers(LOG_file *f);
// The header of a file of this name, null without memory (reported).
OwnedBlock<char> header_text(const LOG_file *f, const char *filename);

// log_record.cpp

// Frees what the record holds.
void free_record(LOG_record_defn *record);

// log_line.cpp

// A value of a variable as each kind of conversion takes it.
struct Value {
    double real;
    long long integer;
};
// Adds what the format makes of the value to the text; a null format makes nothing. Formats come
// from the configuration: one for text gets an empty text, never the value as an address.
void print_value(SFMT_buffer *out, const char *format, const Value &value);

// log_file.cpp

// Begins a file under the name, with its header unless logging is disabled, and makes it the
// current one; the one before is closed, all written. False with errno when that fails: the one
// before stays.
bool begin_file(LOG_file *f, const char *filename);
// Makes the name of a file begun now; false with errno when it would be too long.
bool name_for_now(const LOG_file *f, char (&filename)[256]);
// Writes a line to the current file if logging is enabled.
void write_line(LOG_file *f, const char *line);
// Closes the current file, all written; what an error kept from that is counted as lost.
void close_file(LOG_file *f);

// log_message.cpp

// Publishes whether logging is enabled; a null link tells nobody.
void post_state(ZEBMSG_link *lnk, const NET_LOG_Info *info);
// Forgets the monitor and average lines of the file that are still due.
void forget_requests(LOG_file *f);

} // namespace zeb

#endif
