#pragma once
// Selections from a seed point: the 4-connected region whose colours lie within a tolerance of
// the seed's colour, as a mask; and the global colour-range selection.
//
// Colour distance is the largest absolute difference over a pixel's components (alpha included
// for colour formats). Tolerances are fractions: 8- and 16-bit formats compare in their integer
// levels (round(clamp(t, 0, 1) × 255 or 65535)), float formats against t itself. A NaN
// tolerance selects nothing.

#include "bic/accumulators/memory_image_accumulator.hpp"
#include "bic/buffers/pixel_buffer.hpp"
#include "bic/buffers/surface_pixel_buffer.hpp"
#include "bic/platform/ci/image.hpp"
#include "bic/platform/ci/processor_kernel.hpp"

#include <optional>

namespace bic {

/// The mask (grey, opaque, infinite: black outside the buffer) of the region 4-connected to the
/// seed whose colours are within `tolerance` of `seedColor` (the seed pixel's colour when
/// absent). `seedY` counts up from the bottom row. A seed outside the buffer gives opaque black.
/// With `antiAlias`, the mask is graded by colour distance (see bic_antiAliasEdges); a
/// tolerance outside (0, 1] then leaves the hard mask.
template <class Buffer>
ci::Image floodFillMaskImage(const Buffer& buffer, std::int64_t seedX, std::int64_t seedY,
                             std::optional<typename Buffer::Element> seedColor, float tolerance,
                             bool antiAlias);

/// A seed colour of another pixel type than the buffer's counts as absent.
template <class Buffer, Pixel Q>
requires(!std::same_as<Q, typename Buffer::Element>) ci::Image
    floodFillMaskImage(const Buffer& buffer, std::int64_t seedX, std::int64_t seedY,
                       std::optional<Q>, float tolerance, bool antiAlias) {
    return floodFillMaskImage(buffer, seedX, seedY, std::nullopt, tolerance, antiAlias);
}

/// Repeated fills over one picture, each added to an accumulated mask: the picture is rendered
/// once (with a one-pixel ring around it, so that hole filling can reach round any region),
/// and every fill costs only the flood.
class FloodFillOperation {
public:
    /// Nothing for an empty or infinite extent. The extent's origin should be (0, 0); other
    /// origins are shifted consistently.
    static std::optional<FloodFillOperation> make(const cg::Rect& extent, const ci::Image& image);

    /// Adds the region 4-connected to `seed` (image coordinates, y up) whose colours are within
    /// `tolerance` of `seedColor` (the seed pixel's colour when absent). Within `opaqueRadius`
    /// of the seed the tolerance is tripled. `fillHoles` also takes every hole enclosed by the
    /// region; `antiAlias` grades the new mask by colour distance (its tolerance errors are
    /// thrown). A seed outside the extent changes nothing. Throws the engine's render errors.
    void fill(const IntegralPoint& seed, std::optional<PixelARGB8> seedColor, float tolerance,
              std::optional<float> opaqueRadius, bool antiAlias, bool fillHoles);
    template <Pixel Q>
    requires(!std::same_as<Q, PixelARGB8>) void fill(const IntegralPoint& seed,
                                                     std::optional<Q> seedColor, float tolerance,
                                                     std::optional<float> opaqueRadius,
                                                     bool antiAlias, bool fillHoles) {
        fill(seed, seedColor ? std::optional(PixelARGB8::from(*seedColor)) : std::nullopt,
             tolerance, opaqueRadius, antiAlias, fillHoles);
    }

    /// The union of all fills so far (8-bit grey over the caller's extent); nothing when its
    /// memory cannot be had.
    std::optional<ci::Image> maskImage();
    const ci::Image& sourceImage() const { return sourceImage_; }
    const cg::Rect& extent() const { return extent_; }
    const cg::Rect& paddedExtent() const { return paddedExtent_; }
    static constexpr IntegralPoint padding{1, 1};

private:
    FloodFillOperation(ci::Image source, cg::Rect extent, cg::Rect padded)
        : sourceImage_(std::move(source)), extent_(extent), paddedExtent_(padded) {}
    std::shared_ptr<PixelBuffer<PixelARGB8>> imageBuffer();
    std::shared_ptr<MemoryImageAccumulator<PixelGray8>>
    scratch(std::shared_ptr<MemoryImageAccumulator<PixelGray8>>& slot);

    ci::Image sourceImage_;
    cg::Rect extent_, paddedExtent_;
    std::shared_ptr<PixelBuffer<PixelARGB8>> imageBuffer_;
    std::shared_ptr<MemoryImageAccumulator<PixelGray8>> maskBuffer_, fillHolesBuffer_,
        maskAccumulator_;
    bool imageBufferTried_ = false;
};

/// The lazy form: a similar-colour image (within `tolerance` of the colour at `location`)
/// flooded from `location` by FloodFillProcessorKernel, as an opaque grey mask over `extent`.
/// Throws ImageCoreError parameterError for a tolerance outside 0…1 (NaN included) or an
/// extent that is empty, infinite or without the location; internalInconsistency when the
/// location's colour cannot be read.
ci::Image floodFillMask(const ci::Image& image, const cg::Rect& extent,
                        const IntegralPoint& location, double tolerance, bool antiAliased);

/// Floods BGRA bytes in place from the "location" argument ({column, row}, rows top first):
/// every pixel 4-connected to it with the same four bytes becomes red. Reads its whole
/// "extent" argument ({x, y, width, height}) at once and works once per input state, recorded
/// in the "cache" argument (an ImageProcessingKernelCache<bool>).
class FloodFillProcessorKernel final : public ci::ProcessorKernel {
public:
    ci::Format formatForInput(int) const override { return ci::Format::BGRA8; }
    ci::Format outputFormat() const override { return ci::Format::BGRA8; }
    bool outputIsOpaque() const override { return true; }
    cg::Rect roi(int, const ci::ProcessorArguments& arguments, const cg::Rect&) const override;
    std::optional<std::vector<cg::Rect>> roiTileArray(int, const ci::ProcessorArguments& arguments,
                                                      const cg::Rect&) const override;
    void process(const std::vector<ci::ProcessorInput>& inputs,
                 const ci::ProcessorArguments& arguments,
                 const ci::ProcessorOutput& output) const override;
};

/// Grades a hard mask by colour: the result is the closeness 1 − distance / t (clamped; with
/// `maxDistanceMask` = 1 − distance) mixed towards the hard mask by the strength of the mask's
/// inner edge (its Sobel edge within it), so the selection's border stays where the fill put it.
/// Throws ImageCoreError parameterError unless 0 < t ≤ 1.
ci::Image bic_antiAliasEdges(const ci::Image& mask, const ci::Image& maxDistanceMask,
                             double tolerance);

/// Every pixel whose colour is within `tolerance` of `selecting`, connected or not, as a grey
/// mask; softened at its edges with `antiAliased`.
ci::Image bic_mask(const ci::Image& image, const ci::Color& selecting, double tolerance,
                   bool antiAliased);

} // namespace bic
