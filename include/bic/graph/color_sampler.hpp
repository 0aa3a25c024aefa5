#pragma once
// Reads back the colour of single pixels of lazy images through a one-pixel float accumulator
// kept for repeated picks.

#include "bic/accumulators/image_accumulator.hpp"
#include "bic/graph/image.hpp"

namespace bic {

class ColorSampler {
public:
    ColorSampler();

    /// The working-space colour of the pixel containing `point`; nothing when the image's
    /// extent does not contain the point. Throws the renderer's errors.
    std::optional<PixelRGBA32> sample(const ci::Image& image, cg::Point point);
    std::optional<PixelRGBA32> sample(const Image& image, cg::Point point) {
        return sample(image.ciImage, point);
    }

    const SurfaceImageAccumulator<PixelRGBA32>& accumulator() const { return *colorSampler_; }

private:
    std::shared_ptr<SurfaceImageAccumulator<PixelRGBA32>> colorSampler_;
};

} // namespace bic
