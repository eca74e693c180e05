// fail_new.h - operator new that fails when a test says so. A program that links fail_new.cpp has it
// in place of the library's.
#pragma once

namespace zeb::test {

// Asked at every allocation, by whatever thread makes it; null: none fails.
extern bool (*g_new_fails)();

} // namespace zeb::test
