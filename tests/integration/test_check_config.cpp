// --check-config and --print-config of every server and daemon, as a shell has them.

#include "process.h"
#include "support.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

using namespace zeb::test;
using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class ProgramTest : public testing::Test {
  protected:
    ProgramTest() { std::filesystem::create_directories(dir_ / "etc"); }

    // Runs a program to its end in a directory without any server.
    int run(std::vector<std::string> command, Process::Options options = {}) {
        command[0] = built_path("bin/" + command[0]);
        options.environment.emplace_back("ZEB2", dir_.path());
        options.environment.emplace_back("ZEB2RUN", dir_.path());
        Process process(dir_.path(), command, options);
        const int status = process.wait();
        output_ = process.output();
        errors_ = process.errors();
        return status;
    }
    int check(const std::string &program, const std::string &text) {
        write_file(file_, text);
        return run({program, "--check-config"});
    }
    std::string at(int line) const { return file_ + ":" + std::to_string(line) + ": "; }

    TempDir dir_;
    const std::string file_ = dir_ / "etc/zeb.conf";
    std::string output_, errors_;
};

class CheckConfig : public ProgramTest, public testing::WithParamInterface<std::string> {};

const std::string k_place = "waypoint;Latitude,40\nwaypoint;Longitude,-105\n";

// ---- Every program ----

TEST_P(CheckConfig, AGoodFileIsGoodAndNothingIsOpened) {
    EXPECT_EQ(check(GetParam(), k_place + "neph;Prot,x\n"), 0) << output_;
    EXPECT_EQ(output_, file_ + ": good for " + GetParam() + "\n");
    EXPECT_EQ(errors_, "");
    size_t sockets = 0;
    for (const auto &entry : std::filesystem::directory_iterator(dir_.path()))
        sockets += entry.is_socket() ? 1 : 0;
    EXPECT_EQ(sockets, 0u);
}

TEST_P(CheckConfig, TheSampleIsGood) {
    EXPECT_EQ(run({GetParam(), "--check-config", "--config", source_path("etc/zeb.conf")}), 0)
        << output_;
}

TEST_P(CheckConfig, AFileThatCannotBeReadIsAFailure) {
    EXPECT_EQ(run({GetParam(), "--check-config", "--config", dir_ / "absent"}), 1);
    EXPECT_THAT(errors_, HasSubstr(dir_ / "absent" + ": No such file"));
    EXPECT_EQ(run({GetParam(), "--check-config", "--config", dir_.path()}), 1);
    EXPECT_THAT(errors_, HasSubstr("Is a directory"));
    EXPECT_EQ(output_, "");
}

TEST_P(CheckConfig, ALineThatSetsNothingIsToldWithItsNumber) {
    EXPECT_EQ(check(GetParam(), k_place + "neph;Port =neph\n"), 1);
    EXPECT_THAT(output_, HasSubstr(at(3) + "no comma"));
}

TEST_P(CheckConfig, WithoutTheStationsFileServersHaveDefaults) {
    const bool server = GetParam() == "zebmsgd" || GetParam() == "zebseriald";
    EXPECT_EQ(run({GetParam(), "--check-config"}), server ? 0 : 1);
    EXPECT_THAT(server ? output_ : errors_, HasSubstr(file_));
}

TEST_P(CheckConfig, OneThingAtATime) {
    EXPECT_EQ(run({GetParam(), "--check-config", "--print-config"}), 2);
    EXPECT_EQ(run({GetParam(), "--json"}), 2);
}

