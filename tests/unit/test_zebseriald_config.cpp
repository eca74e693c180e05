#include "zebseriald/config.h"

#include "support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

using testing::HasSubstr;
using zebseriald::Config;
using zebseriald::read_config;

namespace {

struct Tree {
    CONF_node *root = CONF_alloc();
    ~Tree() { CONF_free(root); }
    Tree &set(const std::string &key, const std::string &value) {
        CONF_set(root, key.c_str(), value.c_str());
        return *this;
    }
};

TEST(ZebserialdConfig, WithoutKeysEverythingHasItsDefault) {
    const auto config = read_config(nullptr);
    ASSERT_TRUE(config);
    EXPECT_EQ(config->access.mode, 0660u);
    EXPECT_EQ(config->access.group, "");
    EXPECT_EQ(config->heartbeat_timeout, 30);
    EXPECT_EQ(config->handshake_timeout, 10);
    EXPECT_EQ(config->repeater_directory, "/var/log/zeb");
    EXPECT_EQ(config->limits.clients, 256u);
    EXPECT_EQ(config->limits.buffer_bytes, 1048570u);
    EXPECT_EQ(config->limits.output_bytes, 1048576u);
    EXPECT_EQ(config->limits.queue_bytes, 4194304u);
    EXPECT_EQ(config->limits.requests, 256u);
    EXPECT_EQ(config->limits.repeaters, 8u);
    EXPECT_TRUE(config->ports.empty());
}

TEST(ZebserialdConfig, EveryKeyOfTheServerIsRead) {
    Tree tree;
    tree.set("Serial;Socket;Mode", "0666").set("Serial;Socket;Group", "dialout");
    tree.set("Serial;Heartbeat;Timeout", "1.5").set("Serial;Handshake;Timeout", "0.5");
    tree.set("Serial;Repeater;Directory", "/data").set("Serial;Limit;Clients", "3");
    tree.set("Serial;Limit;BufferBytes", "100").set("Serial;Limit;OutputBytes", "5");
    tree.set("Serial;Limit;QueueBytes", "2097152").set("Serial;Limit;Requests", "7");
    tree.set("Serial;Limit;Repeaters", "0");
    const auto config = read_config(tree.root);
    ASSERT_TRUE(config);
    EXPECT_EQ(config->access.mode, 0666u);
    EXPECT_EQ(config->access.group, "dialout");
    EXPECT_EQ(config->heartbeat_timeout, 1.5);
    EXPECT_EQ(config->handshake_timeout, 0.5);
    EXPECT_EQ(config->repeater_directory, "/data");
    EXPECT_EQ(config->limits.clients, 3u);
    EXPECT_EQ(config->limits.buffer_bytes, 100u);
    EXPECT_EQ(config->limits.output_bytes, 5u);
    EXPECT_EQ(config->limits.queue_bytes, 2097152u);
    EXPECT_EQ(config->limits.requests, 7u);
    EXPECT_EQ(config->limits.repeaters, 0u);
}

TEST(ZebserialdConfig, APortHasItsDeviceAndTheStandardLine) {
    Tree tree;
    tree.set("Port;GPS;Device", "ttyS3");
    const auto config = read_config(tree.root);
    ASSERT_TRUE(config);
    ASSERT_EQ(config->ports.size(), 1u);
    const auto &port = config->ports[0];
    EXPECT_EQ(port.name, "GPS");
    EXPECT_EQ(port.device, "/dev/ttyS3");
    EXPECT_EQ(zebseriald::describe(port.line), "9600 baud, 8n1");
    EXPECT_EQ(port.buffer_size, 65536u);
    EXPECT_EQ(port.echo_size, 16384u);
}

TEST(ZebserialdConfig, EveryKeyOfAPortIsRead) {
    Tree tree;
    tree.set("Port;A;Device", "/x/y").set("Port;A;Baud", "57600").set("Port;A;Bits", "7");
    tree.set("Port;A;Parity", "Even").set("Port;A;StopBits", "2");
    tree.set("Port;A;FlowControl", "hardware").set("Port;A;MaxBuffer", "1000");
    tree.set("Port;A;MaxEcho", "10").set("Port;B;Device", "ttyS1").set("Port;B;Parity", "odd");
    tree.set("Port;B;FlowControl", "software");
    const auto config = read_config(tree.root);
    ASSERT_TRUE(config);
    ASSERT_EQ(config->ports.size(), 2u);
    EXPECT_EQ(config->ports[0].device, "/x/y");
    EXPECT_EQ(zebseriald::describe(config->ports[0].line),
              "57600 baud, 7e2, hardware flow control");
    EXPECT_EQ(config->ports[0].buffer_size, 1000u);
    EXPECT_EQ(config->ports[0].echo_size, 10u);
    EXPECT_EQ(zebseriald::describe(config->ports[1].line), "9600 baud, 8o1, software flow control");
}

// The keys of the sample configuration with their values, each shown behind a "#".
std::map<std::string, std::string> sample_keys() {
    std::istringstream sample(zeb::test::read_file(zeb::test::source_path("etc/zeb.conf")));
    std::map<std::string, std::string> keys;
    for (std::string line; std::getline(sample, line);)
        if (line.rfind("#Serial;", 0) == 0 || line.rfind("#Port;GPS;", 0) == 0)
            keys[line.substr(1, line.find(',') - 1)] = line.substr(line.find(',') + 1);
    return keys;
}

TEST(ZebserialdConfig, TheSampleConfigurationShowsEveryKeyAtItsDefault) {
    const Config standard;
    const zebseriald::PortConfig port;
    const std::map<std::string, std::string> expected = {
        {"Serial;Socket;Mode", "660"},
        {"Serial;Socket;Group", ""},
        {"Serial;Heartbeat;Timeout", "30"},
        {"Serial;Handshake;Timeout", "10"},
        {"Serial;Repeater;Directory", standard.repeater_directory},
        {"Serial;Limit;Clients", std::to_string(standard.limits.clients)},
        {"Serial;Limit;BufferBytes", std::to_string(standard.limits.buffer_bytes)},
        {"Serial;Limit;OutputBytes", std::to_string(standard.limits.output_bytes)},
        {"Serial;Limit;QueueBytes", std::to_string(standard.limits.queue_bytes)},
        {"Serial;Limit;Requests", std::to_string(standard.limits.requests)},
        {"Serial;Limit;Repeaters", std::to_string(standard.limits.repeaters)},
        {"Port;GPS;Device", "/dev/ttyS0"}, // there is no default
        {"Port;GPS;Baud", std::to_string(port.line.baud)},
        {"Port;GPS;Bits", "8"},
        {"Port;GPS;Parity", "none"},
        {"Port;GPS;StopBits", "1"},
        {"Port;GPS;FlowControl", "none"},
        {"Port;GPS;MaxBuffer", std::to_string(port.buffer_size)},
        {"Port;GPS;MaxEcho", std::to_string(port.echo_size)}};
    EXPECT_EQ(sample_keys(), expected);
}

TEST(ZebserialdConfig, TheShownLinesOfTheSampleAreAccepted) {
    Tree tree;
    for (const auto &[key, value] : sample_keys())
        tree.set(key, value);
    const auto config = read_config(tree.root);
    ASSERT_TRUE(config);
    EXPECT_EQ(zebseriald::describe(config->ports.at(0).line), "9600 baud, 8n1");
}

TEST(ZebserialdConfig, EveryKeyOfTheSampleIsInTheManualPage) {
    const std::string manual =
        zeb::test::read_file(zeb::test::source_path("src/zebseriald/zebseriald.8"));
    for (const auto &[key, value] : sample_keys())
        EXPECT_THAT(manual, HasSubstr(".B " + key + "\n"));
}

class BadSerialValue : public testing::TestWithParam<std::pair<const char *, const char *>> {};

TEST(ZebserialdConfig, APortHasANameOfAtMost254CharactersWithoutASlashFirst) {
    const auto is_refused = [](const std::string &name) {
        Tree tree;
        tree.set(("Port;" + name + ";Device").c_str(), "ttyS0");
        zeb::test::StderrCapture errors;
        const bool refused = !read_config(tree.root);
        const std::string text = errors.finish();
        EXPECT_EQ(text.find("is not a name of at most 254 characters") != std::string::npos,
                  refused);
        return refused;
    };
    EXPECT_FALSE(is_refused(std::string(254, 'p')));
    EXPECT_TRUE(is_refused(std::string(255, 'p')));
    EXPECT_TRUE(is_refused("/p"));
    EXPECT_FALSE(is_refused("p/"));
}

TEST_P(BadSerialValue, IsRefusedWithItsKeyAndItself) {
    const auto [key, value] = GetParam();
    Tree tree;
    tree.set("Port;P;Device", "ttyS0").set(key, value);
    zeb::test::StderrCapture errors;
    EXPECT_FALSE(read_config(tree.root));
    EXPECT_THAT(errors.finish(), HasSubstr(std::string(key) + ": \"" + value + "\" is not "));
}

INSTANTIATE_TEST_SUITE_P(
    ZebserialdConfig, BadSerialValue,
    testing::Values(std::pair("Port;P;Baud", "9601"), std::pair("Port;P;Baud", "fast"),
                    std::pair("Port;P;Baud", "110"), std::pair("Port;P;Bits", "9"),
                    std::pair("Port;P;Parity", "mark"), std::pair("Port;P;StopBits", "1.5"),
                    std::pair("Port;P;FlowControl", "dtr"), std::pair("Port;P;MaxBuffer", "0"),
                    std::pair("Port;P;MaxBuffer", "1048571"), std::pair("Port;P;MaxEcho", "-1"),
                    std::pair("Port;P;Device", "../sda"), std::pair("Port;Q;Device", ""),
                    std::pair("Serial;Repeater;Directory", "log"),
                    std::pair("Serial;Socket;Mode", "888"), std::pair("Serial;Limit;Clients", "0"),
                    std::pair("Serial;Heartbeat;Timeout", "nan")));

} // namespace
