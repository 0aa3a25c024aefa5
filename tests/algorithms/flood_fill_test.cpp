#include "bic/algorithms/flood_fill.hpp"
#include "bic/algorithms/kernel_cache.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/pixels/pixel_format_list.hpp"
#include "bic/platform/ci/context.hpp"

#include <array>
#include <atomic>
#include <bit>
#include <cmath>
#include <deque>
#include <gtest/gtest.h>
#include <random>
#include <thread>

using namespace bic;

namespace {

// The mask as 0/1 per pixel, rows top first, read back through the engine.
std::vector<int> maskOf(const ci::Image& mask, std::int64_t w, std::int64_t h) {
    std::vector<float> px(std::size_t(w * h * 4));
    ci::Context().render(mask, px.data(), w * 16, cg::Rect(0, 0, double(w), double(h)),
                         ci::Format::RGBAf);
    std::vector<int> out;
    for (std::size_t i = 0; i < px.size(); i += 4)
        out.push_back(px[i] > 0.5f ? 1 : 0);
    return out;
}

// A breadth-first fill straight from the definition: 4-connected, every component within the
// tolerance, 8- and 16-bit tolerances in whole levels.
template <Pixel P>
std::vector<int> bruteForce(const std::vector<P>& pixels, std::int64_t w, std::int64_t h,
                            std::int64_t sx, std::int64_t srow, const P& seed, float tolerance) {
    using T = typename P::ComponentType;
    auto within = [&](const P& p) {
        const auto a = std::bit_cast<std::array<T, P::componentCount>>(p);
        const auto b = std::bit_cast<std::array<T, P::componentCount>>(seed);
        for (std::size_t i = 0; i < a.size(); ++i) {
            const double d = std::fabs(double(a[i]) - double(b[i]));
            if constexpr (std::is_floating_point_v<T>) {
                if (!(d <= double(tolerance))) return false;
            } else {
                const double top = sizeof(T) == 1 ? 255 : 65535;
                if (d > std::round(std::clamp(double(tolerance), 0.0, 1.0) * top)) return false;
            }
        }
        return true;
    };
    std::vector<int> mask(std::size_t(w * h), 0);
    std::deque<std::pair<std::int64_t, std::int64_t>> queue;
    if (within(pixels[std::size_t(srow * w + sx)])) {
        mask[std::size_t(srow * w + sx)] = 1;
        queue.emplace_back(sx, srow);
    }
    while (!queue.empty()) {
        const auto [x, y] = queue.front();
        queue.pop_front();
        const std::pair<std::int64_t, std::int64_t> next[] = {
            {x + 1, y}, {x - 1, y}, {x, y + 1}, {x, y - 1}};
        for (const auto& [nx, ny] : next) {
            if (nx < 0 || ny < 0 || nx >= w || ny >= h) continue;
            const auto i = std::size_t(ny * w + nx);
            if (mask[i] || !within(pixels[i])) continue;
            mask[i] = 1;
            queue.emplace_back(nx, ny);
        }
    }
    return mask;
}

// Few distinct colours, so that regions are large and wind around each other.
template <Pixel P>
P randomPixel(std::mt19937& random) {
    const float levels[] = {0.0f, 0.2f, 0.21f, 0.5f, 1.0f};
    auto pick = [&] { return levels[random() % (random() % 3 == 0 ? 5 : 2)]; };
    if constexpr (RGBAPixel<P>)
        return P::withRGBA(pick(), pick(), pick(), random() % 4 ? 1.0f : pick());
    else
        return P::withGray(pick());
}

template <Pixel P>
void compareWithBruteForce(std::mt19937& random, int rounds) {
    for (int round = 0; round < rounds; ++round) {
        const std::int64_t w = 1 + random() % 23, h = 1 + random() % 17;
        PixelBuffer<P> buffer(IntegralSize(w, h), P::deviceColorSpace());
        std::vector<P> pixels(std::size_t(w * h));
        for (auto& p : pixels)
            p = randomPixel<P>(random);
        buffer.withUnsafeBuffer([&](std::span<P> memory) {
            for (std::int64_t y = 0; y < h; ++y)
                for (std::int64_t x = 0; x < w; ++x)
                    memory[std::size_t(y * buffer.pixelsPerRow() + x)] =
                        pixels[std::size_t(y * w + x)];
        });
        const float tolerances[] = {0.0f, 0.01f, 0.2f, 0.5f, 1.0f, 2.0f};
        const float tolerance = tolerances[random() % 6];
        const std::int64_t sx = random() % w, sy = random() % h, srow = h - 1 - sy;
        const bool given = random() % 4 == 0;
        const P seed = given ? randomPixel<P>(random) : pixels[std::size_t(srow * w + sx)];
        const ci::Image mask = floodFillMaskImage(
            buffer, sx, sy, given ? std::optional<P>(seed) : std::nullopt, tolerance, false);
        ASSERT_EQ(maskOf(mask, w, h), bruteForce(pixels, w, h, sx, srow, seed, tolerance))
            << w << " × " << h << " seed " << sx << "," << sy << " tolerance " << tolerance;
    }
}

} // namespace

