// conductor.h - the conductor at work: sends what is due, and does what messages ask of it.
#pragma once

#include "config.h"
#include "monitor.h"
#include "schedule.h"

#include <string>
#include <vector>

namespace zeblogd {

class Conductor {
  public:
    // link: open; only what concerns the conductor is asked of the server from now on.
    Conductor(const Config &config, std::string name, ZEBMSG_link *link, FTIME now);

    // Sends what is due.
    void conduct(FTIME now);
    // Seconds until something is due; infinite when nothing is.
    double wait(FTIME now) const;
    // A message that came.
    void received(const ZEBMSG_proc_msg &message, FTIME now);

  private:
    void set_interval(size_t index, double interval, const std::string &by, FTIME now);
    void tell(FTIME now, const char *format, ...) __attribute__((format(printf, 3, 4)));

    std::string name_;
    ZEBMSG_link *link_;
    MonitorFile file_;
    std::vector<Schedule> schedules_; // in the order of the duties
};

} // namespace zeblogd
