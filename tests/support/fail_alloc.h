// fail_alloc.h - makes chosen allocations of the code under test fail. The test program is linked
// by zeb_fail_allocations(NAME) of tests/CMakeLists.txt, against the static library.
#pragma once

namespace zeb::test {

enum class Alloc { fresh, resized }; // malloc, calloc and strdup; realloc

// In its scope the n-th allocation of a kind (from 1) by this thread fails with ENOMEM.
class FailingAlloc {
  public:
    FailingAlloc(Alloc kind, int n);
    ~FailingAlloc();
    bool failed() const; // whether it came to that
    FailingAlloc(const FailingAlloc &) = delete;
    FailingAlloc &operator=(const FailingAlloc &) = delete;
};

// For fail_calls.cpp, which makes allocations of all threads fail and counts blocks: whether this
// one is to fail, with errno, and that one succeeded.
bool allocation_fails();
void note_allocation();

} // namespace zeb::test
