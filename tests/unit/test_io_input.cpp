// A provider's inputs: built from the configuration, read, averaged, published.
#include "io_testing.h"

#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>

using namespace zeb::test;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// The instrument behind the inputs: what was asked of it, and the value that it gives by channel.
struct Instrument {
    std::vector<std::string> asked;
    std::map<std::string, double> raw; // by the input's name; none: nothing new
};
Instrument g_instrument;

BOOL read_input(const char *name, void *pd, double *value) {
    auto *instrument = static_cast<Instrument *>(pd);
    const auto found = instrument->raw.find(name);
    if (found == instrument->raw.end())
        return FALSE;
    *value = found->second;
    return TRUE;
}

// Takes every channel but those called "refused" and "deaf".
void define(IO_define_real_input_in *in, IO_define_real_input_out *out) {
    g_instrument.asked.push_back(std::string(in->name) + "=" +
                                 (in->channel != nullptr ? in->channel : "none"));
    EXPECT_FALSE(out->valid);
    EXPECT_EQ(out->get, nullptr);
    EXPECT_EQ(out->get_pd, nullptr);
    EXPECT_EQ(out->def_fmt, nullptr);
    out->valid = strcmp(in->name, "refused") != 0;
    out->get = strcmp(in->name, "deaf") != 0 ? read_input : nullptr;
    out->get_pd = &g_instrument;
    out->def_fmt = "*03.2f";
}

struct Freer {
    void operator()(void *block) const { free(block); }
};

// Inputs beside what a fixture has.
template <typename Base> class WithInputs : public Base {
  protected:
    WithInputs() {
        g_instrument = {};
        IO_real_input_init(&inputs);
    }
    ~WithInputs() override { IO_real_input_delete(&inputs); }
    void build(CONF_node *tree) {
        IO_real_input_build(&inputs, tree, define, nullptr, nullptr, nullptr, nullptr);
    }
    void build(std::initializer_list<Channel> channels) {
        ChannelTree tree(channels);
        build(tree.get());
    }
    void update(double raw, const char *name = "T1", LOG_avg_control *lac = nullptr) {
        g_instrument.raw = {{name, raw}};
        IO_real_input_update(&inputs, lac);
    }
    IO_real_input_var *input(int i) {
        const LL_NODE *node = inputs.head;
        for (; i > 0; --i)
            node = node->next;
        return static_cast<IO_real_input_var *>(node->data);
    }
    double average() { return AVG_shift_avg(&input(0)->avg); }
    IO_real_input_def inputs;
};

using IoInputs = WithInputs<IoTables>;
using IoPublished = WithInputs<IoLink>;

// ---- Building ----

TEST_F(IoInputs, AreAskedForInTheOrderOfTheTreeWithTheirChannel) {
    build({{"T2", "3", nullptr}, {"P1", nullptr, "1;2"}, {"T1", "1", nullptr}});
    EXPECT_THAT(g_instrument.asked, ElementsAre("P1=none", "T1=1", "T2=3"));
    ASSERT_EQ(inputs.count, 3);
    EXPECT_STREQ(input(0)->name, "P1");
    EXPECT_STREQ(input(2)->name, "T2");
}

TEST_F(IoInputs, StartWithoutAValueAndWithNothingToPublish) {
    build({{"T1", nullptr, nullptr}});
    EXPECT_EQ(input(0)->val, MVC);
    EXPECT_FALSE(input(0)->in_updated);
    EXPECT_FALSE(input(0)->ra_updated);
    EXPECT_STREQ(input(0)->deffmt, "*03.2f");
    EXPECT_EQ(input(0)->pd, &g_instrument);
    EXPECT_EQ(average(), MVC);
}

TEST_F(IoInputs, ThatTheDaemonRefusesOrCannotReadAreSkippedSilently) {
    build({{"deaf", nullptr, nullptr}, {"refused", nullptr, nullptr}, {"T1", nullptr, nullptr}});
    ASSERT_EQ(inputs.count, 1);
    EXPECT_STREQ(input(0)->name, "T1");
    EXPECT_EQ(err.text(), "");
}

