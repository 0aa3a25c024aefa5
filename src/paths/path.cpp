#include "bic/paths/path.hpp"

#include "bic/core/image_core_error.hpp"

#include <charconv>
#include <cmath>
#include <optional>

namespace bic {

namespace {

// A double as the platform writes it: the shortest digits that read back the same, in plain
// decimal notation (100000.0, 0.0001, never 1e+05), whole numbers with ".0".
std::string describe(double v) {
    char buffer[400]; // the longest fixed form of a double has 309 digits before the point
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, v, std::chars_format::fixed).ptr;
    std::string s(buffer, end);
    if (s.find_first_of(".n") == std::string::npos) s += ".0";
    return s;
}

// Shortest form for SVG, without the ".0".
std::string number(double v) {
    char buffer[64];
    return std::string(buffer, std::to_chars(buffer, buffer + sizeof buffer, v).ptr);
}

cg::Point add(cg::Point p, double dx, double dy) { return {p.x + dx, p.y + dy}; }

bool isLine(const Path::Point& from, const Path::Point& to) {
    return from.controlPoint[1] == from.position && to.controlPoint[0] == to.position;
}

} // namespace

Path::Point Path::Point::transformed(const cg::AffineTransform& t) const {
    return Point(t.apply(position), {t.apply(controlPoint[0]), t.apply(controlPoint[1])});
}

std::string Path::Subpath::debugDescription() const {
    std::string out = "[";
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (i) out += ", ";
        out += "(" + describe(points[i].position.x) + ", " + describe(points[i].position.y) + ")";
    }
    return out + "]";
}

Path::Path() : subpaths(1) {}

Path::Path(cg::Point point) : subpaths{Subpath{{Point(point)}, false}} {}

Path::Path(const cg::Path& cgPath) {
    std::optional<Subpath> currentSubpath;
    auto finish = [&] {
        if (currentSubpath) subpaths.push_back(std::move(*currentSubpath));
        currentSubpath.reset();
    };
    auto curve = [&](cg::Point to, cg::Point c1, cg::Point c2) {
        if (!currentSubpath || currentSubpath->points.empty()) return;
        currentSubpath->points.back().controlPoint[1] = c1;
        currentSubpath->points.push_back(Point(to, {c2, to}));
    };
    for (const auto& e : cgPath.elements()) {
        switch (e.type) {
        case cg::PathElementType::moveToPoint:
            if (currentSubpath && !currentSubpath->points.empty()) finish();
            currentSubpath = Subpath{{Point(e.points[0])}, false};
            break;
        case cg::PathElementType::addLineToPoint:
            if (currentSubpath) currentSubpath->points.push_back(Point(e.points[0]));
            break;
        case cg::PathElementType::addQuadCurveToPoint:
            curve(e.points[1], e.points[0], e.points[0]);
            break;
        case cg::PathElementType::addCurveToPoint:
            curve(e.points[2], e.points[0], e.points[1]);
            break;
        case cg::PathElementType::closeSubpath:
            if (currentSubpath) {
                currentSubpath->isClosed = true;
                finish();
            }
            break;
        }
    }
    finish();
}

Path Path::rect(const cg::Rect& rect) { return Path(cg::Path::rect(rect)); }
Path Path::ellipseIn(const cg::Rect& rect) { return Path(cg::Path::ellipse(rect)); }

Path Path::polygon(const std::vector<cg::Point>& points) {
    Path p;
    for (const auto& point : points)
        p.subpaths.back().points.push_back(Point(point));
    return p;
}

Path::Subpath& Path::current() {
    if (subpaths.empty()) subpaths.emplace_back();
    return subpaths.back();
}

void Path::append(const Point& point) { current().points.push_back(point); }

void Path::moveTo(cg::Point p) {
    if (!current().points.empty()) subpaths.emplace_back();
    subpaths.back().points.push_back(Point(p));
}

void Path::lineTo(cg::Point p) {
    if (current().points.empty())
        throw ImageCoreError(ImageCoreError::internalInconsistency,
                             "a line needs a current point: move to one first");
    subpaths.back().points.push_back(Point(p));
}

