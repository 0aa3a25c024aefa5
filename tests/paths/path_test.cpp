#include "bic/core/image_core_error.hpp"
#include "bic/paths/path.hpp"
#include "bic/paths/path_drawing.hpp"
#include "support/expect_error.hpp"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>

using namespace bic;
using bic::test_support::expectCode;
using cg::PathElementType;

namespace {
std::vector<PathElementType> types(const cg::Path& p) {
    std::vector<PathElementType> t;
    for (const auto& e : p.elements())
        t.push_back(e.type);
    return t;
}
} // namespace

TEST(PlatformPath, RectanglesAndEllipses) {
    const cg::Path r = cg::Path::rect({1, 2, -3, 4}); // standardized to (−2, 2, 3, 4)
    ASSERT_EQ(r.elements().size(), 5u);
    EXPECT_EQ(r.elements()[0].points[0], (cg::Point{-2, 2}));
    EXPECT_EQ(r.elements()[2].points[0], (cg::Point{1, 6}));
    EXPECT_EQ(r.boundingBox(), cg::Rect(-2, 2, 3, 4));
    const cg::Path e = cg::Path::ellipse({0, 0, 4, 2});
    EXPECT_EQ(types(e), (std::vector<PathElementType>{
                            PathElementType::moveToPoint, PathElementType::addCurveToPoint,
                            PathElementType::addCurveToPoint, PathElementType::addCurveToPoint,
                            PathElementType::addCurveToPoint, PathElementType::closeSubpath}));
    EXPECT_EQ(e.elements()[0].points[0], (cg::Point{4, 1}));
    EXPECT_EQ(e.elements()[1].points[2], (cg::Point{2, 2})); // anticlockwise: the top comes first
    EXPECT_EQ(e.boundingBox(), cg::Rect(0, 0, 4, 2));
    EXPECT_TRUE(cg::Path().boundingBox().isNull());
    cg::Path bad;
    bad.moveTo({std::nan(""), 0});
    EXPECT_FALSE(bad.isFinite());
    EXPECT_TRUE(e.transformed(cg::AffineTransform::scale(2, 2)).isFinite());
    EXPECT_EQ(e.transformed(cg::AffineTransform::translation(1, 1)).boundingBox(),
              cg::Rect(1, 1, 4, 2));
}

TEST(Path, EditingWorksOnTheCurrentSubpath) {
    Path p;
    expectCode([&] { p.lineTo({1, 1}); }, ImageCoreError::internalInconsistency);
    expectCode([&] { p.curveTo({1, 1}, {0, 1}, {1, 0}); }, ImageCoreError::internalInconsistency);
    expectCode([&] { p.closeSubPath(); }, ImageCoreError::internalInconsistency);
    p.moveTo({0, 0});
    ASSERT_EQ(p.subpaths.size(), 1u) << "the first move fills the empty subpath";
    p.moveTo({5, 5});
    EXPECT_EQ(p.subpaths.size(), 2u);
    p.lineTo({6, 5});
    p.curveTo({7, 7}, {6.5, 5}, {7, 6.5});
    EXPECT_EQ(p.subpaths[1].points[1].controlPoint[1], (cg::Point{6.5, 5}));
    EXPECT_EQ(p.subpaths[1].points[2].controlPoint,
              (std::array<cg::Point, 2>{cg::Point{7, 6.5}, cg::Point{7, 7}}));
    p.closeSubPath();
    EXPECT_TRUE(p.subpaths[1].isClosed);
    EXPECT_TRUE(p.subpaths.back().points.empty());
    EXPECT_FALSE(p.isEmpty());
    expectCode([&] { p.lineTo({0, 0}); }, ImageCoreError::internalInconsistency);
    p.append(Path::Point({9, 9}));
    EXPECT_EQ(p.subpaths.back().points.size(), 1u);
    EXPECT_TRUE(Path().isEmpty());
    EXPECT_EQ(Path({3, 4}).subpaths[0].points[0], Path::Point({3, 4}));
}

