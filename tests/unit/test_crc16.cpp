#include "crc16.h"

#include "support.h"

#include <gtest/gtest.h>

namespace {

WORD crc_of(const char *hex) {
    CRC16_inittable();
    const zeb::test::Bytes bytes = zeb::test::from_hex(hex);
    return CRC16_calccrc(bytes.data(), bytes.size());
}

} // namespace

TEST(Crc16, OfTheNineDigitsIsTheCataloguedCheckValue) {
    EXPECT_EQ(crc_of("\"123456789\""), 0xBB3D);
}

TEST(Crc16, OfNoBytesIsZero) {
    CRC16_inittable();
    EXPECT_EQ(CRC16_calccrc("x", 0), 0);
    EXPECT_EQ(CRC16_calccrc(nullptr, 0), 0);
}

// One byte gives its table entry.
TEST(Crc16, OfOneByteIsTheTableEntry) {
    EXPECT_EQ(crc_of("00"), 0);
    EXPECT_EQ(crc_of("01"), 0xC0C1);
    EXPECT_EQ(crc_of("80"), 0xA001);
    EXPECT_EQ(crc_of("FF"), 0x4040);
}

TEST(Crc16, OfABlockWithItsCrcBehindItIsZero) {
    EXPECT_EQ(crc_of("\"123456789\" 3DBB"), 0);
}

TEST(Crc16, FillingTheTableAgainChangesNothing) {
    CRC16_inittable();
    EXPECT_EQ(crc_of("01"), 0xC0C1);
}
