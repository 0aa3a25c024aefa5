#include "bic/algorithms/dithering.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/platform/ci/context.hpp"
#include "support/render.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <tuple>

using namespace bic;
using test_support::reds;

namespace {

std::vector<float> dither(std::vector<float> v, std::int64_t w, DitheringMethod m) {
    ditherInPlace(v.data(), w, std::int64_t(v.size()) / w, w, m);
    return v;
}

ci::Image grey(const std::vector<float>& v, std::int64_t w) {
    return test_support::greyImage(v, w);
}

} // namespace

TEST(Dithering, HandWorkedErrorDiffusion) {
    // Floyd–Steinberg on 2 × 2 of 0.5: (0,0) → 1 with error −8/16, leaving 0.28125 to its
    // right, 0.34375 below and 0.46875 diagonally; (1,0) → 0 with error 0.28125, which rounds
    // to 5/16 (4.5 sixteenths, half away from zero); (0,1) reaches 0.40234375 → 0 and passes
    // 6/16 on, so (1,1) ends at 0.73046875 → 1.
    const auto fs = dither({0.5f, 0.5f, 0.5f, 0.5f}, 2, DitheringMethod::floydSteinberg);
    EXPECT_EQ(fs, (std::vector<float>{1, 0, 0, 1}));
    // Constant 0 and 1 stay as they are.
    EXPECT_EQ(dither(std::vector<float>(12, 0), 4, DitheringMethod::atkinson),
              std::vector<float>(12, 0));
    EXPECT_EQ(dither(std::vector<float>(12, 1), 4, DitheringMethod::floydSteinberg),
              std::vector<float>(12, 1));
    // One pixel wide: only the straight-down shares arrive. 0.3 → 0, err 0.3 → 5/16; 5/16 of
    // that reaches the next row: 0.3 + 0.09765625 = 0.39765625 → 0, …
    const auto column = dither({0.3f, 0.3f, 0.3f, 0.3f}, 1, DitheringMethod::floydSteinberg);
    EXPECT_EQ(column, (std::vector<float>{0, 0, 0, 0}));
    const auto tall = dither({0.45f, 0.45f, 0.45f}, 1, DitheringMethod::atkinson);
    // 0.45 → 0, err 7/16 → 1/8 of it (0.0546875) to each of the two rows below: 0.5046875 → 1,
    // err −0.5 (−8/16) → −1/16 below: 0.45 + 0.0546875 − 0.0625 = 0.4421875 → 0.
    EXPECT_EQ(tall, (std::vector<float>{0, 1, 0}));
    // Floyd–Steinberg keeps the mean tone of a large field; Atkinson drops a quarter of every
    // error, so light flecks on a dark field are rarer.
    const std::vector<float> field(64 * 64, 0.25f);
    auto mean = [](const std::vector<float>& v) {
        return std::accumulate(v.begin(), v.end(), 0.0f) / float(v.size());
    };
    EXPECT_NEAR(mean(dither(field, 64, DitheringMethod::floydSteinberg)), 0.25f, 0.01f);
    const float atkinson = mean(dither(field, 64, DitheringMethod::atkinson));
    EXPECT_LT(atkinson, 0.24f);
    EXPECT_GT(atkinson, 0.1f);
}

TEST(Dithering, MatchesThePlainRuleOnRandomImages) {
    // The rule as stated, one cell at a time, against the optimised loops: identical samples.
    auto plain = [](std::vector<float> v, std::int64_t w, std::int64_t h, bool atkinson) {
        auto at = [&](std::int64_t x, std::int64_t y) -> float* {
            return x >= 0 && x < w && y < h ? &v[std::size_t(y * w + x)] : nullptr;
        };
        for (std::int64_t y = 0; y < h; ++y)
            for (std::int64_t x = 0; x < w; ++x) {
                const float old = *at(x, y), now = old >= 0.5f ? 1.0f : 0.0f;
                *at(x, y) = now;
                const float err = std::round((old - now) * 16) / 16;
                const std::vector<std::tuple<int, int, float>> shares =
                    atkinson
                        ? std::vector<std::tuple<int, int, float>>{{1, 0, 0.125f},  {2, 0, 0.125f},
                                                                   {-1, 1, 0.125f}, {0, 1, 0.125f},
                                                                   {1, 1, 0.125f},  {0, 2, 0.125f}}
                        : std::vector<std::tuple<int, int, float>>{
                              {1, 0, 0.4375f}, {-1, 1, 0.1875f}, {0, 1, 0.3125f}, {1, 1, 0.0625f}};
                for (const auto& [dx, dy, share] : shares)
                    if (float* n = at(x + dx, y + dy)) *n += err * share;
            }
        return v;
    };
    std::mt19937 random(4);
    for (auto [w, h] : {std::pair{1, 9}, {2, 2}, {3, 1}, {17, 5}, {64, 33}, {5, 64}}) {
        std::vector<float> v(std::size_t(w * h));
        // Plain levels, exact sixteenths and thirty-seconds (ties when rounding the error),
        // values a hair off those, and a few far outside 0…1.
        for (auto& s : v) {
            const unsigned kind = random() % 5;
            const float k = float(random() % 33) / 32;
            s = kind == 0   ? float(random() % 1001) / 1000.0f
                : kind == 1 ? k
                : kind == 2 ? std::nextafter(k, 2.0f)
                : kind == 3 ? std::nextafter(k, -1.0f)
                            : (random() % 2 ? 3e6f : -2.5f);
        }
        for (bool a : {false, true})
            EXPECT_EQ(dither(v, w, a ? DitheringMethod::atkinson : DitheringMethod::floydSteinberg),
                      plain(v, w, h, a))
                << w << " × " << h << (a ? " Atkinson" : " Floyd–Steinberg");
    }
}

TEST(Dithering, ImagesDitherWholeWhateverTheTiles) {
    std::vector<float> ramp;
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 100; ++x)
            ramp.push_back(float(x) / 99.0f);
    const ci::Image image = grey(ramp, 100);
    const ci::Image out = dithered(image, DitheringMethod::floydSteinberg);
    const auto expected = dither(ramp, 100, DitheringMethod::floydSteinberg);
    // The engine's rows run bottom up; compare through the same render of both.
    EXPECT_EQ(reds(out, {0, 0, 100, 40}), reds(grey(expected, 100), {0, 0, 100, 40}));
    // Rendering in small tiles gives the same pixels.
    ci::Context::Options small;
    small.tileWidth = 7;
    small.tileHeight = 5;
    std::vector<float> tiled(100 * 40 * 4);
    ci::Context(small).render(out, tiled.data(), 100 * 16, {0, 0, 100, 40}, ci::Format::RGBAf);
    for (std::size_t i = 0; i < tiled.size(); i += 4)
        ASSERT_EQ(tiled[i], expected[i / 4]) << i / 4;
    EXPECT_THROW(dithered(ci::Image::white(), DitheringMethod::atkinson), ImageCoreError);
    EXPECT_THROW(dithered(ci::Image::empty(), DitheringMethod::atkinson), ImageCoreError);

    BICDitherFilter filter;
    filter.setInputImage(image);
    EXPECT_FALSE(filter.outputImage());
    filter.setInputLevels(2);
    for (float v : reds(*filter.outputImage(), {0, 0, 100, 40}))
        ASSERT_TRUE(v == 0 || v == 1);
    filter.setInputLevels(5);
    for (float v : reds(*filter.outputImage(), {0, 0, 100, 40}))
        ASSERT_FLOAT_EQ(v * 4, std::round(v * 4));
}