TEST_P(CheckConfig, EveryKeyIsShownWithItsValueAndOrigin) {
    write_file(file_, k_place + "Server;TCP;Port,8567\n");
    ASSERT_EQ(run({GetParam(), "--print-config", "--json"}), 0) << errors_;
    const json shown = json::parse(output_);
    EXPECT_EQ(shown["program"], GetParam());
    EXPECT_EQ(shown["file"], file_);
    ASSERT_GT(shown["keys"].size(), 5u);
    for (const json &key : shown["keys"]) {
        EXPECT_GT(key["meaning"].get<std::string>().size(), 3u);
        EXPECT_TRUE(key["value"].is_string() || key["value"].is_null());
        EXPECT_EQ(key["source"] == "file", key.contains("line")) << key;
    }
    ASSERT_EQ(run({GetParam(), "--print-config"}), 0);
    EXPECT_EQ(occurrences(output_, "\n"), shown["keys"].size());
    for (const json &key : shown["keys"])
        EXPECT_THAT(output_, HasSubstr(key["key"].get<std::string>() + " "));
}

INSTANTIATE_TEST_SUITE_P(Programs, CheckConfig,
                         testing::Values("zebmsgd", "zebseriald", "zeblogd", "gps", "flow",
                                         "waypoint"));

// ---- What is wrong ----

class BadConfig : public ProgramTest {};

TEST_F(BadConfig, IsTold) {
    struct Case {
        const char *program, *text, *finding;
    };
    const Case cases[] = {
        {"zebmsgd", "Server;TCP;Prot,1\n",
         "Server;TCP;Prot: unknown key; did you mean Server;TCP;Port?"},
        {"zebmsgd", "Sever;TCP;Port,1\n",
         "Sever;TCP;Port: unknown section; did you mean Server;TCP;Port?"},
        {"zebmsgd", "Server;TCP;Port,http\n",
         "Server;TCP;Port: \"http\" is not a whole number from 0 to 65535"},
        {"zebmsgd", "Server;TCP;Allow,10.0.0.0/33\n",
         "Server;TCP;Allow: \"10.0.0.0/33\" is not a numeric address"},
        {"zebmsgd", "Server;Limit;Clients,1\nServer;Limit;Clients,2\n",
         "'Server;Limit;Clients' is overwritten by line 2"},
        {"zebseriald", "Port;A;Device,ttyS0\nPort;A;Buad,9600\n",
         "Port;A;Buad: unknown key; did you mean Port;A;Baud?"},
        {"zebseriald", "Port;A;Baud,9600\n", "Port;A;Device: \"\" is not the path of a device"},
        {"zebseriald", "Port;A;Device,ttyS0\nPort;A;Baud,9601\n",
         "Port;A;Baud: \"9601\" is not a standard baud rate"},
        {"zebseriald", "Serial;Limit;BufferBytes,100\nPort;A;Device,ttyS0\nPort;A;MaxEcho,101\n",
         "Port;A;MaxEcho: \"101\" is not a whole number from 1 to 100"},
        {"zeblogd", "Log;Interval;Switch,1\n", "Log;Interval;Switch: \"1\" is not 0 (off) or 5 s"},
        {"zeblogd", "Disk;LogDri,/data\n", "Disk;LogDri: unknown key; did you mean Disk;LogDir?"},
        {"gps", "gps;Port,ttyS0\n", "gps;Port: \"ttyS0\" is not a port"},
        {"gps", "gps;Colour,red\n", "gps;Colour: unknown key"},
        {"flow", "flow;Timeout,61\n",
         "flow;Timeout: \"61\" is not a number of seconds from 0.01 to 60"},
        {"flow", "flow;Setpoint,21\n", "flow;Setpoint: \"21\" is not within flow;MaxFlow"},
        {"flow", "flow;analog;Q_flow;chan,Flow\n",
         "flow;analog;Q_flow;chan: \"Flow\" is not flow, pressure"},
        {"waypoint", "waypoint;Latitude,40\n",
         "waypoint;Longitude: no way point: set waypoint;Latitude and"},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(check(one.program, one.text), 1) << one.text;
        EXPECT_THAT(output_, HasSubstr(one.finding));
        EXPECT_THAT(output_, StartsWith(file_ + ":"));
        EXPECT_EQ(occurrences(output_, "\n"), 1u) << output_;
    }
}