TEST_F(IoInputs, WithLongNamesAreCutAndTheDaemonSeesTheWholeName) {
    const std::string name(40, 'n');
    build({{name.c_str(), nullptr, nullptr}});
    EXPECT_EQ(input(0)->name, name.substr(0, 31));
    EXPECT_THAT(g_instrument.asked, ElementsAre(name + "=none"));
}

TEST_F(IoInputs, AreCalibratedByTheirPolynomialOrTakenAsTheyAre) {
    build({{"T1", nullptr, "-40;100"}, {"T2", nullptr, nullptr}, {"T3", nullptr, "1,2,3"}});
    g_instrument.raw = {{"T1", 0.5}, {"T2", 0.5}, {"T3", 2}};
    IO_real_input_update(&inputs, nullptr);
    EXPECT_EQ(input(0)->val, 10.0);
    EXPECT_EQ(input(1)->val, 0.5);
    EXPECT_EQ(input(2)->val, 17.0);
}

TEST_F(IoInputs, OfTwoHoursAtOneASecondHold64KiBEach) {
    build({{"T1", nullptr, nullptr}});
    for (int i = 0; i < 3 * 7200; ++i) {
        update(i);
        ASSERT_LE(input(0)->avg.sz_buffer * sizeof(double), 65536U);
    }
    EXPECT_EQ(input(0)->avg.i_insert_point, 7200U);
    EXPECT_EQ(input(0)->avg.sz_buffer, 8192U);
    EXPECT_EQ(average(), 2 * 7200 + 3599.5) << "the latest two hours";
}

