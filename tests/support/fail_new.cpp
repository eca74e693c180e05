#include "fail_new.h"

#include <cstdlib>
#include <new>

bool (*zeb::test::g_new_fails)() = nullptr;

void *operator new(size_t size) {
    using zeb::test::g_new_fails;
    void *block = g_new_fails != nullptr && g_new_fails() ? nullptr : malloc(size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}
void operator delete(void *block) noexcept {
    free(block);
}
void operator delete(void *block, size_t) noexcept {
    free(block);
}
