#include "bic/geometry/bezier.hpp"

#include "bic/platform/core/fatal.hpp"

#include <cmath>

namespace bic {

cg::Point pointOnQuadraticBezierCurve(cg::Point p0, cg::Point p1, cg::Point c, double t) {
    precondition(t >= 0 && t <= 1, "Bezier parameter t must lie in 0...1.");
    const double u = 1 - t;
    const double a = u * u, b = 2 * t * u, e = t * t;
    return {(a * p0.x + b * c.x) + e * p1.x, (a * p0.y + b * c.y) + e * p1.y};
}

std::array<cg::Point, 3> quadraticBezierCurveThroug3Points(cg::Point p0, cg::Point p1, cg::Point p2,
                                                           double t) {
    precondition(t > 0 && t < 1, "Bezier parameter t must lie strictly between 0 and 1.");
    const double u = 1 - t;
    const double d = 2 * t * u;
    const cg::Point control{(p1.x - u * u * p0.x - t * t * p2.x) / d,
                            (p1.y - u * u * p0.y - t * t * p2.y) / d};
    return {p0, p2, control};
}

double approximateLengthOfQuadraticBezierCurve(cg::Point p0, cg::Point p1, cg::Point c) {
    const double chord = std::hypot(p1.x - p0.x, p1.y - p0.y);
    const double polygon = std::hypot(c.x - p0.x, c.y - p0.y) + std::hypot(p1.x - c.x, p1.y - c.y);
    return (chord + polygon) * 0.5;
}

} // namespace bic
