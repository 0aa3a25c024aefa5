#include "bic/algorithms/distance_transform.hpp"
#include "bic/compositing/image_operations.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/graph/image_operations.hpp"
#include "bic/platform/ci/context.hpp"
#include "support/render.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

using namespace bic;
using test_support::reds;

namespace {

ci::Image maskFrom(const std::vector<float>& v, std::int64_t w) {
    return test_support::greyImage(v, w);
}

} // namespace

TEST(Chamfer, StepsFromOneFeature) {
    // A feature at (5, 5) of an 11 × 11 field (rows top first); the last row and column stay.
    const float big = 1000;
    std::vector<float> v(11 * 11, big);
    v[5 * 11 + 5] = 0;
    chamferDistanceInPlace(v.data(), 11, 11, 11);
    auto at = [&](int x, int y) { return v[std::size_t(y * 11 + x)]; };
    EXPECT_EQ(at(6, 5), 1.0f);
    EXPECT_EQ(at(5, 4), 1.0f);
    EXPECT_EQ(at(4, 4), 1.4142135f);
    EXPECT_EQ(at(6, 6), 1.4142135f);
    EXPECT_EQ(at(7, 6), 2.236068f);
    EXPECT_EQ(at(4, 3), 2.236068f);
    EXPECT_EQ(at(7, 5), 2.0f);
    EXPECT_EQ(at(5, 7), 2.0f);
    EXPECT_EQ(at(10, 5), big); // last column: read, never written
    EXPECT_EQ(at(5, 10), big); // last row
    // No feature: nothing changes.
    std::vector<float> none(25, 7.0f);
    chamferDistanceInPlace(none.data(), 5, 5, 5);
    EXPECT_EQ(none, std::vector<float>(25, 7.0f));
}

// Every pixel updated alone, in sweep order, with every neighbour checked: what the sweeps
// must equal exactly, however they are arranged for speed.
void referenceChamfer(std::vector<float>& v, std::int64_t w, std::int64_t h, std::int64_t stride) {
    const float inf = std::numeric_limits<float>::infinity(), one = 1, diagonal = 1.4142135f,
                knight = 2.236068f;
    auto at = [&](std::int64_t x, std::int64_t y) {
        return x < 0 || y < 0 || x >= w || y >= h ? inf : v[std::size_t(y * stride + x)];
    };
    for (std::int64_t y = 0; y + 1 < h; ++y)
        for (std::int64_t x = 0; x + 1 < w; ++x) {
            float& c = v[std::size_t(y * stride + x)];
            if (c > 0)
                c = std::min({c, at(x - 1, y - 2) + knight, at(x + 1, y - 2) + knight,
                              at(x - 2, y - 1) + knight, at(x - 1, y - 1) + diagonal,
                              at(x, y - 1) + one, at(x + 1, y - 1) + diagonal,
                              at(x + 2, y - 1) + knight, at(x - 1, y) + one});
        }
    for (std::int64_t y = h - 2; y >= 0; --y)
        for (std::int64_t x = w - 2; x >= 0; --x) {
            float& c = v[std::size_t(y * stride + x)];
            if (c > 0)
                c = std::min({c, at(x + 1, y) + one, at(x - 2, y + 1) + knight,
                              at(x - 1, y + 1) + diagonal, at(x, y + 1) + one,
                              at(x + 1, y + 1) + diagonal, at(x + 2, y + 1) + knight,
                              at(x - 1, y + 2) + knight, at(x + 1, y + 2) + knight});
        }
}

TEST(Chamfer, EqualsThePixelByPixelSweepOnRandomFields) {
    std::mt19937 random(11);
    for (const auto& [w, h] : std::vector<std::pair<std::int64_t, std::int64_t>>{
             {1, 1}, {2, 7}, {4, 4}, {5, 3}, {6, 9}, {37, 23}, {130, 61}}) {
        const std::int64_t stride = w + 3;
        std::vector<float> field(std::size_t(stride * h), -1.0f);
        for (std::int64_t y = 0; y < h; ++y)
            for (std::int64_t x = 0; x < w; ++x) {
                // Features, large values and the odd negative value, which stays.
                const auto r = random() % 100;
                field[std::size_t(y * stride + x)] = r < 8 ? 0.0f
                                                     : r == 9
                                                         ? -3.0f
                                                         : float(random() % 1000) / 7.0f + 50.0f;
            }
        std::vector<float> expected = field;
        referenceChamfer(expected, w, h, stride);
        chamferDistanceInPlace(field.data(), w, h, stride);
        for (std::size_t i = 0; i < field.size(); ++i)
            ASSERT_EQ(field[i], expected[i]) << w << " × " << h << " at " << i;
    }
}

TEST(Chamfer, DistanceMapsOfMasks) {
    std::vector<float> m(9 * 9, 0);
    m[4 * 9 + 4] = 1; // a white pixel in the middle
    const ci::Image map = distanceMap(maskFrom(m, 9), {0, 0, 9, 9}, 10);
    const auto d = reds(map, {0, 0, 9, 9});
    EXPECT_EQ(d[4 * 9 + 4], 0.0f);
    EXPECT_EQ(d[4 * 9 + 5], 1.0f);
    EXPECT_EQ(d[3 * 9 + 3], 1.4142135f);
    EXPECT_EQ(d[2 * 9 + 5], 2.236068f);
    EXPECT_THROW(distanceMap(maskFrom(m, 9), cg::Rect(0, 0, 0, 0), 10), ImageCoreError);
    EXPECT_THROW(edtMap(maskFrom(m, 9), cg::Rect::infinite(), 10), ImageCoreError);
}

