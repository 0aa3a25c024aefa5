#include "bic/algorithms/flood_fill.hpp"

#include "../kernels/operation_kernels.hpp"
#include "bic/accumulators/memory_image_accumulator.hpp"
#include "bic/algorithms/histogram.hpp"
#include "bic/algorithms/kernel_cache.hpp"
#include "bic/compositing/image_operations.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/platform/ci/builtin_filters.hpp"
#include "bic/platform/ci/filter.hpp"
#include "bic/platform/core/fatal.hpp"
#include "bic/platform/core/pixel_math.hpp"
#include "processing_support.hpp"
#include "scanline_fill.hpp"

#include <cstring>
#include <limits>

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
    const std::int64_t seedRow = flippedRow(seedY, h);
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
    // soft = 1 − distance / t, clamped. Written as k·d + (t − 1)·k it cancels to nothing in float
    // for tiny tolerances (and to ∞ − ∞ = NaN for the smallest): the distance is taken back out
    // of d first, and k kept finite, so an exact match stays 1 and everything else falls to 0.
    const double k = std::min(1 / tolerance, double(std::numeric_limits<float>::max()));
    const ci::Image soft =
        ci::colorMatrix(bic_inverted(maxDistanceMask),
                        {{-k, 0, 0, 0}, {0, -k, 0, 0}, {0, 0, -k, 0}, {0, 0, 0, 0}, {1, 1, 1, 1}})
            .cropped(maxDistanceMask.extent());
    const ci::Image clampedSoft = bic_saturated(soft).cropped(mask.extent());
    const auto edge = kernels::sobel(mask.clamped(mask.extent()));
    if (!edge) throw ImageCoreError(ImageCoreError::unknownError, "the edge kernel gave no image");
    const ci::Image edges = bic_multiplied(*edge, mask).cropped(mask.extent());
    return bic_mixWithMask(clampedSoft, mask, edges);
}

ci::Image bic_mask(const ci::Image& image, const ci::Color& selecting, double tolerance,
                   bool antiAliased) {
    const ci::Image near = closeness(image, selecting);
    const ci::Image mask = bic_threshold(near, 1 - tolerance);
    return antiAliased ? bic_antiAliasEdges(mask, near, tolerance) : mask;
}

// ---- Repeated fills --------------------------------------------------------------------------

std::optional<FloodFillOperation> FloodFillOperation::make(const cg::Rect& extent,
                                                           const ci::Image& image) {
    if (extent.isNull() || extent.isEmpty() || extent.isInfinite()) return std::nullopt;
    const auto moved = cg::AffineTransform::translation(double(padding.x), double(padding.y));
    const cg::Rect shifted = extent.offsetBy(double(padding.x), double(padding.y));
    return FloodFillOperation(image.transformed(moved).cropped(shifted), shifted,
                              shifted.insetBy(-1, -1));
}

std::shared_ptr<PixelBuffer<PixelARGB8>> FloodFillOperation::imageBuffer() {
    if (!imageBuffer_ && !imageBufferTried_) {
        imageBufferTried_ = true;
        try {
            imageBuffer_ =
                std::make_shared<PixelBuffer<PixelARGB8>>(sourceImage_, paddedExtent_, "");
        } catch (const ImageCoreError&) {
        }
    }
    return imageBuffer_;
}

std::shared_ptr<MemoryImageAccumulator<PixelGray8>>
FloodFillOperation::scratch(std::shared_ptr<MemoryImageAccumulator<PixelGray8>>& slot) {
    if (!slot) slot = MemoryImageAccumulator<PixelGray8>::make(paddedExtent_);
    return slot;
}