template <class P>
class FloodFillOf : public ::testing::Test {};
TYPED_TEST_SUITE(FloodFillOf, PixelFormats::Apply<::testing::Types>);

TYPED_TEST(FloodFillOf, MatchesABreadthFirstFill) {
    std::mt19937 random(2026);
    compareWithBruteForce<TypeParam>(random, 150);
}

TEST(FloodFill, EdgeCases) {
    // A U shape of white on black: filled completely from either arm; diagonals not reached.
    const char* rows[] = {"W.W.", "W.W.", "WWW.", "...W"};
    PixelBuffer<PixelGray8> u(IntegralSize(4, 4), cg::ColorSpace::deviceGray());
    u.withUnsafeBuffer([&](std::span<PixelGray8> p) {
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x)
                p[std::size_t(y * u.pixelsPerRow() + x)] = PixelGray8(rows[y][x] == 'W' ? 255 : 0);
    });
    const std::vector<int> expected = {1, 0, 1, 0, 1, 0, 1, 0, 1, 1, 1, 0, 0, 0, 0, 0};
    EXPECT_EQ(maskOf(floodFillMaskImage(u, 0, 3, std::nullopt, 0.0f, false), 4, 4), expected);
    EXPECT_EQ(maskOf(floodFillMaskImage(u, 2, 3, std::nullopt, 0.0f, false), 4, 4), expected);
    // Tolerance 0.5 on 8 bits allows a difference of 128 (round(127.5)) but not 129.
    PixelBuffer<PixelGray8> steps(IntegralSize(3, 1), cg::ColorSpace::deviceGray());
    steps.withUnsafeBuffer([](std::span<PixelGray8> p) {
        p[0] = PixelGray8(0), p[1] = PixelGray8(128), p[2] = PixelGray8(129);
    });
    EXPECT_EQ(maskOf(floodFillMaskImage(steps, 0, 0, std::nullopt, 0.5f, false), 3, 1),
              (std::vector<int>{1, 1, 0}));
    // A seed colour the seed pixel is not within fills nothing; a seed outside gives black.
    EXPECT_EQ(
        maskOf(floodFillMaskImage(u, 0, 3, std::optional(PixelGray8(100)), 0.1f, false), 4, 4),
        std::vector<int>(16, 0));
    EXPECT_EQ(maskOf(floodFillMaskImage(u, 4, 0, std::nullopt, 0.1f, false), 4, 4),
              std::vector<int>(16, 0));
    EXPECT_TRUE(floodFillMaskImage(u, -1, 0, std::nullopt, 0.1f, false).extent().isInfinite());
    // NaN selects nothing; a seed colour of another type counts as absent.
    EXPECT_EQ(maskOf(floodFillMaskImage(u, 0, 3, std::nullopt, NAN, false), 4, 4),
              std::vector<int>(16, 0));
    EXPECT_EQ(
        maskOf(floodFillMaskImage(u, 0, 3, std::optional(PixelARGB8::blackColor()), 0.0f, false), 4,
               4),
        expected);

    // The same fill over a surface.
    SurfacePixelBuffer<PixelGray8> surface(u.image(), cg::Rect(0, 0, 4, 4));
    EXPECT_EQ(maskOf(floodFillMaskImage(surface, 2, 3, std::nullopt, 0.0f, false), 4, 4), expected);
}

