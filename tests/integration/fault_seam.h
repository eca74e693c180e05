// fault_seam.h - what a test tells fault_seam.so, which its programs load before libc: how their
// clocks go, and whether files can be written. One file, mapped by both, named by ZEB_FAULT_SEAM.
#pragma once

#include <atomic>
#include <cstdint>

namespace zeb::test {

// Nanoseconds: each clock shows its base, and `rate` for each one since `start` (steady).
struct SeamClock {
    int64_t start, wall, steady, rate;
};

struct SeamControl {
    std::atomic<uint32_t> current; // which clock holds; the other is being written
    SeamClock clocks[2];
    std::atomic<int> write_error; // of writes to regular files, 0 for none
};

} // namespace zeb::test
