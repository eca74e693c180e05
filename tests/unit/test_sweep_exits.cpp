// What the library may call: each function of the system is one that the sweeps let fail, or one
// that is left out for a stated reason; and only the places that are settled can end the process.
#include "fail_calls.h"

#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

using namespace zeb::test;

namespace {

// The names that each source of the library calls and that lie outside it.
std::map<std::string, std::set<std::string>> calls_by_source() {
    struct Close {
        void operator()(FILE *stream) const { pclose(stream); }
    };
    const std::unique_ptr<FILE, Close> listing(popen("nm -A " ZEB_STATIC_LIBRARY, "r"));
    std::map<std::string, std::set<std::string>> calls;
    std::set<std::string> defined;
    char line[1024];
    while (listing != nullptr && fgets(line, sizeof line, listing.get()) != nullptr) {
        // archive:source.cpp.o:[address] kind name
        std::istringstream words(line);
        std::string place, kind, name, word;
        words >> place;
        std::vector<std::string> rest;
        while (words >> word)
            rest.push_back(word);
        if (rest.size() < 2)
            continue;
        name = rest[rest.size() - 1];
        kind = rest[rest.size() - 2];
        const size_t start = place.find(".a:") + 3;
        const std::string source = place.substr(start, place.find(".o:") - start);
        if (kind == "U")
            calls[source].insert(name);
        else
            defined.insert(name);
    }
    for (auto &[source, names] : calls)
        std::erase_if(names, [&](const std::string &name) { return defined.contains(name); });
    return calls;
}

// Functions of the compiler and of its checkers.
bool is_of_compiler(const std::string &name) {
    for (const char *start : {"__asan_",
                              "__ubsan_",
                              "__tsan_",
                              "__sanitizer_",
                              "_Z",
                              "_Unwind_",
                              "__gxx_",
                              "__cxa_",
                              "__stack_chk",
                              "_GLOBAL_OFFSET_TABLE_",
                              "__divdi3",
                              "__moddi3",
                              "__divmoddi4",
                              "__udivdi3",
                              "__umoddi3",
                              "__udivmoddi4",
                              "___tls_get_addr",
                              "__tls_get_addr",
                              "__gcov",
                              "__llvm"})
        if (name.rfind(start, 0) == 0)
            return true;
    return false;
}

// Where file offsets have 64 bits, a 32-bit host says so.
std::string plain(const std::string &name) {
    const bool large = name.size() > 2 && name.compare(name.size() - 2, 2, "64") == 0;
    return large ? name.substr(0, name.size() - 2) : name;
}

// Calls that cannot fail, or whose failure is nobody's to meet.
const std::map<std::string, std::set<std::string>> k_left_out = {
    {"allocation, failed as one", {"malloc", "calloc", "realloc", "strdup", "free"}},
    {"only computes",
     {"__ctype_b_loc",
      "__isoc99_sscanf",
      "__isoc23_strtol",
      "__isoc23_strtoll",
      "__isoc23_sscanf",
      "atof",
      "atoi",
      "bsearch",
      "htonl",
      "htons",
      "ntohl",
      "ntohs",
      "fmod",
      "gmtime_r",
      "isspace",
      "log10",
      "memcmp",
      "memcpy",
      "memmove",
      "memrchr",
      "memset",
      "pow",
      "round",
      "snprintf",
      "sqrt",
      "stpcpy",
      "strchr",
      "strcmp",
      "strcpy",
      "strcspn",
      "strerror",
      "strerrordesc_np",
      "strlen",
      "strncmp",
      "strnlen",
      "strrchr",
      "strspn",
      "strstr",
      "strtod",
      "strtol",
      "strtoll",
      "timegm",
      "tolower",
      "toupper",
      "vsnprintf",
      "memchr",
      "strcat",
      "floor",
      "exp10",
      "strncpy",
      "ceil",
      "lround"}},
    {"reads what is in memory", {"__errno_location", "__h_errno_location", "getenv", "nl_langinfo", "time"}},
    {"clocks that always go", {"clock_gettime", "gettimeofday"}},
    {"streams of the caller, and the diagnostics themselves",
     {"__overflow", "fclose", "ferror", "fflush", "flockfile", "fprintf", "fputc", "fputs", "funlockfile",
      "fwrite", "fwrite_unlocked", "perror", "putc", "putc_unlocked", "stderr", "stdout",
      "vfprintf"}},
    {"cannot fail with the arguments that they get",
     {"pthread_cond_broadcast", "pthread_setcancelstate", "pthread_setcanceltype",
      "pthread_sigmask", "pthread_testcancel", "sigaddset", "sigdelset", "sigemptyset",
      "sigfillset", "sigprocmask"}},
    {"ends without waiting, and nobody asks how", {"sigtimedwait"}},
    {"in a child that has nothing else to do", {"execv", "execvp", "writev"}},
    {"the start of a daemon", {"setsid"}},
    {"ends the process, see below", {"exit", "_exit", "raise"}},
};

bool is_left_out(const std::string &name) {
    return std::any_of(k_left_out.begin(), k_left_out.end(),
                       [&](const auto &group) { return group.second.contains(name); });
}

bool can_fail(const std::string &name) {
    for (size_t i = 0; i < k_calls; ++i)
        if (name == name_of(static_cast<Call>(i)))
            return true;
    return false;
}

} // namespace

TEST(SweepExits, EveryCallOfTheLibraryCanFailOrIsLeftOutForAReason) {
    const auto calls = calls_by_source();
    ASSERT_GT(calls.size(), 30U) << "the library cannot be listed";
    for (const auto &[source, names] : calls)
        for (const std::string &name : names)
            EXPECT_TRUE(is_of_compiler(name) || can_fail(plain(name)) || is_left_out(plain(name)))
                << source << " calls " << name << ": let it fail in fail_calls.h";
}

TEST(SweepExits, OnlyTheSettledPlacesEndTheProcess) {
    const std::set<std::string> ending = {
        "exit", "_exit",  "_Exit",        "quick_exit",    "abort",           "raise",
        "kill", "killpg", "pthread_exit", "__assert_fail", "_ZSt9terminatev", "__fortify_fail"};
    std::map<std::string, std::set<std::string>> found;
    for (const auto &[source, names] : calls_by_source())
        for (const std::string &name : names)
            if (ending.contains(name))
                found[source].insert(name);
    const std::map<std::string, std::set<std::string>> settled = {
        {"dispatch.cpp", {"_exit"}},        // a wait that can only deadlock
        {"netmsg.cpp", {"exit"}},           // no memory for a packet
        {"netpack_message.cpp", {"exit"}},  // no memory for a message
        {"prgpipe.cpp", {"_exit", "kill"}}, // a child without a program; the end of a child
        {"sfmt.cpp", {"raise"}},            // a damaged text, for its core
        {"util_signal.cpp", {"exit"}},      // a daemon that asks for it, at SIGTERM
    };
    EXPECT_EQ(found, settled);
}
