#include "netpack_catalogue.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using namespace zeb::test;
using namespace zeb::netpack;

namespace {

bool has(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

// The value of a package's single element as it arrives in a local field of another type.
template <class To>
To converted(NETDSD_field_type from, const void *value, size_t size, NETDSD_field_type to) {
    OneField local(to, 1, sizeof(To));
    PackageText package;
    package.open("One", 1).field("v", from).raw(value, size);
    To result = {};
    StderrCapture err;
    EXPECT_EQ(unpack(local.get(), package.bytes(), &result, "One", sizeof result),
              package.bytes().size());
    EXPECT_TRUE(has(err.finish(), "WARNING: Data type of field \"v\" in package of type \"One\" "
                                  "does not match the local description, but the types were close "
                                  "enough to translate ("));
    return result;
}

template <class To, class From>
To converted(NETDSD_field_type from, From value, NETDSD_field_type to) {
    return converted<To>(from, &value, sizeof value, to);
}

} // namespace

TEST(Convert, IntegersAreAssignedAtTheLocalWidth) {
    EXPECT_EQ(converted<int16_t>(NETDSD_FT_INT, int32_t{0x12345}, NETDSD_FT_SHORT), 0x2345);
    EXPECT_EQ(converted<int32_t>(NETDSD_FT_SHORT, int16_t{-3}, NETDSD_FT_INT), -3);
    EXPECT_EQ(converted<int32_t>(NETDSD_FT_CHAR, int8_t{-3}, NETDSD_FT_INT), -3);
    EXPECT_EQ(converted<int32_t>(NETDSD_FT_BYTE, BYTE{253}, NETDSD_FT_INT), 253);
    EXPECT_EQ(converted<int32_t>(NETDSD_FT_UINT, 0xFFFFFFFFu, NETDSD_FT_INT), -1);
    EXPECT_EQ(converted<BOOL>(NETDSD_FT_INT, int32_t{1}, NETDSD_FT_BOOL), 1);
    EXPECT_EQ(converted<uint32_t>(NETDSD_FT_BOOL, BOOL{1}, NETDSD_FT_UINT), 1u);
    EXPECT_EQ(converted<TIME>(NETDSD_FT_SIZET, SIZET{1400000000}, NETDSD_FT_TIME), 1400000000);
}

TEST(Convert, IntegersIntoFloatingByValue) {
    EXPECT_EQ(converted<double>(NETDSD_FT_INT, int32_t{0x55555555}, NETDSD_FT_DOUBLE),
              1431655765.0);
    EXPECT_EQ(converted<double>(NETDSD_FT_UINT, 0xFFFFFFFFu, NETDSD_FT_DOUBLE), 4294967295.0);
    EXPECT_EQ(converted<double>(NETDSD_FT_LONG, int32_t{-5}, NETDSD_FT_FTIME), -5.0);
    EXPECT_EQ(converted<float>(NETDSD_FT_TIME, int32_t{-1}, NETDSD_FT_FLOAT), -1.0f);
}

TEST(Convert, FloatingIsTruncatedTowardsZero) {
    EXPECT_EQ(converted<int32_t>(NETDSD_FT_DOUBLE, -2.9, NETDSD_FT_INT), -2);
    EXPECT_EQ(converted<uint16_t>(NETDSD_FT_FLOAT, 2.9f, NETDSD_FT_USHORT), 2);
    EXPECT_EQ(converted<TIME>(NETDSD_FT_FTIME, 1400000000.75, NETDSD_FT_TIME), 1400000000);
    EXPECT_EQ(converted<BOOL>(NETDSD_FT_DOUBLE, 1.0, NETDSD_FT_BOOL), 1);
}

TEST(Convert, FloatingBeyondTheRangeTakesTheNearestLimit) {
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(converted<int32_t>(NETDSD_FT_DOUBLE, 1e300, NETDSD_FT_INT), 0x7FFFFFFF);
    EXPECT_EQ(converted<int32_t>(NETDSD_FT_DOUBLE, -infinity, NETDSD_FT_INT), INT32_MIN);
    EXPECT_EQ(converted<uint32_t>(NETDSD_FT_DOUBLE, -1.0, NETDSD_FT_UINT), 0u);
    EXPECT_EQ(converted<BYTE>(NETDSD_FT_DOUBLE, 300.0, NETDSD_FT_BYTE), 255);
    EXPECT_EQ(converted<int32_t>(NETDSD_FT_DOUBLE, std::nan(""), NETDSD_FT_INT), 0);
    EXPECT_EQ(converted<float>(NETDSD_FT_DOUBLE, 9.999e-99, NETDSD_FT_FLOAT), 0.0f);
}

TEST(Convert, EveryPairOfNumericTypesHoldsASmallNumber) {
    for (int from = 0; from < 28; ++from) {
        for (int to = 0; to < 28; ++to) {
            OneField source(static_cast<NETDSD_field_type>(from), 1, g_netpack_field_sizes[from]);
            OneField local(static_cast<NETDSD_field_type>(to), 1, g_netpack_field_sizes[to]);
            OneField wide(NETDSD_FT_DOUBLE, 1, 8);
            StderrCapture err;
            const double value = 100;
            char there[8], back[8];
            double result = 0;
            ASSERT_NE(unpack(source.get(), pack(wide.get(), &value, "One", 8), there, "One",
                             source.size()),
                      0u);
            ASSERT_NE(unpack(local.get(), pack(source.get(), there, "One", source.size()), back,
                             "One", local.size()),
                      0u);
            ASSERT_NE(
                unpack(wide.get(), pack(local.get(), back, "One", local.size()), &result, "One", 8),
                0u);
            EXPECT_EQ(result, 100.0) << from << " -> " << to;
        }
    }
}
