#include "bic/platform/core/checked.hpp"

#include <gtest/gtest.h>
#include <limits>

using namespace bic;

TEST(CheckedDeathTest, ArithmeticStopsInsteadOfWrapping) {
    constexpr auto top = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(checked::add(top - 1, 1), top);
    EXPECT_EQ(checked::mul(-(std::int64_t{1} << 31), std::int64_t{1} << 31),
              -(std::int64_t{1} << 62));
    EXPECT_DEATH(checked::add(top, 1), "Integer overflow in addition");
    EXPECT_DEATH(checked::sub(-top - 1, 1), "Integer overflow in subtraction");
    EXPECT_DEATH(checked::mul(top / 2 + 1, 2), "Integer overflow in multiplication");
    EXPECT_DEATH(checked::neg(-top - 1), "Integer overflow");
}

// Only the checked builds (the sanitizer preset) look at row indices; the others must not pay.
TEST(CheckedDeathTest, RowIndicesAreBoundedInCheckedBuilds) {
    checked::index(0, 1, "Tile row");
    checked::index(41, 42, "Tile row");
    if (!checked::kBoundsChecks) GTEST_SKIP() << "built without BIC_BOUNDS_CHECKS";
    EXPECT_DEATH(checked::index(42, 42, "Tile row"), "Tile row index 42 is outside 0…41");
    EXPECT_DEATH(checked::index(-1, 42, "Pixel row"), "Pixel row index -1");
    EXPECT_DEATH(checked::index(0, 0, "Pixel row"), "Pixel row index 0");
}
