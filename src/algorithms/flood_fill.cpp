#include "bic/algorithms/flood_fill.hpp"

#include "bic/accumulators/memory_image_accumulator.hpp"
#include "bic/compositing/image_operations.hpp"
#include "bic/filters/adjustment_filters.hpp"
#include "bic/geometry/image_core_error.hpp"
#include "bic/platform/ci/filter.hpp"
#include "scanline_fill.hpp"

namespace bic {

namespace {

template <Pixel P>
using MaskPixel =
    std::conditional_t<P::bitDepth == 8, PixelGray8,
                       std::conditional_t<P::bitDepth == 16, PixelGray16, PixelGray32>>;

ci::Image opaqueBlack() { return ci::Image::black(); }

// 1 − the largest channel distance to `color`.
ci::Image closeness(const ci::Image& image, const ci::Color& color) {
    return bic_inverted(bic_maxDistanceMask(image, color));
}

} // namespace

template <class Buffer>
ci::Image floodFillMaskImage(const Buffer& buffer, std::int64_t seedX, std::int64_t seedY,
                             std::optional<typename Buffer::Element> seedColor, float tolerance,
                             bool antiAlias) {
    using P = typename Buffer::Element;
    using G = MaskPixel<P>;
    using M = typename G::ComponentType;
    const std::int64_t w = buffer.size().width, h = buffer.size().height;
    if (seedX < 0 || seedY < 0 || seedX >= w || seedY >= h) return opaqueBlack();
    auto accumulator = MemoryImageAccumulator<G>::make(cg::Rect(0, 0, double(w), double(h)));
    if (!accumulator) return opaqueBlack();
    const std::int64_t seedRow = h - 1 - seedY;
    const auto limit = detail::toleranceFor<P>(tolerance);
    P seed{};
    buffer.withUnsafeBuffer([&](std::span<const P> pixels) {
        seed = seedColor.value_or(pixels[std::size_t(seedRow * buffer.pixelsPerRow() + seedX)]);
        accumulator->withUnsafeMutableBuffer(
            [&](G* mask, std::int64_t, std::int64_t, std::int64_t maskStride) {
                detail::scanlineFill(pixels.data(), buffer.pixelsPerRow(),
                                     reinterpret_cast<M*>(mask), maskStride, 0, w, 0, h, seedX,
                                     seedRow, G::whiteColor().grayComponent,
                                     [&](std::int64_t, std::int64_t, const P& p) {
                                         return detail::componentDistance(p, seed) <= limit;
                                     });
            });
    });
    accumulator->flushDrawing();
    const ci::Image hard = accumulator->image().composited(opaqueBlack());
    if (!antiAlias) return hard;
    try {
        return bic_antiAliasEdges(hard, closeness(buffer.image(), seed.ciColor()), tolerance);
    } catch (const ImageCoreError&) {
        return hard;
    }
}

ci::Image bic_antiAliasEdges(const ci::Image& mask, const ci::Image& maxDistanceMask,
                             double tolerance) {
    if (!(tolerance > 0 && tolerance <= 1)) throw ImageCoreError(ImageCoreError::parameterError);
    const double k = 1 / tolerance, b = (tolerance - 1) * k;
    const Image soft = colorMatrix(Image(maxDistanceMask), {k, 0, 0, 0}, {0, k, 0, 0}, {0, 0, k, 0},
                                   {0, 0, 0, 0}, {b, b, b, 1});
    const ci::Image clampedSoft = bic_saturated(soft.ciImage).cropped(mask.extent());
    BICSobelFilter sobel;
    sobel.setInputImage(mask.clamped(mask.extent()));
    const auto edge = sobel.outputImage();
    if (!edge) throw ImageCoreError(ImageCoreError::unknownError);
    const ci::Image edges = bic_multiplied(*edge, mask).cropped(mask.extent());
    return bic_mixWithMask(clampedSoft, mask, edges);
}

ci::Image bic_mask(const ci::Image& image, const ci::Color& selecting, double tolerance,
                   bool antiAliased) {
    const ci::Image near = closeness(image, selecting);
    const ci::Image mask = bic_threshold(near, 1 - tolerance);
    return antiAliased ? bic_antiAliasEdges(mask, near, tolerance) : mask;
}

#define BIC_FLOOD_FILL(Buffer)                                                                     \
    template ci::Image floodFillMaskImage<Buffer>(const Buffer&, std::int64_t, std::int64_t,       \
                                                  std::optional<Buffer::Element>, float, bool);
BIC_FLOOD_FILL(PixelBuffer<PixelARGB8>)
BIC_FLOOD_FILL(PixelBuffer<PixelGray8>)
BIC_FLOOD_FILL(PixelBuffer<PixelRGBA16>)
BIC_FLOOD_FILL(PixelBuffer<PixelGray16>)
BIC_FLOOD_FILL(PixelBuffer<PixelRGBA32>)
BIC_FLOOD_FILL(PixelBuffer<PixelGray32>)
BIC_FLOOD_FILL(SurfacePixelBuffer<PixelARGB8>)
BIC_FLOOD_FILL(SurfacePixelBuffer<PixelGray8>)
BIC_FLOOD_FILL(SurfacePixelBuffer<PixelRGBA16>)
BIC_FLOOD_FILL(SurfacePixelBuffer<PixelGray16>)
BIC_FLOOD_FILL(SurfacePixelBuffer<PixelRGBA32>)
BIC_FLOOD_FILL(SurfacePixelBuffer<PixelGray32>)
#undef BIC_FLOOD_FILL

} // namespace bic
