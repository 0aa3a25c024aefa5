#include "bic/geometry/integral_geometry.hpp"
#include "bic/platform/coding/formats.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using namespace bic;

TEST(IntegralRect, NegativeSizesAreNotNormalised) {
    const IntegralRect r(10, 10, -4, 3);
    EXPECT_EQ(r.minX(), 6);
    EXPECT_EQ(r.maxX(), 10);
    EXPECT_EQ(r.minY(), 10);
    EXPECT_EQ(r.maxY(), 13);
    EXPECT_EQ(r.width(), 4);
    EXPECT_FALSE(r.isEmpty());
    EXPECT_TRUE(r.contains({6, 10}));
    EXPECT_TRUE(r.contains({9, 12}));
    EXPECT_FALSE(r.contains({10, 10}));
    EXPECT_FALSE(r.contains({6, 13}));
    EXPECT_EQ(r.standardized(), IntegralRect(6, 10, 4, 3));
    EXPECT_FALSE(r == r.standardized()); // member-wise, not geometric, equality

    const IntegralRect thin(0, 0, 0, 7);
    EXPECT_TRUE(thin.isEmpty());
    EXPECT_FALSE(thin.contains({0, 0}));
    EXPECT_EQ(IntegralRect(), IntegralRect::zero());
}

TEST(IntegralGeometry, EachConversionHasItsOwnRounding) {
    EXPECT_EQ(IntegralPoint(cg::Point{1.7, -1.7}), IntegralPoint(1, -1));
    EXPECT_EQ(IntegralPoint(1.7, -1.7), IntegralPoint(1, -1));
    EXPECT_EQ(IntegralVector(cg::Vector{2.5, -2.5}), IntegralVector(3, -3));
    EXPECT_EQ(IntegralVector(cg::Vector{0.5, 1.49}), IntegralVector(1, 1));
    EXPECT_EQ(IntegralVector(2.5, -2.5), IntegralVector(2, -2));
    EXPECT_EQ(IntegralSize(cg::Size{0.0001, 3.0}), IntegralSize(1, 3));
    EXPECT_EQ(IntegralSize(cg::Size{2.01, -2.5}), IntegralSize(3, -2));
    EXPECT_EQ(IntegralRect(cg::Rect(0.5, -0.5, 1.0, 1.0)), IntegralRect(0, -1, 2, 2));
    EXPECT_EQ(IntegralRect(cg::Rect(3, 3, -1.5, 2)), IntegralRect(1, 3, 2, 2));
    EXPECT_EQ(IntegralPoint(cg::Point{-9223372036854775808.0, 0}).x,
              std::numeric_limits<std::int64_t>::min());
}

TEST(IntegralGeometry, ConversionsToFloatingPoint) {
    EXPECT_EQ(IntegralRect(1, 2, 3, 4).cgRect(), cg::Rect(1, 2, 3, 4));
    EXPECT_EQ(offset(cg::Rect(0.5, 0.5, 1, 1), IntegralVector(2, -3)), cg::Rect(2.5, -2.5, 1, 1));
    EXPECT_EQ(translation(IntegralVector(4, 5)).apply(cg::Point{1, 1}), (cg::Point{5, 6}));
    EXPECT_EQ(IntegralVector(-3, 4).cgVector(), (cg::Vector{-3, 4}));
    EXPECT_EQ(IntegralSize(7, 8).cgSize(), (cg::Size{7, 8}));
}

TEST(IntegralGeometry, Arithmetic) {
    IntegralPoint p(5, 7);
    EXPECT_EQ(p - IntegralPoint(2, 10), IntegralVector(3, -3));
    EXPECT_EQ(p + IntegralVector(1, 1), IntegralPoint(6, 8));
    EXPECT_EQ(p - IntegralVector(1, 1), IntegralPoint(4, 6));
    p += IntegralVector(-5, -7);
    EXPECT_EQ(p, IntegralPoint::zero());
    IntegralVector v(1, 2);
    v -= IntegralVector(3, 3);
    EXPECT_EQ(v, IntegralVector(-2, -1));
    EXPECT_EQ(-v, IntegralVector(2, 1));
    EXPECT_EQ(v + v, IntegralVector(-4, -2));
    EXPECT_EQ(IntegralVector(3, -4).squaredLength(), 25);
}

