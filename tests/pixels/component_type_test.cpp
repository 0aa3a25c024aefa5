#include "bic/pixels/component_type.hpp"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>

using namespace bic;
using C8 = Component<std::uint8_t>;
using C16 = Component<std::uint16_t>;
using CF = Component<float>;

TEST(ComponentType, ShiftPathBetweenIntegerDepths) {
    EXPECT_EQ(C8::as16BitLevel(255), 65280);
    EXPECT_EQ(C16::from8BitLevel(255), 65280);
    EXPECT_EQ(C16::as8BitLevel(65535), 255);
    EXPECT_EQ(C16::as8BitLevel(255), 0);
    EXPECT_EQ(C8::from16BitLevel(65535), 255);
    EXPECT_EQ(C8::from16BitLevel(511), 1);
    EXPECT_EQ(C8::as8BitLevel(77), 77);
    EXPECT_EQ(C16::as16BitLevel(1234), 1234);
}

TEST(ComponentType, FloatRuleRoundsHalfAwayAndClamps) {
    EXPECT_EQ(C8::fromFloatValue(0.5f), 128);
    EXPECT_EQ(C8::fromFloatValue(1.7f), 255);
    EXPECT_EQ(C8::fromFloatValue(-3.0f), 0);
    EXPECT_EQ(C8::fromFloatValue(0.2f), 51);
    EXPECT_EQ(C16::fromFloatValue(0.5f), 32768);
    EXPECT_EQ(CF::as8BitLevel(1.2f), 255);
    EXPECT_EQ(CF::as8BitLevel(-0.2f), 0);
    EXPECT_EQ(CF::as16BitLevel(0.5f), 32768);
    EXPECT_FLOAT_EQ(CF::from8BitLevel(51), 0.2f);
    EXPECT_FLOAT_EQ(CF::from16BitLevel(65535), 1.0f);
    EXPECT_FLOAT_EQ(C8::floatValue(255), 1.0f);
    EXPECT_FLOAT_EQ(C16::floatValue(32768), 32768.0f / 65535.0f);
    EXPECT_EQ(CF::fromFloatValue(-7.5f), -7.5f);
}

TEST(ComponentType, WrappingArithmeticAndDifferences) {
    EXPECT_EQ(C8::wrappingAdd(200, 100), 44);
    EXPECT_EQ(C8::wrappingSub(10, 20), 246);
    EXPECT_EQ(C16::wrappingAdd(65535, 2), 1);
    EXPECT_EQ(C16::wrappingSub(0, 1), 65535);
    EXPECT_EQ(absDifference<std::uint8_t>(3, 250), 247);
    EXPECT_EQ(absDifference<std::uint16_t>(60000, 5), 59995);
    EXPECT_FLOAT_EQ(absDifference(0.25f, 1.0f), 0.75f);
    EXPECT_EQ(divide<std::uint8_t>(7, 2), 3);
    EXPECT_FLOAT_EQ(divide(1.0f, 4.0f), 0.25f);
}

TEST(ComponentType, BigEndianSwapsMultiByteComponents) {
    EXPECT_EQ(bigEndian<std::uint8_t>(0x12), 0x12);
    EXPECT_EQ(bigEndian<std::uint16_t>(0x0102), 0x0201);
    const float f = bigEndian(1.0f);
    std::uint8_t bytes[4];
    std::memcpy(bytes, &f, 4);
    EXPECT_EQ(bytes[0], 0x3F);
    EXPECT_EQ(bytes[1], 0x80);
    EXPECT_EQ(bigEndian(f), 1.0f);
}

TEST(ComponentTypeDeathTest, MisuseStops) {
    EXPECT_DEATH(CF::wrappingAdd(1, 2),
                 "Fatal error: Float32 componentes do not support overflowing addition.");
    EXPECT_DEATH(CF::wrappingSub(1, 2),
                 "Fatal error: Float32 componentes do not support overflowing subtraction.");
    EXPECT_DEATH(C8::fromFloatValue(NAN), "NaN");
    EXPECT_DEATH(CF::as16BitLevel(NAN), "NaN");
    EXPECT_DEATH(divide<std::uint16_t>(1, 0), "Division by zero");
}
