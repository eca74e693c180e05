#include "duties.h"

#include <cstdio>

namespace zeblogd {
namespace {

constexpr double k_longest = 31 * 86400.0;
constexpr DWORD k_publish = 1;

void switch_files(ZEBMSG_link *link, const char *to, FTIME at) {
    const NET_LOG_SwitchFiles record = {static_cast<TIME>(static_cast<long long>(at))};
    queue(link, to, MSG_LOG_SWITCHFILES, &record, sizeof record, "NET_LOG_SwitchFiles");
}

void begin_average(ZEBMSG_link *link, const char *to, FTIME at) {
    const NET_LOG_NewAverage record = {at};
    queue(link, to, MSG_LOG_NEW_AVERAGE, &record, sizeof record, "NET_LOG_NewAverage");
}

void record_monitor(ZEBMSG_link *link, const char *to, FTIME at) {
    const NET_LOG_MonitorSnapshot record = {at};
    queue(link, to, MSG_LOG_MONITOR_RECORD, &record, sizeof record, "NET_LOG_MonitorSnapshot");
}

void flush(ZEBMSG_link *link, const char *to, FTIME) {
    queue(link, to, MSG_LOG_FLUSH, nullptr, 0, nullptr);
}

} // namespace

// Log files are named by the second, and one that is begun twice in a second loses what it held:
// hence the longer limit of the switch.
const std::array<Duty, k_duty_count> k_duties = {{
    {"switch", "Log;Interval;Switch", 5, MSG_LOG_SET_INTERVAL_ROT, switch_files},
    {"average", "Log;Interval;Average", 0.1, MSG_LOG_SET_INTERVAL_AVG, begin_average},
    {"monitor", "Log;Interval;Monitor", 0.1, MSG_LOG_SET_INTERVAL_MON, record_monitor},
    {"flush", "Log;Interval;Flush", 0.1, MSG_LOG_SET_INTERVAL_FLS, flush},
}};

const Duty *find_duty(const std::string &name) {
    for (const Duty &duty : k_duties)
        if (name == duty.name)
            return &duty;
    return nullptr;
}

bool is_interval(const Duty &duty, double seconds) {
    return seconds == 0 || (seconds >= duty.shortest && seconds <= k_longest);
}

std::string interval_limits(const Duty &duty) {
    char text[96];
    snprintf(text, sizeof text, "0 (off) or %g s to 31 days, such as 90, 1:30 or 24:00:00",
             duty.shortest);
    return text;
}

void queue(ZEBMSG_link *link, const char *to, NETMSG_type type, const void *record, size_t size,
           const char *record_type) {
    ZEBMSG_queue_message(link, type, to == nullptr ? k_publish : 0, to, record, size, record_type);
}

} // namespace zeblogd
