// Accumulators driven the way an editor drives them: strokes painted from the canvas's own image,
// renders that fail halfway, and huge canvases read back.

#include "bic/accumulators/memory_image_accumulator.hpp"
#include "bic/accumulators/tiled_image_accumulator.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/platform/ci/context.hpp"
#include "bic/platform/ci/filter.hpp"
#include "bic/platform/ci/processor_kernel.hpp"

#include <gtest/gtest.h>

using namespace bic;

namespace {

// Every accumulator kind over `extent`, 8-bit colour; the memory one first, as the reference.
std::vector<std::pair<std::string, std::shared_ptr<ImageAccumulator>>>
everyKind(const cg::Rect& extent) {
    return {
        {"memory", MemoryImageAccumulator<PixelARGB8>::make(extent)},
        {"surface", makeSurfaceImageAccumulator(extent, 8, false)},
        {"tiled", std::make_shared<TiledImageAccumulator<PixelARGB8>>(37)},
        {"engine", detail::makeSystemImageAccumulator(extent, 8, cg::ColorSpace::deviceRGB())},
    };
}

std::vector<std::uint8_t> bytes(const ci::Image& image, const cg::Rect& area) {
    std::vector<std::uint8_t> out(std::size_t(area.width() * area.height() * 4));
    ci::Context::shared()->render(image, out.data(), std::int64_t(area.width()) * 4, area,
                                  ci::Format::ARGB8);
    return out;
}

// A picture with detail everywhere, so that reading a neighbour instead of a pixel shows.
ci::Image texture(const cg::Rect& extent) {
    std::vector<std::uint8_t> pixels(std::size_t(extent.width() * extent.height() * 4));
    std::uint32_t state = 12345;
    for (auto& b : pixels) {
        state = state * 1664525u + 1013904223u;
        b = std::uint8_t(state >> 24);
    }
    for (std::size_t i = 0; i < pixels.size(); i += 4)
        pixels[i] = 255; // opaque ARGB
    return ci::Image::fromBitmap(pixels.data(), std::int64_t(extent.width()) * 4,
                                 std::int64_t(extent.width()), std::int64_t(extent.height()),
                                 ci::Format::ARGB8)
        ->translated(extent.minX(), extent.minY());
}

ci::Image blurred(const ci::Image& image, double sigma) {
    return *ci::applyingFilter(image, "CIGaussianBlur", {{"inputRadius", sigma}});
}

// Fails every render that reaches it with the library's own error, as a kernel does.
struct FailingKernel : ci::ProcessorKernel {
    void process(const std::vector<ci::ProcessorInput>&, const ci::ProcessorArguments&,
                 const ci::ProcessorOutput&) const override {
        throw ImageCoreError(ImageCoreError::memoryError);
    }
};

} // namespace

TEST(ImageAccumulators, StrokesPaintedFromTheirOwnImage) {
    const cg::Rect extent(0, 0, 100, 100);
    std::vector<std::uint8_t> reference;
    for (auto& [kind, acc] : everyKind(extent)) {
        SCOPED_TRACE(kind);
        acc->setImage(texture(extent), extent);
        // Dabs of half-transparent colour laid over the canvas, each into its own rectangle,
        // then a smudge that reads around every pixel it writes.
        for (int i = 0; i < 12; ++i) {
            const cg::Rect dirty(7.0 * i, 3.0 * i + 10, 20, 15);
            const ci::Image dab =
                ci::Image::constant(ci::Color{i / 12.0, 0.5, 1 - i / 12.0, 0.5}).cropped(dirty);
            acc->setImage(dab.composited(acc->image()), dirty);
        }
        const cg::Rect smudge(20, 20, 60, 60);
        acc->setImage(blurred(acc->image(), 3), smudge);
        const auto result = bytes(acc->image(), extent);
        if (reference.empty())
            reference = result;
        else
            EXPECT_EQ(result, reference);
    }
}

