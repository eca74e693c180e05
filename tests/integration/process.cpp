#include "process.h"

#include "support.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zeb::test {
namespace {

int create(const std::string &path) {
    return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
}

void use_terminal(const std::string &path) {
    setsid(); // the first terminal that a session opens controls it
    const int terminal = open(path.c_str(), O_RDWR | O_CLOEXEC);
    dup2(terminal, STDIN_FILENO);
    dup2(terminal, STDOUT_FILENO);
}

} // namespace

Process::Process(const std::string &directory, const std::vector<std::string> &command,
                 const Options &options) {
    static int count = 0;
    const std::string stem = directory + "/process" + std::to_string(++count);
    output_path_ = stem + ".out";
    errors_path_ = stem + ".err";
    std::vector<char *> arguments;
    for (const std::string &word : command)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    const int output = create(output_path_);
    const int errors = create(errors_path_);
    pid_ = fork();
    if (pid_ < 0)
        throw std::runtime_error("cannot fork");
    if (pid_ == 0) {
        dup2(output, STDOUT_FILENO);
        dup2(errors, STDERR_FILENO);
        if (options.input >= 0)
            dup2(options.input, STDIN_FILENO);
        if (!options.terminal.empty())
            use_terminal(options.terminal);
        // What support.cpp says of threads that are cancelled holds for the programs under test too.
        setenv("ASAN_OPTIONS", "use_sigaltstack=0", 0);
        for (const auto &[name, value] : options.environment)
            setenv(name.c_str(), value.c_str(), 1);
        if (options.descriptors != 0) {
            const rlimit limit{options.descriptors, options.descriptors};
            setrlimit(RLIMIT_NOFILE, &limit);
        }
        if (options.before)
            options.before();
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    close(output);
    close(errors);
}

Process::~Process() {
#ifdef ZEB_COVERAGE
    // Who is killed keeps no counts.
    signal(SIGTERM);
    wait_until([this] { return !running(); }, 5);
#endif
    if (running()) {
        signal(SIGKILL);
        wait();
    }
}

void Process::reap(int status) {
    ended_ = true;
    result_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool Process::running() {
    int status = 0;
    if (!ended_ && waitpid(pid_, &status, WNOHANG) == pid_)
        reap(status);
    return !ended_;
}

int Process::wait() {
    if (wait_until([this] { return !running(); }))
        return result_;
    signal(SIGKILL);
    int status = 0;
    waitpid(pid_, &status, 0);
    reap(status);
    return -1;
}

void Process::signal(int number) {
    if (!ended_)
        kill(pid_, number);
}

std::string Process::errors() const {
    return read_file(errors_path_);
}
std::string Process::output() const {
    return read_file(output_path_);
}

bool is_listening(const std::string &path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const bool answered = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    close(fd);
    return answered;
}

} // namespace zeb::test
