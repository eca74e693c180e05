// Programs that share variables through the real message server, dying and coming back.

#include "io_station.h"

using namespace zeb::test;

namespace {

class IoVariables : public IoStation {
  protected:
    void SetUp() override { ASSERT_TRUE(ready_) << server_->errors(); }
};

TEST_F(IoVariables, ValuesAveragesAndStatesOfOneProgramAreLookedUpInAnother) {
    const auto provider =
        peer({"ain1", "real=T1:21.5", "real=P1:850", "state=door:0", "state=fan:1"});
    const auto user = peer({"user", "show=t1", "show=P1", "input=fan", "input=door"});
    EXPECT_TRUE(prints(*user, "t1 21.5 21.5 21.5")) << user->output() << user->errors();
    EXPECT_TRUE(prints(*user, "P1 850 850 850"));
    EXPECT_TRUE(prints(*user, "fan 1"));
    EXPECT_EQ(user->output().find("door 1"), std::string::npos);
    stop(*user);
    stop(*provider);
}

TEST_F(IoVariables, WhatAKilledProgramPublishedIsForgottenAndComesBackWithIt) {
    auto provider = peer({"ain1", "real=T1:21.5", "state=door:1"});
    const auto other = peer({"ain2", "real=T2:5"});
    const auto user = peer({"user", "show=T1", "show=T2", "input=door"});
    EXPECT_TRUE(prints(*user, "T1 21.5 21.5 21.5"));
    EXPECT_TRUE(prints(*user, "T2 5 5 5"));
    EXPECT_TRUE(prints(*user, "door 1"));
    const size_t before_death = user->output().size();
    provider->signal(SIGKILL);
    provider->wait();
    EXPECT_TRUE(prints(*user, "T1 missing missing missing", before_death)) << user->output();
    EXPECT_TRUE(prints(*user, "door 0", before_death));
    const size_t before_return = user->output().size();
    provider = peer({"ain1", "real=T1:-3", "state=door:1"});
    EXPECT_TRUE(prints(*user, "T1 -3 -3 -3", before_return));
    EXPECT_TRUE(prints(*user, "door 1", before_return));
    EXPECT_EQ(user->output().find("T2", before_death), std::string::npos)
        << "the other's values stay: " << user->output();
    stop(*provider);
    stop(*other);
    stop(*user);
}

TEST_F(IoVariables, OutputsAreSetByAnotherProgram) {
    const auto provider = peer({"pump", "output=V1", "relay=R1"});
    ASSERT_TRUE(wait_until(
        [&] { return provider->errors().find("Received handshake") != std::string::npos; }));
    const auto user = peer({"user", "set=V1:3", "set=other:4", "switch=R1:1"});
    EXPECT_TRUE(prints(*provider, "V1 3")) << provider->output();
    EXPECT_TRUE(prints(*provider, "R1 1"));
    EXPECT_EQ(provider->output().find("other"), std::string::npos);
    stop(*user);
    stop(*provider);
}

TEST_F(IoVariables, AProviderThatComesBackIsToldWhatItsOutputsShallBe) {
    const auto user = peer({"user", "set=V1:3", "switch=R1:1", "show=alive"});
    EXPECT_TRUE(prints(*user, "alive missing missing missing"));
    for (int round = 0; round < 2; ++round) {
        const auto provider = peer({"pump", "output=V1", "relay=R1"});
        EXPECT_TRUE(prints(*provider, "V1 3")) << round;
        EXPECT_TRUE(prints(*provider, "R1 1")) << round;
        provider->signal(SIGKILL);
        provider->wait();
    }
    stop(*user);
}

TEST_F(IoVariables, MoreInputsThanAMessageHoldsAllArrive) {
    std::vector<std::string> words = {"ain1"};
    for (int i = 0; i < 70; ++i)
        words.push_back("real=c" + std::to_string(i) + ":" + std::to_string(i));
    const auto provider = peer(words);
    // In the order of the configuration c9 is the last, c0 the first.
    const auto user = peer({"user", "show=c0", "show=c9", "show=c63", "show=c69"});
    EXPECT_TRUE(prints(*user, "c0 0 0 0"));
    EXPECT_TRUE(prints(*user, "c9 9 9 9"));
    EXPECT_TRUE(prints(*user, "c63 63 63 63"));
    EXPECT_TRUE(prints(*user, "c69 69 69 69"));
    stop(*user);
    stop(*provider);
}

} // namespace