TEST_F(IoInputs, OfNoTreeAreNone) {
    build(nullptr);
    EXPECT_EQ(inputs.count, 0);
    ChannelTree tree({{"T1", nullptr, nullptr}});
    IO_real_input_build(&inputs, tree.get(), nullptr, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(inputs.count, 0);
    EXPECT_THAT(err.text(), HasSubstr("assertion failed (io_input.cpp:"));
}

TEST_F(IoInputs, OfASecondBuildAreAppended) {
    build({{"T1", nullptr, nullptr}});
    build({{"P1", nullptr, nullptr}});
    ASSERT_EQ(inputs.count, 2);
    EXPECT_STREQ(input(1)->name, "P1");
}

TEST_F(IoInputs, MakeLogVariablesInFrontOfTheBaseTable) {
    static double flow;
    const LOG_map_defn base[] = {
        {"Q", "*02.1f", nullptr, LVT_DOUBLE, &flow, nullptr, nullptr, nullptr, "Flow (slpm)"},
        {nullptr, nullptr, nullptr, LVT_END, nullptr, nullptr, nullptr, nullptr, nullptr}};
    ChannelTree tree({{"P1", nullptr, nullptr}, {"T1", nullptr, nullptr}});
    LOG_map_defn *rows = nullptr;
    IO_real_input_build(&inputs, tree.get(), define, base, &rows, nullptr, nullptr);
    const std::unique_ptr<LOG_map_defn, Freer> freed(rows);
    ASSERT_NE(rows, nullptr);
    for (int i = 0; i < 2; ++i) {
        EXPECT_STREQ(rows[i].name, i == 0 ? "P1" : "T1");
        EXPECT_STREQ(rows[i].format, "*03.2f");
        EXPECT_EQ(rows[i].type, LVT_AVG_SHIFTING);
        EXPECT_EQ(rows[i].pd, &input(i)->avg);
        EXPECT_EQ(rows[i].defmvc, nullptr);
        EXPECT_EQ(rows[i].map, nullptr);
        EXPECT_EQ(rows[i].pdhdr, nullptr);
        EXPECT_EQ(rows[i].gethdrs, nullptr);
        EXPECT_EQ(rows[i].desc, nullptr);
    }
    EXPECT_STREQ(rows[2].name, "Q");
    EXPECT_EQ(rows[2].pd, &flow);
    EXPECT_STREQ(rows[2].desc, "Flow (slpm)");
    EXPECT_EQ(rows[3].type, LVT_END);
}

TEST_F(IoInputs, MakeLogVariablesWithoutABaseTable) {
    ChannelTree tree({{"T1", nullptr, nullptr}});
    LOG_map_defn *rows = nullptr;
    IO_real_input_build(&inputs, tree.get(), define, nullptr, &rows, nullptr, nullptr);
    const std::unique_ptr<LOG_map_defn, Freer> freed(rows);
    ASSERT_NE(rows, nullptr);
    EXPECT_STREQ(rows[0].name, "T1");
    EXPECT_EQ(rows[1].type, LVT_END);
}

class IoRecordText : public IoInputs {
  protected:
    std::string text_of(std::initializer_list<Channel> channels, const char *base) {
        ChannelTree tree(channels);
        char *text = nullptr;
        IO_real_input_build(&inputs, tree.get(), define, nullptr, nullptr, base, &text);
        const std::unique_ptr<char, Freer> freed(text);
        return text != nullptr ? text : "(null)";
    }
};

TEST_F(IoRecordText, AppendsTheInputsToTheBaseText) {
    // The tree is sorted: P1 comes first.
    EXPECT_EQ(text_of({{"T1", nullptr, nullptr}, {"P1", nullptr, nullptr}}, "time"), "time;P1;T1");
}

TEST_F(IoRecordText, BeginsWithoutASeparatorWhenThereIsNoBaseText) {
    EXPECT_EQ(text_of({{"T1", nullptr, nullptr}, {"T2", nullptr, nullptr}}, nullptr), "T1;T2");
    EXPECT_EQ(text_of({}, ""), "T1;T2");
}

TEST_F(IoRecordText, WithoutInputsIsTheBaseText) {
    EXPECT_EQ(text_of({}, "time"), "time");
    EXPECT_EQ(text_of({}, nullptr), "");
}

// ---- Reading ----

TEST_F(IoInputs, KeepTheirValueWhenThereIsNothingNew) {
    build({{"T1", nullptr, nullptr}});
    update(5);
    input(0)->in_updated = input(0)->ra_updated = FALSE;
    g_instrument.raw.clear();
    IO_real_input_update(&inputs, nullptr);
    EXPECT_EQ(input(0)->val, 5.0);
    EXPECT_FALSE(input(0)->in_updated);
    EXPECT_FALSE(input(0)->ra_updated);
    EXPECT_EQ(average(), 5.0);
}

TEST_F(IoInputs, AreAveragedAfterTheirCalibration) {
    build({{"T1", nullptr, "0;10"}});
    update(1);
    update(2);
    EXPECT_EQ(average(), 15.0);
    EXPECT_TRUE(input(0)->in_updated);
    EXPECT_TRUE(input(0)->ra_updated);
}

TEST_F(IoInputs, ThatGiveTheMissingValueKeepItUncalibratedAndDoNotDisturbTheAverage) {
    build({{"T1", nullptr, "100;10"}});
    update(1);
    input(0)->in_updated = input(0)->ra_updated = FALSE;
    update(MVC);
    EXPECT_EQ(input(0)->val, MVC);
    EXPECT_EQ(average(), 110.0);
    EXPECT_TRUE(input(0)->in_updated) << "that it is missing is news";
    EXPECT_FALSE(input(0)->ra_updated);
}

TEST_F(IoInputs, AreNotAveragedWhileAveragingIsOff) {
    build({{"T1", nullptr, nullptr}});
    LOG_avg_control lac = {};
    lac.flush_until = lac.spinup_done = -1.0;
    lac.contaminated = TRUE;
    lac.avg_on_contam = FALSE;
    update(5, "T1", &lac);
    EXPECT_EQ(input(0)->val, 5.0);
    EXPECT_TRUE(input(0)->in_updated);
    EXPECT_FALSE(input(0)->ra_updated);
    EXPECT_EQ(average(), MVC);
    lac.contaminated = FALSE;
    update(7, "T1", &lac);
    EXPECT_EQ(average(), 7.0);
    EXPECT_TRUE(input(0)->ra_updated);
}

TEST_F(IoInputs, ThatAreNoNumbersAreValuesAndNotAveraged) {
    build({{"T1", nullptr, nullptr}});
    update(4);
    update(std::nan(""));
    EXPECT_TRUE(std::isnan(input(0)->val));
    EXPECT_EQ(average(), 4.0);
}

TEST_F(IoInputs, ClearedStartANewPeriodAndHaveTheirRunningAveragePublished) {
    build({{"T1", nullptr, nullptr}, {"T2", nullptr, nullptr}});
    update(5);
    input(0)->in_updated = input(0)->ra_updated = FALSE;
    IO_real_input_clear_avg(&inputs);
    EXPECT_EQ(average(), MVC);
    EXPECT_EQ(AVG_shift_running_avg(&input(0)->avg), 5.0);
    EXPECT_TRUE(input(0)->ra_updated);
    EXPECT_TRUE(input(1)->ra_updated);
    EXPECT_FALSE(input(0)->in_updated);
}

TEST_F(IoInputs, DeletedLeaveAnEmptyListThatCanBeBuiltAnew) {
    build({{"T1", nullptr, "1;2"}});
    update(1);
    IO_real_input_delete(&inputs);
    EXPECT_EQ(inputs.count, 0);
    build({{"T1", nullptr, nullptr}});
    EXPECT_EQ(inputs.count, 1);
}

// ---- Publishing ----

TEST_F(IoPublished, ValuesAndRunningAveragesThatAreNewAreSentOnce) {
    build({{"T1", nullptr, nullptr}, {"T2", nullptr, nullptr}, {"T3", nullptr, nullptr}});
    update(4, "T2");
    update(6, "T2");
    const FTIME before = UTIL_ftime();
    IO_real_input_send_instant(&inputs, &lnk);
    const FTIME after = UTIL_ftime();
    const auto messages = sent();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].type, MSG_IO_INSTANT);
    EXPECT_EQ(messages[1].type, MSG_IO_RUNNINGAVG);
    for (const ServerMessage &message : messages) {
        EXPECT_EQ(message.flags, 1U);
        EXPECT_EQ(message.dest, "");
        EXPECT_EQ(message.record_name, "NET_IO_MultiReal");
        const auto record = message.as<NET_IO_MultiReal>();
        EXPECT_GE(record.curtime, before);
        EXPECT_LE(record.curtime, after);
        EXPECT_EQ(record.n, 1U);
        EXPECT_STREQ(record.chans[0].name, "T2");
        EXPECT_EQ(record.chans[0].val, message.type == MSG_IO_INSTANT ? 6.0 : 5.0);
        EXPECT_STREQ(record.chans[1].name, "");
        EXPECT_EQ(record.chans[63].val, MVC);
    }
    IO_real_input_send_instant(&inputs, &lnk);
    EXPECT_TRUE(sent().empty());
}