void Path::curveTo(cg::Point to, cg::Point controlPoint1, cg::Point controlPoint2) {
    Subpath& s = current();
    if (s.points.empty())
        throw ImageCoreError(ImageCoreError::internalInconsistency,
                             "a curve needs a current point: move to one first");
    s.points.back().controlPoint[1] = controlPoint1;
    s.points.push_back(Point(to, {controlPoint2, to}));
}

void Path::closeSubPath() {
    Subpath& s = current();
    if (s.points.empty())
        throw ImageCoreError(ImageCoreError::internalInconsistency,
                             "closing needs a current subpath: move to a point first");
    s.isClosed = true;
    subpaths.emplace_back();
}

void Path::transform(const cg::AffineTransform& t) {
    for (auto& s : subpaths)
        for (auto& p : s.points)
            p = p.transformed(t);
}

Path Path::transformed(const cg::AffineTransform& t) const {
    Path copy = *this;
    copy.transform(t);
    return copy;
}

void Path::floorPoints() {
    for (auto& s : subpaths)
        for (auto& p : s.points) {
            const double dx = std::floor(p.position.x) - p.position.x;
            const double dy = std::floor(p.position.y) - p.position.y;
            p.position = add(p.position, dx, dy);
            for (auto& c : p.controlPoint)
                c = add(c, dx, dy);
        }
}

void Path::centerPoints() {
    for (auto& s : subpaths)
        for (auto& p : s.points) {
            const double dx = std::floor(p.position.x) + 0.5 - p.position.x;
            const double dy = std::floor(p.position.y) + 0.5 - p.position.y;
            p.position = add(p.position, dx, dy);
            for (auto& c : p.controlPoint)
                c = add(c, dx, dy);
        }
}

bool Path::isEmpty() const {
    for (const auto& s : subpaths)
        if (!s.points.empty()) return false;
    return true;
}

cg::Rect Path::bounds() const {
    cg::Rect total = cg::Rect::zero();
    for (const auto& s : subpaths) {
        cg::Rect r = cg::Rect::null();
        for (const auto& p : s.points)
            for (const cg::Point q : {p.position, p.controlPoint[0], p.controlPoint[1]})
                r = r.unionWith(cg::Rect(q, {}));
        total = total.unionWith(r);
    }
    return total;
}

cg::Path Path::cgPath() const {
    cg::Path out;
    for (const auto& s : subpaths) {
        if (!s.points.empty()) {
            out.moveTo(s.points.front().position);
            for (std::size_t i = 1; i < s.points.size(); ++i) {
                const Point& from = s.points[i - 1];
                const Point& to = s.points[i];
                if (isLine(from, to))
                    out.addLineTo(to.position);
                else
                    out.addCurveTo(from.controlPoint[1], to.controlPoint[0], to.position);
            }
        }
        if (s.isClosed) out.closeSubpath();
    }
    return out;
}

std::string Path::svgPathData() const {
    std::string out;
    auto point = [&](cg::Point p) { out += number(p.x) + " " + number(p.y); };
    const cg::Path path = cgPath();
    for (const auto& e : path.elements()) {
        if (!out.empty()) out += ' ';
        switch (e.type) {
        case cg::PathElementType::moveToPoint:
            out += "M ";
            point(e.points[0]);
            break;
        case cg::PathElementType::addLineToPoint:
            out += "L ";
            point(e.points[0]);
            break;
        case cg::PathElementType::addQuadCurveToPoint:
            out += "Q ";
            point(e.points[0]);
            out += ' ';
            point(e.points[1]);
            break;
        case cg::PathElementType::addCurveToPoint:
            out += "C ";
            point(e.points[0]);
            out += ' ';
            point(e.points[1]);
            out += ' ';
            point(e.points[2]);
            break;
        case cg::PathElementType::closeSubpath:
            out += "Z";
            break;
        }
    }
    return out;
}

} // namespace bic
