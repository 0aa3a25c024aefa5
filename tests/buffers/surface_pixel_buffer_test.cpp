#include "bic/buffers/pixel_buffer_record.hpp"
#include "bic/platform/ci/context.hpp"
#include "support/buffers.hpp"
#include "support/expect_error.hpp"

#include <gtest/gtest.h>
#include <thread>

using namespace bic;
using bic::test_support::expectCode;
using bic::test_support::filled;

namespace {

// The same pixels, compared through the owned buffer's subscript and the surface's.
template <Pixel P>
void expectSamePixels(const PixelBuffer<P>& owned, const SurfacePixelBuffer<P>& surface) {
    ASSERT_EQ(owned.size(), surface.size());
    for (std::int64_t y = 0; y < owned.size().height; ++y)
        for (std::int64_t x = 0; x < owned.size().width; ++x)
            ASSERT_EQ(*owned(x, y), *surface(x, y)) << x << "," << y;
}

template <Pixel P>
SurfacePixelBuffer<P> onSurface(const PixelBuffer<P>& owned) {
    return SurfacePixelBuffer<P>(owned.size(),
                                 owned.compressedChannels(false, ChannelDataCompressionType::zip,
                                                          PredictionType::paeth, true),
                                 false);
}

} // namespace

TEST(SurfacePixelBuffer, LayoutAndBottomLeftAccess) {
    SurfacePixelBuffer<PixelGray8> grey(IntegralSize(3, 2), "mask");
    EXPECT_EQ(grey.pixelsPerRow(), 64);
    EXPECT_EQ(grey.surface()->pixelFormat(), io::surface_format::gray8);
    EXPECT_EQ(grey.title(), "mask");
    SurfacePixelBuffer<PixelRGBA32> colour(IntegralSize(5, 1));
    EXPECT_EQ(colour.pixelsPerRow(), 8);
    EXPECT_EQ(colour.surface()->pixelFormat(), io::surface_format::rgbaf);
    EXPECT_EQ(colour.surface()->bytesPerElement(), 16);

    // Memory row 0 is the top row, y = 1 here.
    const auto seed = grey.surface()->seed();
    grey.surface()->lock(io::LockOptions::readWrite);
    grey.surface()->baseAddress()[2] = 200;
    grey.surface()->unlock(io::LockOptions::readWrite);
    EXPECT_NE(grey.surface()->seed(), seed);
    EXPECT_EQ(grey(2, 1)->grayComponent, 200);
    EXPECT_EQ(grey(2, 0)->grayComponent, 0);
    EXPECT_FALSE(grey(3, 1));
    EXPECT_FALSE(grey(0, -1));
    grey.withUnsafeBuffer([](std::span<PixelGray8> p) { p[64] = PixelGray8(7); });
    EXPECT_EQ(grey(0, 0)->grayComponent, 7);

    expectCode([] { SurfacePixelBuffer<PixelGray8>(IntegralSize(16385, 1)); },
               ImageCoreError::parameterError);
    expectCode([] { SurfacePixelBuffer<PixelGray8>(IntegralSize(0, 1)); },
               ImageCoreError::parameterError);
}

TEST(SurfacePixelBuffer, EqualMeansTheSameSurface) {
    const auto owned = filled<PixelARGB8>(4, 4, 1);
    const SurfacePixelBuffer<PixelARGB8> a(owned.cgImage(), std::nullopt);
    const SurfacePixelBuffer<PixelARGB8> b(owned.cgImage(), std::nullopt);
    const SurfacePixelBuffer<PixelARGB8> copy = a;
    EXPECT_FALSE(a == b) << "equal pixels, different surfaces";
    EXPECT_TRUE(a == copy);
    EXPECT_TRUE(equal(PixelBufferType(a), PixelBufferType(copy)));
    EXPECT_FALSE(equal(PixelBufferType(a), PixelBufferType(b)));
    EXPECT_FALSE(equal(PixelBufferType(a), PixelBufferType(owned)));
}

TEST(SurfacePixelBuffer, ConstructionsMatchTheOwnedBuffer) {
    const auto argb = filled<PixelARGB8>(13, 9, 2);
    expectSamePixels(argb, SurfacePixelBuffer<PixelARGB8>(argb.cgImage(), std::nullopt));
    expectSamePixels(argb, onSurface(argb));
    const auto grey16 = filled<PixelGray16>(13, 9, 3);
    expectSamePixels(grey16, onSurface(grey16));
    const auto rgbaf = filled<PixelRGBA32>(13, 9, 4);
    expectSamePixels(rgbaf, onSurface(rgbaf));

    // A lazy image over an offset extent, as the owned buffer renders it.
    const ci::Image moved = argb.image().translated(3, -2);
    const cg::Rect extent(4.5, -1, 8, 6);
    expectSamePixels(PixelBuffer<PixelARGB8>(moved, extent),
                     SurfacePixelBuffer<PixelARGB8>(moved, extent));
    expectCode([&] { SurfacePixelBuffer<PixelARGB8>(moved, cg::Rect::null()); },
               ImageCoreError::parameterError);
    expectCode([&] { SurfacePixelBuffer<PixelARGB8>(moved, cg::Rect::infinite()); },
               ImageCoreError::parameterError);

    // A grey image drawn into a colour buffer: the image's space is not of the buffer's model,
    // so the device space is used.
    const auto grey = filled<PixelGray8>(3, 3, 5);
    const SurfacePixelBuffer<PixelARGB8> drawn(grey.cgImage(), cg::ColorSpace::deviceGray());
    EXPECT_EQ(*drawn(1, 1), pixelCast<PixelARGB8>(*grey(1, 1)));
}

