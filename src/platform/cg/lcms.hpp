#pragma once
// Little CMS plumbing shared by the platform's colour code.

#include "bic/platform/cg/color_space.hpp"

#include <lcms2.h>
#include <memory>

namespace bic::cg {

// Owns its profile; never copied, so the profile is closed exactly once.
struct ColorSpace::Impl {
    Impl(std::optional<std::string> n, ColorSpaceModel m, cmsHPROFILE p)
        : name(std::move(n)), model(m), profile(p) {}
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl() { cmsCloseProfile(profile); }

    std::optional<std::string> name;
    ColorSpaceModel model;
    cmsHPROFILE profile;
};

namespace lcms {

struct TransformDeleter {
    void operator()(cmsHTRANSFORM t) const { cmsDeleteTransform(t); }
};
using Transform = std::unique_ptr<void, TransformDeleter>;

/// The lcms pixel type of doubles in the natural range of a model (0…1 for RGB and grey).
cmsUInt32Number doubleFormat(ColorSpaceModel model);
cmsUInt32Number intent(RenderingIntent intent);

/// A transform between two spaces; creation is serialised because profiles are not safe to
/// share between threads while lcms reads them. Empty when the spaces cannot be matched.
Transform makeTransform(const ColorSpace& from, cmsUInt32Number fromFormat, const ColorSpace& to,
                        cmsUInt32Number toFormat, RenderingIntent intent, cmsUInt32Number flags);

} // namespace lcms
} // namespace bic::cg
