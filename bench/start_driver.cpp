// start_driver - what the library adds to the start of a program: three programs that do nothing
// are started in turn, one in C alone, one in C++ alone, and one in C that starts and ends the
// library.
//   --starts N   of each (default 200)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <vector>

extern char **environ;

namespace {

struct Program {
    const char *what;
    std::string path;
    std::vector<double> elapsed = {}, processor = {}; // ms
};

double milliseconds(const timeval &time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

bool start(Program &program) {
    char *arguments[] = {program.path.data(), nullptr};
    const auto begin = std::chrono::steady_clock::now();
    pid_t pid;
    if (posix_spawn(&pid, program.path.c_str(), nullptr, nullptr, arguments, environ) != 0)
        return false;
    int status;
    rusage usage;
    if (wait4(pid, &status, 0, &usage) != pid || status != 0)
        return false;
    const std::chrono::duration<double, std::milli> elapsed =
        std::chrono::steady_clock::now() - begin;
    program.elapsed.push_back(elapsed.count());
    program.processor.push_back(milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime));
    return true;
}

double part(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(share * static_cast<double>(values.size() - 1))];
}

} // namespace

int main(int argc, char **argv) {
    const int starts = argc == 3 && strcmp(argv[1], "--starts") == 0 ? atoi(argv[2]) : 200;
    if (starts <= 0 || (argc != 1 && argc != 3)) {
        fprintf(stderr, "usage: start_driver [--starts N]\n");
        return 2;
    }
    Program programs[] = {{"C alone", ZEB_BENCH_PLAIN},
                          {"C++ alone", ZEB_BENCH_PLAIN_CXX},
                          {"with the library", ZEB_BENCH_LINKED}};
    for (int i = 0; i < starts; ++i)
        for (Program &program : programs)
            if (!start(program)) {
                fprintf(stderr, "start_driver: %s failed\n", program.path.c_str());
                return 1;
            }
    printf("%d starts of each   ms: median  p90  processor\n", starts);
    for (const Program &program : programs)
        printf("%-16s %16.2f %5.2f %6.2f\n", program.what, part(program.elapsed, 0.5),
               part(program.elapsed, 0.9), part(program.processor, 0.5));
    return 0;
}
