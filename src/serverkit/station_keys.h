// station_keys.h - the keys that the library reads for a daemon, in the groups that a daemon's
// table takes what it uses of.
#pragma once

#include "keys.h"

namespace serverkit {

std::optional<std::string> fault_of_tags(const std::string &value);
std::optional<std::string> fault_of_truth(const std::string &value);
std::optional<std::string> fault_of_logging(const std::string &value);
std::optional<std::string> fault_of_duration(const std::string &value);
std::optional<std::string> fault_of_polynomial(const std::string &value);
std::optional<std::string> fault_of_port(const std::string &value);
Default general_host(const Settings &settings);
Default general_spinup(const Settings &settings);
Default log_directory(const Settings &settings);
Default averages_on_bypass(const Settings &settings);
Default ignores_flush(const Settings &settings);

// On or off, as the library reads it.
constexpr Key truth(const char *path, const char *standard, const char *meaning) {
    return library(tested(text(path, standard, meaning), fault_of_truth));
}
constexpr Key polynomial(const char *path, const char *meaning) {
    return library(tested(text(path, "", meaning), fault_of_polynomial));
}

constexpr Key line_key(const char *meaning) {
    return library(tested(text("@;Port", "=@", meaning), fault_of_port));
}

// The link to the message server.
constexpr Key host_key(const char *path, const char *meaning) {
    Key key = library(text(path, "", meaning));
    key.variable = "ZEB2SERVER";
    return key;
}
inline constexpr Key k_link_keys[] = {
    host_key("RemoteHost",
             "message server of every program, as host or host:port; none for the local socket"),
    derived(host_key("@;RemoteHost", "message server of this program alone"), general_host)};

// The announcement of an instrument, beside DisplayName and ID, which differ.
inline constexpr Key k_tags_keys[] = {library(tested(
    text("@;Tags", "", "up to eight tags by which others find it, between \";\""), fault_of_tags))};

// Where log files are.
inline constexpr Key k_directory_keys[] = {
    library(derived(text("Disk;LogDir", "",
                         "directory of the log files; a relative one is below $ZEB2; "
                         "$DB/stn/STATION/log without it"),
                    log_directory)),
    library(text("Disk;StationID", "nil", "code of the station, at most 31 characters"))};

// A log file.
inline constexpr Key k_log_keys[] = {
    library(count("Disk;BufferSize", "0", 0, 1048576,
                  "kilobytes of lines to hold back before they are written")),
    library(count("Disk;MaxFileSize", "0", -1, 2147483647,
                  "kilobytes of the largest log file, 0 for no limit")),
    library(text("@;fil;name", "@", "name of the log file and of what is logged")),
    library(tested(text("@;EnableLogging", "1", "whether lines are written: 1 or 0"),
                   fault_of_logging)),
    truth("@;var;*;enable", "true", "whether this column is written"),
    library(text("@;var;*;format", "", "format of this column")),
    library(text("@;var;*;mvc", "", "text of a missing value in this column"))};

// Averages.
inline constexpr Key k_average_keys[] = {
    library(tested(text("Global;SpinupTime", "0",
                        "no averages for so long after a daemon's start, such as 90 or 1:30"),
                   fault_of_duration)),
    library(derived(
        tested(text("@;SpinupTime", "", "the same for this daemon alone"), fault_of_duration),
        general_spinup)),
    truth("@;AverageOnContam", "true", "whether contaminated air is averaged"),
    derived(truth("@;AverageOnBypass", "",
                  "whether readings are averaged while bypassed; true, but false for a name that "
                  "ends in 1 and a digit"),
            averages_on_bypass),
    derived(truth("@;IgnoreFlush", "",
                  "whether readings are averaged during a flush; as AverageOnBypass"),
            ignores_flush)};

} // namespace serverkit
