#include "bic/accumulators/memory_image_accumulator.hpp"
#include "bic/accumulators/tiled_image_accumulator.hpp"
#include "bic/graph/color_sampler.hpp"
#include "bic/platform/ci/context.hpp"

#include <gtest/gtest.h>

using namespace bic;

namespace {

// Pixel (x, y) of the image is (x/255, y/255, 0, 1): every pixel tells where it came from.
ci::Image coordinates(std::int64_t w, std::int64_t h) {
    std::vector<std::uint8_t> bytes(std::size_t(w * h * 4));
    for (std::int64_t y = 0; y < h; ++y)
        for (std::int64_t x = 0; x < w; ++x) {
            std::uint8_t* p = bytes.data() + ((h - 1 - y) * w + x) * 4;           // top row first
            p[0] = 255, p[1] = std::uint8_t(x), p[2] = std::uint8_t(y), p[3] = 0; // ARGB
        }
    return *ci::Image::fromBitmap(bytes.data(), w * 4, w, h, ci::Format::ARGB8);
}

} // namespace

TEST(SurfaceImageAccumulator, FormatsLayoutAndCaching) {
    auto mask = makeSurfaceImageAccumulator(cg::Rect(0, 0, 4, 4), 16, true);
    ASSERT_TRUE(std::dynamic_pointer_cast<SurfaceImageAccumulator<PixelGray16>>(mask));
    EXPECT_EQ(mask->bitDepth(), 16);
    auto colour = SurfaceImageAccumulator<PixelARGB8>::make(cg::Rect(10.5, 20, 6, 3.5), "c");
    ASSERT_TRUE(colour);
    EXPECT_EQ(colour->extent(), cg::Rect(10, 20, 7, 4));
    EXPECT_EQ(colour->title(), "c");
    EXPECT_EQ(colour->surface()->pixelFormat(), io::surface_format::argb8);

    colour->setImage(coordinates(64, 64));
    // (minX, maxY − 1) is the first element of the first row; (minX, minY) starts the last row.
    colour->withUnsafeBuffer(
        [](const PixelARGB8* p, std::int64_t w, std::int64_t h, std::int64_t perRow) {
            EXPECT_EQ(w, 7);
            EXPECT_EQ(h, 4);
            EXPECT_EQ(p[0], PixelARGB8(10, 23, 0, 255));
            EXPECT_EQ(p[3 * perRow], PixelARGB8(10, 20, 0, 255));
        });
    EXPECT_EQ(colour->pixel(12, 21), PixelARGB8(12, 21, 0, 255));

    const ci::Image first = colour->image();
    EXPECT_EQ(colour->image(), first) << "read twice without a render: the same image";
    EXPECT_EQ(first.extent(), colour->extent());
    colour->setImage(coordinates(64, 64), cg::Rect(100, 100, 5, 5)); // outside the image
    EXPECT_EQ(colour->image(), first);
    colour->setPixel(11, 22, PixelARGB8(1, 2, 3, 4));
    colour->setImage(ci::Image::constant(ci::Color{0, 0, 1, 1}), cg::Rect(10.2, 20, 1, 1));
    EXPECT_NE(colour->image(), first);
    EXPECT_EQ(colour->pixel(10, 20), PixelARGB8(0, 0, 255, 255));
    EXPECT_EQ(colour->pixel(11, 20), PixelARGB8(0, 0, 255, 255)) << "dirty rect widened";
    EXPECT_EQ(colour->pixel(11, 22), PixelARGB8(1, 2, 3, 4));
    EXPECT_FALSE(SurfaceImageAccumulator<PixelGray8>::make(cg::Rect(0, 0, 16385, 1)));
}

TEST(SurfaceImageAccumulatorDeathTest, PixelsOutsideStop) {
    auto a = SurfaceImageAccumulator<PixelGray8>::make(cg::Rect(0, 0, 10, 10));
    EXPECT_DEATH(a->pixel(10, 0), "Cannot get pixel at x: 10, y: 0");
    EXPECT_DEATH(a->setPixel(0, 10, PixelGray8()), "Cannot set pixel at x: 0, y: 10");
    EXPECT_DEATH(makeSurfaceImageAccumulator(cg::Rect(0, 0, 1, 1), 12, false),
                 "Unsupported bit depth\\.");
}

