#include "bic/platform/cg/color_transform.hpp"

#include "lcms.hpp"

namespace bic::cg {

struct ColorTransform::Handle {
    lcms::Transform transform;
};

std::optional<ColorTransform> ColorTransform::make(const ColorSpace& from, const ColorSpace& to,
                                                   RenderingIntent intent) {
    auto format = [](ColorSpaceModel m) -> cmsUInt32Number {
        if (m == ColorSpaceModel::rgb) return TYPE_RGB_FLT;
        if (m == ColorSpaceModel::monochrome) return TYPE_GRAY_FLT;
        return 0;
    };
    // Without the cache flag the transform keeps no state between calls, so threads may share it.
    auto t = lcms::makeTransform(from, format(from.model()), to, format(to.model()), intent,
                                 cmsFLAGS_NOCACHE);
    if (!t) return std::nullopt;
    const int in = from.model() == ColorSpaceModel::rgb ? 3 : 1;
    const int out = to.model() == ColorSpaceModel::rgb ? 3 : 1;
    return ColorTransform(std::make_shared<Handle>(Handle{std::move(t)}), in, out);
}

void ColorTransform::apply(const float* in, float* out, std::size_t count) const {
    cmsDoTransform(handle_->transform.get(), in, out, static_cast<cmsUInt32Number>(count));
}

} // namespace bic::cg
