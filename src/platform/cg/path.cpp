#include "bic/platform/cg/path.hpp"

#include <cmath>

namespace bic::cg {

namespace {
// Control-point distance of a quarter circle drawn as one cubic: 4/3·(√2 − 1).
constexpr double kKappa = 0.5522847498307936;
} // namespace

int PathElement::pointCount() const {
    switch (type) {
    case PathElementType::moveToPoint:
    case PathElementType::addLineToPoint:
        return 1;
    case PathElementType::addQuadCurveToPoint:
        return 2;
    case PathElementType::addCurveToPoint:
        return 3;
    case PathElementType::closeSubpath:
        return 0;
    }
    return 0;
}

Path Path::rect(const Rect& r) {
    Path p;
    p.addRect(r);
    return p;
}

Path Path::ellipse(const Rect& r) {
    Path p;
    p.addEllipse(r);
    return p;
}

void Path::moveTo(Point p) { elements_.push_back({PathElementType::moveToPoint, {p, {}, {}}}); }
void Path::addLineTo(Point p) {
    elements_.push_back({PathElementType::addLineToPoint, {p, {}, {}}});
}
void Path::addQuadCurveTo(Point c, Point e) {
    elements_.push_back({PathElementType::addQuadCurveToPoint, {c, e, {}}});
}
void Path::addCurveTo(Point c1, Point c2, Point e) {
    elements_.push_back({PathElementType::addCurveToPoint, {c1, c2, e}});
}
void Path::closeSubpath() { elements_.push_back({PathElementType::closeSubpath, {}}); }

void Path::addRect(const Rect& rect) {
    const Rect r = rect.standardized();
    moveTo({r.minX(), r.minY()});
    addLineTo({r.maxX(), r.minY()});
    addLineTo({r.maxX(), r.maxY()});
    addLineTo({r.minX(), r.maxY()});
    closeSubpath();
}

void Path::addEllipse(const Rect& rect) {
    const Rect r = rect.standardized();
    const double cx = r.midX(), cy = r.midY(), rx = r.width() / 2, ry = r.height() / 2;
    const double kx = rx * kKappa, ky = ry * kKappa;
    moveTo({cx + rx, cy});
    addCurveTo({cx + rx, cy + ky}, {cx + kx, cy + ry}, {cx, cy + ry});
    addCurveTo({cx - kx, cy + ry}, {cx - rx, cy + ky}, {cx - rx, cy});
    addCurveTo({cx - rx, cy - ky}, {cx - kx, cy - ry}, {cx, cy - ry});
    addCurveTo({cx + kx, cy - ry}, {cx + rx, cy - ky}, {cx + rx, cy});
    closeSubpath();
}

void Path::addPath(const Path& other, const AffineTransform& t) {
    for (PathElement e : other.elements_) {
        for (int i = 0; i < e.pointCount(); ++i)
            e.points[i] = t.apply(e.points[i]);
        elements_.push_back(e);
    }
}

Rect Path::boundingBox() const {
    Rect box = Rect::null();
    for (const auto& e : elements_)
        for (int i = 0; i < e.pointCount(); ++i)
            box = box.unionWith(Rect(e.points[i], {}));
    return box;
}

Path Path::transformed(const AffineTransform& t) const {
    Path p;
    p.addPath(*this, t);
    return p;
}

bool Path::isFinite() const {
    for (const auto& e : elements_)
        for (int i = 0; i < e.pointCount(); ++i)
            if (!std::isfinite(e.points[i].x) || !std::isfinite(e.points[i].y)) return false;
    return true;
}

} // namespace bic::cg
