// record_json.h - records of a catalogue as JSON and back, by their descriptions.
//
// Field names become keys, nested records objects, arrays lists. Missing values become null. A char
// is a one-character text when it is printable, a char array a text up to its trailing zeros;
// numbers that JSON lacks are the texts "NaN", "Infinity" and "-Infinity". What to_json writes,
// from_json reads back to the same bytes (padding aside).
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include <zeb2/netpack.h>

namespace zebctl {

using Json = nlohmann::ordered_json;

// A real as a value of such a record.
Json real_to_json(double value, double missing = MVC);

Json to_json(const NETDSD_entry &description, const void *record);

// Parts of a record: a scalar of a type below NETDSD_FT_A_BOOL, a char array, a text.
Json scalar_to_json(NETDSD_field_type type, const char *at);
Json char_array_to_json(const char *at, size_t count);
std::string to_utf8(const char *text, size_t size);

// Sets the fields that `value` (an object) names and leaves the others. False with a reason that
// names the field: an unknown name, a value of the wrong kind or out of range, a list too long.
bool from_json(const NETDSD_entry &description, void *record, const Json &value,
               std::string &error);

// Sets one field from the text "name=value"; a path such as "tags.0.tag" or "X.3" reaches into
// nested records and arrays, counting from 0. The value is JSON where it parses as such, else a
// text.
bool set_field(const NETDSD_entry &description, void *record, const std::string &assignment,
               std::string &error);

} // namespace zebctl
