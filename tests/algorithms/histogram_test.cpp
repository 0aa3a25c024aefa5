#include "bic/algorithms/histogram.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/platform/ci/context.hpp"
#include "support/render.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <numeric>
#include <random>

using namespace bic;
using test_support::reds;

namespace {

ci::Image patch(const cg::Rect& r, double red, double green, double blue, double alpha) {
    return ci::Image::constant({red, green, blue, alpha}).cropped(r);
}

} // namespace

TEST(Histogram, CountsAreasAndTransparency) {
    const ci::Image picture = patch({0, 0, 4, 2}, 0, 0, 0, 1)                     // 8 opaque black
                                  .composited(patch({4, 0, 2, 2}, 1, 0.5, 0, 1)); // 4 orange
    const Histogram h = areaHistogram(picture, {0, 0, 8, 2}); // 4 transparent at x 6…7
    EXPECT_EQ(h.alpha[0], 4u);
    EXPECT_EQ(h.alpha[255], 12u);
    EXPECT_EQ(h.red[0], 8u);
    EXPECT_EQ(h.red[255], 4u);
    EXPECT_EQ(h.green[128], 4u);
    EXPECT_EQ(h.blue[0], 12u);
    const Histogram clear = areaHistogram(ci::Image::clear(), {0, 0, 5, 3});
    EXPECT_EQ(clear.alpha[0], 15u);
    EXPECT_EQ(std::accumulate(clear.red.begin(), clear.red.end(), std::uint64_t(0)), 0u);
    EXPECT_THROW(areaHistogram(picture, cg::Rect(0, 0, 0, 3)), ImageCoreError);
    EXPECT_THROW(areaHistogram(picture, cg::Rect::infinite()), ImageCoreError);
    EXPECT_DEATH(Histogram(std::vector<std::uint64_t>(255), std::vector<std::uint64_t>(256),
                           std::vector<std::uint64_t>(256), std::vector<std::uint64_t>(256)),
                 "256 counts");

    // Odd widths and many rows through the counting loop, against a plain count.
    std::vector<std::uint8_t> bytes(13 * 7 * 4);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = std::uint8_t(i * 37 % 251);
    std::array<std::vector<std::uint64_t>, 4> got{}, want{};
    for (int c = 0; c < 4; ++c)
        got[c].assign(256, 0), want[c].assign(256, 0);
    histogramARGB8888(bytes.data(), 13, 7, 13 * 4,
                      {got[0].data(), got[1].data(), got[2].data(), got[3].data()});
    for (std::size_t i = 0; i < bytes.size(); ++i)
        ++want[i % 4][bytes[i]];
    EXPECT_EQ(got, want);
}

TEST(Histogram, DemoMatchesItsDescription) {
    const Histogram& d = Histogram::demo();
    auto total = [](const std::vector<std::uint64_t>& v) {
        return std::accumulate(v.begin(), v.end(), std::uint64_t(0));
    };
    auto peak = [](const std::vector<std::uint64_t>& v) {
        return std::size_t(std::max_element(v.begin(), v.end()) - v.begin());
    };
    EXPECT_EQ(total(d.red), 220480u);
    EXPECT_EQ(total(d.green), 220480u);
    EXPECT_EQ(total(d.blue), 220480u);
    EXPECT_EQ(d.alpha[255], 220480u);
    EXPECT_EQ(peak(d.red), 189u);
    EXPECT_EQ(d.red[189], 3057u);
    EXPECT_EQ(peak(d.green), 131u);
    EXPECT_EQ(d.green[131], 2639u);
    EXPECT_EQ(peak(d.blue), 125u);
    EXPECT_EQ(d.blue[125], 2453u);
    EXPECT_EQ((std::vector<std::uint64_t>(d.red.begin(), d.red.begin() + 6)),
              (std::vector<std::uint64_t>{3, 2, 4, 5, 4, 6}));
    EXPECT_GT(d.red[255], 0u);
    EXPECT_GT(d.green[211], 0u);
    EXPECT_EQ(d.green[212], 0u);
    EXPECT_GT(d.blue[212], 0u);
    EXPECT_EQ(d.blue[213], 0u);
}