void FloodFillOperation::fill(const IntegralPoint& seed, std::optional<PixelARGB8> seedColor,
                              float tolerance, std::optional<float> opaqueRadius, bool antiAlias,
                              bool fillHoles) {
    const cg::Point at{double(seed.x + padding.x), double(seed.y + padding.y)};
    if (!extent_.contains(at)) return;
    const auto image = imageBuffer();
    const auto mask = scratch(maskBuffer_);
    const auto accumulator = scratch(maskAccumulator_);
    if (!image || !mask || !accumulator) return;
    mask->setImage(ci::Image::black(), paddedExtent_);

    // Buffer columns and memory rows (top first) of the padded extent.
    const std::int64_t height = image->size().height;
    const auto column = [&](double x) {
        return std::int64_t(std::floor(x - paddedExtent_.minX()));
    };
    const auto memoryRow = [&](double y) {
        return flippedRow(std::int64_t(std::floor(y - paddedExtent_.minY())), height);
    };
    const cg::Rect clip = extent_.integral();
    const std::int64_t seedX = column(at.x), seedRow = memoryRow(at.y);
    const std::int64_t outer = detail::toleranceFor<PixelARGB8>(tolerance);
    const std::int64_t inner = detail::toleranceFor<PixelARGB8>(3 * tolerance);
    PixelARGB8 used{};
    image->withUnsafeBuffer([&](std::span<const PixelARGB8> pixels) {
        used = seedColor.value_or(pixels[std::size_t(seedRow * image->pixelsPerRow() + seedX)]);
        mask->withUnsafeMutableBuffer([&](PixelGray8* bytes, std::int64_t, std::int64_t,
                                          std::int64_t maskStride) {
            if (!bytes)
                throw ImageCoreError(ImageCoreError::internalInconsistency,
                                     "the mask buffer gave no memory to write");
            detail::scanlineFill(
                pixels.data(), image->pixelsPerRow(), reinterpret_cast<std::uint8_t*>(bytes),
                maskStride, column(clip.minX()), column(clip.maxX()), memoryRow(clip.maxY()) + 1,
                memoryRow(clip.minY()) + 1, seedX, seedRow, std::uint8_t(255),
                [&](std::int64_t x, std::int64_t row, const PixelARGB8& p) {
                    const bool near = opaqueRadius && std::hypot(float(row - seedRow),
                                                                 float(x - seedX)) <= *opaqueRadius;
                    return detail::componentDistance(p, used) <= (near ? inner : outer);
                });
        });
    });
    mask->flushDrawing();
    ci::Image result = mask->image();

    if (fillHoles) {
        if (const auto holes = scratch(fillHolesBuffer_)) {
            holes->setImage(ci::Image::black(), paddedExtent_);
            mask->withUnsafeBuffer([&](const PixelGray8* source, std::int64_t w, std::int64_t h,
                                       std::int64_t sourceStride) {
                holes->withUnsafeMutableBuffer([&](PixelGray8* outside, std::int64_t, std::int64_t,
                                                   std::int64_t outsideStride) {
                    // Everything the untouched ring reaches from a corner is outside.
                    detail::scanlineFill(source, sourceStride,
                                         reinterpret_cast<std::uint8_t*>(outside), outsideStride, 0,
                                         w, 0, h, 0, 0, std::uint8_t(255),
                                         [](std::int64_t, std::int64_t, const PixelGray8& p) {
                                             return p.grayComponent == 0;
                                         });
                });
            });
            holes->flushDrawing();
            result = bic_inverted(holes->image());
        }
    }
    if (antiAlias) {
        const ci::Image source = image->image().transformed(
            cg::AffineTransform::translation(paddedExtent_.minX(), paddedExtent_.minY()));
        result = bic_antiAliasEdges(result, closeness(source, used.ciColor()), tolerance);
    }
    accumulator->setImage(ci::blended(ci::BuiltinBlendMode::screen, result, accumulator->image()),
                          paddedExtent_);
}

std::optional<ci::Image> FloodFillOperation::maskImage() {
    const auto accumulator = scratch(maskAccumulator_);
    if (!accumulator) return std::nullopt;
    return accumulator->image().transformed(
        cg::AffineTransform::translation(-double(padding.x), -double(padding.y)));
}

// ---- The lazy form ----------------------------------------------------------------------------

namespace {

cg::Rect extentOf(const ci::ProcessorArguments& arguments) {
    return detail::rectFromArguments(arguments, "extent", "FloodFillProcessorKernel");
}

} // namespace

cg::Rect FloodFillProcessorKernel::roi(int, const ci::ProcessorArguments& arguments,
                                       const cg::Rect&) const {
    return extentOf(arguments);
}

std::optional<std::vector<cg::Rect>>
FloodFillProcessorKernel::roiTileArray(int, const ci::ProcessorArguments& arguments,
                                       const cg::Rect&) const {
    return std::vector<cg::Rect>{extentOf(arguments)};
}

