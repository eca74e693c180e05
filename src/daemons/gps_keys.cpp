#include "gps_keys.h"

#include "serverkit/settings.h"
#include "serverkit/station_keys.h"

namespace gps {
namespace {

using namespace serverkit;

constexpr Key k_table[] = {
    line_key("the receiver's line: = and a name of the serial server's ports, or a device such as "
             "ttyS0:4800n81"),
    text("@;DisplayName", "GPS", "name for people"),
    text("@;ID", "G", "one character that stands for the instrument"),
    library(
        text("@;record;S", "*", "columns of the record of an instant, between \";\"; * for all"))};

} // namespace

const ProgramKeys k_keys = {"gps",
                            {k_table, k_tags_keys, k_directory_keys, k_log_keys, k_link_keys},
                            [](Settings &settings) { settings.provide(settings.own("fil;name")); }};

} // namespace gps
