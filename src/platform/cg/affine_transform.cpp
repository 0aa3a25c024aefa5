#include "bic/platform/cg/affine_transform.hpp"

#include <algorithm>
#include <cmath>

namespace bic::cg {

AffineTransform AffineTransform::rotation(double radians) {
    const double s = std::sin(radians), co = std::cos(radians);
    return {co, s, -s, co, 0, 0};
}

bool AffineTransform::isIntegerTranslation() const {
    return a == 1 && b == 0 && c == 0 && d == 1 && std::trunc(tx) == tx && std::trunc(ty) == ty;
}

AffineTransform AffineTransform::concatenating(const AffineTransform& t) const {
    return {a * t.a + b * t.c, a * t.b + b * t.d,          c * t.a + d * t.c,
            c * t.b + d * t.d, tx * t.a + ty * t.c + t.tx, tx * t.b + ty * t.d + t.ty};
}

AffineTransform AffineTransform::translatedBy(double x, double y) const {
    return translation(x, y).concatenating(*this);
}

AffineTransform AffineTransform::scaledBy(double sx, double sy) const {
    return scale(sx, sy).concatenating(*this);
}

AffineTransform AffineTransform::rotatedBy(double radians) const {
    return rotation(radians).concatenating(*this);
}

AffineTransform AffineTransform::inverted() const {
    const double det = a * d - b * c;
    if (det == 0 || !std::isfinite(det)) return *this;
    return {d / det, -b / det, -c / det, a / det, (c * ty - d * tx) / det, (b * tx - a * ty) / det};
}

Rect AffineTransform::apply(const Rect& r) const {
    if (r.isNull() || r.isInfinite()) return r;
    const Point p[4] = {apply(Point{r.minX(), r.minY()}), apply(Point{r.maxX(), r.minY()}),
                        apply(Point{r.minX(), r.maxY()}), apply(Point{r.maxX(), r.maxY()})};
    double x0 = p[0].x, x1 = p[0].x, y0 = p[0].y, y1 = p[0].y;
    for (const Point& q : p) {
        x0 = std::min(x0, q.x);
        x1 = std::max(x1, q.x);
        y0 = std::min(y0, q.y);
        y1 = std::max(y1, q.y);
    }
    return {x0, y0, x1 - x0, y1 - y0};
}

} // namespace bic::cg
