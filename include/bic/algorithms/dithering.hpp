#pragma once
// Reducing tones: error diffusion of a grey image to pure black and white on the CPU, and a
// posterising filter that dithers with noise on the engine.

#include "bic/platform/ci/filter.hpp"
#include "bic/platform/ci/processor_kernel.hpp"

#include <cstdint>
#include <mutex>

namespace bic {

enum class DitheringMethod : int { floydSteinberg = 0, atkinson = 1 };

/// Error diffusion in place over `height` rows of `width` samples, `stride` samples apart, top
/// row first: each sample becomes 1 when it is at least 0.5 and 0 otherwise, and the error,
/// rounded to sixteenths (half away from zero), goes to the neighbours inside the image —
/// Floyd–Steinberg 7/16 right, 3/16 down-left, 5/16 down, 1/16 down-right; Atkinson 1/8 to each
/// of right, two right, down-left, down, down-right and two down (the rest is dropped).
void ditherInPlace(float* samples, std::int64_t width, std::int64_t height, std::int64_t stride,
                   DitheringMethod method);

/// The grey image (its red channel) dithered to black and white, alpha kept. Throws
/// ImageCoreError parameterError for an empty or infinite extent.
ci::Image dithered(const ci::Image& image, DitheringMethod method);

/// The processor kernel behind `dithered`: one red float in and out, opaque output, argument
/// "method" (a Boolean: false Floyd–Steinberg, true Atkinson; missing → parameterError). Errors
/// travel across the whole image, so one application dithers its whole input once, the first
/// time any tile asks, and every tile copies its part of that result.
class DitherImageProcesorKernel final : public ci::ProcessorKernel {
public:
    explicit DitherImageProcesorKernel(cg::Rect extent) : extent_(extent) {}
    ci::Format formatForInput(int) const override { return ci::Format::Rf; }
    ci::Format outputFormat() const override { return ci::Format::Rf; }
    bool outputIsOpaque() const override { return true; }
    cg::Rect roi(int, const ci::ProcessorArguments&, const cg::Rect&) const override {
        return extent_;
    }
    void process(const std::vector<ci::ProcessorInput>& inputs,
                 const ci::ProcessorArguments& arguments,
                 const ci::ProcessorOutput& output) const override;

private:
    cg::Rect extent_;
    mutable std::mutex mutex_;
    mutable std::vector<float> result_; ///< the whole extent, dithered; empty until the first call
};

/// Posterises to "inputLevels" levels per channel, dithering with the process's uniform noise:
/// a straight channel value v becomes floor(v·(L − 1) + n) / (L − 1), n the noise's red level in
/// [0, 1). Nothing without an image or a level count.
class BICDitherFilter final : public ci::Filter {
public:
    BICDitherFilter();
    void setInputImage(std::optional<ci::Image> image);
    void setInputLevels(std::optional<double> levels);
    std::optional<ci::Image> outputImage() const override;
};

} // namespace bic
