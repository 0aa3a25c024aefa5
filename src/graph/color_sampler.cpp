#include "bic/graph/color_sampler.hpp"

#include "bic/platform/core/fatal.hpp"

#include <cmath>
#include <string>

namespace bic {

ColorSampler::ColorSampler()
    : colorSampler_(SurfaceImageAccumulator<PixelRGBA32>::make(
          cg::Rect(0, 0, 1, 1), std::string("BrellinImageCore.ColorSampler"))) {
    if (!colorSampler_) fatalError("The colour sampler's accumulator could not be made.");
}

std::optional<PixelRGBA32> ColorSampler::sample(const ci::Image& image, cg::Point point) {
    if (!image.extent().contains(point)) return std::nullopt;
    const cg::Rect unit(0, 0, 1, 1);
    const ci::Image moved =
        image.translated(-std::floor(point.x), -std::floor(point.y)).cropped(unit);
    colorSampler_->setImage(moved, unit);
    return colorSampler_->pixel(0, 0);
}

} // namespace bic
