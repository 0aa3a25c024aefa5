#include "bic/platform/cg/color_transform.hpp"

#include "lcms.hpp"

#include <algorithm>

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
    const bool cmyk = from.model() == ColorSpaceModel::cmyk;
    // Without the cache flag the transform keeps no state between calls, so threads may share it.
    auto t = lcms::makeTransform(from, cmyk ? TYPE_CMYK_FLT : format(from.model()), to,
                                 format(to.model()), intent, cmsFLAGS_NOCACHE);
    if (!t) return std::nullopt;
    const int in = cmyk ? 4 : from.model() == ColorSpaceModel::rgb ? 3 : 1;
    const int out = to.model() == ColorSpaceModel::rgb ? 3 : 1;
    return ColorTransform(std::make_shared<Handle>(Handle{std::move(t)}), in, out);
}

void ColorTransform::apply(const float* in, float* out, std::size_t count) const {
    if (inComponents_ != 4) {
        cmsDoTransform(handle_->transform.get(), in, out, static_cast<cmsUInt32Number>(count));
        return;
    }
    // Little CMS takes ink in percent; a few hundred colours at a time keep the copy in cache.
    constexpr std::size_t chunk = 256;
    float percent[4 * chunk];
    for (std::size_t done = 0; done < count; done += chunk) {
        const std::size_t n = std::min(chunk, count - done);
        for (std::size_t i = 0; i < 4 * n; ++i)
            percent[i] = in[4 * done + i] * 100;
        cmsDoTransform(handle_->transform.get(), percent, out + std::size_t(outComponents_) * done,
                       static_cast<cmsUInt32Number>(n));
    }
}

} // namespace bic::cg
