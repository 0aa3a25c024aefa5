#include "bic/buffers/pixel_buffer_type.hpp"
#include "bic/core/image_core_error.hpp"
#include "support/buffers.hpp"
#include "support/expect_error.hpp"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <random>

using namespace bic;
using bic::test_support::expectCode;

using bic::test_support::filled;

TEST(PixelBuffer, LayoutAndAccess) {
    PixelBuffer<PixelARGB8> b(IntegralSize(3, 2), cg::ColorSpace::deviceRGB(), "layer");
    EXPECT_EQ(b.bytesPerRow(), 16);
    EXPECT_EQ(b.pixelsPerRow(), 4);
    EXPECT_EQ(
        PixelBuffer<PixelRGBA32>(IntegralSize(5, 1), cg::ColorSpace::deviceRGB()).bytesPerRow(),
        80);
    EXPECT_EQ(
        PixelBuffer<PixelRGBA16>(IntegralSize(3, 1), cg::ColorSpace::deviceRGB()).bytesPerRow(),
        32);
    EXPECT_EQ(b.title(), "layer");
    EXPECT_EQ(*b(0, 0), PixelARGB8());
    b.withUnsafeBuffer(
        [](std::span<PixelARGB8> p) { p[4] = PixelARGB8(1, 2, 3, 4); }); // memory row 1 = y 0
    EXPECT_EQ(*b(0, 0), PixelARGB8(1, 2, 3, 4));
    EXPECT_FALSE(b(3, 0));
    EXPECT_FALSE(b(0, 2));
    EXPECT_FALSE(b(-1, 0));
    const PixelBuffer<PixelARGB8> copy = b;
    b.withUnsafeBuffer([](std::span<PixelARGB8> p) { p[0] = PixelARGB8(9, 9, 9, 9); });
    EXPECT_EQ(*copy(0, 1), PixelARGB8(9, 9, 9, 9)) << "copies share their pixels";
    expectCode([] { PixelBuffer<PixelGray8>(IntegralSize(0, 3), cg::ColorSpace::deviceGray()); },
               ImageCoreError::parameterError);
}

TEST(PixelBuffer, RenderingImagesIntoBuffers) {
    const ci::Image red = ci::Image::constant({1, 0, 0, 1}).cropped({10, 10, 2, 2});
    const PixelBuffer<PixelRGBA16> b(red, cg::Rect(9.5, 9, 3, 3));
    EXPECT_EQ(b.size(), IntegralSize(4, 3)); // the integral rectangle of (9.5, 9, 3, 3)
    EXPECT_EQ(*b(1, 1), PixelRGBA16(65535, 0, 0, 65535));
    EXPECT_EQ(*b(0, 0), PixelRGBA16());
    const PixelBuffer<PixelGray8> away(red, cg::Rect(100, 100, 4, 4));
    EXPECT_EQ(away.visibleExtent(), cg::Rect::zero());
    expectCode([&] { PixelBuffer<PixelGray8>(red, cg::Rect::infinite()); },
               ImageCoreError::parameterError);
    expectCode([&] { PixelBuffer<PixelGray8>(red, cg::Rect::null()); },
               ImageCoreError::parameterError);

    // Through the buffer's own image and back, every format keeps its pixels.
    const auto argb = filled<PixelARGB8>(7, 5, 1);
    EXPECT_EQ(PixelBuffer<PixelARGB8>(argb.image(), cg::Rect(0, 0, 7, 5)), argb);
    const auto grey16 = filled<PixelGray16>(7, 5, 2);
    EXPECT_EQ(PixelBuffer<PixelGray16>(grey16.image(), cg::Rect(0, 0, 7, 5)), grey16);
    const auto rgbaf = filled<PixelRGBA32>(7, 5, 3);
    EXPECT_EQ(PixelBuffer<PixelRGBA32>(rgbaf.image(), cg::Rect(0, 0, 7, 5)), rgbaf);
}

