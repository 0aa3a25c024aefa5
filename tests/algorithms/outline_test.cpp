#include "bic/buffers/pixel_buffer.hpp"

#include <functional>
#include <gtest/gtest.h>
#include <numeric>
#include <random>

using namespace bic;

namespace {

// Rows top first; '#' is opaque.
PixelBuffer<PixelGray8> mask(const std::vector<std::string>& rows) {
    PixelBuffer<PixelGray8> b(IntegralSize(std::int64_t(rows[0].size()), std::int64_t(rows.size())),
                              cg::ColorSpace::deviceGray());
    b.withUnsafeBuffer([&](std::span<PixelGray8> p) {
        for (std::size_t y = 0; y < rows.size(); ++y)
            for (std::size_t x = 0; x < rows[y].size(); ++x)
                p[y * std::size_t(b.pixelsPerRow()) + x] = PixelGray8(rows[y][x] == '#' ? 255 : 0);
    });
    return b;
}

std::vector<cg::Point> corners(const Path& path) {
    std::vector<cg::Point> out;
    for (const auto& point : path.subpaths.at(0).points)
        out.push_back(point.position);
    return out;
}

// Independent counts: 8-connected foreground regions, and holes — 4-connected background
// components that do not reach the border.
std::pair<int, int> regionsAndHoles(const std::vector<std::vector<int>>& m) {
    const int h = int(m.size()), w = int(m[0].size());
    std::vector<int> parent(std::size_t(w * h));
    std::iota(parent.begin(), parent.end(), 0);
    std::function<int(int)> find = [&](int i) {
        return parent[std::size_t(i)] == i ? i
                                           : parent[std::size_t(i)] = find(parent[std::size_t(i)]);
    };
    auto unite = [&](int a, int b) { parent[std::size_t(find(a))] = find(b); };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) {
                    const int nx = x + dx, ny = y + dy;
                    if (nx < 0 || ny < 0 || nx >= w || ny >= h || (dx == 0 && dy == 0)) continue;
                    const bool fg = m[std::size_t(y)][std::size_t(x)],
                               nfg = m[std::size_t(ny)][std::size_t(nx)];
                    if (fg != nfg) continue;
                    if (!fg && dx != 0 && dy != 0) continue; // background is 4-connected
                    unite(y * w + x, ny * w + nx);
                }
    std::vector<int> regions, holes, border;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if (!m[std::size_t(y)][std::size_t(x)] &&
                (x == 0 || y == 0 || x == w - 1 || y == h - 1))
                border.push_back(find(y * w + x));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int r = find(y * w + x);
            auto& list = m[std::size_t(y)][std::size_t(x)] ? regions : holes;
            if (std::find(list.begin(), list.end(), r) == list.end() &&
                (m[std::size_t(y)][std::size_t(x)] ||
                 std::find(border.begin(), border.end(), r) == border.end()))
                list.push_back(r);
        }
    return {int(regions.size()), int(holes.size())};
}

} // namespace