TEST(MemoryImageAccumulator, LayoutDrawingAndColours) {
    auto grey = MemoryImageAccumulator<PixelGray8>::make(cg::Rect(0, 0, 3, 2));
    EXPECT_EQ(grey->bytesPerRow(), 16);
    EXPECT_EQ(grey->pixelsPerRow(), 16);
    auto wide = MemoryImageAccumulator<PixelRGBA32>::make(cg::Rect(0, 0, 4, 1));
    EXPECT_EQ(wide->bytesPerRow(), 64);
    EXPECT_EQ(wide->pixelsPerRow(), 4);

    auto a = makeMemoryImageAccumulator(8, cg::Rect(-5, 7, 8, 8), false);
    auto& argb = dynamic_cast<MemoryImageAccumulator<PixelARGB8>&>(*a);
    argb.withUnsafeBuffer([](const PixelARGB8* p, std::int64_t w, std::int64_t h, std::int64_t) {
        for (std::int64_t i = 0; i < w * h; ++i)
            ASSERT_EQ(p[i], PixelARGB8());
    });
    const ci::Image before = a->image();
    // Drawing uses image coordinates and shows only after a flush.
    a->bitmap().setFillColor(*cg::Color::make(cg::ColorSpace::deviceRGB(), {1, 0, 0, 1}));
    a->bitmap().fill(cg::Rect(-5, 7, 2, 1));
    EXPECT_EQ(a->image(), before);
    EXPECT_EQ(argb.pixel(-5, 7), PixelARGB8(255, 0, 0, 255));
    argb.withUnsafeBuffer([&](const PixelARGB8* p, std::int64_t, std::int64_t h, std::int64_t n) {
        EXPECT_EQ(p[(h - 1) * n], PixelARGB8(255, 0, 0, 255));
    });
    a->flushDrawing();
    EXPECT_NE(a->image(), before);
    EXPECT_EQ(std::get<PixelARGB8>(a->color(-4, 7)), PixelARGB8(255, 0, 0, 255));

    // A render is complete when setImage returns; the image is a snapshot.
    a->setImage(coordinates(64, 64).translated(-5, 7), cg::Rect(-5, 7, 8, 8));
    const ci::Image snapshot = a->image();
    EXPECT_EQ(argb.pixel(-2, 9), PixelARGB8(3, 2, 0, 255));
    argb.setPixel(-2, 9, PixelARGB8());
    PixelARGB8 seen;
    ci::Context::shared()->render(snapshot, &seen, 4, cg::Rect(-2, 9, 1, 1), ci::Format::ARGB8);
    EXPECT_EQ(seen, PixelARGB8(3, 2, 0, 255));

    auto deep = makeMemoryImageAccumulator(16, cg::Rect(0, 0, 2, 2), true);
    dynamic_cast<MemoryImageAccumulator<PixelGray16>&>(*deep).setPixel(1, 1, PixelGray16(1000));
    EXPECT_EQ(std::get<PixelRGBA16>(deep->color(1, 1)), PixelRGBA16(1000, 1000, 1000, 65535));
    auto floats = makeMemoryImageAccumulator(32, cg::Rect(0, 0, 1, 1), true);
    EXPECT_EQ(std::get<PixelRGBA32>(floats->color(0, 0)), PixelRGBA32(0, 0, 0, 1));
}

