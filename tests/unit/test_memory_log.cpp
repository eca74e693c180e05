// Logging without memory: whatever allocation fails, a line and a header are whole or not there.
#include "fail_alloc.h"
#include "log_testing.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

using namespace zeb::test;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

bool g_nameless_files = true; // whether the file system has files without a name

} // namespace

extern "C" {
int __real_linkat(int old_dir, const char *old_name, int new_dir, const char *new_name, int flags);
int __wrap_linkat(int old_dir, const char *old_name, int new_dir, const char *new_name, int flags);

int __wrap_linkat(int old_dir, const char *old_name, int new_dir, const char *new_name, int flags) {
    if (g_nameless_files)
        return __real_linkat(old_dir, old_name, new_dir, new_name, flags);
    errno = ENOENT;
    return -1;
}
}

namespace {

constexpr Alloc k_kinds[] = {Alloc::fresh, Alloc::resized};

// Runs the action with its first, second, ... allocation of each kind failing, until none fails.
template <class Action> int fail_each(Action action) {
    int failures = 0;
    for (const Alloc kind : k_kinds) {
        for (int n = 1;; ++n) {
            if (!action(kind, n))
                break;
            ++failures;
        }
    }
    return failures;
}

BOOL further(void *, size_t index, LOG_record_var_defn *, SFMT_buffer *out) {
    SFMT_copystr(out, "!var;a_X1;Note,further line");
    return index == 0;
}

class LogMemory : public LogFiles {
  protected:
    LogMemory() {
        local.set("var;a_X1;format", "*5.1f");
        vars.at(0).desc = "Aerosol";
        vars.at(0).gethdrs = further;
    }
    void define() { LOG_define_record(&f, "S", "b a", vars, local, FALSE); }

