// record_text.h - a record's fields in the short form that people read as it passes.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "record_json.h"

namespace zebctl {

// A value that is no list and no record: numbers with nine digits, "-" when it is missing.
std::string value_for_people(const Json &value);

// Name and text of each field that says something, in the catalogue's order: missing values, empty
// texts and the unused ends of lists are left out, times are shown as such, numbers with nine
// digits.
std::vector<std::pair<std::string, std::string>> fields_for_people(const NETDSD_entry *description,
                                                                   const Json &record);

} // namespace zebctl
