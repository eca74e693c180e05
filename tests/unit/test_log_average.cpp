// Logging: whether samples may be averaged, and the flags of an average.
#include "definitions/cutpoints.h"
#include "log_testing.h"

#include "scripted_server.h"
#include "zebmsg_int.h"

#include <cmath>

using namespace zeb::test;

namespace {

class LogAverage : public testing::Test {
  protected:
    void init() { EXPECT_TRUE(LOG_avg_control_init(&lac, root, local)); }
    // Delivers a message to the registered procedure, as ZEBMSG_process_messages does.
    template <class T> void deliver(NETMSG_type type, const char *name, T record) {
        deliver_at(type, NETPACK_find_ds(name), &record);
    }
    void deliver_at(NETMSG_type type, const NETDSD_entry *dsd, void *record) {
        if (lnk.cl_lib_cbs.head == nullptr)
            LOG_avg_register_link(&lac, &lnk);
        const auto *proc =
            static_cast<const ZEBMSG_library_msg_process *>(lnk.cl_lib_cbs.head->data);
        ZEBMSG_proc_msg pm = {};
        pm.msg = NETPACK_find_msg_by_type(type);
        pm.dsd = dsd;
        pm.pds = record;
        proc->cb(&pm, &lnk, proc->param);
    }
    void contaminate(BOOL contaminated, FTIME flush_until = -1.0) {
        deliver(MSG_LOG_AVG_CONTAMINATION, "NET_LOG_AVG_Contamination",
                NET_LOG_AVG_Contamination{contaminated, flush_until});
    }
    void bypass(BOOL bypassed, FTIME flush_until = -1.0) {
        deliver(MSG_LOG_AVG_BYPASS, "NET_LOG_AVG_Bypass",
                NET_LOG_AVG_Bypass{bypassed, flush_until});
    }
    void flush(FTIME until) {
        deliver(MSG_LOG_AVG_FLUSH, "NET_LOG_AVG_Flush", NET_LOG_AVG_Flush{until});
    }
    void flags(WORD reported) {
        deliver(MSG_LOG_AVG_CONTAM_FLAGS, "NET_LOG_AVG_ContamFlags",
                NET_LOG_AVG_ContamFlags{reported});
    }
    void cut(int val) {
        NET_CUTPOINTS_Status status = {};
        status.cp_cur.val = val;
        deliver(MSG_CUTPOINTS_STATUS, "NET_CUTPOINTS_Status", status);
    }
    void new_average() { deliver_at(MSG_LOG_NEW_AVERAGE, nullptr, nullptr); }
    ~LogAverage() override { zeb::clear_library_procs(&lnk); }

