#include "bic/filters/gradient_filters.hpp"

#include "library_kernels.hpp"

namespace bic {

namespace {

std::optional<ci::Image> twoPointRamp(std::string_view kernel, const std::optional<cg::Point>& p0,
                                      const std::optional<cg::Point>& p1) {
    if (!p0 || !p1) return std::nullopt;
    return libraryKernels().colorKernel(kernel).apply(
        cg::Rect::infinite(),
        {std::vector<double>{p0->x, p0->y}, std::vector<double>{p1->x, p1->y}});
}

} // namespace

std::optional<ci::Image> BICAngleGradientFilter::outputImage() const {
    return libraryKernels().colorKernel("angleGradient").apply(cg::Rect::infinite(), {});
}

std::optional<ci::Image> BICReflectedGradientFilter::outputImage() const {
    return twoPointRamp("reflectedGradient", inputPoint0, inputPoint1);
}

std::optional<ci::Image> BICDiamondGradientFilter::outputImage() const {
    return twoPointRamp("diamondGradient", inputPoint0, inputPoint1);
}

} // namespace bic