TEST(Histogram, AverageEqualiseAndPixelReads) {
    const ci::Image picture =
        patch({0, 0, 2, 1}, 1, 0, 0, 1).composited(patch({2, 0, 2, 1}, 0, 0, 1, 0.5));
    // Half-transparent pixels count with weight 1; transparent ones not at all.
    const PixelRGBA32 mean = averageColor(picture, {0, 0, 6, 1});
    EXPECT_FLOAT_EQ(mean.red(), 0.5f);
    EXPECT_FLOAT_EQ(mean.blue(), 0.25f); // premultiplied 0.5 over two of four
    EXPECT_FLOAT_EQ(mean.alpha(), 1.0f);
    EXPECT_EQ(averageColor(ci::Image::clear(), {0, 0, 3, 3}), PixelRGBA32::withRGBA(0, 0, 0, 1));
    EXPECT_THROW(averageColor(picture, cg::Rect(0, 0, 0, 0)), ImageCoreError);

    EXPECT_EQ(color(picture, {1, 0}), PixelRGBA32::withRGBA(1, 0, 0, 1));
    EXPECT_FALSE(color(picture, {4, 0}));
    EXPECT_FALSE(color(picture, {-1, 0}));
    EXPECT_FLOAT_EQ(*grayValue(patch({0, 0, 1, 1}, 0.25, 0.5, 0.5, 1), {0, 0}), 0.25f);

    // Equalising a two-tone ramp spreads it to 0 and 1; alpha stays.
    const ci::Image twoTone =
        patch({0, 0, 5, 1}, 0.2, 0.2, 0.2, 1).composited(patch({5, 0, 5, 1}, 0.3, 0.3, 0.3, 1));
    const auto eq = reds(equalized(twoTone, 256), {0, 0, 10, 1});
    EXPECT_FLOAT_EQ(eq[0], 0.0f);
    EXPECT_FLOAT_EQ(eq[9], 1.0f);
    EXPECT_THROW(equalized(twoTone, 0), ImageCoreError);
    EXPECT_THROW(equalized(ci::Image::white(), 256), ImageCoreError);
}

TEST(Histogram, ColourOfTransparentPixelsIsNotCounted) {
    // Transparent pixels that still carry colour bytes, as noise tiles do.
    const std::uint8_t argb[16] = {0, 50, 60, 70, 0, 50, 0, 0, 255, 9, 9, 9, 0, 0, 0, 0};
    const ci::Image picture = *ci::Image::fromBitmap(argb, 16, 4, 1, ci::Format::ARGB8);
    const Histogram h = areaHistogram(picture, {0, 0, 4, 1});
    EXPECT_EQ(h.alpha[0], 3u);
    EXPECT_EQ(h.alpha[255], 1u);
    std::vector<std::uint64_t> onlyNine(256, 0);
    onlyNine[9] = 1;
    EXPECT_EQ(h.red, onlyNine);
    EXPECT_EQ(h.green, onlyNine);
    EXPECT_EQ(h.blue, onlyNine);
}

TEST(Histogram, AreasWiderThanASurface) {
    const cg::Rect wide(-3, 0, 20000, 3);
    const ci::Image picture = patch({0, 0, 30000, 3}, 0.2, 0.4, 0.6, 1);
    const Histogram h = areaHistogram(picture, wide);
    EXPECT_EQ(h.alpha[255], 3u * 19997);
    EXPECT_EQ(h.alpha[0], 9u);
    EXPECT_EQ(h.red[51], 3u * 19997);
    const PixelRGBA32 mean = averageColor(picture, wide);
    EXPECT_NEAR(mean.red(), 0.2, 1e-6);
    EXPECT_NEAR(mean.blue(), 0.6, 1e-6);
}

TEST(Histogram, EqualisingAPictureInManyTiles) {
    // A picture the engine renders in many tiles, against the rule computed here: each value
    // maps to the share of values at or below its bucket, the lowest occupied bucket going to
    // 0. The sparse form (more buckets than pixels) must agree with it too.
    const std::int64_t w = 700, h = 300;
    std::vector<float> pixels(std::size_t(w * h * 4));
    std::mt19937 random(7);
    for (std::size_t i = 0; i < pixels.size(); i += 4) {
        for (int c = 0; c < 3; ++c)
            pixels[i + std::size_t(c)] = float(random() % 1000) / 999.0f;
        pixels[i + 3] = 1;
    }
    const ci::Image picture =
        *ci::Image::fromBitmap(pixels.data(), w * 16, w, h, ci::Format::RGBAf);
    for (const std::int64_t buckets : {std::int64_t(256), std::int64_t(1) << 21}) {
        std::vector<double> cdf(std::size_t(buckets), 0.0);
        auto bucketOf = [&](float v) {
            return std::min(std::size_t(buckets - 1), std::size_t(v * float(buckets)));
        };
        for (std::size_t i = 0; i < pixels.size(); i += 4)
            cdf[bucketOf(pixels[i])] += 1;
        std::partial_sum(cdf.begin(), cdf.end(), cdf.begin());
        const double low = *std::find_if(cdf.begin(), cdf.end(), [](double v) { return v > 0; });
        const auto got = reds(equalized(picture, buckets), {0, 0, double(w), double(h)});
        for (std::int64_t y = 0; y < h; y += 7)
            for (std::int64_t x = 0; x < w; x += 3) {
                const float v = pixels[std::size_t(((h - 1 - y) * w + x) * 4)];
                const double want = (cdf[bucketOf(v)] - low) / (double(w * h) - low);
                ASSERT_NEAR(got[std::size_t((h - 1 - y) * w + x)], want, 1e-6)
                    << buckets << " buckets at " << x << "," << y;
            }
    }
}
