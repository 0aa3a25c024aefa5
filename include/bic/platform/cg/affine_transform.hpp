#pragma once
// Affine transforms of the drawing layer: x' = a·x + c·y + tx, y' = b·x + d·y + ty.

#include "bic/platform/cg/rect.hpp"

namespace bic::cg {

struct AffineTransform {
    double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;

    static constexpr AffineTransform identity() { return {}; }
    static constexpr AffineTransform translation(double tx, double ty) {
        return {1, 0, 0, 1, tx, ty};
    }
    static constexpr AffineTransform scale(double sx, double sy) { return {sx, 0, 0, sy, 0, 0}; }
    static AffineTransform rotation(double radians);

    bool isIdentity() const { return *this == identity(); }
    /// True for a pure translation by whole numbers: such transforms copy pixels exactly.
    bool isIntegerTranslation() const;

    /// `*this` followed by `then` (the platform's concatenation order).
    AffineTransform concatenating(const AffineTransform& then) const;
    AffineTransform translatedBy(double x, double y) const;
    AffineTransform scaledBy(double sx, double sy) const;
    AffineTransform rotatedBy(double radians) const;
    /// The inverse; a singular transform is returned unchanged, as the platform does.
    AffineTransform inverted() const;

    Point apply(const Point& p) const { return {a * p.x + c * p.y + tx, b * p.x + d * p.y + ty}; }
    Size apply(const Size& s) const {
        return {a * s.width + c * s.height, b * s.width + d * s.height};
    }
    /// The bounding box of the transformed corners; null and infinite rectangles stay so.
    Rect apply(const Rect& r) const;

    friend bool operator==(const AffineTransform&, const AffineTransform&) = default;
};

} // namespace bic::cg
