// io_station.h - a message server and programs that share variables through it, each a process.
#pragma once

#include "process.h"
#include "support.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace zeb::test {

class IoStation : public testing::Test {
  protected:
    IoStation() { start_server(); }

    void start_server() {
        server_ = start({built_path("bin/zebmsgd")});
        ready_ = wait_until([this] { return std::filesystem::exists(dir_ / ".mainstatus"); });
    }
    // A program with what it prints in files of its own.
    std::unique_ptr<Process> start(const std::vector<std::string> &command) {
        const std::string own = dir_ / std::to_string(++count_);
        std::filesystem::create_directory(own);
        Process::Options options;
        options.environment = {{"ZEB2RUN", dir_.path()}, {"ZEB2", dir_.path()}};
        return std::make_unique<Process>(own, command, options);
    }
    // io_peer.cpp says what the words mean.
    std::unique_ptr<Process> peer(std::vector<std::string> words) {
        words.insert(words.begin(), built_path("tests/integration/io_peer"));
        return start(words);
    }
    // Waits for a line of its output, behind so many bytes of it.
    static bool prints(const Process &process, const std::string &line, size_t behind = 0) {
        return wait_until([&] {
            return ("\n" + process.output()).find("\n" + line + "\n", behind) != std::string::npos;
        });
    }
    static void stop(Process &process) {
        process.signal(SIGTERM);
        EXPECT_EQ(process.wait(), 0) << process.errors();
    }

    TempDir dir_;
    std::unique_ptr<Process> server_;
    bool ready_ = false;
    int count_ = 0;
};

} // namespace zeb::test
