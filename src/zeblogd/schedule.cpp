#include "schedule.h"

namespace zeblogd {

void Schedule::set_interval(double interval, FTIME now) {
    interval_ = interval;
    if (interval_ > 0)
        passed_ = latest(now);
}

std::optional<FTIME> Schedule::due(FTIME now) {
    if (!(interval_ > 0))
        return std::nullopt;
    if (given_ - now > interval_)
        given_ = -HUGE_VAL;
    const FTIME time = latest(now);
    const bool is_new = time > passed_;
    passed_ = time;
    if (!is_new || time <= given_)
        return std::nullopt;
    given_ = time;
    return time;
}

double Schedule::wait(FTIME now) const {
    return interval_ > 0 ? latest(now) + interval_ - now : HUGE_VAL;
}

} // namespace zeblogd
