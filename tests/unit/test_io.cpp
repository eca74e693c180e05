// The tables of shared variables: looking up, asking for outputs.
#include "io_testing.h"

using namespace zeb::test;
using testing::HasSubstr;

namespace {

// ---- Looking up ----

TEST_F(IoTables, RightAfterInitOneIsOneAndZeroIsZeroWhateverTheCaseAndTheUnknownIsMissing) {
    EXPECT_EQ(IO_lookup("ONE"), 1.0);
    EXPECT_EQ(IO_lookup("zero"), 0.0);
    EXPECT_EQ(IO_lookup("T_unknown"), MVC);
}

TEST_F(IoTables, TheBuiltInVariablesHaveAllTheirValuesAndNoPublisher) {
    ASSERT_EQ(g_io_real.count, 3);
    ASSERT_EQ(g_io_digital.count, 2);
    EXPECT_EQ(IO_lookup_avg("One"), 1.0);
    EXPECT_EQ(IO_lookup_runningavg("oNE"), 1.0);
    EXPECT_EQ(IO_lookup_avg("Zero"), 0.0);
    EXPECT_EQ(IO_lookup_runningavg("Zero"), 0.0);
    EXPECT_EQ(IO_lookup("MVC"), MVC);
    EXPECT_EQ(IO_lookup_avg("MVC"), MVC);
    EXPECT_EQ(IO_lookup_runningavg("MVC"), MVC);
    EXPECT_TRUE(IO_lookup_digital("true"));
    EXPECT_FALSE(IO_lookup_digital("false"));
    EXPECT_STREQ(static_cast<IO_var_real *>(g_io_real.head->data)->clname, "");
    EXPECT_STREQ(static_cast<IO_var_digital *>(g_io_digital.head->data)->clname, "");
}

TEST_F(IoTables, UnknownNamesAreMissingOrOff) {
    EXPECT_EQ(IO_lookup_avg("T1"), MVC);
    EXPECT_EQ(IO_lookup_runningavg("T1"), MVC);
    EXPECT_FALSE(IO_lookup_digital("valve"));
    EXPECT_EQ(IO_lookup(""), MVC);
    EXPECT_EQ(err.text(), "");
}

TEST_F(IoTables, NullNamesAreReportedAndMissing) {
    EXPECT_EQ(IO_lookup(nullptr), MVC);
    EXPECT_EQ(IO_lookup_avg(nullptr), MVC);
    EXPECT_EQ(IO_lookup_runningavg(nullptr), MVC);
    EXPECT_FALSE(IO_lookup_digital(nullptr));
    EXPECT_EQ(IO_digital_in(nullptr), 0U);
    EXPECT_EQ(lines_with("assertion failed (io.cpp:"), 5U);
}

TEST_F(IoTables, CleanUpLeavesNothingAndAnotherInitStartsAnew) {
    IO_cleanup();
    EXPECT_EQ(IO_lookup("ONE"), MVC);
    EXPECT_FALSE(IO_lookup_digital("TRUE"));
    EXPECT_EQ(g_io_real.count + g_io_digital.count + g_io_real_out.count + g_io_digital_out.count,
              0);
    EXPECT_EQ(IO_init(), TRUE);
    EXPECT_EQ(IO_init(), TRUE);
    EXPECT_EQ(g_io_real.count, 3);
    EXPECT_EQ(g_io_digital.count, 2);
    EXPECT_EQ(IO_lookup("ONE"), 1.0);
}

TEST(IoVariables, BeforeInitEverythingIsUnknown) {
    EXPECT_EQ(IO_lookup("ONE"), MVC);
    EXPECT_FALSE(IO_lookup_digital("TRUE"));
    EXPECT_EQ(IO_digital_in("TRUE"), 0U);
}

// ---- Lists of digitals ----

TEST_F(IoTables, DigitalInCountsTheEmptyFieldBetweenTwoSeparators) {
    EXPECT_EQ(IO_digital_in("TRUE,,FALSE;TRUE"), 9U);
}

TEST_F(IoTables, DigitalInTakesAnyOfItsSeparatorsAndAnyCase) {
    EXPECT_EQ(IO_digital_in("true:FALSE;True,unknown"), 5U);
    EXPECT_EQ(IO_digital_in("TRUE"), 1U);
    EXPECT_EQ(IO_digital_in(""), 0U);
    EXPECT_EQ(IO_digital_in(",,"), 0U);
}

TEST_F(IoTables, DigitalInReadsThirtyTwoFieldsAndNoMore) {
    std::string chans;
    for (int i = 0; i < 31; ++i)
        chans += ",";
    EXPECT_EQ(IO_digital_in((chans + "TRUE").c_str()), 0x80000000U);
    EXPECT_EQ(IO_digital_in((chans + ",TRUE").c_str()), 0U);
}

// ---- Asking for outputs ----

TEST_F(IoLink, SetSendsTheValueToAllAsOneRecord) {
    IO_set(&lnk, "flow", 1.5);
    EXPECT_TRUE(sent_is({set_real_message("flow", 1.5, 1, "", "")}));
}

TEST_F(IoLink, SetRemembersTheLastValueOfEachNameWhateverItsCase) {
    IO_set(&lnk, "flow", 1.5);
    IO_set(&lnk, "fan", 2);
    IO_set(&lnk, "FLOW", 3);
    ASSERT_EQ(g_io_real_out.count, 2);
    const auto *first = static_cast<IO_var_real_out *>(g_io_real_out.head->data);
    EXPECT_STREQ(first->name, "flow");
    EXPECT_EQ(first->val, 3);
    EXPECT_EQ(IO_lookup("flow"), MVC) << "a request is not a value";
}

TEST_F(IoLink, SetOfALongNameIsCutAndRememberedOnce) {
    const std::string name(40, 'n');
    IO_set(&lnk, name.c_str(), 1);
    IO_set(&lnk, name.c_str(), 2);
    EXPECT_EQ(g_io_real_out.count, 1);
    EXPECT_TRUE(sent_is({set_real_message(name.substr(0, 31), 1, 1, "", ""),
                         set_real_message(name.substr(0, 31), 2, 1, "", "")}));
}

TEST_F(IoLink, SetPassesTheMissingValueOn) {
    IO_set(&lnk, "flow", MVC);
    EXPECT_TRUE(sent_is({set_real_message("flow", MVC, 1, "", "")}));
}

TEST_F(IoLink, SetDigitalSendsStatesAndMaskAsGiven) {
    IO_set_digital(&lnk, "a,,c;d", 0xF0000005U, 0x80000007U);
    EXPECT_TRUE(
        sent_is({set_digital_message({"a", "", "c", "d"}, 0xF0000005U, 0x80000007U, 1, "")}));
}

TEST_F(IoLink, SetDigitalRemembersTheStatesThatTheMaskCovers) {
    IO_set_digital(&lnk, "a,,c;d", 0xFFFFFFFBU, 0x7U);
    ASSERT_EQ(g_io_digital_out.count, 2);
    const auto *a = static_cast<IO_var_digital_out *>(g_io_digital_out.head->data);
    const auto *c = static_cast<IO_var_digital_out *>(g_io_digital_out.tail->data);
    EXPECT_STREQ(a->name, "a");
    EXPECT_EQ(a->val, TRUE);
    EXPECT_STREQ(c->name, "c");
    EXPECT_EQ(c->val, FALSE);
    IO_set_digital(&lnk, "C", 1, 1);
    EXPECT_EQ(g_io_digital_out.count, 2);
    EXPECT_EQ(c->val, TRUE);
}

TEST_F(IoLink, SetDigitalTakesThirtyTwoNamesAndNoMore) {
    std::string chans;
    std::vector<std::string> names;
    for (int i = 0; i < 33; ++i) {
        names.push_back("d" + std::to_string(i));
        chans += names.back() + ",";
    }
    names.pop_back();
    IO_set_digital(&lnk, chans.c_str(), 0x80000000U, 0xFFFFFFFFU);
    EXPECT_EQ(g_io_digital_out.count, 32);
    EXPECT_EQ(static_cast<IO_var_digital_out *>(g_io_digital_out.tail->data)->val, TRUE);
    EXPECT_TRUE(sent_is({set_digital_message(names, 0x80000000U, 0xFFFFFFFFU, 1, "")}));
}

TEST_F(IoLink, SetWithoutANameIsReportedAndSendsNothing) {
    IO_set(&lnk, nullptr, 1);
    IO_set_digital(&lnk, nullptr, 1, 1);
    EXPECT_TRUE(sent_is({}));
    EXPECT_EQ(lines_with("assertion failed (io.cpp:"), 2U);
}

TEST_F(IoLink, RequestsToSendAgainGoToAllWithoutARecord) {
    IO_request_resend_real(&lnk);
    IO_request_resend_digital(&lnk);
    EXPECT_TRUE(sent_is({packed(1, "MSG_IO_RESEND_REAL"), packed(1, "MSG_IO_RESEND_DIGITAL")}));
}

TEST_F(IoLink, OutputsWithoutEndAreSentAndOnlyRememberedUpToTheLimit) {
    for (int i = 0; i < zeb::io::k_table_limit + 3; ++i)
        IO_set(&lnk, ("o" + std::to_string(i)).c_str(), i);
    EXPECT_EQ(g_io_real_out.count, zeb::io::k_table_limit);
    EXPECT_EQ(lnk.tx_queue.count, zeb::io::k_table_limit + 3);
    EXPECT_EQ(lines_with("More than 4096 real outputs are known, \"o4096\" and later ones"), 1U);
    EXPECT_EQ(lines_with("More than"), 1U);
}

} // namespace
