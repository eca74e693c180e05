#include "fail_alloc.h"

#include <cerrno>
#include <cstddef>

namespace {

thread_local int t_left = 0; // 0: none is to fail
thread_local zeb::test::Alloc t_kind;
thread_local bool t_failed = false;

bool fails(zeb::test::Alloc kind) {
    if (zeb::test::allocation_fails())
        return true;
    if (t_left == 0 || kind != t_kind || --t_left > 0)
        return false;
    t_failed = true;
    errno = ENOMEM;
    return true;
}

template <class T> T *noted(T *block) {
    if (block != nullptr)
        zeb::test::note_allocation();
    return block;
}

} // namespace

// What a program without fail_calls.cpp has of it.
namespace zeb::test {
__attribute__((weak)) bool allocation_fails() {
    return false;
}
__attribute__((weak)) void note_allocation() {}
} // namespace zeb::test

// The names that the linker puts in place of the allocation functions and of the real ones.
extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
char *__real_strdup(const char *text);

void *__wrap_malloc(size_t size) {
    return fails(zeb::test::Alloc::fresh) ? nullptr : noted(__real_malloc(size));
}
void *__wrap_calloc(size_t count, size_t size) {
    return fails(zeb::test::Alloc::fresh) ? nullptr : noted(__real_calloc(count, size));
}
void *__wrap_realloc(void *block, size_t size) {
    if (fails(zeb::test::Alloc::resized))
        return nullptr;
    void *result = __real_realloc(block, size);
    return block == nullptr ? noted(result) : result;
}
char *__wrap_strdup(const char *text) {
    return fails(zeb::test::Alloc::fresh) ? nullptr : noted(__real_strdup(text));
}
}

namespace zeb::test {

FailingAlloc::FailingAlloc(Alloc kind, int n) {
    t_kind = kind;
    t_left = n;
    t_failed = false;
}
FailingAlloc::~FailingAlloc() {
    t_left = 0;
}
bool FailingAlloc::failed() const {
    return t_failed;
}

} // namespace zeb::test