    Conf root, local;
    ZEBMSG_link lnk = {};
    LOG_avg_control lac = {};
};

// ---- Configuration ----

TEST_F(LogAverage, StartsCleanAndLeavesTheBypassAsItIs) {
    memset(&lac, 0xFF, sizeof lac);
    init();
    EXPECT_FALSE(lac.contaminated);
    EXPECT_EQ(lac.bypassed, 0xFF);
    EXPECT_EQ(lac.flush_until, -1.0);
    EXPECT_EQ(lac.spinup_done, -1.0);
    EXPECT_EQ(lac.cp_val, 0);
    EXPECT_EQ(lac.systemflags, 0);
    EXPECT_EQ(lac.persistflags, 0);
    EXPECT_TRUE(lac.avg_on_contam);
    LOG_avg_control_delete(&lac);
}

TEST_F(LogAverage, NeedsNoConfiguration) {
    EXPECT_TRUE(LOG_avg_control_init(&lac, nullptr, nullptr));
    EXPECT_TRUE(lac.avg_on_contam);
    EXPECT_TRUE(lac.avg_on_bypass);
    EXPECT_TRUE(lac.ignore_flush);
    EXPECT_EQ(lac.spinup_done, -1.0);
}

TEST_F(LogAverage, ADaemonNamedWithA1AndADigitAtTheEndStopsOnBypassAndFlush) {
    const std::pair<const char *, bool> names[] = {
        {"A11", false}, {"A10", false}, {"neph19", false}, {"A21", true},  {"AB", true},
        {"11", true},   {"A1B", true},  {"A1", true},      {"A111", false}};
    for (const auto &[name, averages] : names) {
        local.set("fil;Name", name);
        init();
        EXPECT_EQ(lac.avg_on_bypass, averages) << name;
        EXPECT_EQ(lac.ignore_flush, averages) << name;
    }
}

TEST_F(LogAverage, WithoutAConfiguredNameThatOfTheBranchCounts) {
    root.set("A11;x", "1");
    LOG_avg_control_init(&lac, root, CONF_lookup_tree(root, "A11"));
    EXPECT_FALSE(lac.avg_on_bypass);
    root.set("A11;fil;Name", "B2");
    LOG_avg_control_init(&lac, root, CONF_lookup_tree(root, "A11"));
    EXPECT_TRUE(lac.avg_on_bypass);
}

TEST_F(LogAverage, KeysAreTrueWhenTheyBeginWithTOrAreANumber) {
    for (const char *value : {"t", "TRUE", "1", "-2", "true", "4294967296"}) {
        local.set("AverageOnContam", value);
        init();
        EXPECT_TRUE(lac.avg_on_contam) << value;
    }
    for (const char *value : {"0", "no", "false", "yes"}) {
        local.set("AverageOnContam", value);
        init();
        EXPECT_FALSE(lac.avg_on_contam) << value;
    }
}

TEST_F(LogAverage, IgnoringAFlushFollowsTheBypassUnlessConfigured) {
    local.set("AverageOnBypass", "0");
    init();
    EXPECT_FALSE(lac.avg_on_bypass);
    EXPECT_FALSE(lac.ignore_flush);
    local.set("IgnoreFlush", "1");
    init();
    EXPECT_FALSE(lac.avg_on_bypass);
    EXPECT_TRUE(lac.ignore_flush);
}

TEST_F(LogAverage, TheSpinUpTimeIsSecondsOrMinutesOrHours) {
    const std::pair<const char *, double> times[] = {
        {"90", 90}, {"5:00", 300}, {"1:00:00", 3600}, {"0:01.5", 1.5}};
    for (const auto &[text, seconds] : times) {
        local.set("SpinupTime", text);
        const FTIME before = UTIL_ftime();
        init();
        EXPECT_GE(lac.spinup_done, before + seconds);
        EXPECT_LE(lac.spinup_done, UTIL_ftime() + seconds);
    }
}

TEST_F(LogAverage, TheStationsSpinUpTimeHoldsWhereTheDaemonHasNone) {
    root.set("Global;SpinupTime", "1000");
    init();
    EXPECT_GT(lac.spinup_done, UTIL_ftime() + 900);
    local.set("SpinupTime", "10");
    init();
    EXPECT_LT(lac.spinup_done, UTIL_ftime() + 900);
}

// ---- Averaging now ----

TEST_F(LogAverage, WithASpinUpOf5MinutesAveragingBeginsAfter300Seconds) {
    local.set("SpinupTime", "5:00");
    init();
    EXPECT_FALSE(LOG_avg_averaging(&lac));
    lac.spinup_done -= 299;
    EXPECT_FALSE(LOG_avg_averaging(&lac));
    lac.spinup_done -= 1;
    EXPECT_TRUE(LOG_avg_averaging(&lac));
}

TEST_F(LogAverage, ContaminationStopsAveragingUnlessConfigured) {
    init();
    contaminate(TRUE);
    EXPECT_TRUE(LOG_avg_averaging(&lac));
    lac.avg_on_contam = FALSE;
    EXPECT_FALSE(LOG_avg_averaging(&lac));
    contaminate(FALSE);
    EXPECT_TRUE(LOG_avg_averaging(&lac));
}

TEST_F(LogAverage, ABypassStopsAveragingUnlessConfigured) {
    init();
    bypass(TRUE);
    EXPECT_TRUE(LOG_avg_averaging(&lac));
    lac.avg_on_bypass = FALSE;
    EXPECT_FALSE(LOG_avg_averaging(&lac));
    bypass(FALSE);
    EXPECT_TRUE(LOG_avg_averaging(&lac));
}

TEST_F(LogAverage, AFlushStopsAveragingUntilItsEndUnlessIgnored) {
    local.set("IgnoreFlush", "0");
    init();
    flush(UTIL_ftime() + 1000);
    EXPECT_FALSE(LOG_avg_averaging(&lac));
    lac.ignore_flush = TRUE;
    EXPECT_TRUE(LOG_avg_averaging(&lac));
    lac.ignore_flush = FALSE;
    lac.flush_until = UTIL_ftime() - 0.001;
    EXPECT_TRUE(LOG_avg_averaging(&lac));
}

// ---- The flush ----

TEST_F(LogAverage, AFlushOnlyEverBecomesLonger) {
    init();
    flush(-1.0);
    EXPECT_EQ(lac.flush_until, -1.0);
    flush(1000);
    EXPECT_EQ(lac.flush_until, 1000);
    flush(-1.0);
    EXPECT_EQ(lac.flush_until, 1000);
    flush(999);
    EXPECT_EQ(lac.flush_until, 1000);
    flush(1001);
    EXPECT_EQ(lac.flush_until, 1001);
}

TEST_F(LogAverage, AFlushWithoutATimeChangesNothing) {
    init();
    flush(std::nan(""));
    EXPECT_EQ(lac.flush_until, -1.0);
    flush(1000);
    flush(std::nan(""));
    EXPECT_EQ(lac.flush_until, 1000);
}

TEST_F(LogAverage, AFlushWithoutAnEndIsLaterThanAnyOther) {
    init();
    flush(1000);
    flush(HUGE_VAL);
    EXPECT_EQ(lac.flush_until, HUGE_VAL);
    flush(2000);
    EXPECT_EQ(lac.flush_until, HUGE_VAL);
}

TEST_F(LogAverage, ContaminationWhileAveragedAllTheSameSetsTheFlagButNotTheFlush) {
    init();
    contaminate(TRUE, 5000);
    EXPECT_TRUE(lac.contaminated);
    EXPECT_EQ(lac.flush_until, -1.0);
}

TEST_F(LogAverage, ContaminationThatStopsAveragingExtendsTheFlush) {
    local.set("AverageOnContam", "0");
    init();
    contaminate(TRUE, 5000);
    EXPECT_EQ(lac.flush_until, 5000);
    contaminate(FALSE, 4000);
    EXPECT_FALSE(lac.contaminated);
    EXPECT_EQ(lac.flush_until, 5000);
}

TEST_F(LogAverage, ABypassExtendsTheFlushOnlyWhereItStopsAveraging) {
    init();
    bypass(TRUE, 5000);
    EXPECT_EQ(lac.flush_until, -1.0);
    lac.avg_on_bypass = FALSE;
    bypass(FALSE, 6000);
    EXPECT_FALSE(lac.bypassed);
    EXPECT_EQ(lac.flush_until, 6000);
}

// ---- Flags ----

TEST_F(LogAverage, ContaminationFlagsWhileNotContaminatedChangeNothing) {
    init();
    flags(0xFFFF);
    EXPECT_EQ(lac.persistflags, 0);
}

TEST_F(LogAverage, ContaminationFlagsAreCollectedWhileContaminated) {
    const std::pair<WORD, WORD> cases[] = {{0, 2}, {1, 2}, {2, 1}, {4, 5}, {6, 5}, {8, 2}};
    for (const auto &[reported, expected] : cases) {
        init();
        contaminate(TRUE);
        flags(reported);
        EXPECT_EQ(lac.persistflags, expected) << reported;
    }
    flags(4);
    EXPECT_EQ(lac.persistflags, 2 | 5);
}

TEST_F(LogAverage, TheCutPoint1SetsItsFlag) {
    init();
    cut(2);
    EXPECT_EQ(lac.persistflags, 0);
    EXPECT_EQ(lac.cp_val, 2);
    cut(1);
    EXPECT_EQ(lac.persistflags, 16);
    cut(0);
    EXPECT_EQ(lac.persistflags, 16);
    EXPECT_EQ(lac.cp_val, 0);
}

struct PeriodCase {
    BOOL contaminated;
    int cp_val;
    WORD persist, expected;
};

TEST_F(LogAverage, ANewAverageTakesTheCollectedFlagsAndBeginsAnew) {
    const PeriodCase cases[] = {
        {FALSE, 0, 0x1F | 0x8000, 8 | 0x8000},
        {TRUE, 0, 0x1F, 0xF},
        {FALSE, 2, 0, 16},
        {FALSE, 1, 16, 16},
        {FALSE, 1, 0, 0},
        {FALSE, 7, 16 | 3, 16},
    };
    for (const PeriodCase &one : cases) {
        init();
        lac.contaminated = one.contaminated;
        lac.cp_val = one.cp_val;
        lac.persistflags = one.persist;
        new_average();
        EXPECT_EQ(lac.systemflags, one.persist);
        EXPECT_EQ(lac.persistflags, one.expected);
    }
}

TEST_F(LogAverage, EffectiveFlagsWhileNotContaminatedNeverCarryThoseOfContamination) {
    init();
    lac.persistflags = 0xFFFF;
    EXPECT_EQ(LOG_avg_effective_flags(&lac), 0);
    lac.systemflags = 0xFFFF;
    EXPECT_EQ(LOG_avg_effective_flags(&lac), 0xFFE8);
}

TEST_F(LogAverage, EffectiveFlagsAreThoseOfTheMomentAndTheDaemonsOwn) {
    init();
    lac.systemflags = 0x0108;
    lac.persistflags = 0xFFF5;
    contaminate(TRUE);
    EXPECT_EQ(LOG_avg_effective_flags(&lac), 0x010D);
    cut(3);
    EXPECT_EQ(LOG_avg_effective_flags(&lac), 0x011D);
}

// ---- Messages ----

TEST_F(LogAverage, MessagesWithoutARecordAreIgnored) {
    init();
    lac.contaminated = lac.bypassed = TRUE;
    const LOG_avg_control before = lac;
    for (const NETMSG_type type : {MSG_LOG_AVG_CONTAMINATION, MSG_LOG_AVG_BYPASS, MSG_LOG_AVG_FLUSH,
                                   MSG_LOG_AVG_CONTAM_FLAGS, MSG_CUTPOINTS_STATUS, MSG_LOG_INFO})
        deliver_at(type, nullptr, nullptr);
    ZEBMSG_proc_msg unknown = {};
    const auto *proc = static_cast<const ZEBMSG_library_msg_process *>(lnk.cl_lib_cbs.head->data);
    proc->cb(&unknown, &lnk, proc->param);
    EXPECT_EQ(memcmp(&before, &lac, sizeof lac), 0);
}

TEST(LogAverageLink, MessagesArriveThroughALink) {
    StderrCapture err;
    ScopedEnv no_server("ZEB2SERVER", nullptr);
    ScriptedServer server;
    ZEBMSG_link lnk = {};
    ZEBMSG_connect_params params = {"neph", nullptr};
    ASSERT_TRUE(ZEBMSG_multi_connect(&params, &lnk));
    ASSERT_TRUE(server.accept());
    HookLoop loop(&lnk);
    LOG_avg_control lac = {};
    LOG_avg_control_init(&lac, nullptr, nullptr);
    LOG_avg_register_link(&lac, &lnk);
    const NET_LOG_AVG_Contamination contamination = {TRUE, -1.0};
    server.send(MSG_LOG_AVG_CONTAMINATION, "contam", &contamination, sizeof contamination,
                "NET_LOG_AVG_Contamination");
    const NET_LOG_AVG_Flush flush = {5000};
    server.send(MSG_LOG_AVG_FLUSH, "contam", &flush, sizeof flush, "NET_LOG_AVG_Flush");
    NET_CUTPOINTS_Status status = {};
    status.cp_cur.val = 1;
    server.send(MSG_CUTPOINTS_STATUS, "cuts", &status, sizeof status, "NET_CUTPOINTS_Status");
    ASSERT_TRUE(loop.run_until([&] { return lnk.rx_lib_queue.count == 3; }));
    ZEBMSG_process_messages(
        &lnk, [](ZEBMSG_proc_msg *, void *) {}, nullptr);
    EXPECT_TRUE(lac.contaminated);
    EXPECT_EQ(lac.flush_until, 5000);
    EXPECT_EQ(lac.cp_val, 1);
    EXPECT_EQ(lac.persistflags, 16);
    ZEBMSG_multi_destroy(&lnk);
}

} // namespace