TEST(Path, PlatformPathRoundTrips) {
    const Path rect = Path::rect({0, 0, 2, 3});
    ASSERT_EQ(rect.subpaths.size(), 1u);
    EXPECT_TRUE(rect.subpaths[0].isClosed);
    EXPECT_EQ(rect.subpaths[0].points.size(), 4u);
    EXPECT_EQ(types(rect.cgPath()), (std::vector<PathElementType>{PathElementType::moveToPoint,
                                                                  PathElementType::addLineToPoint,
                                                                  PathElementType::addLineToPoint,
                                                                  PathElementType::addLineToPoint,
                                                                  PathElementType::closeSubpath}));
    EXPECT_EQ(Path(rect.cgPath()), rect);

    const Path ellipse = Path::ellipseIn({-1, -1, 2, 2});
    EXPECT_EQ(Path(ellipse.cgPath()), ellipse);
    EXPECT_EQ(ellipse.cgPath(), cg::Path::ellipse({-1, -1, 2, 2}));

    // Quadratic elements become cubics with the control point doubled.
    cg::Path q;
    q.moveTo({0, 0});
    q.addQuadCurveTo({1, 2}, {2, 0});
    q.addLineTo({3, 0});
    q.closeSubpath();
    q.addLineTo({9, 9}); // ignored: no current subpath after a close
    q.moveTo({5, 5});
    const Path fromQ(q);
    ASSERT_EQ(fromQ.subpaths.size(), 2u);
    EXPECT_EQ(fromQ.subpaths[0].points[0].controlPoint[1], (cg::Point{1, 2}));
    EXPECT_EQ(fromQ.subpaths[0].points[1].controlPoint[0], (cg::Point{1, 2}));
    EXPECT_EQ(fromQ.subpaths[0].points.size(), 3u);
    EXPECT_FALSE(fromQ.subpaths[1].isClosed);

    const Path none{cg::Path()};
    EXPECT_TRUE(none.subpaths.empty());
    EXPECT_TRUE(none.isEmpty());
    Path grows = none;
    grows.moveTo({1, 1});
    EXPECT_EQ(grows.subpaths.size(), 1u);
}

TEST(Path, ControlPointsOnAnchorsGiveLines) {
    Path p = Path::polygon({{0, 0}, {1, 0}, {1, 1}});
    p.subpaths[0].points[1].controlPoint[1] = {1.5, 0}; // only the second segment curves
    const cg::Path c = p.cgPath();
    EXPECT_EQ(types(c), (std::vector<PathElementType>{PathElementType::moveToPoint,
                                                      PathElementType::addLineToPoint,
                                                      PathElementType::addCurveToPoint}));
    EXPECT_EQ(c.elements()[2].points[0], (cg::Point{1.5, 0}));
    Path closedEmpty;
    closedEmpty.subpaths[0].isClosed = true;
    EXPECT_EQ(types(closedEmpty.cgPath()),
              (std::vector<PathElementType>{PathElementType::closeSubpath}));
}

TEST(Path, SnappingBoundsAndText) {
    Path p(cg::Point{2.7, -0.5});
    p.subpaths[0].points[0].controlPoint = {cg::Point{3, 0}, cg::Point{2, -1}};
    Path floored = p;
    floored.floorPoints();
    EXPECT_EQ(floored.subpaths[0].points[0].position, (cg::Point{2, -1}));
    EXPECT_NEAR(floored.subpaths[0].points[0].controlPoint[0].x, 2.3, 1e-12);
    EXPECT_NEAR(floored.subpaths[0].points[0].controlPoint[0].y, -0.5, 1e-12);
    Path centred = p;
    centred.centerPoints();
    EXPECT_EQ(centred.subpaths[0].points[0].position, (cg::Point{2.5, -0.5}));
    EXPECT_NEAR(centred.subpaths[0].points[0].controlPoint[1].x, 1.8, 1e-12);

    // Bounds cover the control polygon and, starting from the zero rectangle, the origin.
    EXPECT_EQ(Path::rect({5, 5, 2, 2}).bounds(), cg::Rect(0, 0, 7, 7));
    EXPECT_EQ(p.bounds(), cg::Rect(0, -1, 3, 1));
    EXPECT_EQ(Path().bounds(), cg::Rect::zero());
    EXPECT_EQ(Path::polygon({{1, 2}, {3.5, -4}}).subpaths[0].debugDescription(),
              "[(1.0, 2.0), (3.5, -4.0)]");
    EXPECT_EQ(Path().subpaths[0].debugDescription(), "[]");
    EXPECT_EQ(Path::polygon({{100000, 0.0001}, {-1e-7, 1e16}}).subpaths[0].debugDescription(),
              "[(100000.0, 0.0001), (-0.0000001, 10000000000000000.0)]");

    const Path moved = Path::rect({0, 0, 1, 1}).transformed(cg::AffineTransform::translation(2, 3));
    EXPECT_EQ(moved.subpaths[0].points[2].position, (cg::Point{3, 4}));
    EXPECT_EQ(moved.lineWidth, 1.0);
    EXPECT_EQ(moved.miterLimit, 10.0);
    EXPECT_EQ(moved.lineJoin, cg::LineJoin::miter);
}

