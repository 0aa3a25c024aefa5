#pragma once
// The library's vector path: subpaths of anchor points with Bézier control points, plus the
// stroke settings used to draw it. Selection outlines are built as paths.

#include "bic/platform/cg/path.hpp"

#include <array>
#include <string>
#include <vector>

namespace bic {

class Path {
public:
    struct Point {
        cg::Point position;
        /// [0]: incoming control (for the segment ending here); [1]: outgoing control.
        std::array<cg::Point, 2> controlPoint;

        /// A corner: both control points on the anchor.
        explicit Point(cg::Point p) : position(p), controlPoint{p, p} {}
        Point(cg::Point p, std::array<cg::Point, 2> controls)
            : position(p), controlPoint(controls) {}

        Point transformed(const cg::AffineTransform& t) const;
        friend bool operator==(const Point&, const Point&) = default;
    };

    struct Subpath {
        std::vector<Point> points;
        bool isClosed = false;

        /// "[(x, y), (x, y)]": the positions as the platform writes an array of points.
        std::string debugDescription() const;
        friend bool operator==(const Subpath&, const Subpath&) = default;
    };

    double lineWidth = 1.0;
    cg::LineCap lineCap = cg::LineCap::butt;
    cg::LineJoin lineJoin = cg::LineJoin::miter;
    double miterLimit = 10.0;
    std::vector<Subpath> subpaths;

    /// One empty, open subpath.
    Path();
    /// One open subpath holding the corner `point`.
    explicit Path(cg::Point point);
    /// The platform path's figures; an empty platform path gives no subpaths at all.
    explicit Path(const cg::Path& cgPath);
    /// One closed subpath of four corners.
    static Path rect(const cg::Rect& rect);
    /// One closed subpath of curve points.
    static Path ellipseIn(const cg::Rect& rect);
    /// One open subpath of corners in the given order.
    static Path polygon(const std::vector<cg::Point>& points);

    // Editing works on the last subpath (one is started when there is none).
    void append(const Point& point);
    /// Starts a new open subpath unless the current one is empty.
    void moveTo(cg::Point p);
    /// Throws ImageCoreError::internalInconsistency when the current subpath is empty.
    void lineTo(cg::Point p);
    /// Throws ImageCoreError::internalInconsistency when the current subpath is empty.
    void curveTo(cg::Point to, cg::Point controlPoint1, cg::Point controlPoint2);
    /// Closes the current subpath and opens a new empty one. Throws
    /// ImageCoreError::internalInconsistency when the current subpath is empty.
    void closeSubPath();
    void transform(const cg::AffineTransform& t);
    Path transformed(const cg::AffineTransform& t) const;
    /// Anchors to whole coordinates (rounded down); control points move along.
    void floorPoints();
    /// Anchors to pixel centres (rounded down, plus 0.5); control points move along.
    void centerPoints();

    /// No subpath holds a point.
    bool isEmpty() const;
    /// The union of the control polygons, started from the zero rectangle, so the result always
    /// contains the origin; the zero rectangle for a path without points.
    cg::Rect bounds() const;
    /// The platform path: lines where both controls sit on their anchors, cubics elsewhere.
    cg::Path cgPath() const;
    /// SVG path data in the path's own coordinates ("M x y L x y C … Z").
    std::string svgPathData() const;

    friend bool operator==(const Path&, const Path&) = default;

private:
    Subpath& current();
};

} // namespace bic
