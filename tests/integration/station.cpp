#include "station.h"

#include <filesystem>
#include <sstream>

namespace zeb::test {

using nlohmann::json;

namespace {

const std::string k_bin = built_path("bin/");

} // namespace

Station::Station() {
    std::filesystem::create_directories(dir_ / "etc");
    configure("");
    ready_ = start_servers();
}

bool Station::start_servers() {
    server_.reset();
    serial_.reset();
    server_ = run({"zebmsgd"});
    serial_ = run({"zebseriald"});
    return wait_until([this] {
        return is_listening(dir_ / ".mainstatus") && is_listening(dir_ / ".serialdsocket");
    });
}

void Station::configure(const std::string &lines) {
    write_file(dir_ / "etc/zeb.conf",
               "Port;gps;Device," + (dir_ / "receiver") + "\nPort;gps;MaxBuffer,1048570\n" +
                   "Port;flow;Device," + (dir_ / "pump") + "\n" +
                   "gps;Tags,position\nwaypoint;Latitude,40\nwaypoint;Longitude,-105\n" + lines);
}

std::unique_ptr<Process> Station::run(std::vector<std::string> command, Environment environment) {
    command[0] = k_bin + command[0];
    return start(command, std::move(environment));
}

std::unique_ptr<Process> Station::shell(const std::string &line) {
    return start({"/bin/sh", "-c", "PATH=" + k_bin + ":$PATH; " + line}, {});
}

std::unique_ptr<Process> Station::start(const std::vector<std::string> &command,
                                        Environment environment) {
    Process::Options options;
    options.environment = std::move(environment);
    options.environment.insert(options.environment.end(), environment_.begin(), environment_.end());
    options.before = before_;
    options.environment.emplace_back("ZEB2RUN", dir_.path());
    options.environment.emplace_back("ZEB2", dir_.path());
    const std::string own = dir_ / std::to_string(++count_);
    std::filesystem::create_directory(own);
    return std::make_unique<Process>(own, command, options);
}

std::string Station::ask(std::vector<std::string> arguments, int expected) {
    arguments.insert(arguments.begin(), "zebctl");
    const auto tool = run(arguments);
    const int status = tool->wait();
    EXPECT_TRUE(status == expected || expected == k_any) << status << ": " << tool->errors();
    errors_ = tool->errors();
    return tool->output();
}

std::vector<json> Station::watch(const std::string &type, int count) {
    return lines_of(ask(
        {"watch", "--json", "--type", type, "--count", std::to_string(count), "--timeout", "20"}));
}

std::vector<std::string> Station::clients() {
    std::vector<std::string> names;
    const json status = json::parse(ask({"status", "--json"}));
    for (const json &client : status["clients"])
        if (client["open"] == true)
            names.push_back(client["name"]);
    return names;
}

bool Station::wait_for_clients(size_t number) {
    return wait_until([&] { return clients().size() == number; });
}

bool Station::wait_for_daemons(size_t number) {
    return wait_until([&] { return json::parse(ask({"instruments", "--json"})).size() == number; });
}

bool Station::says(const Process &process, const std::string &text) {
    return wait_until([&] { return process.errors().find(text) != std::string::npos; });
}

std::vector<json> lines_of(const std::string &text) {
    std::vector<json> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(json::parse(line));
    return lines;
}

} // namespace zeb::test
