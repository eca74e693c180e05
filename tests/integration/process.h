// process.h - a program under test: started with its own environment, its standard error kept.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace zeb::test {

class Process {
  public:
    struct Options {
        std::vector<std::pair<std::string, std::string>> environment; // beside the test's own
        unsigned long descriptors = 0;                                // limit; 0: the test's own
        int input = -1;                                               // -1: the test's own
        // A terminal for its input and output, its controlling one; errors are kept as ever.
        std::string terminal = {};
        std::function<void()> before = {}; // in the new process, before the program
    };

    // Starts it with standard output and standard error in files under `directory`.
    Process(const std::string &directory, const std::vector<std::string> &command,
            const Options &options);
    ~Process(); // kills it if need be

    bool running();
    int wait(); // exit status, or 128 + signal; kills it (and answers -1) after 20 s
    void signal(int number);
    std::string errors() const;
    std::string output() const;
    pid_t pid() const { return pid_; }

    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

  private:
    void reap(int status);
    std::string output_path_, errors_path_;
    pid_t pid_ = -1;
    bool ended_ = false;
    int result_ = -1;
};

// Whether a program listens at a local socket: its file is there before that.
bool is_listening(const std::string &path);

} // namespace zeb::test
