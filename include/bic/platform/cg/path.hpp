#pragma once
// Vector paths of the drawing layer: move, line, quadratic, cubic and close elements.

#include "bic/platform/cg/affine_transform.hpp"

#include <array>
#include <vector>

namespace bic::cg {

enum class LineCap : int { butt = 0, round = 1, square = 2 };
enum class LineJoin : int { miter = 0, round = 1, bevel = 2 };

enum class PathElementType {
    moveToPoint,
    addLineToPoint,
    addQuadCurveToPoint,
    addCurveToPoint,
    closeSubpath,
};

struct PathElement {
    PathElementType type;
    /// The element's points: the target last, control points before it; unused slots are zero.
    std::array<Point, 3> points{};

    /// How many of `points` the element uses: 1, 1, 2, 3 or 0.
    int pointCount() const;
    friend bool operator==(const PathElement&, const PathElement&) = default;
};

class Path {
public:
    Path() = default;
    /// Move, three lines anticlockwise from (minX, minY), close.
    static Path rect(const Rect& rect);
    /// Four cubic arcs anticlockwise from (maxX, midY), close.
    static Path ellipse(const Rect& rect);

    void moveTo(Point p);
    void addLineTo(Point p);
    void addQuadCurveTo(Point control, Point end);
    void addCurveTo(Point control1, Point control2, Point end);
    void closeSubpath();
    void addRect(const Rect& rect);
    void addEllipse(const Rect& rect);
    void addPath(const Path& other, const AffineTransform& transform = {});

    const std::vector<PathElement>& elements() const { return elements_; }
    bool isEmpty() const { return elements_.empty(); }
    /// The smallest rectangle containing every point, control points included; null if empty.
    Rect boundingBox() const;
    Path transformed(const AffineTransform& transform) const;
    /// True when every coordinate is finite.
    bool isFinite() const;

    friend bool operator==(const Path&, const Path&) = default;

private:
    std::vector<PathElement> elements_;
};

} // namespace bic::cg
