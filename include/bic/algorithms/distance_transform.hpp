#pragma once
// Distance maps: for every pixel, the distance in pixels to the nearest feature pixel of a mask,
// as grey 32-bit floats. The chamfer transform approximates it with two raster passes of a 5 × 5
// mask (steps 1, √2 and √5); the exact Euclidean transform computes it in linear time with the
// two separable phases of Meijster, Roerdink and Hesselink, in exact integer arithmetic.

#include "bic/platform/ci/image.hpp"
#include "bic/platform/ci/processor_kernel.hpp"

#include <cstdint>

namespace bic {

/// The chamfer passes in place over `height` rows of `width` floats, `stride` apart, top row
/// first: pixels ≤ 0 stay, others take the least of themselves and their already-visited
/// neighbours plus the step. The last row and column are read but never written.
void chamferDistanceInPlace(float* samples, std::int64_t width, std::int64_t height,
                            std::int64_t stride);

/// The exact Euclidean distance from each pixel to the nearest sample > 0 of `features`
/// (`height` rows of `width`, `stride` apart) into `distances` (same shape, rows `width`
/// apart); pixels with no feature within `limit` get `limit`.
void euclideanDistance(const float* features, std::int64_t width, std::int64_t height,
                       std::int64_t stride, float* distances, float limit);

/// Chamfer distances to the mask's white pixels (red ≥ 0.5) over `extent`, grey, alpha kept.
/// Throws ImageCoreError parameterError for an empty or infinite extent.
ci::Image distanceMap(const ci::Image& mask, const cg::Rect& extent, double searchLimitRadius);

/// Exact Euclidean distances to the image's non-zero pixels (red > 0) over `extent`, up to
/// `searchLimitRadius`. Throws parameterError for an empty or infinite extent.
ci::Image edtMap(const ci::Image& image, const cg::Rect& extent, double searchLimitRadius);

/// What the two distance kernels share: one red float in and out, an opaque output, and the
/// regions they read — each output rectangle (its integral rectangle) grown by the
/// "searchLimitRadius" argument, rendered as one piece covering the "extent" argument grown the
/// same way. Missing arguments are a deployment fault named after `source`.
class SearchLimitedDistanceKernel : public ci::ProcessorKernel {
public:
    ci::Format formatForInput(int) const override { return ci::Format::Rf; }
    ci::Format outputFormat() const override { return ci::Format::Rf; }
    bool outputIsOpaque() const override { return true; }
    cg::Rect roi(int, const ci::ProcessorArguments& arguments,
                 const cg::Rect& outputRect) const override;
    std::optional<std::vector<cg::Rect>> roiTileArray(int, const ci::ProcessorArguments& arguments,
                                                      const cg::Rect& outputRect) const override;

protected:
    explicit SearchLimitedDistanceKernel(const char* source) : source_(source) {}

private:
    const char* source_;
};

/// The chamfer kernel: works in place once per input state ("cache").
class CDTImageProcessorKernel final : public SearchLimitedDistanceKernel {
public:
    CDTImageProcessorKernel() : SearchLimitedDistanceKernel("CDTImageProcessorKernel") {}
    void process(const std::vector<ci::ProcessorInput>& inputs,
                 const ci::ProcessorArguments& arguments,
                 const ci::ProcessorOutput& output) const override;
};

/// The Euclidean kernel.
class EDT final : public SearchLimitedDistanceKernel {
public:
    EDT() : SearchLimitedDistanceKernel("EuclideanDistanceTransformImageProcessorKernel") {}
    bool synchronizeInputs() const override { return false; }
    void process(const std::vector<ci::ProcessorInput>& inputs,
                 const ci::ProcessorArguments& arguments,
                 const ci::ProcessorOutput& output) const override;
};

} // namespace bic
