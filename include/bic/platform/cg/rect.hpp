#pragma once
// Floating-point rectangles with the drawing layer's exact algebra.
//
// Two rectangles are special. The null rectangle has its origin at (+inf, +inf) and stands for
// "no rectangle at all": the result of intersecting disjoint rectangles, the identity of union.
// The infinite rectangle, origin (-DBL_MAX/2, -DBL_MAX/2) and size (DBL_MAX, DBL_MAX), is the
// extent of images that are defined everywhere. A negative width or height is legal; every
// derived value treats such a rectangle as its standardized form.

#include "bic/platform/cg/geometry.hpp"

#include <limits>

namespace bic::cg {

struct Rect {
    Point origin;
    Size size;

    constexpr Rect() = default;
    constexpr Rect(Point o, Size s) : origin(o), size(s) {}
    constexpr Rect(double x, double y, double width, double height)
        : origin{x, y}, size{width, height} {}

    static constexpr Rect null() {
        return {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity(), 0,
                0};
    }
    static constexpr Rect infinite() {
        constexpr double m = std::numeric_limits<double>::max();
        return {-m / 2, -m / 2, m, m};
    }
    static constexpr Rect zero() { return {}; }
    /// (0, 0, 1, 1).
    static constexpr Rect unitSquare() { return {0, 0, 1, 1}; }

    bool isNull() const {
        return origin.x == std::numeric_limits<double>::infinity() ||
               origin.y == std::numeric_limits<double>::infinity();
    }
    bool isInfinite() const;
    /// Null, or zero width or height.
    bool isEmpty() const { return isNull() || size.width == 0 || size.height == 0; }

    double minX() const { return size.width < 0 ? origin.x + size.width : origin.x; }
    double maxX() const { return size.width < 0 ? origin.x : origin.x + size.width; }
    double midX() const { return (minX() + maxX()) * 0.5; }
    double minY() const { return size.height < 0 ? origin.y + size.height : origin.y; }
    double maxY() const { return size.height < 0 ? origin.y : origin.y + size.height; }
    double midY() const { return (minY() + maxY()) * 0.5; }
    double width() const { return size.width < 0 ? -size.width : size.width; }
    double height() const { return size.height < 0 ? -size.height : size.height; }

    /// The same area with a non-negative size; null stays null.
    Rect standardized() const;
    /// The smallest rectangle with integral origin and size containing this one: origin rounded
    /// down, far edges rounded up. Null and infinite rectangles are returned unchanged.
    Rect integral() const;
    /// Smallest rectangle containing both; the null rectangle is the identity.
    Rect unionWith(const Rect& other) const;
    /// The common area; null when the rectangles are disjoint. Rectangles that only touch give
    /// a rectangle of zero width or height on the shared edge.
    Rect intersection(const Rect& other) const;
    /// Moves every edge inwards by dx, dy (outwards when negative); null when nothing remains.
    Rect insetBy(double dx, double dy) const;
    Rect offsetBy(double dx, double dy) const;

    /// Half-open containment: minX <= x < maxX and minY <= y < maxY.
    bool contains(const Point& p) const;
    /// True when `other` lies completely inside this rectangle.
    bool contains(const Rect& other) const;
    /// True when the rectangles share an area of non-zero size.
    bool intersects(const Rect& other) const { return !intersection(other).isEmpty(); }

    /// Null rectangles are all equal; others compare in standardized form.
    friend bool operator==(const Rect& a, const Rect& b);
};

} // namespace bic::cg
