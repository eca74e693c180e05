// test_sweep_session.h - whole lives of a program of the station, from its start to its end, as
// the sweeps run them with one call failing.
#pragma once

#include "fail_calls.h"

#include <atomic>
#include <string>

namespace zeb::test {

// What a session tells whoever watches it from another process; it lies in shared memory.
struct SessionReport {
    std::atomic<const char *> step = "";        // what it does just now
    std::atomic<const char *> failed = nullptr; // the first step that failed
    std::atomic<int> lines = 0;                 // handed to the log
    std::atomic<int> kept = 0;                  // of these, flushed before anything failed
};

// The number of a session's first line tells its lines from those of others.
using Session = void (*)(SessionReport *report, int first_line);

struct Scenario {
    const char *name;
    Session run;
    bool logs; // into the directory of the configuration
};

// The scenarios by name, each in a process of its own:
// - station: one loop serves a message link, three serial links and the log;
// - threads: each link has its own thread, the message server is reached by TCP;
// - child: a program started with pipes;
// - records: configuration, tables and numerics, without links.
extern const Scenario k_station, k_threads, k_child, k_records;

inline constexpr char k_configured_name[] = "X1";
inline constexpr char k_configured_station[] = "ABC";
inline constexpr long k_first_time = 1400000000; // of line 0 (s since 1970)

// The configuration file of the sessions.
std::string session_configuration(const std::string &log_directory, int port);

} // namespace zeb::test
