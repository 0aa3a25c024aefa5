#pragma once
// Measurements of lazy images: a 256-bucket RGBA histogram of an area, histogram equalisation,
// the mean colour of an area, and single-pixel reads. Pixels are read as the engine renders
// them: premultiplied colour.

#include "bic/geometry/integral_geometry.hpp"
#include "bic/pixels/pixel_formats.hpp"
#include "bic/platform/ci/image.hpp"
#include "bic/platform/ci/processor_kernel.hpp"

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace bic {

/// Counts of 8-bit values: colour channels over the pixels that are not fully transparent,
/// alpha over all pixels.
struct Histogram {
    std::vector<std::uint64_t> red, green, blue, alpha;

    /// Each array must hold exactly 256 counts; otherwise the process stops.
    Histogram(std::vector<std::uint64_t> red, std::vector<std::uint64_t> green,
              std::vector<std::uint64_t> blue, std::vector<std::uint64_t> alpha);

    /// A sample for previews: an opaque picture of 220,480 pixels. Settable.
    static Histogram& demo();

    friend bool operator==(const Histogram&, const Histogram&) = default;
};

/// Counts of every 8-bit ARGB pixel (alpha first in memory) of `height` rows, `bytesPerRow`
/// apart, per channel in memory order: alpha, red, green, blue.
void histogramARGB8888(const std::uint8_t* pixels, std::int64_t width, std::int64_t height,
                       std::int64_t bytesPerRow, std::array<std::uint64_t*, 4> counts);

/// The histogram of the image inside `extent` (its integral rectangle), rendered to 8-bit ARGB.
/// Throws ImageCoreError parameterError for an empty or infinite rectangle, memoryError when
/// no surface can be had, and the engine's render errors.
Histogram areaHistogram(const ci::Image& image, const cg::Rect& extent);

/// The image with red, green and blue equalised over `bucketCount` buckets of 0…1 (each
/// channel's values mapped through its cumulative distribution); alpha is left as it is.
/// Throws parameterError for an empty or infinite extent or a bucket count outside 1…2^32 − 1.
ci::Image equalized(const ci::Image& image, std::int64_t bucketCount);

/// The mean of the colours of the pixels with alpha above 0 inside `rect` (every such pixel
/// weighs 1), opaque; opaque black when there are none. Throws parameterError for an empty or
/// infinite rectangle.
PixelRGBA32 averageColor(const ci::Image& image, const cg::Rect& rect);

/// Equalises its input inside the "extent" argument ({x, y, width, height}) over
/// "bucketCount" buckets; RGBA floats in and out.
class EqualizeImageProcessorKernelF final : public ci::ProcessorKernel {
public:
    cg::Rect roi(int, const ci::ProcessorArguments& arguments, const cg::Rect&) const override;
    void process(const std::vector<ci::ProcessorInput>& inputs,
                 const ci::ProcessorArguments& arguments,
                 const ci::ProcessorOutput& output) const override;
};

/// Writes the mean colour of its input inside the "extent" argument into one opaque pixel.
class AverageColorImageProcessorKernel final : public ci::ProcessorKernel {
public:
    bool outputIsOpaque() const override { return true; }
    cg::Rect roi(int, const ci::ProcessorArguments& arguments, const cg::Rect&) const override;
    void process(const std::vector<ci::ProcessorInput>& inputs,
                 const ci::ProcessorArguments& arguments,
                 const ci::ProcessorOutput& output) const override;
};

/// The pixel at `point`; nothing outside the extent.
std::optional<PixelRGBA32> color(const ci::Image& image, const IntegralPoint& point);
/// The pixel's grey value (the red channel as a grey format stores it); nothing outside.
std::optional<float> grayValue(const ci::Image& image, const IntegralPoint& point);

} // namespace bic
