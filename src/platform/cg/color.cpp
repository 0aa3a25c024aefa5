#include "bic/platform/cg/color.hpp"

#include "lcms.hpp"

#include <algorithm>
#include <cmath>

namespace bic::cg {

namespace {

// Clamps colour components to the range the model defines; alpha to 0…1.
void clampToRange(ColorSpaceModel model, std::vector<double>& c) {
    const std::size_t n = c.size() - 1;
    switch (model) {
    case ColorSpaceModel::lab:
        c[0] = std::clamp(c[0], 0.0, 100.0);
        c[1] = std::clamp(c[1], -128.0, 127.0);
        c[2] = std::clamp(c[2], -128.0, 127.0);
        break;
    case ColorSpaceModel::xyz:
        for (std::size_t i = 0; i < n; ++i)
            c[i] = std::max(c[i], 0.0);
        break;
    default:
        for (std::size_t i = 0; i < n; ++i)
            c[i] = std::clamp(c[i], 0.0, 1.0);
    }
    c[n] = std::clamp(c[n], 0.0, 1.0);
}

} // namespace

std::optional<Color> Color::make(const ColorSpace& space, std::vector<double> components) {
    const int expected = componentCount(space.model());
    if (expected == 0 || static_cast<int>(components.size()) != expected) return std::nullopt;
    for (double v : components)
        if (std::isnan(v)) return std::nullopt;
    clampToRange(space.model(), components);
    return Color(space, std::move(components));
}

Color Color::deviceRGB(double r, double g, double b, double a) {
    return *make(ColorSpace::deviceRGB(), {r, g, b, a});
}

Color Color::deviceGray(double gray, double a) {
    return *make(ColorSpace::deviceGray(), {gray, a});
}

std::optional<Color> Color::matched(const ColorSpace& target, RenderingIntent intent) const {
    if (target == space_) return *this;
    const int outCount = componentCount(target.model());
    if (outCount == 0) return std::nullopt;
    // Single colours are matched without lcms's precalculated tables, which trade accuracy
    // for speed that one colour does not need.
    const auto transform = lcms::makeTransform(space_, lcms::doubleFormat(space_.model()), target,
                                               lcms::doubleFormat(target.model()), intent,
                                               cmsFLAGS_NOOPTIMIZE | cmsFLAGS_NOCACHE);
    if (!transform) return std::nullopt;
    double out[4] = {0, 0, 0, 0};
    cmsDoTransform(transform.get(), components_.data(), out, 1);
    std::vector<double> result(out, out + outCount - 1);
    result.push_back(alpha());
    for (double v : result)
        if (!std::isfinite(v)) return std::nullopt;
    return make(target, std::move(result));
}

} // namespace bic::cg