template <class P>
class PixelBufferOf : public ::testing::Test {};
TYPED_TEST_SUITE(PixelBufferOf, test_support::EachPixelFormat);

// Every way out of a buffer and back in keeps its pixels: its image, its channel planes plain
// and deflated, a surface buffer, and conversion to its own depth.
TYPED_TEST(PixelBufferOf, KeepsItsPixelsThroughImagesPlanesAndSurfaces) {
    using P = TypeParam;
    const auto buffer = filled<P>(7, 5, 11);
    const cg::Rect extent(0, 0, 7, 5);
    EXPECT_EQ(PixelBuffer<P>(buffer.image(), extent), buffer);
    for (auto compression : {ChannelDataCompressionType::none, ChannelDataCompressionType::zip}) {
        const auto planes =
            buffer.compressedChannels(false, compression, PredictionType::paeth, false);
        EXPECT_EQ(planes.size(), std::size_t(P::componentCount));
        EXPECT_EQ(PixelBuffer<P>(buffer.size(), planes, false), buffer);
    }
    const SurfacePixelBuffer<P> surface(buffer.image(), extent);
    EXPECT_EQ(PixelBuffer<P>(surface.image(), extent), buffer);
    EXPECT_TRUE(equal(converted(buffer, P::bitDepth), PixelBufferType(buffer)));
    EXPECT_EQ(buffer.bytesPerRow() % 16, 0);
    EXPECT_GE(buffer.pixelsPerRow(), 7);
}

TEST(PixelBuffer, ExtentsCropsAndTests) {
    PixelBuffer<PixelARGB8> b(IntegralSize(5, 4), cg::ColorSpace::deviceRGB());
    EXPECT_EQ(b.visibleExtent(), cg::Rect::zero());
    PixelBuffer<PixelARGB8> one(IntegralSize(5, 4), cg::ColorSpace::deviceRGB());
    one.withUnsafeBuffer([&](std::span<PixelARGB8> p) {
        p[std::size_t((4 - 1 - 1) * one.pixelsPerRow() + 2)] = PixelARGB8(0, 0, 0, 255);
    });
    EXPECT_EQ(one.visibleExtent(), cg::Rect(2, 1, 1, 1));
    EXPECT_EQ(one.trimmedExtent(PixelARGB8()), cg::Rect(2, 1, 1, 1));
    EXPECT_EQ(b.trimmedExtent(PixelARGB8()), cg::Rect(0, 0, 5, 0));
    EXPECT_EQ(one.trimmedExtent(PixelARGB8(0, 0, 0, 255)), cg::Rect(0, 0, 5, 4));

    const auto cropped = one.cropped({1, 1, 10, 2});
    EXPECT_EQ(cropped.size(), IntegralSize(4, 2));
    EXPECT_EQ(*cropped(1, 0), PixelARGB8(0, 0, 0, 255));
    expectCode([&] { one.cropped({10, 10, 2, 2}); }, ImageCoreError::parameterError);

    PixelBuffer<PixelRGBA16> white(IntegralSize(2, 2), cg::ColorSpace::deviceRGB());
    white.bitmap().setFillColor(cg::Color::deviceRGB(1, 1, 1));
    white.bitmap().fill({0, 0, 2, 2});
    EXPECT_TRUE(white.isWhiteImage());
    EXPECT_FALSE(white.isBlackImage());
    EXPECT_FALSE(one.isBlackImage());
}

