// station.h - a private station for tests of whole programs: the servers, a configuration, daemons
// started and asked as from a shell.
#pragma once

#include "process.h"
#include "support.h"

#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace zeb::test {

class Station : public ::testing::Test {
  protected:
    Station();

    // The station's configuration: two lines called gps and flow, at receiver and pump in its
    // directory, and what is given.
    void configure(const std::string &lines);

    // Starts the servers, again if they ran; true once both are listened to.
    bool start_servers();

    using Environment = std::vector<std::pair<std::string, std::string>>;
    // Starts a program of the station in its own directory.
    std::unique_ptr<Process> run(std::vector<std::string> command, Environment environment = {});
    std::unique_ptr<Process> shell(const std::string &line);

    static constexpr int k_any = -2; // status that is not looked at
    // Runs zebctl to its end and returns what it printed; what it said is in errors_.
    std::string ask(std::vector<std::string> arguments, int expected = 0);
    // The next so many messages of a type, as `zebctl watch --json` shows them.
    std::vector<nlohmann::json> watch(const std::string &type, int count);

    std::vector<std::string> clients();
    // True once so many programs are connected.
    bool wait_for_clients(size_t number);
    // True once so many daemons are ready: they announce themselves when all their links are open.
    bool wait_for_daemons(size_t number);
    // Whether a program says so on standard error, within a while.
    static bool says(const Process &process, const std::string &text);

    TempDir dir_;
    Environment environment_;      // of every program from then on
    std::function<void()> before_; // done in every new process from then on
    std::unique_ptr<Process> server_, serial_;
    bool ready_ = false;
    std::string errors_;

  private:
    std::unique_ptr<Process> start(const std::vector<std::string> &command,
                                   Environment environment);
    int count_ = 0;
};

// Every object of a text of JSON lines.
std::vector<nlohmann::json> lines_of(const std::string &text);

} // namespace zeb::test