TEST(Outline, ShapesAndCorners) {
    const auto dot = mask({"...", ".#.", "..."}).outlinePath();
    ASSERT_TRUE(dot);
    ASSERT_EQ(dot->size(), 1u);
    EXPECT_EQ(corners((*dot)[0]), (std::vector<cg::Point>{{1, 1}}));
    EXPECT_TRUE((*dot)[0].subpaths[0].isClosed);
    EXPECT_EQ((*dot)[0].lineCap, cg::LineCap::round);

    // A filled rectangle: traced from the pixel right of its bottom-left corner round to that
    // corner (bottom-up coordinates); the straight runs between are merged away, the wrap-around
    // is not.
    const auto rect = mask({"......", ".####.", ".####.", ".####.", "......"}).outlinePath();
    ASSERT_EQ(rect->size(), 1u);
    EXPECT_EQ(corners((*rect)[0]),
              (std::vector<cg::Point>{{2, 1}, {4, 1}, {4, 3}, {1, 3}, {1, 1}}));
    // A ring: outer boundary first, then the hole's.
    const auto ring = mask({"#####", "#...#", "#...#", "#####"}).outlinePath();
    ASSERT_EQ(ring->size(), 2u);
    EXPECT_EQ(corners((*ring)[0]),
              (std::vector<cg::Point>{{1, 0}, {4, 0}, {4, 3}, {0, 3}, {0, 0}}));
    // The hole's boundary runs over the ring pixels beside the hole (x 1…3, y 1…2), cutting
    // each corner diagonally: eight corners, none of them a corner pixel of the ring.
    const auto hole = corners((*ring)[1]);
    EXPECT_EQ(hole.size(), 8u);
    for (const cg::Point& p : hole) {
        const bool onRing = p.x == 0 || p.x == 4 || p.y == 0 || p.y == 3;
        const bool besideHole = p.x >= 0 && p.x <= 4 && p.y >= 0 && p.y <= 3 &&
                                !((p.x == 0 || p.x == 4) && (p.y == 0 || p.y == 3));
        EXPECT_TRUE(onRing && besideHole) << p.x << "," << p.y;
    }
    // Diagonal neighbours are one region.
    EXPECT_EQ(mask({"#.", ".#"}).outlinePath()->size(), 1u);
    EXPECT_TRUE(mask({"...", "..."}).outlinePath()->empty());

    // Cached: changing the pixels after the first read does not change the answer.
    auto b = mask({"#..", "...", "..#"});
    EXPECT_EQ(b.outlinePath()->size(), 2u);
    b.withUnsafeBuffer([](std::span<PixelGray8> p) { p[1] = PixelGray8(255); });
    EXPECT_EQ(b.outlinePath()->size(), 2u);

    // Colour buffers: alpha decides, not colour.
    PixelBuffer<PixelRGBA16> colour(IntegralSize(3, 1), cg::ColorSpace::deviceRGB());
    colour.withUnsafeBuffer([](std::span<PixelRGBA16> p) {
        p[0] = PixelRGBA16::withRGBA(0, 0, 0, 1);    // black, opaque: inside
        p[1] = PixelRGBA16::withRGBA(0, 0, 0, 0.4f); // mostly transparent: outside
        p[2] = PixelRGBA16::withRGBA(0.5f, 0.5f, 0.5f, 0.5f);
    });
    EXPECT_EQ(colour.outlinePath()->size(), 2u);
}

TEST(Outline, RegionAndHoleCountsOnRandomMasks) {
    std::mt19937 random(31);
    for (int round = 0; round < 200; ++round) {
        const std::size_t w = 1 + random() % 24, h = 1 + random() % 18;
        std::vector<std::vector<int>> m(h, std::vector<int>(w));
        std::vector<std::string> rows(h, std::string(w, '.'));
        const unsigned density = 2 + random() % 3;
        for (std::size_t y = 0; y < h; ++y)
            for (std::size_t x = 0; x < w; ++x)
                if (random() % density != 0) m[y][x] = 1, rows[y][x] = '#';
        const auto [regions, holes] = regionsAndHoles(m);
        const auto paths = mask(rows).outlinePath();
        ASSERT_TRUE(paths);
        ASSERT_EQ(int(paths->size()), regions + holes) << "round " << round;
        for (const Path& p : *paths)
            for (std::size_t i = 1; i + 1 < p.subpaths[0].points.size(); ++i) {
                // No three consecutive corners lie on one straight, same-way line.
                const auto a = p.subpaths[0].points[i - 1].position,
                           b = p.subpaths[0].points[i].position,
                           n = p.subpaths[0].points[i + 1].position;
                EXPECT_FALSE(
                    (cg::Vector{n.x - b.x, n.y - b.y}.hasSameDirection({b.x - a.x, b.y - a.y})));
            }
    }
}
