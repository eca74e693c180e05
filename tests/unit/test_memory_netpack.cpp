// Packing, messages and frames without memory: each allocation in turn fails, is reported, and does
// no harm.
#include "fail_alloc.h"
#include "netmsg.h"
#include "netpack_catalogue.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace zeb::netpack;
using namespace zeb::test;
using testing::ExitedWithCode;
using testing::HasSubstr;

namespace {

constexpr char k_report[] = "Cannot allocate memory";
const Whole k_whole = {-2, {{1.5, "ab"}, {0.0, ""}}, 2.0};

// Runs `action` with a catalogue that was never used, its first, second ... allocation failing,
// until none is left to fail; then again with memory, which must succeed: nothing half made stays
// behind. Returns how many could fail.
int for_each_failure(Alloc kind, const std::function<bool(const Catalogue &)> &action) {
    for (int n = 1;; ++n) {
        TestCatalogue catalogue(sample_structures(),
                                {{static_cast<NETMSG_type>(0), "MSG_WHOLE", "*", "Whole"}});
        StderrCapture errors;
        bool failed, succeeded;
        {
            FailingAlloc failing(kind, n);
            succeeded = action(catalogue.get());
            failed = failing.failed();
        }
        const std::string text = errors.finish();
        EXPECT_TRUE(action(catalogue.get()));
        if (!failed) {
            EXPECT_TRUE(succeeded);
            EXPECT_EQ(text, "");
            return n - 1;
        }
        EXPECT_THAT(text, HasSubstr("assertion failed (netpack_"));
        EXPECT_THAT(text, HasSubstr(k_report));
    }
}

NETPACK_message whole_message() {
    NETPACK_message message = {};
    message.type = static_cast<NETMSG_type>(0);
    message.src_name = const_cast<char *>("me");
    message.pds = const_cast<Whole *>(&k_whole);
    message.sz_ds = sizeof k_whole;
    message.ds_name = const_cast<char *>("Whole");
    return message;
}

} // namespace

TEST(NetpackMemory, PackingGivesAllOrNull) {
    const Bytes expected = load_hex("whole.package.hex");
    for (Alloc kind : {Alloc::fresh, Alloc::resized}) {
        const int failures = for_each_failure(kind, [&](const Catalogue &catalogue) {
            size_t size = 0;
            void *package = package_ds(catalogue, &k_whole, "Whole", sizeof k_whole, &size);
            if (package == nullptr)
                return false;
            EXPECT_EQ(size, expected.size());
            EXPECT_EQ(memcmp(package, expected.data(), expected.size()), 0);
            free(package);
            return true;
        });
        EXPECT_GT(failures, 0);
    }
}

TEST(NetpackMemory, UnpackingLeavesAWholeRecord) {
    const Bytes package = load_hex("whole.package.hex");
    for (Alloc kind : {Alloc::fresh, Alloc::resized}) {
        const int failures = for_each_failure(kind, [&](const Catalogue &catalogue) {
            Whole whole;
            memset(&whole, 0xEE, sizeof whole);
            const size_t used =
                unpack_ds(catalogue, package.data(), package.size(), &whole, sizeof whole, "Whole");
            EXPECT_EQ(+whole.n, used == 0 ? 0x55555555 : -2);
            EXPECT_TRUE(whole.parts[0].v == 1.5 || whole.parts[0].v == 9.999e-99);
            EXPECT_TRUE(whole.parts[1].v == 0.0 || whole.parts[1].v == 9.999e-99);
            EXPECT_EQ(whole.parts[1].tag[3], 0);
            return used == package.size() && whole.parts[0].v == 1.5;
        });
        EXPECT_GT(failures, 0);
    }
}

TEST(NetpackMemory, MissingValuesAreFilledAllTheSame) {
    for (Alloc kind : {Alloc::fresh, Alloc::resized})
        for_each_failure(kind, [&](const Catalogue &catalogue) {
            Whole whole;
            fill_mvc(catalogue, &whole, "Whole", sizeof whole);
            EXPECT_EQ(+whole.n, 0x55555555);
            EXPECT_EQ(+whole.parts[1].v, 9.999e-99);
            return true;
        });
}

TEST(NetpackMemory, PackingAMessageGivesAllOrNull) {
    for (Alloc kind : {Alloc::fresh, Alloc::resized}) {
        const int failures = for_each_failure(kind, [](const Catalogue &catalogue) {
            const NETPACK_message message = whole_message();
            size_t size = 1;
            void *data = package_message(catalogue, &message, &size);
            EXPECT_EQ(size == 0, data == nullptr);
            free(data);
            return data != nullptr;
        });
        EXPECT_GT(failures, 0);
    }
}

TEST(NetpackMemory, UnpackingAMessageFailsEmpty) {
    TestCatalogue catalogue(sample_structures(),
                            {{static_cast<NETMSG_type>(0), "MSG_WHOLE", "*", "Whole"}});
    const NETPACK_message message = whole_message();
    size_t size = 0;
    void *data = package_message(catalogue.get(), &message, &size);
    NETPACK_message first; // makes the plans
    ASSERT_TRUE(unpack_message(catalogue.get(), data, size, &first));
    NETPACK_msg_free(&first);
    for (int n = 1;; ++n) {
        NETPACK_message out;
        StderrCapture errors;
        FailingAlloc failing(Alloc::fresh, n);
        const bool accepted = unpack_message(catalogue.get(), data, size, &out);
        const bool failed = failing.failed();
        EXPECT_NE(accepted, failed);
        if (accepted) {
            NETPACK_msg_free(&out);
            EXPECT_EQ(n, 4); // source, structure's name and record
            break;
        }
        EXPECT_EQ(out.src_name, nullptr);
        EXPECT_THAT(errors.finish(), HasSubstr(k_report));
    }
    free(data);
}

TEST(NetpackMemory, CopyEndsTheProcess) {
    const NETPACK_message message = whole_message();
    for (int n = 1; n <= 3; ++n) // source, record and structure's name
        EXPECT_EXIT(
            {
                FailingAlloc failing(Alloc::fresh, n);
                NETPACK_message copy;
                NETPACK_msg_copy(&message, &copy);
            },
            ExitedWithCode(255), k_report);
}

TEST(NetmsgMemory, ReceivingDropsTheInput) {
    const Bytes frames = load_hex("three.frames.hex");
    NETMSG_buffer buffer;
    NETMSG_init_buffer(&buffer);
    int received = 0;
    const auto count = [](void *, size_t, void *param) { ++*static_cast<int *>(param); };
    {
        StderrCapture errors;
        FailingAlloc failing(Alloc::fresh, 1);
        NETMSG_accept_data(frames.data(), frames.size(), &buffer, count, &received);
        EXPECT_THAT(errors.finish(), HasSubstr("assertion failed (netmsg.cpp:"));
    }
    EXPECT_EQ(received, 0);
    NETMSG_accept_data(frames.data(), frames.size(), &buffer, count, &received);
    EXPECT_EQ(received, 3);
    NETMSG_delete_buffer(&buffer);
}

TEST(NetmsgMemory, SendingEndsTheProcess) {
    const auto supply = [](void **data, size_t *size, void *) {
        static char payload[] = "abc";
        *data = payload;
        *size = 3;
    };
    EXPECT_EXIT(
        {
            NETMSG_buffer buffer;
            NETMSG_init_buffer(&buffer);
            char stream[32];
            size_t size;
            FailingAlloc failing(Alloc::fresh, 1);
            NETMSG_generate_data(stream, sizeof stream, &size, &buffer, supply, nullptr);
        },
        ExitedWithCode(255), k_report);
}
