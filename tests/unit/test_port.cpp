#include "port.h"

#include <cstring>
#include <gtest/gtest.h>

TEST(Port, SwapsSixteenBits) {
    EXPECT_EQ(PORT_SwapBytesUS(0x1234), 0x3412);
    EXPECT_EQ(PORT_SwapBytesS(0x00FF), static_cast<int16_t>(0xFF00));
}

TEST(Port, SwapsThirtyTwoBits) {
    EXPECT_EQ(PORT_SwapBytesUI(0x12345678u), 0x78563412u);
    EXPECT_EQ(PORT_SwapBytesUL(0x12345678u), 0x78563412u);
    EXPECT_EQ(PORT_SwapBytesI(1), 0x01000000);
    EXPECT_EQ(PORT_SwapBytesL(1), 0x01000000);
}

TEST(Port, SwapsFloatsInPlace) {
    const unsigned char image[4] = {1, 2, 3, 4};
    float value;
    memcpy(&value, image, sizeof value);
    PORT_SwapBytesIPF(&value);
    const unsigned char swapped[4] = {4, 3, 2, 1};
    EXPECT_EQ(memcmp(&value, swapped, sizeof value), 0);
    EXPECT_EQ(PORT_SwapBytesF(PORT_SwapBytesF(1.5f)), 1.5f);
}

TEST(Port, SwapsDoublesInPlace) {
    const unsigned char image[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    double value;
    memcpy(&value, image, sizeof value);
    PORT_SwapBytesIPD(&value);
    const unsigned char swapped[8] = {8, 7, 6, 5, 4, 3, 2, 1};
    EXPECT_EQ(memcmp(&value, swapped, sizeof value), 0);
    EXPECT_EQ(PORT_SwapBytesD(PORT_SwapBytesD(-2.25)), -2.25);
}