    double a = 1.5;
    Table vars = {row("a", LVT_DOUBLE, &a), row("b", LVT_VA_DOUBLE, nullptr, "*4.1f"),
                  row("c", LVT_VA_DWORD, nullptr, "%u", "none")};
    const std::string whole_line = "X1S,ABC,1400000000,2014-05-13T16:53:20Z,   2.5,    1.5\n";
};

TEST_F(LogMemory, ARecordIsDefinedWholeOrReported) {
    const int failures = fail_each([&](Alloc kind, int n) {
        LOG_close(&f);
        LOG_init(&f);
        StderrCapture report;
        const FailingAlloc failing(kind, n);
        define();
        const std::string text = report.finish();
        EXPECT_EQ(failing.failed(), !text.empty()) << text;
        for (const LL_NODE *node = f.headers.head; node != nullptr; node = node->next)
            EXPECT_EQ(*static_cast<const char *>(node->data), '!');
        return failing.failed();
    });
    EXPECT_GT(failures, 10);
    EXPECT_EQ(f.records.count, 1);
    EXPECT_EQ(f.headers.count, 5);
}

TEST_F(LogMemory, AFileIsBegunWithItsWholeHeaderOrNotAtAll) {
    define();
    const int failures = fail_each([&](Alloc kind, int n) {
        StderrCapture report;
        BOOL opened;
        bool failed;
        {
            const FailingAlloc failing(kind, n);
            opened = LOG_open_basename(&f, "X1", root, local, nullptr);
            failed = failing.failed();
        }
        if (opened) {
            EXPECT_THAT(read_file(f.filename), StartsWith("!fil;FileName,X1_"));
            EXPECT_EQ(read_file(f.filename).back(), '\n');
            LOG_close(&f);
            LOG_init(&f);
            define();
        } else {
            EXPECT_EQ(f.fh, -1);
            EXPECT_FALSE(f.info.enabled);
        }
        EXPECT_EQ(failed, !report.finish().empty());
        return failed;
    });
    EXPECT_GT(failures, 10);
    for (const std::string &name : files())
        EXPECT_THAT(read_file(dir / name), StartsWith("!fil;FileName," + name + "\n"));
}

TEST_F(LogMemory, ASwitchThatFailsKeepsTheFile) {
    define();
    open();
    const std::string name = f.filename;
    const int failures = fail_each([&](Alloc kind, int n) {
        StderrCapture report;
        const FailingAlloc failing(kind, n);
        const BOOL switched = LOG_switch(&f, 0);
        EXPECT_EQ(switched, !failing.failed());
        EXPECT_NE(f.fh, -1);
        return failing.failed();
    });
    EXPECT_GT(failures, 0);
    LOG_write(&f, nullptr, "S", 1400000000, 2.5, DWORD{1});
    EXPECT_EQ(data(), whole_line);
}

TEST_F(LogMemory, ALineIsWholeOrNotWritten) {
    define();
    open();
    const int failures = fail_each([&](Alloc kind, int n) {
        // A buffer that must grow again.
        SFMT_destroy_buffer(&f.sbfr);
        f.sbfr.sz_buffer = 0;
        StderrCapture report;
        const FailingAlloc failing(kind, n);
        LOG_write(&f, nullptr, "S", 1400000000, 2.5, DWORD{1});
        EXPECT_EQ(failing.failed(), !report.finish().empty());
        return failing.failed();
    });
    EXPECT_GE(failures, 4) << "the fields' ends, their texts, the line, the file's queue";
    const std::vector<std::string> written = lines_of(data());
    EXPECT_GE(written.size(), 2U);
    for (const std::string &one : written)
        EXPECT_EQ(one + "\n", whole_line);
}

TEST_F(LogMemory, WithoutMemoryForItsFieldsTheLineBeforeIsWrittenOnceMore) {
    define();
    open();
    LOG_write(&f, nullptr, "S", 1400000000, 2.5, DWORD{1});
    for (const Alloc kind : k_kinds) { // where the fields end, and their texts
        const FailingAlloc failing(kind, 1);
        LOG_write(&f, nullptr, "S", 1500000000, 7.0, DWORD{1});
    }
    EXPECT_EQ(data(), whole_line + whole_line + whole_line);
    EXPECT_THAT(err.text(), HasSubstr("assertion failed (log_line.cpp:"));
    EXPECT_THAT(err.text(), HasSubstr("Cannot allocate memory"));
}

// ---- A file system without nameless files ----

class LogPlainFiles : public LogMemory {
  protected:
    LogPlainFiles() { g_nameless_files = false; }
    ~LogPlainFiles() override { g_nameless_files = true; }
};

TEST_F(LogPlainFiles, AFileIsBegunUnderAHiddenNameAndRenamed) {
    define();
    // What a daemon that was killed there may have left.
    write_file(dir / ".X1.new", "!fil;FileN");
    open();
    LOG_write(&f, nullptr, "S", 1400000000, 2.5, DWORD{1});
    EXPECT_EQ(data(), whole_line);
    EXPECT_TRUE(switch_later());
    LOG_write(&f, nullptr, "S", 1400000000, 2.5, DWORD{1});
    EXPECT_THAT(content(), StartsWith("!fil;FileName,X1_"));
    EXPECT_EQ(data(), whole_line);
    EXPECT_EQ(files().size(), 2U);
    for (const std::string &name : files())
        EXPECT_THAT(name, StartsWith("X1_"));
}

TEST_F(LogPlainFiles, AFileThatCannotBeRenamedLeavesNothingBehind) {
    const time_t now = time(nullptr);
    for (time_t t = now; t < now + 60; ++t) {
        char name[256];
        LOG_filenamefortime((dir / "X1").c_str(), t, name);
        std::filesystem::create_directory(name);
    }
    EXPECT_FALSE(LOG_open(&f, root, local, nullptr));
    EXPECT_THAT(err.text(), HasSubstr("Unable to open log file \"" + dir.path() + "\": "));
    EXPECT_EQ(files().size(), 60U);
}

} // namespace
