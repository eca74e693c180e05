// text.h - how zebctl shows things to people: times, aligned columns, colour where it helps.
#pragma once

#include <string>
#include <vector>

#include <zeb2/port.h>

namespace zebctl {

// "2026-11-21T04:05:06.789Z", or "-" for no time.
std::string iso_time(FTIME time);
// The same in local time, "2026-11-21T05:05:06.789+01:00".
std::string iso_local_time(FTIME time);

// "3 d 04:05:06", "04:05:06".
std::string duration(double seconds);

// "12.3 MiB", "512 B".
std::string bytes(double count);

// The text with what a terminal would obey shown as "?": names come from other programs.
std::string visible(std::string text);

// True when standard output is a terminal and NO_COLOR is not set.
bool use_colour();
// The text between the codes of an SGR style ("1") and of none, or, without colour, as it is.
std::string painted(bool colour, const char *style, const std::string &text);
std::string bold(const std::string &text);
std::string dim(const std::string &text);

// Columns wide enough for their longest cell, two blanks between; the first row is the heading.
std::string table(const std::vector<std::vector<std::string>> &rows);

} // namespace zebctl