TEST(IntegralGeometry, SerialisedFormsAreOrderedLists) {
    const IntegralRect r(-3, 4, 5, -6);
    const coding::Value v = coding::encode(r);
    const coding::Value expected(
        coding::Array{coding::Value(coding::Array{-3, 4}), coding::Value(coding::Array{5, -6})});
    EXPECT_EQ(v, expected);
    EXPECT_EQ(coding::decodePropertyList<IntegralRect>(coding::encodePropertyList(r)), r);
    EXPECT_EQ(coding::decodeJSON<IntegralRect>(coding::encodeJSON(r)), r);
    EXPECT_EQ(coding::decodeJSON<IntegralVector>("[1,-2]"), IntegralVector(1, -2));
    EXPECT_EQ(coding::decodeJSON<IntegralSize>("[1.0,2]"), IntegralSize(1, 2));
    EXPECT_THROW(coding::decodeJSON<IntegralPoint>("[1]"), coding::DecodingError);
    EXPECT_THROW(coding::decodeJSON<IntegralPoint>("[1, 2.5]"), coding::DecodingError);
    EXPECT_THROW(coding::decodeJSON<IntegralRect>("[[1, 2], \"3\"]"), coding::DecodingError);
}

using IntegralGeometryDeathTest = ::testing::Test;

TEST(IntegralGeometryDeathTest, ViolatedPreconditionsStop) {
    constexpr auto max = std::numeric_limits<std::int64_t>::max();
    EXPECT_DEATH(IntegralPoint(cg::Point{NAN, 0}), "Fatal error: .*non-finite");
    EXPECT_DEATH(IntegralSize(cg::Size{INFINITY, 1}), "Fatal error");
    EXPECT_DEATH(IntegralPoint(cg::Point{9223372036854775808.0, 0}), "out of the 64-bit");
    EXPECT_DEATH(IntegralPoint(max, 0) + IntegralVector(1, 0), "overflow");
    EXPECT_DEATH(-IntegralVector(std::numeric_limits<std::int64_t>::min(), 0), "overflow");
    EXPECT_DEATH(IntegralVector(3037000500, 0).squaredLength(), "overflow");
    EXPECT_DEATH(IntegralRect(max, 0, 1, 1).maxX(), "overflow");
    // Unsigned values that a signed 64-bit value cannot hold stop rather than wrap.
    EXPECT_DEATH(IntegralSize(std::size_t(3) - std::size_t(5), 1), "overflow");
    EXPECT_DEATH(IntegralPoint(std::uint64_t(1) << 63, 0), "overflow");
    EXPECT_DEATH(IntegralVector(0, ~std::uint64_t(0)), "overflow");
    EXPECT_EQ(IntegralSize(std::uint64_t(max), std::uint8_t(255)), IntegralSize(max, 255));
}

TEST(IntegralGeometry, EveryTypeRoundTripsThroughEveryForm) {
    constexpr auto big = std::numeric_limits<std::int64_t>::max();
    const IntegralPoint p(-big, big);
    const IntegralSize s(0, -7);
    const IntegralVector v(big, -1);
    const IntegralRect r(IntegralPoint(-1, 2), IntegralSize(3, -4));
    for (auto form : {coding::PropertyListFormat::xml, coding::PropertyListFormat::binary}) {
        EXPECT_EQ(coding::decodePropertyList<IntegralPoint>(coding::encodePropertyList(p, form)),
                  p);
        EXPECT_EQ(coding::decodePropertyList<IntegralSize>(coding::encodePropertyList(s, form)), s);
        EXPECT_EQ(coding::decodePropertyList<IntegralVector>(coding::encodePropertyList(v, form)),
                  v);
        EXPECT_EQ(coding::decodePropertyList<IntegralRect>(coding::encodePropertyList(r, form)), r);
    }
    EXPECT_EQ(coding::decodeJSON<IntegralPoint>(coding::encodeJSON(p)), p);
    EXPECT_EQ(coding::decodeJSON<IntegralVector>(coding::encodeJSON(v)), v);
}
