// monitor.h - the station's monitor messages as text: one line each, in one file for each UTC day.
#pragma once

#include "serverkit/report.h"

#include <string>

#include <zeb2/libzeb2.h>

namespace zeblogd {

// "2026-11-21T04:05:06.789Z"; a time outside the years 1970 to 9999, or none, is "-".
std::string utc_time(FTIME time);

// "monitor_20261121.txt", for the UTC day of a time.
std::string monitor_file_name(FTIME time);

// The line, with its end: time, program and text, separated by a blank. Whatever came, it is one
// line of printable ASCII: other bytes are shown as \xNN, also the blanks of a name. Line ends at
// the end of the text are dropped. Without a usable time of its own a message has that of its
// arrival.
std::string monitor_line(FTIME arrival, const char *source, const NET_LOG_MonitorMessage &message);

// Appends lines to the day's file. A directory that cannot be written to is reported when that
// begins and when it ends.
class MonitorFile {
  public:
    explicit MonitorFile(std::string directory) : directory_(std::move(directory)) {}

    // line: with its end, written at once as a whole.
    void append(FTIME now, const std::string &line);

  private:
    bool write_line(const std::string &path, const std::string &line);

    std::string directory_;
    serverkit::Fault fault_;
    bool torn_ = false; // the file may end with a part of a line
};

} // namespace zeblogd
