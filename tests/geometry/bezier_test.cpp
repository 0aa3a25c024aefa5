#include "bic/geometry/bezier.hpp"

#include <cmath>
#include <gtest/gtest.h>

using namespace bic;

TEST(Bezier, PointOnCurve) {
    const cg::Point p0{0, 0}, p1{10, 0}, c{5, 10};
    EXPECT_EQ(pointOnQuadraticBezierCurve(p0, p1, c, 0), p0);
    EXPECT_EQ(pointOnQuadraticBezierCurve(p0, p1, c, 1), p1);
    EXPECT_EQ(pointOnQuadraticBezierCurve(p0, p1, c, 0.5), (cg::Point{5, 5}));
}

TEST(Bezier, CurveThroughThreePoints) {
    const auto mid = quadraticBezierCurveThroug3Points({0, 0}, {5, 5}, {10, 10}, 0.5);
    EXPECT_EQ(mid[0], (cg::Point{0, 0}));
    EXPECT_EQ(mid[1], (cg::Point{10, 10}));
    EXPECT_EQ(mid[2], (cg::Point{5, 5}));
    // The control point found makes the curve pass through p1 at t.
    const auto curve = quadraticBezierCurveThroug3Points({0, 0}, {3, 7}, {10, 2}, 0.3);
    const cg::Point at = pointOnQuadraticBezierCurve(curve[0], curve[1], curve[2], 0.3);
    EXPECT_NEAR(at.x, 3, 1e-12);
    EXPECT_NEAR(at.y, 7, 1e-12);
}

TEST(Bezier, ApproximateLengthIsMeanOfChordAndPolygon) {
    EXPECT_DOUBLE_EQ(approximateLengthOfQuadraticBezierCurve({0, 0}, {6, 0}, {3, 4}),
                     (6 + 10) * 0.5);
    EXPECT_DOUBLE_EQ(approximateLengthOfQuadraticBezierCurve({1, 1}, {4, 5}, {1, 1}), 5);
}

TEST(BezierDeathTest, ParametersOutsideTheirRangesStop) {
    EXPECT_DEATH(pointOnQuadraticBezierCurve({0, 0}, {1, 1}, {0, 1}, 1.01), "Fatal error");
    EXPECT_DEATH(pointOnQuadraticBezierCurve({0, 0}, {1, 1}, {0, 1}, NAN), "Fatal error");
    EXPECT_DEATH(quadraticBezierCurveThroug3Points({0, 0}, {1, 1}, {2, 0}, 0), "Fatal error");
    EXPECT_DEATH(quadraticBezierCurveThroug3Points({0, 0}, {1, 1}, {2, 0}, 1), "Fatal error");
}
