#include "bic/platform/cg/rect.hpp"

#include <algorithm>
#include <cmath>

namespace bic::cg {

bool Rect::isInfinite() const {
    const Rect s = standardized();
    const Rect inf = infinite();
    return s.origin == inf.origin && s.size == inf.size;
}

Rect Rect::standardized() const {
    if (isNull()) return null();
    return {minX(), minY(), width(), height()};
}

Rect Rect::integral() const {
    if (isNull() || isInfinite()) return *this;
    const Rect s = standardized();
    const double x = std::floor(s.origin.x);
    const double y = std::floor(s.origin.y);
    const double right = std::ceil(s.origin.x + s.size.width);
    const double top = std::ceil(s.origin.y + s.size.height);
    return {x, y, right - x, top - y};
}

Rect Rect::unionWith(const Rect& other) const {
    if (isNull()) return other;
    if (other.isNull()) return *this;
    if (isInfinite() || other.isInfinite()) return infinite();
    const double x0 = std::min(minX(), other.minX());
    const double y0 = std::min(minY(), other.minY());
    const double x1 = std::max(maxX(), other.maxX());
    const double y1 = std::max(maxY(), other.maxY());
    return {x0, y0, x1 - x0, y1 - y0};
}

Rect Rect::intersection(const Rect& other) const {
    if (isNull() || other.isNull()) return null();
    if (isInfinite()) return other.standardized();
    if (other.isInfinite()) return standardized();
    const double x0 = std::max(minX(), other.minX());
    const double y0 = std::max(minY(), other.minY());
    const double x1 = std::min(maxX(), other.maxX());
    const double y1 = std::min(maxY(), other.maxY());
    if (x1 < x0 || y1 < y0) return null();
    return {x0, y0, x1 - x0, y1 - y0};
}

Rect Rect::insetBy(double dx, double dy) const {
    if (isNull() || isInfinite()) return *this;
    Rect r = standardized();
    r.origin.x += dx;
    r.origin.y += dy;
    r.size.width -= 2 * dx;
    r.size.height -= 2 * dy;
    if (r.size.width < 0 || r.size.height < 0) return null();
    return r;
}

Rect Rect::offsetBy(double dx, double dy) const {
    if (isNull() || isInfinite()) return *this;
    Rect r = standardized();
    r.origin.x += dx;
    r.origin.y += dy;
    return r;
}

bool Rect::contains(const Point& p) const {
    if (isEmpty()) return false;
    return minX() <= p.x && p.x < maxX() && minY() <= p.y && p.y < maxY();
}

bool Rect::contains(const Rect& other) const {
    if (isNull() || other.isNull()) return false;
    if (isInfinite()) return true;
    return minX() <= other.minX() && other.maxX() <= maxX() && minY() <= other.minY() &&
           other.maxY() <= maxY();
}

bool operator==(const Rect& a, const Rect& b) {
    if (a.isNull() || b.isNull()) return a.isNull() && b.isNull();
    const Rect sa = a.standardized(), sb = b.standardized();
    return sa.origin == sb.origin && sa.size == sb.size;
}

} // namespace bic::cg