void FloodFillProcessorKernel::process(const std::vector<ci::ProcessorInput>& inputs,
                                       const ci::ProcessorArguments& arguments,
                                       const ci::ProcessorOutput& output) const {
    const auto location = arguments.find("location");
    const auto* point =
        location == arguments.end() ? nullptr : std::get_if<std::vector<double>>(&location->second);
    auto* cache = detail::argumentObject<ImageProcessingKernelCache<bool>>(arguments, "cache");
    if (inputs.empty() || !inputs[0].surface || !point || point->size() != 2 || !cache)
        throw ImageCoreError(ImageCoreError::parameterError);
    const auto seedX = std::int64_t((*point)[0]), seedRow = std::int64_t((*point)[1]);
    processInPlaceThenCopy(inputs, output, *cache, [&](io::Surface& surface) {
        const std::int64_t w = surface.width(), h = surface.height();
        if (seedX < 0 || seedRow < 0 || seedX >= w || seedRow >= h)
            throw ImageCoreError(ImageCoreError::unknownError,
                                 "the seed lies outside the rendered input");
        // Pixels as 4-byte words: equal bytes are equal words whatever their order.
        auto* pixels = reinterpret_cast<PixelARGB8*>(surface.baseAddress());
        const std::int64_t stride = surface.bytesPerRow() / 4;
        const auto seed = std::bit_cast<std::uint32_t>(pixels[seedRow * stride + seedX]);
        std::vector<std::uint8_t> reached(std::size_t(w * h), 0);
        detail::scanlineFill(pixels, stride, reached.data(), w, 0, w, 0, h, seedX, seedRow,
                             std::uint8_t(1), [&](std::int64_t, std::int64_t, const PixelARGB8& p) {
                                 return std::bit_cast<std::uint32_t>(p) == seed;
                             });
        constexpr std::uint8_t red[4] = {0, 0, 255, 255}; // blue, green, red, alpha in memory
        for (std::int64_t y = 0; y < h; ++y)
            for (std::int64_t x = 0; x < w; ++x)
                if (reached[std::size_t(y * w + x)])
                    std::memcpy(surface.baseAddress() + y * surface.bytesPerRow() + x * 4, red, 4);
    });
}

ci::Image floodFillMask(const ci::Image& image, const cg::Rect& area, const IntegralPoint& location,
                        double tolerance, bool antiAliased) {
    if (!(tolerance >= 0 && tolerance <= 1)) throw ImageCoreError(ImageCoreError::parameterError);
    const double t = tolerance == 0 ? std::numeric_limits<double>::min() : tolerance;
    const cg::Rect extent = area.integral();
    if (extent.isNull() || extent.isEmpty() || extent.isInfinite() ||
        !extent.contains(cg::Point{double(location.x), double(location.y)}))
        throw ImageCoreError(ImageCoreError::parameterError);
    const auto c = color(image, location);
    if (!c)
        throw ImageCoreError(ImageCoreError::internalInconsistency,
                             "no colour could be read at the seed");
    const ci::Image d = closeness(image, c->ciColor());
    const ci::Image thresholded = bic_threshold(d, 1 - t);
    const ci::Image similar =
        ci::colorMatrix(thresholded,
                        {{0, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 1}, {0, 0, 0, 0}})
            .cropped(thresholded.extent());
    const double row = extent.height() - 1 - (double(location.y) - extent.minY());
    const auto flooded = ci::ProcessorKernel::apply(
        std::make_shared<FloodFillProcessorKernel>(), extent, {similar},
        {{"extent",
          std::vector<double>{extent.minX(), extent.minY(), extent.width(), extent.height()}},
         {"location", std::vector<double>{double(location.x) - extent.minX(), row}},
         {"cache", std::shared_ptr<ci::ArgumentObject>(
                       std::make_shared<ImageProcessingKernelCache<bool>>())}});
    if (!flooded)
        throw ImageCoreError(ImageCoreError::unknownError, "the flood-fill kernel gave no image");
    const ci::Image result =
        ci::colorMatrix(*flooded,
                        {{1, 0, 0, 0}, {1, 0, 0, 0}, {1, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 1}})
            .cropped(extent);
    return antiAliased ? bic_antiAliasEdges(result, d, t) : result;
}

#define BIC_FLOOD_FILL_OF(Buffer)                                                                  \
    template ci::Image floodFillMaskImage<Buffer>(const Buffer&, std::int64_t, std::int64_t,       \
                                                  std::optional<Buffer::Element>, float, bool);
#define BIC_FLOOD_FILL(P) BIC_FLOOD_FILL_OF(PixelBuffer<P>) BIC_FLOOD_FILL_OF(SurfacePixelBuffer<P>)
BIC_EACH_PIXEL_FORMAT(BIC_FLOOD_FILL)
#undef BIC_FLOOD_FILL
#undef BIC_FLOOD_FILL_OF

} // namespace bic
