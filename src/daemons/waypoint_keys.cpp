#include "waypoint_keys.h"

#include "serverkit/settings.h"
#include "serverkit/station_keys.h"

namespace waypoint {
namespace {

using namespace serverkit;

constexpr Key k_table[] = {
    text("@;Name", "home", "name of the way point"),
    number("@;Latitude", "", -90, 90, "degrees north of the way point; required"),
    number("@;Longitude", "", -180, 360, "degrees east of the way point; required"),
    number("@;Radius", "50", 0, HUGE_VAL, "metres within which the way point counts as reached"),
    text("@;Position", "position", "tag of the program whose fixes are answered"),
    text("@;DisplayName", "Way point", "name for people"),
    text("@;ID", "W", "one character that stands for the instrument")};

void require_place(Settings &settings) {
    const std::string latitude = settings.own("Latitude"), longitude = settings.own("Longitude");
    for (const std::string &key : {latitude, longitude}) {
        if (settings.written(key).empty())
            settings.complain(key, "no way point: set " + latitude + " and " + longitude);
        settings.number(key);
    }
}

} // namespace

const ProgramKeys k_keys = {"waypoint", {k_table, k_tags_keys, k_link_keys}, require_place};

} // namespace waypoint