TEST(FloodFill, AntiAliasingAndColourRanges) {
    // Rows of the ramp 0, 0.1, …: seeded at 0 with tolerance 0.25 the hard mask covers 0…0.2.
    // Softened, the mask is the colour closeness 1 − distance/0.25 (clamped) except on its inner
    // edge, where a full Sobel step keeps the hard mask: 1 at 0.2 (the edge), 0.6 at 0.1.
    PixelBuffer<PixelRGBA32> ramp(IntegralSize(8, 5), cg::ColorSpace::deviceRGB());
    ramp.withUnsafeBuffer([&](std::span<PixelRGBA32> p) {
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 8; ++x)
                p[std::size_t(y * ramp.pixelsPerRow() + x)] =
                    PixelRGBA32::withRGBA(0.1f * float(x), 0, 0, 1);
    });
    const ci::Image hard = floodFillMaskImage(ramp, 0, 0, std::nullopt, 0.25f, false);
    EXPECT_EQ(maskOf(hard, 8, 5)[std::size_t(2 * 8 + 2)], 1);
    EXPECT_EQ(maskOf(hard, 8, 5)[std::size_t(2 * 8 + 3)], 0);
    const ci::Image soft = floodFillMaskImage(ramp, 0, 0, std::nullopt, 0.25f, true);
    float px[4];
    ci::Context().render(soft, px, 16, cg::Rect(2, 2, 1, 1), ci::Format::RGBAf);
    EXPECT_NEAR(px[0], 1.0f, 1e-5f);
    ci::Context().render(soft, px, 16, cg::Rect(1, 2, 1, 1), ci::Format::RGBAf);
    EXPECT_NEAR(px[0], 0.6f, 1e-5f);
    ci::Context().render(soft, px, 16, cg::Rect(0, 2, 1, 1), ci::Format::RGBAf);
    EXPECT_NEAR(px[0], 1.0f, 1e-5f);
    ci::Context().render(soft, px, 16, cg::Rect(5, 2, 1, 1), ci::Format::RGBAf);
    EXPECT_EQ(px[0], 0.0f);
    // Tolerance above 1 cannot soften: the hard mask comes back.
    EXPECT_EQ(maskOf(floodFillMaskImage(ramp, 0, 0, std::nullopt, 1.5f, true), 8, 5),
              std::vector<int>(40, 1));
    EXPECT_THROW(bic_antiAliasEdges(hard, hard, 0), ImageCoreError);

    // The colour range selects unconnected pixels too.
    const ci::Image two =
        ci::Image::constant({1, 0, 0, 1})
            .cropped({0, 0, 1, 1})
            .composited(ci::Image::constant({0, 0, 1, 1}).cropped({1, 0, 1, 1}))
            .composited(ci::Image::constant({1, 0.05, 0, 1}).cropped({2, 0, 1, 1}));
    EXPECT_EQ(maskOf(bic_mask(two, {1, 0, 0, 1}, 0.1, false), 3, 1), (std::vector<int>{1, 0, 1}));
    EXPECT_EQ(maskOf(bic_mask(two, {1, 0, 0, 1}, 0.01, false), 3, 1), (std::vector<int>{1, 0, 0}));
}

namespace {

// A picture from text rows (top first): 'W' white, '.' black, 'g' grey.
ci::Image picture(const std::vector<std::string>& rows) {
    const auto h = std::int64_t(rows.size()), w = std::int64_t(rows[0].size());
    std::vector<float> rgba;
    for (const auto& row : rows)
        for (char c : row) {
            const float v = c == 'W' ? 1.0f : c == 'g' ? 0.5f : 0.0f;
            rgba.insert(rgba.end(), {v, v, v, 1});
        }
    return *ci::Image::fromBitmap(rgba.data(), w * 16, w, h, ci::Format::RGBAf);
}

std::vector<int> cells(const std::vector<std::string>& rows) {
    std::vector<int> out;
    for (const auto& row : rows)
        for (char c : row)
            out.push_back(c == '#' ? 1 : 0);
    return out;
}

} // namespace