TEST(PixelBuffer, PlanesRoundTripInStoredOrder) {
    const auto argb = filled<PixelARGB8>(9, 4, 4);
    const auto planes = argb.compressedChannels(false, ChannelDataCompressionType::zip,
                                                PredictionType::paeth, true);
    ASSERT_EQ(planes.size(), 4u);
    // The first stored plane is red: decode it and compare with the pixels' red.
    auto red = std::get<ChannelData<std::uint8_t>>(planes[0]);
    red.decompress(9, 4);
    EXPECT_EQ(red.data[0], argb(0, 3)->redComponent);
    auto alpha = std::get<ChannelData<std::uint8_t>>(planes[3]);
    alpha.decompress(9, 4);
    EXPECT_EQ(alpha.data[9 * 3 + 8], argb(8, 0)->alphaComponent);
    EXPECT_EQ(PixelBuffer<PixelARGB8>(argb.size(), planes, false), argb);

    const auto wide = filled<PixelRGBA16>(6, 3, 5);
    const auto reduced =
        wide.compressedChannels(true, ChannelDataCompressionType::zip, PredictionType::up, false);
    const PixelBuffer<PixelRGBA16> back(wide.size(), reduced, true);
    for (std::int64_t y = 0; y < 3; ++y)
        for (std::int64_t x = 0; x < 6; ++x) {
            const auto v = wide(x, y)->greenComponent;
            EXPECT_EQ(back(x, y)->greenComponent, v % 2 ? v : v + 1);
        }
    const auto grey = filled<PixelGray32>(5, 5, 6);
    EXPECT_EQ(
        PixelBuffer<PixelGray32>(grey.size(),
                                 grey.compressedChannels(false, ChannelDataCompressionType::none,
                                                         PredictionType::sub, false),
                                 false),
        grey);
    expectCode([&] { PixelBuffer<PixelGray16>(IntegralSize(5, 5), planes, false); },
               ImageCoreError::parameterError);
}

TEST(PixelBuffer, SixteenBitRangeAndColourTables) {
    EXPECT_EQ(reduced16BitValue(0), 1);
    EXPECT_EQ(reduced16BitValue(65535), 32768);
    EXPECT_EQ(expanded16BitValue(32768), 65535);
    EXPECT_EQ(expanded16BitValue(1), 1);
    expectCode([] { expanded16BitValue(32769); }, ImageCoreError::fileReadCorruptedDataError);
    std::vector<std::uint16_t> stored(4, 40000);
    std::vector<std::uint8_t> bytes(8);
    std::memcpy(bytes.data(), stored.data(), 8);
    ChannelData<std::uint16_t> bad(bytes, false);
    bad.convertToBigEndian();
    expectCode([&] { PixelBuffer<PixelGray16>(IntegralSize(2, 2), {bad}, true); },
               ImageCoreError::fileReadCorruptedDataError);

    ChannelData<std::uint8_t> indices(std::vector<std::uint8_t>{0, 1, 1, 7}, true);
    const PixelBuffer<PixelARGB8> mapped(
        IntegralSize(2, 2), {PixelARGB8::redColor(), PixelARGB8::blueColor()}, indices);
    EXPECT_EQ(*mapped(0, 1), PixelARGB8::redColor());
    EXPECT_EQ(*mapped(1, 1), PixelARGB8::blueColor());
    EXPECT_EQ(*mapped(1, 0), PixelARGB8()) << "an index beyond the table";
}

TEST(PixelBuffer, EqualityAndDepthConversion) {
    const auto a = filled<PixelGray8>(3, 3, 7);
    PixelBuffer<PixelGray8> b(a.image(), cg::Rect(0, 0, 3, 3));
    EXPECT_EQ(a, b);
    b.withUnsafeBuffer(
        [](std::span<PixelGray8> p) { p[p.size() - 1] = PixelGray8(200); }); // padding only
    EXPECT_EQ(a, b);
    b.withUnsafeBuffer([](std::span<PixelGray8> p) { p[0].grayComponent ^= 1; });
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(equal(std::nullopt, std::nullopt));
    EXPECT_FALSE(equal(PixelBufferType(a), std::nullopt));
    PixelBuffer<PixelARGB8> colour(IntegralSize(3, 3), cg::ColorSpace::deviceRGB());
    EXPECT_FALSE(equal(PixelBufferType(colour),
                       PixelBufferType(PixelBuffer<PixelGray8>(IntegralSize(3, 3),
                                                               cg::ColorSpace::deviceGray()))));

    const auto argb = filled<PixelARGB8>(4, 3, 8);
    const PixelBufferType deep = converted(PixelBufferType(argb), 16);
    const auto& wide = std::get<PixelBuffer<PixelRGBA16>>(deep);
    EXPECT_EQ(wide(2, 1)->redComponent, argb(2, 1)->redComponent * 257);
    EXPECT_EQ(wide(2, 1)->alphaComponent, argb(2, 1)->alphaComponent * 257);
    EXPECT_TRUE(equal(converted(deep, 8), PixelBufferType(argb)));
    EXPECT_TRUE(
        std::holds_alternative<PixelBuffer<PixelGray32>>(converted(PixelBufferType(a), 32)));
    EXPECT_TRUE(equal(converted(PixelBufferType(a), 8), PixelBufferType(a)));
    expectCode([&] { a.cgImage(cg::ColorSpace::sRGB(), cg::RenderingIntent::defaultIntent); },
               ImageCoreError::parameterError);
    EXPECT_EQ(a.cgImage().format(), ci::Format::L8);
}

