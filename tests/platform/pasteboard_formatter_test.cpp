#include "bic/platform/ns/formatter.hpp"
#include "bic/platform/ns/pasteboard.hpp"

#include <gtest/gtest.h>

using namespace bic;

TEST(Pasteboard, StoresTypedDataAndColours) {
    ns::MemoryPasteboard board;
    board.setData("a", {1, 2});
    board.setData("b", {3});
    board.setData("a", {4});
    EXPECT_EQ(board.types(), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(*board.data("a"), (ns::PasteboardData{4}));
    EXPECT_FALSE(board.data("c").has_value());

    EXPECT_FALSE(ns::readColor(board).has_value());
    ns::writeColor(board, cg::Color::deviceRGB(0.25, 0.5, 0.75, 0.5));
    const auto back = ns::readColor(board);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->components(), (std::vector<double>{0.25, 0.5, 0.75, 0.5}));
    EXPECT_EQ(back->colorSpace(), cg::ColorSpace::deviceRGB());

    // Unnamed spaces travel as their ICC profile.
    ns::writeColor(board, *cg::Color::make(cg::ColorSpace::psdLab(), {50, 10, -10, 1}));
    EXPECT_EQ(ns::readColor(board)->colorSpace().model(), cg::ColorSpaceModel::lab);

    board.setData(ns::pasteboard_type::color, {'x'});
    EXPECT_FALSE(ns::readColor(board).has_value());
    board.clearContents();
    EXPECT_TRUE(board.types().empty());
}

TEST(Pasteboard, GeneralCanBeReplacedByTheHost) {
    const auto original = ns::Pasteboard::general();
    auto mine = std::make_shared<ns::MemoryPasteboard>();
    ns::Pasteboard::setGeneral(mine);
    EXPECT_EQ(ns::Pasteboard::general(), mine);
    ns::Pasteboard::setGeneral(nullptr);
    EXPECT_NE(ns::Pasteboard::general(), mine);
    ns::Pasteboard::setGeneral(original);
}

TEST(NumberFormatter, PercentStyleFormatsAndParses) {
    const ns::NumberFormatter percent(ns::NumberFormatter::Style::percent);
    EXPECT_EQ(*percent.stringForObjectValue(0.5), "50%");
    EXPECT_EQ(*percent.stringForObjectValue(std::int64_t{1}), "100%");
    EXPECT_FALSE(percent.stringForObjectValue(std::string("x")).has_value());
    ns::Formatter::Object value;
    std::string error;
    ASSERT_TRUE(percent.getObjectValue(value, "25%", error));
    EXPECT_DOUBLE_EQ(std::get<double>(value), 0.25);
    EXPECT_FALSE(percent.getObjectValue(value, "25%x", error));
    EXPECT_EQ(error, "Invalid Value.");
    EXPECT_TRUE(percent.isPartialStringValid("anything", error));
}