// ---- What is shown ----

class PrintConfig : public ProgramTest {
  protected:
    json key(const std::string &path) {
        const json shown = json::parse(output_);
        for (const json &one : shown["keys"])
            if (one["key"] == path)
                return one;
        return nullptr;
    }
};

TEST_F(PrintConfig, EachSourceIsNamed) {
    write_file(file_, "# a remark\npump;Address,7\nDisk;StationID,brw\n");
    ASSERT_EQ(run({"flow", "--name", "pump", "--print-config", "--json"},
                  {.environment = {{"ZEB2SERVER", "hub"}, {"DB", "/data"}}}),
              0)
        << errors_;
    EXPECT_EQ(key("pump;Address")["value"], "7");
    EXPECT_EQ(key("pump;Address")["line"], 2);
    EXPECT_EQ(key("pump;Timeout")["source"], "default");
    EXPECT_EQ(key("pump;Port")["value"], "=pump");
    EXPECT_EQ(key("pump;Port")["source"], "command line");
    EXPECT_EQ(key("RemoteHost")["value"], "hub");
    EXPECT_EQ(key("RemoteHost")["variable"], "ZEB2SERVER");
    EXPECT_EQ(key("Disk;LogDir")["value"], "/data/stn/brw/log");
    EXPECT_EQ(key("Disk;LogDir")["variable"], "DB");
    EXPECT_EQ(key("pump;analog;Q_pump;chan")["value"], "flow");
    EXPECT_EQ(key("pump;analog;Q_pump;chan")["source"], "default");
    EXPECT_EQ(key("pump;PID;I;max")["value"], "33.333333");
}

TEST_F(PrintConfig, TextIsAligned) {
    write_file(file_, "Log;Interval;Flush,30\n");
    ASSERT_EQ(run({"zeblogd", "--print-config"}, {.environment = {{"DB", ""}}}), 0);
    EXPECT_THAT(output_, HasSubstr("Log;Interval;Average  1:00"));
    EXPECT_THAT(output_, HasSubstr("Log;Interval;Flush    30 "));
    EXPECT_THAT(output_, HasSubstr("  " + file_ + ":1\n"));
    EXPECT_THAT(output_, HasSubstr("zeblogd;Tags          -  "));
}

TEST_F(PrintConfig, ABadValueIsToldAndTheDefaultShown) {
    write_file(file_, "Server;TCP;Port,http\n");
    EXPECT_EQ(run({"zebmsgd", "--print-config", "--json"}), 1);
    EXPECT_THAT(errors_, HasSubstr("Server;TCP;Port: \"http\" is not a whole number"));
    EXPECT_EQ(key("Server;TCP;Port")["value"], "0");
    EXPECT_EQ(key("Server;TCP;Port")["source"], "default");
}

TEST_F(PrintConfig, EveryPortIsShown) {
    write_file(file_, "Port;A;Device,ttyS0\nPort;B;Device,ttyS1\nSerial;Limit;BufferBytes,1000\n");
    ASSERT_EQ(run({"zebseriald", "--print-config", "--json"}), 0) << errors_;
    EXPECT_EQ(key("Port;A;Device")["line"], 1);
    EXPECT_EQ(key("Port;B;Baud")["value"], "9600");
    EXPECT_EQ(key("Port;B;MaxBuffer")["value"], "1000");
}

TEST_F(PrintConfig, WhatCannotBePrintedIsAFailure) {
    const std::string print = built_path("bin/zebmsgd") + " --print-config";
    Process process(dir_.path(), {"/bin/sh", "-c", print + " > /dev/full"},
                    {.environment = {{"ZEB2", dir_.path()}}});
    EXPECT_EQ(process.wait(), 1);
    EXPECT_THAT(process.errors(), HasSubstr("standard output: No space left on device"));
}

} // namespace
