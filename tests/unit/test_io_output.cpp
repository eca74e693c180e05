// A provider's outputs: built from the configuration, set by whoever asks.
#include "io_testing.h"

#include <cmath>

using namespace zeb::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

struct Hardware {
    std::vector<std::string> asked;
    std::vector<std::pair<std::string, double>> set;
};
Hardware g_hardware;

void set_output(double value, const char *name, void *pd) {
    static_cast<Hardware *>(pd)->set.emplace_back(name, value);
}

void define(IO_define_real_output_in *in, IO_define_real_output_out *out) {
    g_hardware.asked.push_back(std::string(in->name) + "=" +
                               (in->channel != nullptr ? in->channel : "none"));
    EXPECT_FALSE(out->valid);
    EXPECT_EQ(out->set, nullptr);
    EXPECT_EQ(out->set_pd, nullptr);
    out->valid = strcmp(in->name, "refused") != 0;
    out->set = strcmp(in->name, "mute") != 0 ? set_output : nullptr;
    out->set_pd = &g_hardware;
}

class IoOutputs : public IoLink {
  protected:
    IoOutputs() {
        g_hardware = {};
        IO_real_output_init(&outputs);
    }
    ~IoOutputs() override { IO_real_output_delete(&outputs); }
    void build(std::initializer_list<Channel> channels) {
        ChannelTree tree(channels);
        IO_real_output_build(&outputs, tree.get(), define);
    }
    void update(const char *name, double value) {
        NET_IO_Real request = {};
        strncpy(request.name, name, sizeof request.name);
        request.val = value;
        IO_real_output_update(&outputs, &request);
    }
    IO_real_output_def outputs;
};

using Set = std::pair<std::string, double>;

TEST_F(IoOutputs, AreBuiltInTheOrderOfTheTreeAndRefusedOnesSkipped) {
    build({{"V2", "2", nullptr},
           {"V1", nullptr, nullptr},
           {"refused", nullptr, nullptr},
           {"mute", nullptr, nullptr}});
    EXPECT_THAT(g_hardware.asked, ElementsAre("mute=none", "refused=none", "V1=none", "V2=2"));
    ASSERT_EQ(outputs.count, 2);
    EXPECT_STREQ(static_cast<IO_real_output_var *>(outputs.head->data)->name, "V1");
    EXPECT_EQ(err.text().find("assertion"), std::string::npos);
}

TEST_F(IoOutputs, ReceiveTheCalibratedValueWhateverTheCaseOfTheName) {
    build({{"V1", nullptr, "1;2"}, {"V2", nullptr, nullptr}});
    update("v1", 10);
    update("V2", 10);
    update("V3", 10);
    EXPECT_THAT(g_hardware.set, ElementsAre(Set("V1", 21), Set("V2", 10)));
}

TEST_F(IoOutputs, AllOfTheSameNameAreSet) {
    build({{"V1", nullptr, nullptr}});
    build({{"V1", nullptr, "1"}});
    update("V1", 10);
    EXPECT_THAT(g_hardware.set, ElementsAre(Set("V1", 10), Set("V1", 1)));
}

TEST_F(IoOutputs, AreSetToTheMissingValueUncalibrated) {
    build({{"V1", nullptr, "1;2"}});
    update("V1", MVC);
    EXPECT_THAT(g_hardware.set, ElementsAre(Set("V1", MVC)));
}

TEST_F(IoOutputs, ReceiveWhatIsNoNumberAsItIs) {
    build({{"V1", nullptr, nullptr}});
    update("V1", std::nan(""));
    ASSERT_EQ(g_hardware.set.size(), 1U);
    EXPECT_TRUE(std::isnan(g_hardware.set[0].second));
}

TEST_F(IoOutputs, WithLongNamesAreCutLikeTheRequests) {
    const std::string name(40, 'v');
    build({{name.c_str(), nullptr, nullptr}});
    update(name.c_str(), 1); // fills its field without a terminator
    EXPECT_THAT(g_hardware.set, ElementsAre(Set(name.substr(0, 31), 1)));
}

TEST_F(IoOutputs, AreSetByMessages) {
    build({{"V1", nullptr, "0;2"}});
    IO_real_output_register_link(&outputs, &lnk);
    receive(set_real_message("V1", 4, 1, "", "user"));
    receive(set_real_message("V1", 5, 0, "daemon", "user"));
    EXPECT_THAT(g_hardware.set, ElementsAre(Set("V1", 8), Set("V1", 10)));
}

TEST_F(IoOutputs, AddedAfterRegisteringAreSetToo) {
    IO_real_output_register_link(&outputs, &lnk);
    build({{"V1", nullptr, nullptr}});
    receive(set_real_message("V1", 4, 1, "", "user"));
    EXPECT_THAT(g_hardware.set, ElementsAre(Set("V1", 4)));
}

TEST_F(IoOutputs, AreLeftAloneByOtherMessagesAndByRequestsWithoutARecord) {
    build({{"V1", nullptr, nullptr}});
    IO_real_output_register_link(&outputs, &lnk);
    receive(packed(1, "MSG_IO_SET_REAL", "", "user", "NET_IO_Real"));
    receive(reals_message("MSG_IO_INSTANT", {{"V1", 4}}, 1, 1000, 1, "ain"));
    receive(set_digital_message({"V1"}, 1, 1, 1, ""));
    EXPECT_THAT(g_hardware.set, IsEmpty());
}

TEST_F(IoOutputs, AnswerAResendLikeAnyRequest) {
    build({{"V1", nullptr, nullptr}});
    IO_real_output_register_link(&outputs, &lnk);
    IO_set(&lnk, "V1", 3);
    sent();
    receive(packed(1, "MSG_IO_RESEND_REAL", "", "provider"));
    const auto messages = sent();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].dest, "provider");
    EXPECT_THAT(g_hardware.set, IsEmpty()) << "this program's own requests go elsewhere";
    const auto request = messages[0].as<NET_IO_Real>();
    server.send(MSG_IO_SET_REAL, "user", &request, sizeof request, "NET_IO_Real");
    deliver();
    EXPECT_THAT(g_hardware.set, ElementsAre(Set("V1", 3)));
}

TEST_F(IoOutputs, OfNoTreeAreNone) {
    IO_real_output_build(&outputs, nullptr, define);
    EXPECT_EQ(outputs.count, 0);
    ChannelTree tree({{"V1", nullptr, nullptr}});
    IO_real_output_build(&outputs, tree.get(), nullptr);
    EXPECT_EQ(outputs.count, 0);
    EXPECT_THAT(err.text(), HasSubstr("assertion failed (io_output.cpp:"));
}

TEST_F(IoOutputs, DeletedLeaveAnEmptyList) {
    build({{"V1", nullptr, "1;2"}});
    IO_real_output_delete(&outputs);
    EXPECT_EQ(outputs.count, 0);
    update("V1", 1);
    EXPECT_THAT(g_hardware.set, IsEmpty());
}

} // namespace
