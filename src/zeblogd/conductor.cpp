#include "conductor.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace zeblogd {
namespace {

// The record of a message, or null when it carries none or another.
template <typename Record> const Record *record_of(const ZEBMSG_proc_msg &message) {
    const bool is_whole = message.dsd != nullptr && message.dsd->total_size == sizeof(Record);
    return is_whole ? static_cast<const Record *>(message.pds) : nullptr;
}

void accept_only_own_business(ZEBMSG_link *link) {
    const auto accept = [link](NETMSG_type type) {
        ZEBMSG_add_filter(link, TRUE, nullptr, nullptr, static_cast<int>(type), nullptr, nullptr,
                          nullptr);
    };
    accept(MSG_LOG_MONITOR);
    for (const Duty &duty : k_duties)
        accept(duty.setting);
}

std::string interval_text(double seconds) {
    char text[64];
    snprintf(text, sizeof text, "every %g s", seconds);
    return seconds == 0 ? "off" : text;
}

} // namespace

Conductor::Conductor(const Config &config, std::string name, ZEBMSG_link *link, FTIME now)
    : name_(std::move(name)), link_(link), file_(config.directory) {
    for (const double interval : config.intervals)
        schedules_.emplace_back(interval, now);
    accept_only_own_business(link_);
}

void Conductor::conduct(FTIME now) {
    for (size_t i = 0; i < k_duty_count; ++i)
        if (const auto time = schedules_[i].due(now))
            k_duties[i].send(link_, nullptr, *time);
}

double Conductor::wait(FTIME now) const {
    double shortest = HUGE_VAL;
    for (const Schedule &schedule : schedules_)
        shortest = std::min(shortest, schedule.wait(now));
    return shortest;
}

void Conductor::received(const ZEBMSG_proc_msg &message, FTIME now) {
    if (message.msg == nullptr)
        return;
    if (message.msg->msg == MSG_LOG_MONITOR) {
        if (const auto *monitor = record_of<NET_LOG_MonitorMessage>(message))
            file_.append(now, monitor_line(now, message.src_name, *monitor));
        return;
    }
    const auto *setting = record_of<NET_LOG_SetInterval>(message);
    for (size_t i = 0; setting != nullptr && i < k_duty_count; ++i)
        if (message.msg->msg == k_duties[i].setting)
            set_interval(i, setting->interval,
                         message.src_name != nullptr ? message.src_name : "somebody", now);
}

void Conductor::set_interval(size_t index, double interval, const std::string &by, FTIME now) {
    const Duty &duty = k_duties[index];
    const double before = schedules_[index].interval();
    if (!is_interval(duty, interval)) {
        tell(now, "%s interval: %g s, as %s asks, is not %s; it stays %s", duty.name, interval,
             serverkit::printable(by).c_str(), interval_limits(duty).c_str(),
             interval_text(before).c_str());
    } else if (interval != before) {
        schedules_[index].set_interval(interval, now);
        tell(now, "%s interval: %s, as %s asks; it was %s", duty.name,
             interval_text(interval).c_str(), serverkit::printable(by).c_str(),
             interval_text(before).c_str());
    }
}

// A line on standard error, one for the monitors that look on, and one in the file: what this
// program sends, it does not receive.
void Conductor::tell(FTIME now, const char *format, ...) {
    NET_LOG_MonitorMessage message = {};
    message.msgtime = now;
    va_list args;
    va_start(args, format);
    vsnprintf(message.msg, sizeof message.msg, format, args);
    va_end(args);
    serverkit::report("%s", message.msg);
    ZEBMSG_writemonitor(link_, 0, now, "%s", message.msg);
    file_.append(now, monitor_line(now, name_.c_str(), message));
}

} // namespace zeblogd
