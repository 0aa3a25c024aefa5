#include "bic/platform/cg/affine_transform.hpp"
#include "bic/platform/cg/geometry.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>

using bic::cg::AffineTransform;
using bic::cg::Point;
using bic::cg::Rect;

TEST(AffineTransform, ConcatenationAppliesLeftThenRight) {
    const auto t = AffineTransform::scale(2, 3).concatenating(AffineTransform::translation(10, 20));
    EXPECT_EQ(t.apply(Point{1, 1}), (Point{12, 23}));
    // translatedBy prepends: the translation happens in the transform's own space.
    const auto u = AffineTransform::scale(2, 3).translatedBy(10, 20);
    EXPECT_EQ(u.apply(Point{1, 1}), (Point{22, 63}));
}

TEST(AffineTransform, RotationAndInverse) {
    const auto r = AffineTransform::rotation(std::numbers::pi / 2);
    const Point p = r.apply(Point{1, 0});
    EXPECT_NEAR(p.x, 0, 1e-12);
    EXPECT_NEAR(p.y, 1, 1e-12);
    const auto t = AffineTransform::rotation(0.3).translatedBy(5, -2).scaledBy(2, 0.5);
    const Point q = t.inverted().apply(t.apply(Point{3, 4}));
    EXPECT_NEAR(q.x, 3, 1e-12);
    EXPECT_NEAR(q.y, 4, 1e-12);
    const AffineTransform singular = AffineTransform::scale(0, 1);
    EXPECT_EQ(singular.inverted(), singular);
}

TEST(AffineTransform, RectanglesMapToBoundingBoxes) {
    const Rect r = AffineTransform::rotation(std::numbers::pi / 4).apply(Rect(0, 0, 2, 2));
    EXPECT_NEAR(r.minX(), -std::sqrt(2.0), 1e-12);
    EXPECT_NEAR(r.width(), 2 * std::sqrt(2.0), 1e-12);
    EXPECT_TRUE(AffineTransform::translation(3, 3).apply(Rect::null()).isNull());
    EXPECT_TRUE(AffineTransform::scale(2, 2).apply(Rect::infinite()).isInfinite());
    EXPECT_TRUE(AffineTransform::translation(3, -4).isIntegerTranslation());
    EXPECT_FALSE(AffineTransform::translation(0.5, 0).isIntegerTranslation());
    EXPECT_TRUE(AffineTransform::identity().isIdentity());
}