TEST(Euclidean, ExactAgainstBruteForce) {
    std::mt19937 random(9);
    for (int round = 0; round < 40; ++round) {
        const std::int64_t w = 1 + random() % 40, h = 1 + random() % 30;
        std::vector<float> features(std::size_t(w * h));
        const unsigned density = 1 + random() % 40;
        for (auto& f : features)
            f = random() % density == 0 ? 1.0f : 0.0f;
        const float limit = random() % 3 == 0 ? 5.0f : 1e6f;
        std::vector<float> d(features.size());
        euclideanDistance(features.data(), w, h, w, d.data(), limit);
        for (std::int64_t y = 0; y < h; ++y)
            for (std::int64_t x = 0; x < w; ++x) {
                double best = std::numeric_limits<double>::infinity();
                for (std::int64_t fy = 0; fy < h; ++fy)
                    for (std::int64_t fx = 0; fx < w; ++fx)
                        if (features[std::size_t(fy * w + fx)] > 0)
                            best = std::min(best, std::hypot(double(fx - x), double(fy - y)));
                const double expected = std::min(best, double(limit));
                ASSERT_NEAR(d[std::size_t(y * w + x)], expected, 1e-4)
                    << w << " × " << h << " at " << x << "," << y;
            }
    }
}

TEST(Euclidean, MapsStrokesAndDistances) {
    // A vertical white line at x = 3 of a 12 × 6 picture: distances grow with |x − 3|.
    std::vector<float> m(12 * 6, 0);
    for (int y = 0; y < 6; ++y)
        m[std::size_t(y * 12 + 3)] = 1;
    const auto d = reds(edtMap(maskFrom(m, 12), {0, 0, 12, 6}, 20), {0, 0, 12, 6});
    for (int x = 0; x < 12; ++x)
        EXPECT_FLOAT_EQ(d[std::size_t(2 * 12 + x)], float(std::abs(x - 3)));
    // Through tiles the same (the search limit bounds what each tile reads).
    ci::Context::Options small;
    small.tileWidth = 5;
    small.tileHeight = 2;
    std::vector<float> px(12 * 6 * 4);
    ci::Context(small).render(edtMap(maskFrom(m, 12), {0, 0, 12, 6}, 20), px.data(), 12 * 16,
                              cg::Rect(0, 0, 12, 6), ci::Format::RGBAf);
    for (std::size_t i = 0; i < 72; ++i)
        ASSERT_FLOAT_EQ(px[4 * i], d[i]);

    // The mask's distance: from its edges (Sobel of the thresholded mask), then a stroke.
    std::vector<float> square(16 * 16, 0);
    for (int y = 4; y < 12; ++y)
        for (int x = 4; x < 12; ++x)
            square[std::size_t(y * 16 + x)] = 1;
    const Image distance = bic::distance(Image::mask(maskFrom(square, 16)), {0, 0, 16, 16}, 8);
    EXPECT_EQ(distance.intent, Image::Intent::data);
    const auto dd = reds(distance.ciImage, {0, 0, 16, 16});
    EXPECT_EQ(dd[std::size_t(8 * 16 + 4)], 0.0f); // on the edge
    EXPECT_EQ(dd[std::size_t(8 * 16 + 1)], 2.0f); // two outside it (the edge is two wide)
    const Image stroke = strokeMask(Image::mask(maskFrom(square, 16)), 2, {0, 0, 16, 16});
    EXPECT_EQ(stroke.intent, Image::Intent::mask);
    const auto s = reds(stroke.ciImage, {0, 0, 16, 16});
    EXPECT_EQ(s[std::size_t(8 * 16 + 4)], 1.0f);
    EXPECT_EQ(s[std::size_t(8 * 16 + 0)], 0.0f);
    EXPECT_EQ(
        bic::distance(Image::mask(maskFrom(square, 16)), cg::Rect(0, 0, 0, 0), 8).ciImage.extent(),
        ci::Image::black().extent());
    EXPECT_THROW(bic::distance(Image::mask(maskFrom(square, 16)), cg::Rect::infinite(), 8),
                 ImageCoreError);
}

TEST(Chamfer, NothingLiesOutsideTheExtent) {
    // A small square near one corner of a large work area, searched far: pixels nearer the area's
    // border than the square measure to the square, within the 5 × 5 chamfer's error of the
    // exact distance.
    std::vector<float> m(60 * 60, 0);
    for (int y = 42; y < 46; ++y)
        for (int x = 40; x < 44; ++x)
            m[std::size_t(y * 60 + x)] = 1;
    const ci::Image mask = maskFrom(m, 60);
    const auto chamfer = reds(distanceMap(mask, {0, 0, 60, 60}, 100), {0, 0, 60, 60});
    const auto exact = reds(edtMap(mask, {0, 0, 60, 60}, 100), {0, 0, 60, 60});
    for (std::size_t i = 0; i < chamfer.size(); ++i)
        ASSERT_NEAR(chamfer[i], exact[i], 0.03 * exact[i] + 1e-6) << i % 60 << "," << i / 60;
    EXPECT_NEAR(exact[0], std::hypot(40.0, 42.0 - 0), 0.01); // top-left corner (row 0)

    // No feature at all: every pixel keeps its prepared value, border and centre alike.
    const auto empty =
        reds(distanceMap(maskFrom(std::vector<float>(20 * 20, 0), 20), {0, 0, 20, 20}, 5),
             {0, 0, 20, 20});
    EXPECT_EQ(empty[0], empty[10 * 20 + 10]);
    EXPECT_GT(empty[0], 1e19f);
}
