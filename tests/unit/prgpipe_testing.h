// prgpipe_testing.h - what the tests of child processes share: children of a shell script, and the
// calls of the code under test that a test replaces.
#pragma once

#include "prgpipe.h"
#include "zebfile_testing.h"

#include <csignal>
#include <sys/wait.h>

namespace zeb::test {

// The system calls that fail, in the thread of the test and in its children.
struct FailingCalls {
    int fork = 0;           // the error of fork
    int fcntl_command = -1; // fcntl fails for this command ...
    int fcntl_after = 0;    // ... when this many such calls have succeeded
    int dup2_stream = -1;   // dup2 to this descriptor fails
    bool kill = false;      // signals go astray
};
extern thread_local FailingCalls t_failing;

// How the code under test yields the processor: until told otherwise for as long as the child needs
// to end, so that no test depends on the machine's speed.
struct Yields {
    pid_t child = -1;
    int impatient = 0; // so many yields come back at once, whatever the child does
    int count = 0;
};
extern thread_local Yields t_yields;

// Whether the child has ended, or is none of ours any more; it stays to be waited for.
bool has_ended(pid_t child);
// The child's exit status, which stays to be waited for; -1 when a signal ended it.
int exit_status(pid_t child);

// Starts a program with a placeholder behind its arguments; without arguments, with null for them.
BOOL run_program(PRGPIPE_link *child, const char *cmd, std::vector<std::string> args,
                 bool grab_stderr = false);

// The link names neither pipes nor a child.
void expect_empty(const PRGPIPE_link &link);

// Children with the table of descriptors serviced by the module's own thread.
class PrgpipeThread : public ZebfileThread {
  protected:
    PrgpipeThread() {
        t_failing = {};
        t_yields = {};
    }
    ~PrgpipeThread() override { t_failing = {}; }
    void TearDown() override;

    // A shell that runs the script.
    BOOL start(const std::string &script, bool grab_stderr = false);
    BOOL run(const char *cmd, std::vector<std::string> args, bool grab_stderr = false) {
        return run_program(&child, cmd, std::move(args), grab_stderr);
    }
    // The next line of the child; a child that dies takes what is unread with it.
    std::string line(int fh) const;
    std::string line() const { return line(child.read_stdout); }
    // Stops the child; the first yields come back at once.
    void kill_child(int impatient = 0);
    void expect_report(const std::string &text) {
        EXPECT_THAT(err.text(), testing::HasSubstr(text));
    }
    void expect_empty_link() const { expect_empty(child); }

    PRGPIPE_link child = {-1, -1, -1, -1};
};

} // namespace zeb::test