TEST(PixelBufferDeathTest, CallerErrorsStop) {
    EXPECT_DEATH(converted(PixelBufferType(PixelBuffer<PixelGray8>(IntegralSize(1, 1),
                                                                   cg::ColorSpace::deviceGray())),
                           12),
                 "Unsupported bit depth.");
    EXPECT_DEATH(PixelBuffer<PixelGray8>(IntegralSize(1, 1), cg::ColorSpace::sRGB()), "model");
}

TEST(PixelBuffer, ImagesOutliveTheirBuffer) {
    std::optional<ci::Image> image;
    {
        PixelBuffer<PixelGray8> b(IntegralSize(2, 1), cg::ColorSpace::deviceGray());
        b.withUnsafeBuffer([](std::span<PixelGray8> p) { p[1] = PixelGray8(51); });
        image = b.image();
        EXPECT_EQ(b.image(), *image) << "made once";
    }
    const PixelBuffer<PixelGray8> again(*image, cg::Rect(0, 0, 2, 1));
    EXPECT_EQ(*again(1, 0), PixelGray8(51));
}

TEST(PixelBuffer, ColourSpaceConversionMatchesEachColour) {
    const auto source = filled<PixelRGBA32>(5, 3, 11);
    const auto p3 = source.converted(cg::ColorSpace::sRGB(), cg::ColorSpace::displayP3(),
                                     cg::RenderingIntent::relativeColorimetric);
    EXPECT_EQ(p3.colorSpace(), cg::ColorSpace::displayP3());
    for (std::int64_t y = 0; y < 3; ++y)
        for (std::int64_t x = 0; x < 5; ++x) {
            const PixelRGBA32 s = *source(x, y);
            if (s.alpha() == 0) continue;
            // The same colour matched on its own, unpremultiplied.
            const PixelRGBA32 straight =
                PixelRGBA32::withRGBA(s.red() / s.alpha(), s.green() / s.alpha(),
                                      s.blue() / s.alpha(), 1)
                    .converted(cg::ColorSpace::sRGB(), cg::ColorSpace::displayP3(),
                               cg::RenderingIntent::relativeColorimetric);
            const PixelRGBA32 m = *p3(x, y);
            EXPECT_NEAR(m.red(), straight.red() * s.alpha(), 2e-3f);
            EXPECT_NEAR(m.blue(), straight.blue() * s.alpha(), 2e-3f);
            EXPECT_EQ(m.alpha(), s.alpha());
        }
    const auto grey = filled<PixelGray8>(3, 3, 12);
    EXPECT_EQ(grey.converted(cg::ColorSpace::deviceGray(), cg::ColorSpace::deviceGray(),
                             cg::RenderingIntent::perceptual),
              grey);
    expectCode(
        [&] {
            grey.converted(cg::ColorSpace::sRGB(), cg::ColorSpace::deviceGray(),
                           cg::RenderingIntent::perceptual);
        },
        ImageCoreError::parameterError);
}