TEST(FloodFillOperation, HolesUnionsAndOpaqueRadius) {
    const std::vector<std::string> ring = {"W....", ".WWW.", ".W.W.", ".WWW.", "....."};
    EXPECT_FALSE(FloodFillOperation::make(cg::Rect(0, 0, 0, 5), picture(ring)));
    auto op = *FloodFillOperation::make({0, 0, 5, 5}, picture(ring));
    // The ring from one of its pixels (column 2, row 1 from the top = y 3).
    op.fill({2, 3}, std::nullopt, 0.0f, std::nullopt, false, false);
    EXPECT_EQ(maskOf(*op.maskImage(), 5, 5), cells({".....", ".###.", ".#.#.", ".###.", "....."}));
    // Holes too: the ring's enclosed centre; the lone corner stays out (not connected).
    auto solid = *FloodFillOperation::make({0, 0, 5, 5}, picture(ring));
    solid.fill({2, 3}, std::nullopt, 0.0f, std::nullopt, false, true);
    EXPECT_EQ(maskOf(*solid.maskImage(), 5, 5),
              cells({".....", ".###.", ".###.", ".###.", "....."}));
    // A second fill adds the top-left corner; a seed outside changes nothing.
    solid.fill({0, 4}, std::nullopt, 0.0f, std::nullopt, false, false);
    solid.fill({7, 1}, std::nullopt, 0.0f, std::nullopt, false, false);
    EXPECT_EQ(maskOf(*solid.maskImage(), 5, 5),
              cells({"#....", ".###.", ".###.", ".###.", "....."}));
    // A frame along the border: the padding ring keeps the outside apart, so the hole inside the
    // frame is found.
    const std::vector<std::string> frame = {"WWWW", "W..W", "W..W", "WWWW"};
    auto framed = *FloodFillOperation::make({0, 0, 4, 4}, picture(frame));
    framed.fill({0, 0}, std::nullopt, 0.0f, std::nullopt, false, true);
    EXPECT_EQ(maskOf(*framed.maskImage(), 4, 4), std::vector<int>(16, 1));
    // Within the opaque radius the tolerance triples: grey (0.5) joins white at tolerance 0.2
    // only near the seed.
    const std::vector<std::string> line = {"WgggW"};
    auto near = *FloodFillOperation::make({0, 0, 5, 1}, picture(line));
    near.fill({0, 0}, std::nullopt, 0.2f, 1.5f, false, false);
    EXPECT_EQ(maskOf(*near.maskImage(), 5, 1), (std::vector<int>{1, 1, 0, 0, 0}));
    auto far = *FloodFillOperation::make({0, 0, 5, 1}, picture(line));
    far.fill({0, 0}, std::nullopt, 0.2f, std::nullopt, false, false);
    EXPECT_EQ(maskOf(*far.maskImage(), 5, 1), (std::vector<int>{1, 0, 0, 0, 0}));
    // A seed colour of another format is converted.
    auto given = *FloodFillOperation::make({0, 0, 5, 1}, picture(line));
    given.fill({2, 0}, std::optional(PixelRGBA32::withRGBA(0.5f, 0.5f, 0.5f, 1)), 0.0f,
               std::nullopt, false, false);
    EXPECT_EQ(maskOf(*given.maskImage(), 5, 1), (std::vector<int>{0, 1, 1, 1, 0}));
}

