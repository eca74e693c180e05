#include "byte_faults.h"

#include <cinttypes>
#include <cstdio>

#include "text.h"

namespace zebctl {
namespace {

constexpr uint64_t k_most = 1000; // that are told: a foreign file could have one at each byte

} // namespace

ByteFaults::~ByteFaults() {
    if (count_ > k_most)
        fprintf(stderr, "zebctl: %s: and so on, %" PRIu64 " in all\n", visible(file_).c_str(),
                count_);
}

void ByteFaults::add(const char *unit, uint64_t place, const std::string &what,
                     const char *consequence) {
    if (++count_ <= k_most)
        fprintf(stderr, "zebctl: %s: %s %" PRIu64 ": %s%s\n", visible(file_).c_str(), unit, place,
                visible(what).c_str(), consequence);
}

} // namespace zebctl
