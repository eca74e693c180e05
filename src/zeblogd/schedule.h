// schedule.h - when a periodic message is due: at whole multiples of its interval since 1970, so
// that minutes are whole minutes and days begin at midnight UTC. The clock is the caller's.
//
//   Schedule average(60, now);
//   for (;;) {
//       ... wait average.wait(now) seconds, or less; now = UTIL_ftime() ...
//       if (const auto time = average.due(now))
//           ... send, for that time ...
//   }
#pragma once

#include <cmath>
#include <optional>

#include <zeb2/port.h>

namespace zeblogd {

class Schedule {
  public:
    // interval: seconds, above 0; or 0 for a schedule on which nothing is due. What lies at or
    // before `now` counts as past.
    Schedule(double interval, FTIME now) { set_interval(interval, now); }

    // Another interval from now on. What was given out before is not given out again.
    void set_interval(double interval, FTIME now);
    double interval() const { return interval_; }

    // The latest time that has come since the last call; those before it, which a late call or a
    // clock set forward has passed over, are skipped. Nothing is given out twice, unless the clock
    // was set back to more than an interval before the latest: then the times come again.
    std::optional<FTIME> due(FTIME now);

    // Seconds until the next time, infinite when there is none.
    double wait(FTIME now) const;

  private:
    double latest(FTIME now) const { return std::floor(now / interval_) * interval_; }

    double interval_ = 0;
    FTIME passed_ = 0;        // the latest time that the clock has passed
    FTIME given_ = -HUGE_VAL; // the latest that was given out
};

} // namespace zeblogd