TEST(Path, SVGPathData) {
    Path p = Path::rect({0, 0, 2, 1.5});
    EXPECT_EQ(p.svgPathData(), "M 0 0 L 2 0 L 2 1.5 L 0 1.5 Z");
    Path c;
    c.moveTo({0, 0});
    c.curveTo({3, 0}, {1, 1}, {2, 1});
    EXPECT_EQ(c.svgPathData(), "M 0 0 C 1 1 2 1 3 0");
    EXPECT_EQ(Path().svgPathData(), "");
}

TEST(PathDrawing, StrokeSettingsAndTheMarchingAnts) {
    auto c = cg::Context::bitmap(nullptr, 40, 3, 8, 40, cg::ColorSpace::deviceGray(),
                                 cg::bitmap::alphaNone);
    Path line = Path::polygon({{0, 1.5}, {40, 1.5}});
    line.lineWidth = 1;
    selectionStroke(*c, line, 0);
    // Memory row 1 is y = 1: white for six pixels, black for six, and so on.
    const std::uint8_t* row = c->data() + 40;
    for (int x = 0; x < 24; ++x)
        EXPECT_EQ(row[x], (x / 6) % 2 == 0 ? 255 : 0) << x;
    EXPECT_TRUE(c->shouldAntialias()) << "the graphics state is restored";
    EXPECT_TRUE(c->lineDash().empty());

    // A phase of 3 shifts the pattern three pixels to the left.
    auto shifted = cg::Context::bitmap(nullptr, 40, 3, 8, 40, cg::ColorSpace::deviceGray(),
                                       cg::bitmap::alphaNone);
    bezierSelectionStroke(*shifted, line, 3);
    const std::uint8_t* srow = shifted->data() + 40;
    for (int x = 0; x < 24; ++x)
        EXPECT_EQ(srow[x], ((x + 3) / 6) % 2 == 0 ? 255 : 0) << x;
    EXPECT_TRUE(shifted->shouldAntialias());
    EXPECT_TRUE(shifted->lineDash().empty());

    // The path's own width reaches the context.
    auto wide = cg::Context::bitmap(nullptr, 10, 10, 8, 10, cg::ColorSpace::deviceGray(),
                                    cg::bitmap::alphaNone);
    Path thick = Path::polygon({{0, 5}, {10, 5}});
    thick.lineWidth = 4;
    wide->setStrokeColor(cg::Color::deviceGray(1));
    stroke(*wide, thick);
    EXPECT_EQ(wide->data()[(9 - 3) * 10 + 5], 255);
    EXPECT_EQ(wide->data()[(9 - 2) * 10 + 5], 0);
    auto filled = cg::Context::bitmap(nullptr, 10, 10, 8, 10, cg::ColorSpace::deviceGray(),
                                      cg::bitmap::alphaNone);
    filled->setFillColor(cg::Color::deviceGray(1));
    fill(*filled, Path::rect({2, 2, 3, 3}));
    EXPECT_EQ(filled->data()[(9 - 3) * 10 + 3], 255);
}
