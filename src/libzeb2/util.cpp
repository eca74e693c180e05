#include "util.h"

#include "diag.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

namespace {

constexpr DWORD k_largest_p2 = 0x80000000u;

// Whether select itself finds the descriptor bad, asked for it alone and without waiting.
bool is_bad(int fd, bool for_reading) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    const timespec at_once = {};
    return pselect(fd + 1, for_reading ? &set : nullptr, for_reading ? nullptr : &set, nullptr,
                   &at_once, nullptr) < 0 &&
           errno == EBADF;
}

// Prunes one descriptor; returns whether it counts for the new maximum.
bool prune(int fd, fd_set *rx_fds, fd_set *tx_fds) {
    bool counts = false;
    if (FD_ISSET(fd, rx_fds)) {
        if (is_bad(fd, true)) {
            FD_CLR(fd, rx_fds);
            ZEB_REPORT("WARNING: Pruned file %d from read list", fd);
        } else {
            counts = true;
        }
    }
    if (FD_ISSET(fd, tx_fds)) {
        if (is_bad(fd, false)) {
            // The read set, on purpose: the write set is rebuilt every cycle, and stations have
            // always seen it go back to select as it stands.
            FD_CLR(fd, rx_fds);
            ZEB_REPORT("WARNING: Pruned file %d from write list", fd);
        } else {
            counts = true;
        }
    }
    return counts;
}

} // namespace

DWORD UTIL_roundup_p2(DWORD in) {
    if (in >= k_largest_p2) {
        ZEB_REPORT("No power of two above %u fits 32 bits", static_cast<unsigned>(in));
        return UINT32_MAX;
    }
    DWORD result = 2;
    while (result <= in)
        result <<= 1;
    return result;
}

BOOL UTIL_match_any(const void *check, const void *match_against, size_t n, size_t ell_size) {
    const char *element = static_cast<const char *>(match_against);
    for (size_t i = 0; i < n; ++i, element += ell_size) {
        if (memcmp(check, element, ell_size) == 0)
            return TRUE;
    }
    return FALSE;
}

void UTIL_shift_array(void *array, size_t total_size, long offset) {
    char *bytes = static_cast<char *>(array);
    const size_t magnitude =
        offset < 0 ? 0 - static_cast<size_t>(offset) : static_cast<size_t>(offset);
    if (magnitude == 0 || magnitude >= total_size)
        return;
    if (offset < 0)
        memmove(bytes, bytes + magnitude, total_size - magnitude);
    else
        memmove(bytes + magnitude, bytes, total_size - magnitude);
}

void UTIL_trim_select_badfd(fd_set *rx_fds, fd_set *tx_fds, int *max_fd) {
    const int old_max = *max_fd;
    if (old_max == -1)
        return;
    if (old_max >= FD_SETSIZE)
        ZEB_REPORT("WARNING: Files %d to %d are beyond what select can hold", FD_SETSIZE, old_max);
    int new_max = -1;
    for (int fd = 0; fd <= std::min(old_max, FD_SETSIZE - 1); ++fd) {
        if (prune(fd, rx_fds, tx_fds))
            new_max = fd;
    }
    if (new_max != old_max) {
        ZEB_REPORT("WARNING: Maxium file descriptor changed from %d to %d", old_max, new_max);
        *max_fd = new_max;
    }
}

const char *UTIL_hstrerror(int er) {
    switch (er) {
    case 1:
        return "Unkown host";
    case 2:
        return "Host name lookup failure";
    case 3:
        return "Unknown server error";
    case 4:
        return "No address associated with name";
    default:
        return "Resolver internal error";
    }
}

double UTIL_df1_three(const double *pts, double h) {
    return (pts[2] - pts[0]) / (2.0 * h);
}

double UTIL_df1_five(const double *pts, double h) {
    return (pts[0] - 8.0 * pts[1] + 8.0 * pts[3] - pts[4]) / (12.0 * h);
}

double UTIL_df2_three(const double *pts, double h) {
    return (pts[0] - 2.0 * pts[1] + pts[2]) / (h * h);
}

double UTIL_wrap(double val, double min, double max) {
    if (min < val && val <= max)
        return val;
    return val - std::floor((val - min) / (max - min)) * (max - min);
}