TEST_F(IoPublished, TheRunningAverageGoesBeyondThePeriod) {
    build({{"T1", nullptr, nullptr}});
    update(4);
    update(8);
    IO_real_input_clear_avg(&inputs);
    update(6);
    IO_real_input_send_instant(&inputs, &lnk);
    const auto messages = sent();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[1].as<NET_IO_MultiReal>().chans[0].val, 7.0) << "of the last two, 8 and 6";
}

TEST_F(IoPublished, AMissingValueIsSentAlone) {
    build({{"T1", nullptr, nullptr}});
    update(MVC);
    IO_real_input_send_instant(&inputs, &lnk);
    const auto messages = sent();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].as<NET_IO_MultiReal>().n, 1U);
    EXPECT_EQ(messages[0].as<NET_IO_MultiReal>().chans[0].val, MVC);
}

TEST_F(IoPublished, AveragesOfAllInputsAreSentWithTheirTime) {
    build({{"T1", nullptr, nullptr}, {"T2", nullptr, nullptr}});
    update(4, "T2");
    update(6, "T2");
    for (int i = 0; i < 2; ++i) {
        IO_real_input_send_avg(&inputs, &lnk, 1400000000.5);
        EXPECT_TRUE(sent_is(
            {reals_message("MSG_IO_AVG", {{"T1", MVC}, {"T2", 5}}, 2, 1400000000.5, 1, "")}));
    }
}

