#include "bic/pixels/color_value_formatting.hpp"

#include <cmath>
#include <gtest/gtest.h>

using namespace bic;

TEST(ColorValueFormattingType, RawAndStringValues) {
    EXPECT_EQ(ColorValueFormattingType::fromRawValue(1)->stringValue(), "BitLevel8");
    EXPECT_FALSE(ColorValueFormattingType::fromRawValue(3));
    EXPECT_FALSE(ColorValueFormattingType::fromRawValue(-1));
    EXPECT_EQ(ColorValueFormattingType::fromStringValue("BitLevel16")->rawValue(), 2);
    EXPECT_FALSE(ColorValueFormattingType::fromStringValue("percent"));
    const auto f8 = ColorValueFormattingType(ColorValueFormattingType::bitLevel8).formatter();
    EXPECT_NE(dynamic_cast<ColorValueFormatter8Bit*>(f8.get()), nullptr);
    EXPECT_NE(f8, ColorValueFormattingType(ColorValueFormattingType::bitLevel8).formatter());
    const auto pct = ColorValueFormattingType(ColorValueFormattingType::percent).formatter();
    EXPECT_EQ(*pct->stringForObjectValue(0.5), "50%");
}

TEST(ColorValueFormatter, ShowsTruncatedLevels) {
    const ColorValueFormatter8Bit f8;
    const ColorValueFormatter16Bit f16;
    EXPECT_EQ(*f8.stringForObjectValue(1.0), "255");
    EXPECT_EQ(*f8.stringForObjectValue(0.5), "127");
    EXPECT_EQ(*f16.stringForObjectValue(0.5), "32767");
    EXPECT_EQ(*f8.stringForObjectValue(-0.2), "0");
    EXPECT_EQ(*f8.stringForObjectValue(3.0), "255");
    EXPECT_EQ(*f8.stringForObjectValue(std::int64_t{1}), "255");
    EXPECT_FALSE(f8.stringForObjectValue(std::string("0.5")));
    EXPECT_FALSE(f8.stringForObjectValue(ns::Formatter::Object{}));
    EXPECT_FALSE(f8.stringForObjectValue(NAN));
}

TEST(ColorValueFormatter, ReadsLevelsBack) {
    const ColorValueFormatter8Bit f8;
    const ColorValueFormatter16Bit f16;
    ns::Formatter::Object value;
    std::string error;
    ASSERT_TRUE(f8.getObjectValue(value, "128", error));
    EXPECT_EQ(std::get<double>(value), double(128.0f / 255.0f));
    EXPECT_EQ(*f8.stringForObjectValue(value), "128"); // shown again as typed
    ASSERT_TRUE(f16.getObjectValue(value, "65535", error));
    EXPECT_EQ(std::get<double>(value), 1.0);
    ASSERT_TRUE(f8.getObjectValue(value, "", error));
    EXPECT_EQ(std::get<double>(value), 0.0);
    for (const char* bad : {"256", "-1", "12a", "abc", "99999999999"}) {
        error.clear();
        EXPECT_FALSE(f8.getObjectValue(value, bad, error)) << bad;
        EXPECT_EQ(error, "Invalid Value.");
    }
}

TEST(ColorValueFormatter, ValidatesWhileTyping) {
    const ColorValueFormatter8Bit f8;
    const ColorValueFormatter16Bit f16;
    std::string error;
    EXPECT_TRUE(f8.isPartialStringValid("", error));
    EXPECT_TRUE(f8.isPartialStringValid("25", error));
    EXPECT_TRUE(f16.isPartialStringValid("65535", error));
    EXPECT_FALSE(f16.isPartialStringValid("70000", error));
    EXPECT_EQ(error, "Invalid Value.");
    error.clear();
    EXPECT_FALSE(f8.isPartialStringValid("12a", error));
    EXPECT_EQ(error, "Invalid Value.");
    EXPECT_FALSE(f8.isPartialStringValid("-1", error));
    EXPECT_FALSE(f8.isPartialStringValid("99999999999", error));
}
