// results.cpp - in every test program: notes how each test ended in a file of its own, for the
// table of faults (tests/fault_table.sh). A test that dies leaves "began".
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

namespace {

class Results : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &test) override {
        skipped_.clear();
        note(test, "began");
    }
    void OnTestPartResult(const testing::TestPartResult &part) override {
        if (part.skipped())
            skipped_ = part.message();
    }
    void OnTestEnd(const testing::TestInfo &test) override {
        if (test.result()->Skipped())
            note(test, "skipped: " + skipped_);
        else
            note(test, test.result()->Passed() ? "passed" : "failed");
    }

    static void note(const testing::TestInfo &test, const std::string &how) {
        const std::filesystem::path directory =
            std::filesystem::path(ZEB_TEST_RESULTS) / program_invocation_short_name;
        std::string name = std::string(test.test_suite_name()) + "." + test.name();
        for (char &c : name)
            if (c == '/')
                c = '+';
        std::error_code ignored;
        std::filesystem::create_directories(directory, ignored);
        std::ofstream(directory / name) << how << '\n';
    }
    std::string skipped_;
};

// The framework owns what is appended, and has its listeners before main() reads the arguments.
[[maybe_unused]] const bool g_appended = [] {
    testing::UnitTest::GetInstance()->listeners().Append(std::make_unique<Results>().release());
    return true;
}();

} // namespace