TEST_F(IoPublished, WithoutInputsNothingIsSent) {
    IO_real_input_send_instant(&inputs, &lnk);
    IO_real_input_send_avg(&inputs, &lnk, 1000);
    EXPECT_TRUE(sent().empty());
}

class IoManyInputs : public IoPublished {
  protected:
    void build_and_update(int n) {
        ChannelTree tree({});
        for (int i = 0; i < n; ++i) {
            const std::string name = name_of(i);
            tree.add({name.c_str(), nullptr, nullptr});
            g_instrument.raw[name] = i;
        }
        build(tree.get());
        IO_real_input_update(&inputs, nullptr);
    }
    static std::string name_of(int i) {
        char name[8];
        snprintf(name, sizeof name, "c%03d", i);
        return name;
    }
};

TEST_F(IoManyInputs, SeventyUpdatedOnesArePublishedAsOneMessageOf64AndOneOf6) {
    build_and_update(70);
    IO_real_input_send_instant(&inputs, &lnk);
    const auto messages = sent();
    ASSERT_EQ(messages.size(), 4U);
    for (int i = 0; i < 4; ++i) {
        const auto record = messages[i].as<NET_IO_MultiReal>();
        EXPECT_EQ(messages[i].type, i < 2 ? MSG_IO_INSTANT : MSG_IO_RUNNINGAVG);
        EXPECT_EQ(record.n, i % 2 == 0 ? 64U : 6U);
        EXPECT_EQ(record.chans[0].name, name_of(i % 2 == 0 ? 0 : 64));
        EXPECT_EQ(record.chans[0].val, i % 2 == 0 ? 0.0 : 64.0);
    }
    const auto rest = messages[1].as<NET_IO_MultiReal>();
    EXPECT_STREQ(rest.chans[6].name, "") << "nothing is left over from the message before";
    EXPECT_EQ(rest.chans[6].val, MVC);
    IO_real_input_send_avg(&inputs, &lnk, 1000);
    const auto averages = sent();
    ASSERT_EQ(averages.size(), 2U);
    EXPECT_EQ(averages[0].as<NET_IO_MultiReal>().n, 64U);
    EXPECT_EQ(averages[1].as<NET_IO_MultiReal>().n, 6U);
    EXPECT_EQ(averages[1].as<NET_IO_MultiReal>().curtime, 1000.0);
}

TEST_F(IoManyInputs, SixtyFourAreOneMessage) {
    build_and_update(64);
    IO_real_input_send_avg(&inputs, &lnk, 1000);
    const auto averages = sent();
    ASSERT_EQ(averages.size(), 1U);
    EXPECT_EQ(averages[0].as<NET_IO_MultiReal>().n, 64U);
}

TEST_F(IoManyInputs, WhatOneProgramPublishesAnotherLooksUp) {
    build_and_update(70);
    IO_real_input_send_instant(&inputs, &lnk);
    IO_real_input_send_avg(&inputs, &lnk, 1000);
    for (const ServerMessage &message : sent()) {
        const auto record = message.as<NET_IO_MultiReal>();
        receive_reals(message.type, "provider", record);
    }
    EXPECT_EQ(IO_lookup("C069"), 69.0);
    EXPECT_EQ(IO_lookup_avg("C069"), 69.0);
    EXPECT_EQ(IO_lookup_runningavg("C000"), 0.0);
    EXPECT_EQ(g_io_real.count, 73);
}

} // namespace
