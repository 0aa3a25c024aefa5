#include "bic/platform/cg/rect.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using bic::cg::Point;
using bic::cg::Rect;

namespace {
void expectRect(const Rect& r, double x, double y, double w, double h) {
    EXPECT_EQ(r.origin.x, x);
    EXPECT_EQ(r.origin.y, y);
    EXPECT_EQ(r.size.width, w);
    EXPECT_EQ(r.size.height, h);
}
} // namespace

TEST(Rect, NullAndInfiniteAreDistinguished) {
    const Rect null = Rect::null();
    EXPECT_TRUE(null.isNull());
    EXPECT_TRUE(null.isEmpty());
    EXPECT_FALSE(null.isInfinite());
    EXPECT_EQ(null.minX(), std::numeric_limits<double>::infinity());

    const Rect inf = Rect::infinite();
    EXPECT_TRUE(inf.isInfinite());
    EXPECT_FALSE(inf.isNull());
    EXPECT_FALSE(inf.isEmpty());
    EXPECT_EQ(inf.width(), std::numeric_limits<double>::max());
    EXPECT_TRUE(inf.contains(Point{1e300, -1e300}));

    EXPECT_TRUE(Rect::zero().isEmpty());
    EXPECT_FALSE(Rect::zero().isNull());
    // Only one coordinate at +inf already makes a rectangle null.
    EXPECT_TRUE(Rect(std::numeric_limits<double>::infinity(), 0, 5, 5).isNull());
}

TEST(Rect, NegativeSizesReadAsStandardized) {
    const Rect r(10, 10, -4, 3);
    EXPECT_EQ(r.minX(), 6);
    EXPECT_EQ(r.maxX(), 10);
    EXPECT_EQ(r.midX(), 8);
    EXPECT_EQ(r.width(), 4);
    expectRect(r.standardized(), 6, 10, 4, 3);
    EXPECT_EQ(r, Rect(6, 10, 4, 3)); // equality compares standardized forms
    EXPECT_TRUE(r.contains(Point{6, 10}));
    EXPECT_FALSE(r.contains(Point{10, 10}));
    EXPECT_TRUE(Rect::null().standardized().isNull());
}

TEST(Rect, IntegralRoundsOriginDownAndFarEdgesUp) {
    expectRect(Rect(0.5, -0.5, 1.0, 1.0).integral(), 0, -1, 2, 2);
    expectRect(Rect(10.5, 11.233, 30.3, 20.2).integral(), 10, 11, 31, 21);
    expectRect(Rect(2.5, 2.5, -1.0, 0).integral(), 1, 2, 2, 1); // standardized first
    expectRect(Rect(3, 4, 5, 6).integral(), 3, 4, 5, 6);
    EXPECT_TRUE(Rect::null().integral().isNull());
    EXPECT_TRUE(Rect::infinite().integral().isInfinite());
}

TEST(Rect, UnionTreatsNullAsIdentityAndInfiniteAsAbsorbing) {
    const Rect a(0, 0, 10, 10), b(20, -5, 5, 5);
    expectRect(a.unionWith(b), 0, -5, 25, 15);
    expectRect(Rect::null().unionWith(b), 20, -5, 5, 5);
    expectRect(a.unionWith(Rect::null()), 0, 0, 10, 10);
    EXPECT_TRUE(Rect::null().unionWith(Rect::null()).isNull());
    EXPECT_TRUE(a.unionWith(Rect::infinite()).isInfinite());
    // An empty but non-null rectangle still stretches the union.
    expectRect(a.unionWith(Rect(30, 30, 0, 0)), 0, 0, 30, 30);
}

TEST(Rect, IntersectionIsNullWhenDisjointAndThinWhenTouching) {
    const Rect a(0, 0, 10, 10);
    expectRect(a.intersection(Rect(5, 5, 10, 10)), 5, 5, 5, 5);
    EXPECT_TRUE(a.intersection(Rect(11, 0, 5, 5)).isNull());
    EXPECT_TRUE(a.intersection(Rect::null()).isNull());
    const Rect touching = Rect(0, 0, 10, 5).intersection(Rect(0, 5, 10, 5));
    expectRect(touching, 0, 5, 10, 0);
    EXPECT_FALSE(touching.isNull());
    EXPECT_TRUE(touching.isEmpty());
    expectRect(Rect::infinite().intersection(Rect(1, 2, -3, 4)), -2, 2, 3, 4);
    expectRect(Rect(10, 10, -4, -4).intersection(Rect(0, 0, 8, 8)), 6, 6, 2, 2);
}

TEST(Rect, IntersectsNeedsSharedArea) {
    const Rect a(0, 0, 10, 10);
    EXPECT_TRUE(a.intersects(Rect(9, 9, 2, 2)));
    EXPECT_FALSE(a.intersects(Rect(10, 0, 5, 5)));
    EXPECT_FALSE(a.intersects(Rect::null()));
    EXPECT_FALSE(a.intersects(Rect(5, 5, 0, 0)));
    EXPECT_TRUE(a.intersects(Rect::infinite()));
}

TEST(Rect, InsetAndOffsetStandardizeAndKeepSpecialRectangles) {
    expectRect(Rect(0, 0, 10, 10).insetBy(2, 3), 2, 3, 6, 4);
    expectRect(Rect(0, 0, 10, 10).insetBy(-1, -1), -1, -1, 12, 12);
    EXPECT_TRUE(Rect(0, 0, 10, 10).insetBy(6, 0).isNull());
    expectRect(Rect(0, 0, 10, 10).insetBy(5, 5), 5, 5, 0, 0); // exactly collapsed is not null
    expectRect(Rect(10, 10, -4, 3).offsetBy(1, 2), 7, 12, 4, 3);
    EXPECT_TRUE(Rect::null().offsetBy(1, 1).isNull());
    EXPECT_TRUE(Rect::infinite().offsetBy(5, 5).isInfinite());
    EXPECT_TRUE(Rect::infinite().insetBy(5, 5).isInfinite());
}

TEST(Rect, ContainmentIsHalfOpen) {
    const Rect r(0, 0, 2, 2);
    EXPECT_TRUE(r.contains(Point{0, 0}));
    EXPECT_TRUE(r.contains(Point{1.999, 1.999}));
    EXPECT_FALSE(r.contains(Point{2, 1}));
    EXPECT_FALSE(Rect(0, 0, 0, 5).contains(Point{0, 1}));
    EXPECT_TRUE(r.contains(Rect(0, 0, 2, 2)));
    EXPECT_TRUE(r.contains(Rect(0.5, 0.5, 1, 1)));
    EXPECT_FALSE(r.contains(Rect(1, 1, 2, 1)));
    EXPECT_FALSE(r.contains(Rect::null()));
    EXPECT_TRUE(Rect::infinite().contains(r));
    EXPECT_EQ(Rect::unitSquare(), Rect(0, 0, 1, 1));
}