TEST(SurfacePixelBuffer, OperationsAgreeWithTheOwnedBuffer) {
    auto owned = filled<PixelRGBA16>(17, 11, 6);
    owned.withUnsafeBuffer([&](std::span<PixelRGBA16> p) {
        for (std::int64_t x = 0; x < 17; ++x) // a clear top row and left column
            p[std::size_t(x)] = PixelRGBA16();
        for (std::int64_t y = 0; y < 11; ++y)
            p[std::size_t(y * owned.pixelsPerRow())] = PixelRGBA16();
    });
    const auto surface = onSurface(owned);
    EXPECT_EQ(surface.visibleExtent(), owned.visibleExtent());
    EXPECT_EQ(surface.trimmedExtent(PixelRGBA16()), owned.trimmedExtent(PixelRGBA16()));
    const cg::Rect crop(2.5, 1, 9, 30);
    expectSamePixels(owned.cropped(crop), surface.cropped(crop));
    expectSamePixels(owned.converted(cg::ColorSpace::sRGB(), cg::ColorSpace::displayP3(),
                                     cg::RenderingIntent::perceptual),
                     surface.converted(cg::ColorSpace::sRGB(), cg::ColorSpace::displayP3(),
                                       cg::RenderingIntent::perceptual));
    for (bool reduce : {false, true})
        EXPECT_EQ(surface.compressedChannels(reduce, ChannelDataCompressionType::zip,
                                             PredictionType::average, false),
                  owned.compressedChannels(reduce, ChannelDataCompressionType::zip,
                                           PredictionType::average, false));
    EXPECT_FALSE(surface.isWhiteImage());
    const SurfacePixelBuffer<PixelRGBA16> white(
        PixelBuffer<PixelRGBA16>(ci::Image::white(), cg::Rect(0, 0, 3, 3)).cgImage(), {});
    EXPECT_TRUE(white.isWhiteImage());
    EXPECT_FALSE(white.isBlackImage());

    // Its image reads the surface as it is when rendered.
    const ci::Image image = surface.image();
    EXPECT_EQ(image.extent(), cg::Rect(0, 0, 17, 11));
    const PixelBuffer<PixelRGBA16> rendered(image, image.extent());
    expectSamePixels(rendered, surface);

    // Deeper and shallower copies stay on surfaces; the record reads back as an owned buffer.
    const PixelBufferType deep =
        converted(PixelBufferType(onSurface(filled<PixelARGB8>(5, 5, 7))), 32);
    EXPECT_TRUE(std::holds_alternative<SurfacePixelBuffer<PixelRGBA32>>(deep));
    coding::Value record;
    coding::Encoder encoder(record, {});
    encode(PixelBufferType(surface), encoder);
    EXPECT_TRUE(
        equal(coding::decode<PixelBufferDecoder>(record).pixelBuffer, PixelBufferType(owned)));
}

TEST(SurfacePixelBuffer, ReadsNestInsideAccessAndNeverDeadlock) {
    SurfacePixelBuffer<PixelARGB8> buffer(IntegralSize(40, 30));
    // Reads of the same buffer while its write lock is held, on the main thread and on a
    // worker.
    auto writeAndRead = [&] {
        buffer.withUnsafeBuffer([&](std::span<PixelARGB8> p) {
            p[5 * buffer.pixelsPerRow() + 7] = PixelARGB8(255, 1, 2, 3);
            EXPECT_EQ(*buffer(7, 24), PixelARGB8(255, 1, 2, 3));
            EXPECT_EQ(buffer.trimmedExtent(PixelARGB8()), cg::Rect(7, 24, 1, 1));
        });
    };
    writeAndRead();
    std::thread worker(writeAndRead);
    worker.join();
    const SurfacePixelBuffer<PixelARGB8>& constant = buffer;
    constant.withUnsafeBuffer([&](std::span<const PixelARGB8>) {
        EXPECT_EQ(constant.visibleExtent(), cg::Rect(7, 24, 1, 1));
        std::thread worker([&] { EXPECT_EQ(*constant(7, 24), PixelARGB8(255, 1, 2, 3)); });
        worker.join(); // readers share
    });

    // One thread writes and takes the image while another asks for the visible extent: the
    // buffer's caches and the surface's lock are always taken in one order.
    for (int round = 0; round < 200; ++round) {
        SurfacePixelBuffer<PixelGray8> mask(IntegralSize(16, 16));
        std::thread writer([&] {
            mask.withUnsafeBuffer([&](std::span<PixelGray8> p) {
                p[0] = PixelGray8(255);
                (void)mask.image();
            });
        });
        std::thread reader([&] { (void)mask.visibleExtent(); });
        writer.join();
        reader.join();
    }
    // The image is a snapshot: a write through the buffer shows in the next image, not in one
    // handed out before it.
    const ci::Image before = buffer.image();
    buffer.withUnsafeBuffer([](std::span<PixelARGB8> p) { p[0] = PixelARGB8(255, 9, 9, 9); });
    EXPECT_NE(buffer.image(), before);
    PixelARGB8 seen[2];
    ci::Context::shared()->render(before, &seen[0], 4, cg::Rect(0, 29, 1, 1), ci::Format::ARGB8);
    ci::Context::shared()->render(buffer.image(), &seen[1], 4, cg::Rect(0, 29, 1, 1),
                                  ci::Format::ARGB8);
    EXPECT_EQ(seen[0], PixelARGB8());
    EXPECT_EQ(seen[1], PixelARGB8(255, 9, 9, 9));
}
