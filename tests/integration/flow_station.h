// flow_station.h - a station with a simulated flow controller.
#pragma once

#include "station.h"

#include <csignal>
#include <filesystem>

namespace zeb::test {

class Flow : public Station {
  protected:
    // Time enough for an answer on a machine that is busy with other tests.
    Flow() { configure("flow;Interval,0.05\nflow;Timeout,3\n"); }

    // The instrument, its flow at its valve within milliseconds and without noise.
    std::unique_ptr<Process> pump(std::vector<std::string> options = {}) {
        std::vector<std::string> command = {
            "zeb-flow-sim", "--link", dir_ / "pump", "--noise", "0", "--time-constant", "0.001"};
        command.insert(command.end(), options.begin(), options.end());
        auto process = run(command);
        EXPECT_TRUE(wait_until([this] { return std::filesystem::exists(dir_ / "pump"); }));
        return process;
    }

    void unplug(Process &instrument) {
        instrument.signal(SIGKILL);
        instrument.wait();
    }

    void order(const std::vector<std::string> &fields) {
        std::vector<std::string> command = {"send", "MSG_GENERICPID_SET"};
        command.insert(command.end(), fields.begin(), fields.end());
        ask(command);
    }

    // Waits for a record of a type whose field has a value.
    bool comes(const std::string &type, const std::string &field, const nlohmann::json &value) {
        return wait_until([&] {
            const auto messages = watch(type, 1);
            return messages.size() == 1 && messages[0]["record"][field] == value;
        });
    }
};

} // namespace zeb::test
