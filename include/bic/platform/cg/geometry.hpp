#pragma once
// Floating-point geometry of the 2-D drawing layer: points, sizes and vectors.

namespace bic::cg {

struct Point {
    double x = 0, y = 0;
    friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
    double width = 0, height = 0;
    friend bool operator==(const Size&, const Size&) = default;
};

struct Vector {
    double dx = 0, dy = 0;
    friend bool operator==(const Vector&, const Vector&) = default;

    /// True when both vectors point the same way (parallel, not opposite); zero vectors never do.
    bool hasSameDirection(const Vector& other) const {
        if ((dx == 0 && dy == 0) || (other.dx == 0 && other.dy == 0)) return false;
        return dx * other.dy == dy * other.dx && dx * other.dx + dy * other.dy > 0;
    }
};

} // namespace bic::cg