TEST(TiledImageAccumulator, TilesAreMadeWhereSomethingIsRendered) {
    const ci::Image red = ci::Image::constant(ci::Color{1, 0, 0, 1});
    auto touched = [&](const cg::Rect& dirty) {
        TiledImageAccumulator<PixelARGB8> a(128);
        a.setImage(red, dirty);
        std::vector<std::pair<std::int64_t, std::int64_t>> out;
        for (const auto& [index, tile] : a.tiles())
            out.emplace_back(index.x, index.y);
        std::sort(out.begin(), out.end());
        return out;
    };
    using V = std::vector<std::pair<std::int64_t, std::int64_t>>;
    EXPECT_EQ(touched(cg::Rect(0, 0, 256, 256)), (V{{0, 0}, {0, 1}, {1, 0}, {1, 1}}));
    EXPECT_EQ(touched(cg::Rect(100, 0, 10, 10)), (V{{0, 0}}));
    EXPECT_EQ(touched(cg::Rect(120, 0, 10, 10)), (V{{0, 0}, {1, 0}}));
    EXPECT_EQ(touched(cg::Rect(-10, -10, 5, 5)), (V{{-1, -1}}));

    TiledImageAccumulator<PixelGray8> a(128);
    EXPECT_TRUE(a.extent().isNull());
    EXPECT_TRUE(a.image().extent().isEmpty());
    a.setImage(ci::Image::white());
    EXPECT_TRUE(a.tiles().empty()) << "assigning to no tiles changes nothing";
    a.setImage(ci::Image::white(), cg::Rect(300, 400, 2, 2));
    EXPECT_EQ(a.extent(), cg::Rect(256, 384, 128, 128));
    PixelGray8 p[2];
    ci::Context::shared()->render(a.image(), p, 2, cg::Rect(300, 400, 2, 1), ci::Format::L8);
    EXPECT_EQ(p[0], PixelGray8(255));
    ci::Context::shared()->render(a.image(), p, 2, cg::Rect(302, 400, 2, 1), ci::Format::L8);
    EXPECT_EQ(p[0], PixelGray8(0)) << "only the dirty rectangle was rendered";
}

TEST(ImageAccumulatorFactory, ChoosesByExtent) {
    auto small = makeImageAccumulator(cg::Rect(0.5, 0.5, 10.2, 10.2), 8, false);
    ASSERT_TRUE(small);
    EXPECT_EQ(small->extent(), cg::Rect(0, 0, 11, 11));
    EXPECT_TRUE(std::dynamic_pointer_cast<SurfaceImageAccumulator<PixelARGB8>>(small));
    auto wide = makeImageAccumulator(cg::Rect(0, 0, 20000, 300.5), 16, true);
    auto tiled = std::dynamic_pointer_cast<TiledImageAccumulator<PixelGray16>>(wide);
    ASSERT_TRUE(tiled);
    EXPECT_EQ(tiled->tileSize(), 301);
    auto huge = makeImageAccumulator(cg::Rect(0, 0, 20000, 30000), 32, false);
    ASSERT_TRUE(std::dynamic_pointer_cast<TiledImageAccumulator<PixelRGBA32>>(huge));
    huge->setImage(ci::Image::white(), cg::Rect(19990, 29990, 10, 10));
    EXPECT_FALSE(huge->extent().isNull()) << "tiles of a huge square area can be made";
    EXPECT_FALSE(makeImageAccumulator(cg::Rect::infinite(), 8, false));
    EXPECT_FALSE(makeImageAccumulator(cg::Rect(0, 0, 0, 5), 8, false));
    auto system =
        detail::makeSystemImageAccumulator(cg::Rect(0, 0, 3, 3), 8, cg::ColorSpace::deviceGray());
    system->setImage(ci::Image::white(), cg::Rect(0, 0, 1, 1));
    EXPECT_EQ(system->image().extent(), cg::Rect(0, 0, 3, 3));
}

TEST(ColorSampler, ReadsOnePixel) {
    ColorSampler sampler;
    EXPECT_EQ(sampler.accumulator().title(), "BrellinImageCore.ColorSampler");
    const ci::Image image = coordinates(20, 20);
    const auto p = sampler.sample(image, {10.7, 3.2});
    ASSERT_TRUE(p);
    EXPECT_EQ(p->red8(), 10);
    EXPECT_EQ(p->green8(), 3);
    EXPECT_FALSE(sampler.sample(image, {20, 5})) << "the maximum edge is outside";
    EXPECT_FALSE(sampler.sample(image, {5, 20}));
    EXPECT_EQ(*sampler.sample(Image(PixelRGBA32(1, 0, 0, 1)), {-1e6, 42.5}),
              PixelRGBA32(1, 0, 0, 1));
}