TEST(FloodFillMask, TheLazyFormFloodsOncePerInputState) {
    const std::vector<std::string> rows = {"WW.WW", "W..W.", "WWWW.", ".....", "W...W"};
    const ci::Image image = picture(rows);
    const std::vector<int> region = cells({"##.##", "#..#.", "####.", ".....", "....."});
    EXPECT_EQ(maskOf(floodFillMask(image, {0, 0, 5, 5}, {0, 4}, 0.1, false), 5, 5), region);
    // In small tiles the same; the bottom row seeds the kernel at its last memory row.
    ci::Context::Options small;
    small.tileWidth = 2;
    small.tileHeight = 2;
    std::vector<float> px(5 * 5 * 4);
    ci::Context(small).render(floodFillMask(image, {0, 0, 5, 5}, {0, 4}, 0.1, false), px.data(),
                              5 * 16, cg::Rect(0, 0, 5, 5), ci::Format::RGBAf);
    for (std::size_t i = 0; i < 25; ++i)
        ASSERT_EQ(px[4 * i] > 0.5f, region[i] == 1) << i;
    EXPECT_EQ(maskOf(floodFillMask(image, {0, 0, 5, 5}, {4, 0}, 0.0, false), 5, 5),
              cells({".....", ".....", ".....", ".....", "....#"}));
    EXPECT_THROW(floodFillMask(image, {0, 0, 5, 5}, {0, 0}, NAN, false), ImageCoreError);
    EXPECT_THROW(floodFillMask(image, {0, 0, 5, 5}, {0, 0}, 1.5, false), ImageCoreError);
    EXPECT_THROW(floodFillMask(image, {0, 0, 5, 5}, {5, 0}, 0.1, false), ImageCoreError);
    EXPECT_THROW(floodFillMask(image, cg::Rect::infinite(), {0, 0}, 0.1, false), ImageCoreError);

    // The cache: an untouched surface is computed once; a written one again.
    auto surface = io::Surface::make({2, 2, io::surface_format::bgra8, 4, 64});
    auto out = io::Surface::make({2, 2, io::surface_format::bgra8, 4, 64});
    const std::vector<ci::ProcessorInput> inputs{{surface, {0, 0, 2, 2}, ci::Format::BGRA8, 7}};
    const ci::ProcessorOutput output{out, {0, 0, 2, 2}, ci::Format::BGRA8};
    ImageProcessingKernelCache<bool> cache;
    int computed = 0;
    auto compute = [&](io::Surface& s) {
        ++computed;
        s.baseAddress()[0] = 42;
    };
    processInPlaceThenCopy(inputs, output, cache, compute);
    processInPlaceThenCopy(inputs, output, cache, compute);
    EXPECT_EQ(computed, 1);
    EXPECT_EQ(out->baseAddress()[0], 42);
    surface->lock(io::LockOptions::readWrite);
    surface->unlock(io::LockOptions::readWrite); // a write: the seed moves on
    processInPlaceThenCopy(inputs, output, cache, compute);
    EXPECT_EQ(computed, 2);
    EXPECT_NE((ImageProcessingKernelCacheKey{7, surface->id(), 1}),
              (ImageProcessingKernelCacheKey{7, surface->id(), 2}));
}

TEST(FloodFillMask, TilesArrivingTogetherComputeOnce) {
    auto surface = io::Surface::make({64, 64, io::surface_format::bgra8, 4, 256});
    const std::vector<ci::ProcessorInput> inputs{{surface, {0, 0, 64, 64}, ci::Format::BGRA8, 3}};
    ImageProcessingKernelCache<bool> cache;
    std::atomic<int> computed{0};
    std::vector<std::thread> tiles;
    for (int t = 0; t < 4; ++t)
        tiles.emplace_back([&, t] {
            auto out = io::Surface::make({16, 64, io::surface_format::bgra8, 4, 64});
            processInPlaceThenCopy(inputs, {out, {16.0 * t, 0, 16, 64}, ci::Format::BGRA8}, cache,
                                   [&](io::Surface& s) {
                                       ++computed;
                                       std::this_thread::sleep_for(std::chrono::milliseconds(20));
                                       s.baseAddress()[0] = 1;
                                   });
        });
    for (auto& t : tiles)
        t.join();
    EXPECT_EQ(computed.load(), 1);
}

TEST(FloodFillMask, NoToleranceMakesNaN) {
    // The magic wand's most common setting, tolerance 0 with anti-aliasing, and the tiny
    // tolerances around it: the seed's region stays wholly selected and nothing is NaN.
    const std::vector<std::string> rows = {"WW.WW", "W..W.", "WWWW.", ".....", "W...W"};
    const ci::Image image = picture(rows);
    const std::vector<int> region = cells({"##.##", "#..#.", "####.", ".....", "....."});
    for (const double tolerance : {0.0, 1e-300, 1e-12, 1e-9, 1e-6, 1e-3}) {
        SCOPED_TRACE(tolerance);
        for (const ci::Image& mask :
             {floodFillMask(image, {0, 0, 5, 5}, {0, 4}, tolerance, true),
              bic_mask(image, {1, 1, 1, 1}, std::max(tolerance, 1e-300), true)}) {
            std::vector<float> px(5 * 5 * 4);
            ci::Context().render(mask, px.data(), 5 * 16, cg::Rect(0, 0, 5, 5), ci::Format::RGBAf);
            for (const float v : px)
                ASSERT_TRUE(std::isfinite(v));
        }
        const auto selected =
            maskOf(floodFillMask(image, {0, 0, 5, 5}, {0, 4}, tolerance, true), 5, 5);
        for (std::size_t i = 0; i < region.size(); ++i)
            if (region[i] == 1) {
                EXPECT_EQ(selected[i], 1) << i;
            }
    }
}
