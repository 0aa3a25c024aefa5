#include "bic/platform/ci/color.hpp"

namespace bic::ci {

std::optional<Color> Color::from(const cg::Color& color) {
    const cg::ColorSpace& space = color.colorSpace();
    const auto& c = color.components();
    if (space.model() == cg::ColorSpaceModel::rgb) return Color{c[0], c[1], c[2], c[3], space};
    if (space.model() == cg::ColorSpaceModel::monochrome)
        return Color{c[0], c[0], c[0], c[1], std::nullopt};
    const auto rgb = color.matched(cg::ColorSpace::deviceRGB());
    if (!rgb) return std::nullopt;
    const auto& m = rgb->components();
    return Color{m[0], m[1], m[2], m[3], std::nullopt};
}

cg::Color Color::cgColor() const {
    const bool rgb = colorSpace && colorSpace->model() == cg::ColorSpaceModel::rgb;
    return *cg::Color::make(rgb ? *colorSpace : cg::ColorSpace::deviceRGB(),
                            {red, green, blue, alpha});
}

} // namespace bic::ci
