#include "zebmsgd/config.h"

#include "support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

using testing::HasSubstr;
using zebmsgd::Config;
using zebmsgd::read_config;

namespace {

struct Tree {
    CONF_node *root = CONF_alloc();
    ~Tree() { CONF_free(root); }
    Tree &set(const char *key, const char *value) {
        CONF_set(root, key, value);
        return *this;
    }
};

TEST(ZebmsgdConfig, WithoutKeysEverythingHasItsDefault) {
    const auto config = read_config(nullptr);
    ASSERT_TRUE(config);
    EXPECT_EQ(config->access.mode, 0660u);
    EXPECT_EQ(config->access.group, "");
    EXPECT_EQ(config->tcp_port, 0);
    EXPECT_EQ(config->tcp_address, "127.0.0.1");
    EXPECT_EQ(config->heartbeat_interval, 5);
    EXPECT_EQ(config->heartbeat_timeout, 30);
    EXPECT_EQ(config->handshake_timeout, 10);
    EXPECT_EQ(config->limits.clients, 256u);
    EXPECT_EQ(config->limits.queue_bytes, 8388608u);
    EXPECT_EQ(config->limits.filters, 256u);
    EXPECT_EQ(config->limits.retained, 1024u);
    EXPECT_EQ(config->limits.retained_bytes, 2097152u);
}

TEST(ZebmsgdConfig, EveryKeyIsRead) {
    Tree tree;
    tree.set("Server;Socket;Mode", "0666").set("Server;Socket;Group", "dialout");
    tree.set("Server;TCP;Port", "8567").set("Server;TCP;Bind", "0.0.0.0");
    tree.set("Server;TCP;Allow", "192.0.2.7; 10.0.0.0/8");
    tree.set("Server;Heartbeat;Interval", "0.2").set("Server;Heartbeat;Timeout", "1.5");
    tree.set("Server;Handshake;Timeout", "0.5").set("Server;Limit;Clients", "3");
    tree.set("Server;Limit;QueueBytes", "4096").set("Server;Limit;Filters", "4");
    tree.set("Server;Limit;Retained", "5").set("Server;Limit;RetainedBytes", "6");
    const auto config = read_config(tree.root);
    ASSERT_TRUE(config);
    EXPECT_EQ(config->access.mode, 0666u);
    EXPECT_EQ(config->access.group, "dialout");
    EXPECT_EQ(config->tcp_port, 8567);
    EXPECT_EQ(config->tcp_address, "0.0.0.0");
    EXPECT_FALSE(config->tcp_allow.empty());
    EXPECT_EQ(config->heartbeat_interval, 0.2);
    EXPECT_EQ(config->heartbeat_timeout, 1.5);
    EXPECT_EQ(config->handshake_timeout, 0.5);
    EXPECT_EQ(config->limits.clients, 3u);
    EXPECT_EQ(config->limits.queue_bytes, 4096u);
    EXPECT_EQ(config->limits.filters, 4u);
    EXPECT_EQ(config->limits.retained, 5u);
    EXPECT_EQ(config->limits.retained_bytes, 6u);
}

// The keys of the sample configuration with their values, each shown behind a "#".
std::map<std::string, std::string> sample_keys() {
    std::istringstream sample(zeb::test::read_file(zeb::test::source_path("etc/zeb.conf")));
    std::map<std::string, std::string> keys;
    for (std::string line; std::getline(sample, line);)
        if (line.rfind("#Server;", 0) == 0)
            keys[line.substr(1, line.find(',') - 1)] = line.substr(line.find(',') + 1);
    return keys;
}

TEST(ZebmsgdConfig, TheSampleConfigurationShowsEveryKeyAtItsDefault) {
    const Config standard;
    const std::map<std::string, std::string> expected = {
        {"Server;Socket;Mode", "660"},
        {"Server;Socket;Group", ""},
        {"Server;TCP;Port", std::to_string(standard.tcp_port)},
        {"Server;TCP;Bind", standard.tcp_address},
        {"Server;TCP;Allow", ""},
        {"Server;Heartbeat;Interval", "5"},
        {"Server;Heartbeat;Timeout", "30"},
        {"Server;Handshake;Timeout", "10"},
        {"Server;Limit;Clients", std::to_string(standard.limits.clients)},
        {"Server;Limit;QueueBytes", std::to_string(standard.limits.queue_bytes)},
        {"Server;Limit;Filters", std::to_string(standard.limits.filters)},
        {"Server;Limit;Retained", std::to_string(standard.limits.retained)},
        {"Server;Limit;RetainedBytes", std::to_string(standard.limits.retained_bytes)}};
    EXPECT_EQ(sample_keys(), expected);
}

TEST(ZebmsgdConfig, EveryKeyOfTheSampleIsInTheManualPage) {
    const std::string manual =
        zeb::test::read_file(zeb::test::source_path("src/zebmsgd/zebmsgd.8"));
    for (const auto &[key, value] : sample_keys())
        EXPECT_THAT(manual, HasSubstr(".B " + key + "\n"));
}

class BadValue : public testing::TestWithParam<std::pair<const char *, const char *>> {};

TEST_P(BadValue, IsRefusedWithItsKeyAndItself) {
    const auto [key, value] = GetParam();
    Tree tree;
    tree.set(key, value);
    zeb::test::StderrCapture errors;
    EXPECT_FALSE(read_config(tree.root));
    const std::string text = errors.finish();
    EXPECT_THAT(text, HasSubstr(std::string(key) + ": \"" + value + "\" is not "));
}

INSTANTIATE_TEST_SUITE_P(
    ZebmsgdConfig, BadValue,
    testing::Values(
        std::pair("Server;TCP;Port", "http"), std::pair("Server;TCP;Port", "65536"),
        std::pair("Server;TCP;Port", "-1"), std::pair("Server;Socket;Mode", "0888"),
        std::pair("Server;Socket;Mode", "1777"), std::pair("Server;Heartbeat;Interval", "0"),
        std::pair("Server;Heartbeat;Timeout", "soon"), std::pair("Server;Heartbeat;Timeout", "nan"),
        std::pair("Server;Limit;Clients", "0"),
        std::pair("Server;Limit;QueueBytes", "99999999999999999999"),
        std::pair("Server;TCP;Allow", "10.0.0.0/33"), std::pair("Server;TCP;Allow", "localhost"),
        std::pair("Server;TCP;Allow", ";")));

} // namespace
