// Shared variables when memory runs out.
#include "fail_alloc.h"
#include "io_testing.h"

#include <cstdlib>
#include <memory>

using namespace zeb::test;
using testing::HasSubstr;

namespace {

BOOL read_nothing(const char *, void *, double *) {
    return FALSE;
}
void set_nothing(double, const char *, void *) {}

void define_input(IO_define_real_input_in *, IO_define_real_input_out *out) {
    out->valid = TRUE;
    out->get = read_nothing;
}
void define_output(IO_define_real_output_in *, IO_define_real_output_out *out) {
    out->valid = TRUE;
    out->set = set_nothing;
}

class IoWithoutMemory : public testing::Test {
  protected:
    ~IoWithoutMemory() override { IO_cleanup(); }
    // Fails the first, second, third ... allocation of what is done until none is left to fail.
    template <typename Done> void fail_each(Done done) {
        int n = 0;
        for (bool failed = true; failed && n < 200;) {
            ++n;
            done([&] { return std::make_unique<FailingAlloc>(Alloc::fresh, n); }, failed);
        }
        EXPECT_GT(n, 1);
        EXPECT_LT(n, 200);
    }
    StderrCapture err;
    ChannelTree tree{{"T1", "1", "1;2"}, {"T2", "2", nullptr}};
};

TEST_F(IoWithoutMemory, InitSkipsWhatFindsNoRoom) {
    fail_each([](auto fail, bool &failed) {
        const auto failing = fail();
        EXPECT_EQ(IO_init(), TRUE);
        failed = failing->failed();
        EXPECT_EQ(g_io_real.count + g_io_digital.count, failed ? 4 : 5);
    });
}

TEST_F(IoWithoutMemory, InputsAndTablesAreWholeOrAbsent) {
    const LOG_map_defn base[] = {
        {nullptr, nullptr, nullptr, LVT_END, nullptr, nullptr, nullptr, nullptr, nullptr}};
    fail_each([&](auto fail, bool &failed) {
        IO_real_input_def inputs;
        IO_real_input_init(&inputs);
        LOG_map_defn *rows = nullptr;
        char *text = nullptr;
        {
            const auto failing = fail();
            IO_real_input_build(&inputs, tree.get(), define_input, base, &rows, "time", &text);
            failed = failing->failed();
        }
        if (rows != nullptr) {
            EXPECT_EQ(rows[inputs.count].type, LVT_END);
        }
        if (text != nullptr) {
            EXPECT_EQ(strncmp(text, "time", 4), 0);
        }
        if (!failed) {
            EXPECT_STREQ(text, "time;T1;T2");
        }
        free(rows);
        free(text);
        IO_real_input_delete(&inputs);
    });
    EXPECT_THAT(err.text(), HasSubstr("assertion failed (io_input.cpp:"));
    EXPECT_THAT(err.text(), HasSubstr(": Cannot allocate memory"));
}

TEST_F(IoWithoutMemory, AFailedTableLeavesTheCallersPointersAsTheyWere) {
    IO_real_input_def inputs;
    IO_real_input_init(&inputs);
    char kept = 'k';
    char *text = &kept;
    LOG_map_defn *rows = nullptr;
    {
        const FailingAlloc failing(Alloc::fresh, 1);
        IO_real_input_build(&inputs, nullptr, define_input, nullptr, &rows, "time", &text);
        EXPECT_TRUE(failing.failed());
    }
    EXPECT_EQ(rows, nullptr);
    EXPECT_EQ(text, &kept);
    {
        const FailingAlloc failing(Alloc::fresh, 2);
        IO_real_input_build(&inputs, nullptr, define_input, nullptr, &rows, "time", &text);
        EXPECT_TRUE(failing.failed());
    }
    EXPECT_NE(rows, nullptr);
    EXPECT_EQ(text, &kept);
    free(rows);
}

TEST_F(IoWithoutMemory, OutputsAreWholeOrAbsent) {
    fail_each([&](auto fail, bool &failed) {
        IO_real_output_def outputs;
        IO_real_output_init(&outputs);
        {
            const auto failing = fail();
            IO_real_output_build(&outputs, tree.get(), define_output);
            failed = failing->failed();
        }
        if (!failed) {
            EXPECT_EQ(outputs.count, 2);
        }
        IO_real_output_delete(&outputs);
    });
}

TEST_F(IoWithoutMemory, AReceivedValueThatFindsNoRoomIsSkipped) {
    IO_init();
    ZEBMSG_link lnk = {};
    lnk.fh = lnk.clear_fh = -1;
    IO_register_link(&lnk);
    const auto *registered = static_cast<ZEBMSG_library_msg_process *>(lnk.cl_lib_cbs.head->data);
    NET_IO_MultiReal record = {};
    strcpy(record.chans[0].name, "T1");
    record.chans[0].val = 1;
    strcpy(record.chans[1].name, "T2");
    record.chans[1].val = 2;
    record.n = 2;
    char sender[] = "ain";
    ZEBMSG_proc_msg message = {NETPACK_find_msg_by_type(MSG_IO_INSTANT),
                               NETPACK_find_ds("NET_IO_MultiReal"),
                               1,
                               sender,
                               nullptr,
                               &record};
    {
        const FailingAlloc failing(Alloc::fresh, 1);
        registered->cb(&message, &lnk, registered->param);
        EXPECT_TRUE(failing.failed());
    }
    EXPECT_EQ(IO_lookup("T1"), MVC);
    EXPECT_EQ(IO_lookup("T2"), 2.0);
    ZEBMSG_multi_destroy(&lnk);
}

} // namespace
