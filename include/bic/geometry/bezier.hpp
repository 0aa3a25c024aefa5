#pragma once
// Quadratic Bézier helpers.

#include "bic/platform/cg/geometry.hpp"

#include <array>

namespace bic {

/// The point at `t` (0…1) of the curve from `p0` to `p1` with control point `c`.
cg::Point pointOnQuadraticBezierCurve(cg::Point p0, cg::Point p1, cg::Point c, double t);

/// The quadratic curve from `p0` to `p2` passing through `p1` at `t` (0 < t < 1): returns the
/// start, the end and the control point, in that order.
std::array<cg::Point, 3> quadraticBezierCurveThroug3Points(cg::Point p0, cg::Point p1, cg::Point p2,
                                                           double t);

/// The mean of the chord length and the control-polygon length.
double approximateLengthOfQuadraticBezierCurve(cg::Point p0, cg::Point p1, cg::Point c);

} // namespace bic