TEST(ImageAccumulators, AWholeCanvasSmudgedFromItselfInParallelTiles) {
    // The render splits into hundreds of tiles on every core; each must read the canvas as it
    // was before the render, never a neighbour tile's new pixels.
    const cg::Rect extent(0, 0, 1500, 1200);
    const auto memory = MemoryImageAccumulator<PixelARGB8>::make(extent);
    const auto surface = makeSurfaceImageAccumulator(extent, 8, false);
    for (const auto& acc : {std::shared_ptr<ImageAccumulator>(memory), surface}) {
        acc->setImage(texture(extent), extent);
        acc->setImage(blurred(acc->image(), 4), extent);
        acc->setImage(acc->image().translated(5, -3).composited(acc->image()), extent);
    }
    EXPECT_EQ(bytes(surface->image(), extent), bytes(memory->image(), extent));
}

TEST(ImageAccumulators, WholeImageSettersIgnoreEveryFailure) {
    const cg::Rect extent(0, 0, 40, 40);
    const ci::Image failing =
        *ci::ProcessorKernel::apply(std::make_shared<FailingKernel>(), extent, {}, {});
    for (auto& [kind, acc] : everyKind(extent)) {
        SCOPED_TRACE(kind);
        acc->setImage(ci::Image::white(), extent);
        EXPECT_NO_THROW(acc->setImage(failing));
        EXPECT_THROW(acc->setImage(failing, extent), ImageCoreError) << "the rectangle form throws";
    }
}

TEST(TiledImageAccumulator, ReadsBackFromOnlyTheTilesARectangleTouches) {
    // 400 tiles in a column; reading any rectangle back gives the pixels rendered into it, as
    // a memory accumulator does, whichever tiles it spans.
    const cg::Rect extent(0, 0, 100, 40000);
    TiledImageAccumulator<PixelARGB8> tiled(100);
    const auto memory = MemoryImageAccumulator<PixelARGB8>::make(extent);
    const ci::Image picture = texture(cg::Rect(0, 0, 100, 400)).clampedToExtent().cropped(extent);
    tiled.setImage(picture, extent);
    memory->setImage(picture, extent);
    EXPECT_EQ(tiled.tiles().size(), 400u);
    for (const cg::Rect area :
         {cg::Rect(0, 0, 100, 40000), cg::Rect(17, 150, 60, 101), cg::Rect(-5, 39990, 30, 20)}) {
        EXPECT_EQ(bytes(tiled.image(), area), bytes(memory->image(), area));
        // Through the general path too (a kernel on top reads the tiles it needs).
        EXPECT_EQ(bytes(blurred(tiled.image(), 1), area), bytes(blurred(memory->image(), 1), area));
    }
    // The whole canvas copied as bytes equals the picture rendered through the general path,
    // here into rows that are not a whole number of pixels long and start off any alignment.
    const std::int64_t rowBytes = 100 * 4 + 3;
    std::vector<std::uint8_t> odd(std::size_t(rowBytes * 40000 + 1)), reference = odd;
    ci::Context::shared()->render(tiled.image(), odd.data() + 1, rowBytes, extent,
                                  ci::Format::ARGB8);
    ci::Context::shared()->render(picture, reference.data() + 1, rowBytes, extent,
                                  ci::Format::ARGB8);
    EXPECT_EQ(odd, reference);
}

TEST(TiledImageAccumulator, ImageTakenBeforeAWriteKeepsItsPixelsAcrossTiles) {
    // A 3 × 3 grid of tiles: copies come from several tiles a row, some of them written since
    // the image was taken (their old rows come from the snapshot, not from memory in place).
    const cg::Rect extent(0, 0, 30, 30);
    TiledImageAccumulator<PixelARGB8> tiled(10);
    const auto memory = MemoryImageAccumulator<PixelARGB8>::make(extent);
    const ci::Image picture = texture(extent);
    tiled.setImage(picture, extent);
    memory->setImage(picture, extent);
    const ci::Image tiledBefore = tiled.image(), memoryBefore = memory->image();
    const cg::Rect stroke(5, 12, 17, 9);
    tiled.setImage(ci::Image::white(), stroke);
    memory->setImage(ci::Image::white(), stroke);
    for (const cg::Rect area : {extent, cg::Rect(3, 8, 24, 15)}) {
        EXPECT_EQ(bytes(tiledBefore, area), bytes(memoryBefore, area));
        EXPECT_EQ(bytes(tiled.image(), area), bytes(memory->image(), area));
    }
    EXPECT_NE(bytes(tiledBefore, extent), bytes(tiled.image(), extent));
}
