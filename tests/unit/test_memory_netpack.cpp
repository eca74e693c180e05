// Packing, messages and frames without memory: each allocation in turn fails, is reported, and does
// no harm.
#include "fail_alloc.h"
#include "netmsg.h"
#include "netpack_samples.h"

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

namespace {

std::vector<std::string> names_of_whole(const Catalogue &catalogue) {
    std::vector<std::string> names;
    names.reserve(8);
    iterate_ds_raw(
        catalogue, &k_whole, "Whole", sizeof k_whole,
        [](char *name, NETPACK_ds_iterator_types, void *, size_t, void *param) {
            static_cast<std::vector<std::string> *>(param)->emplace_back(name);
        },
        &names, "");
    return names;
}

} // namespace

TEST(NetpackMemory, IterationLeavesOutNothingButWhatHasNoName) {
    for (Alloc kind : {Alloc::fresh, Alloc::resized})
        for_each_failure(kind, [](const Catalogue &catalogue) {
            const size_t count = names_of_whole(catalogue).size();
            EXPECT_GE(count, 4u);
            return count == 6;
        });
}

TEST(NetpackMemory, IterationSkipsTheValueWithoutAName) {
    TestCatalogue catalogue(sample_structures());
    names_of_whole(catalogue.get()); // makes the plans
    StderrCapture errors;
    {
        FailingAlloc failing(Alloc::fresh, 1);
        EXPECT_THAT(
            names_of_whole(catalogue.get()),
            testing::ElementsAre("parts_1_tag", "parts_1_v", "parts_2_tag", "parts_2_v", "when"));
    }
    FailingAlloc failing(Alloc::fresh, 2); // the prefix of the first element
    EXPECT_THAT(names_of_whole(catalogue.get()),
                testing::ElementsAre("n", "parts_2_tag", "parts_2_v", "when"));
    EXPECT_EQ(occurrences(errors.finish(), "assertion failed (netpack_text.cpp:"), 2u);
}

TEST(NetpackMemory, DumpStopsWithoutAPrefix) {
    TestCatalogue catalogue(sample_structures());
    const auto print = [&](FILE *stream) {
        print_ds_raw(catalogue.get(), &k_whole, "Whole", sizeof k_whole, stream, "", 0);
    };
    printed(print); // makes the plans
    StderrCapture errors;
    EXPECT_EQ(printed([&](FILE *stream) {
                  FailingAlloc failing(Alloc::fresh, 1);
                  print(stream);
              }),
              "n(INT)=-2\nparts(BIN)[2]=");
    EXPECT_THAT(errors.finish(), HasSubstr(k_report));
}

TEST(NetpackMemory, DumpOfAPackageStopsWithoutAPrefix) {
    TestCatalogue catalogue(sample_structures());
    const Bytes package = load_hex("whole.package.hex");
    StderrCapture errors;
    EXPECT_EQ(printed([&](FILE *stream) {
                  FailingAlloc failing(Alloc::fresh, 1);
                  print_ds(catalogue.get(), package.data(), package.size(), stream, "");
              }),
              "*Structure=Whole\nn(INT)=-2\nparts(BIN)[2]=");
    EXPECT_THAT(errors.finish(), HasSubstr(k_report));
}

TEST(NetpackMemory, TabularHeaderStopsWithoutAPrefix) {
    TestCatalogue catalogue(sample_structures());
    QueuedText queue;
    const NETDSD_entry *entry = find_structure(catalogue.get(), "Whole"); // makes the tables
    print_tabular_header(catalogue.get(), entry, queue.fh(), "");
    EXPECT_EQ(queue.take(), "n,parts_1_tag,parts_1_v,parts_2_tag,parts_2_v,when");
    StderrCapture errors;
    {
        FailingAlloc failing(Alloc::fresh, 1);
        print_tabular_header(catalogue.get(), entry, queue.fh(), "");
    }
    EXPECT_EQ(queue.take(), "n,");
    EXPECT_THAT(errors.finish(), HasSubstr("assertion failed (netpack_text.cpp:"));
}

TEST(NetpackMemory, TabularValuesNeedTheQueueOnly) {
    for (Alloc kind : {Alloc::fresh, Alloc::resized})
        for (int n = 1;; ++n) {
            TestCatalogue catalogue(sample_structures());
            QueuedText queue;
            StderrCapture errors;
            bool failed;
            {
                FailingAlloc failing(kind, n);
                print_tabular(catalogue.get(), &k_whole, "Whole", sizeof k_whole, queue.fh());
                failed = failing.failed();
            }
            const std::string text = queue.take();
            const std::string report = errors.finish();
            const std::string row = "-2,ab,+1.500000E+00,,+0.000000E+00,19700101_0000020000";
            if (!failed) {
                EXPECT_EQ(text, row);
                break;
            }
            EXPECT_THAT(report, HasSubstr(k_report));
            if (report.find("zebfile") == std::string::npos) {
                EXPECT_EQ(text, row);
            }
        }
}

TEST(NetpackMemory, ReadingALineGivesAllOrNothing) {
    for (Alloc kind : {Alloc::fresh, Alloc::resized}) {
        for_each_failure(kind, [](const Catalogue &catalogue) {
            Whole whole = {};
            const size_t columns = read_tabular(catalogue, &whole, "Whole", sizeof whole,
                                                "-2,ab,1.5,,0,19700101_0000020000");
            EXPECT_EQ(+whole.n, columns == 0 ? 0 : -2);
            return columns == 6;
        });
    }
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
