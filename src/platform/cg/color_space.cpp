#include "bic/platform/cg/color_space.hpp"

#include "lcms.hpp"

#include <mutex>

namespace bic::cg {

namespace {

std::mutex& lcmsMutex() {
    static std::mutex m;
    return m;
}

void silenceLcms() {
    static std::once_flag once;
    std::call_once(once,
                   [] { cmsSetLogErrorHandler([](cmsContext, cmsUInt32Number, const char*) {}); });
}

cmsToneCurve* sRGBCurve() {
    const cmsFloat64Number p[5] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
    return cmsBuildParametricToneCurve(nullptr, 4, p);
}

cmsHPROFILE rgbProfile(const cmsCIExyYTRIPLE& primaries, cmsToneCurve* curve) {
    cmsCIExyY d65 = {0.3127, 0.3290, 1.0};
    cmsToneCurve* curves[3] = {curve, curve, curve};
    cmsHPROFILE p = cmsCreateRGBProfile(&d65, &primaries, curves);
    cmsFreeToneCurve(curve);
    return p;
}

constexpr cmsCIExyYTRIPLE kSRGBPrimaries = {{0.64, 0.33, 1}, {0.30, 0.60, 1}, {0.15, 0.06, 1}};

} // namespace

struct ColorSpaceFactory {
    static ColorSpace make(std::optional<std::string> name, ColorSpaceModel model,
                           cmsHPROFILE profile) {
        silenceLcms();
        return ColorSpace(
            std::make_shared<const ColorSpace::Impl>(std::move(name), model, profile));
    }
};

namespace {
ColorSpace make(std::optional<std::string> name, ColorSpaceModel model, cmsHPROFILE profile) {
    return ColorSpaceFactory::make(std::move(name), model, profile);
}
} // namespace

// The built-in spaces are immutable, so each is built once and shared; building an lcms profile
// costs far more than the conversions that usually follow. They are never destroyed: renders on
// background threads may still use them while the process exits.

ColorSpace ColorSpace::deviceRGB() {
    static const ColorSpace& shared = *new ColorSpace([] {
        return make("kCGColorSpaceDeviceRGB", ColorSpaceModel::rgb, cmsCreate_sRGBProfile());
    }());
    return shared;
}

ColorSpace ColorSpace::deviceGray() {
    static const ColorSpace& shared = *new ColorSpace([] {
        cmsCIExyY d65 = {0.3127, 0.3290, 1.0};
        cmsToneCurve* curve = sRGBCurve();
        cmsHPROFILE p = cmsCreateGrayProfile(&d65, curve);
        cmsFreeToneCurve(curve);
        return make("kCGColorSpaceDeviceGray", ColorSpaceModel::monochrome, p);
    }());
    return shared;
}

ColorSpace ColorSpace::sRGB() {
    static const ColorSpace& shared = *new ColorSpace(
        [] { return make("kCGColorSpaceSRGB", ColorSpaceModel::rgb, cmsCreate_sRGBProfile()); }());
    return shared;
}

ColorSpace ColorSpace::linearSRGB() {
    static const ColorSpace& shared = *new ColorSpace([] {
        return make("kCGColorSpaceLinearSRGB", ColorSpaceModel::rgb,
                    rgbProfile(kSRGBPrimaries, cmsBuildGamma(nullptr, 1.0)));
    }());
    return shared;
}

ColorSpace ColorSpace::displayP3() {
    static const ColorSpace& shared = *new ColorSpace([] {
        constexpr cmsCIExyYTRIPLE p3 = {{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}};
        return make("kCGColorSpaceDisplayP3", ColorSpaceModel::rgb, rgbProfile(p3, sRGBCurve()));
    }());
    return shared;
}

ColorSpace ColorSpace::adobeRGB1998() {
    static const ColorSpace& shared = *new ColorSpace([] {
        constexpr cmsCIExyYTRIPLE adobe = {{0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1}};
        return make("kCGColorSpaceAdobeRGB1998", ColorSpaceModel::rgb,
                    rgbProfile(adobe, cmsBuildGamma(nullptr, 563.0 / 256.0)));
    }());
    return shared;
}

ColorSpace ColorSpace::psdLab() {
    static const ColorSpace& shared = *new ColorSpace([] {
        return make(std::nullopt, ColorSpaceModel::lab, cmsCreateLab4Profile(cmsD50_xyY()));
    }());
    return shared;
}

ColorSpace ColorSpace::genericXYZ() {
    static const ColorSpace& shared = *new ColorSpace([] {
        return make("kCGColorSpaceGenericXYZ", ColorSpaceModel::xyz, cmsCreateXYZProfile());
    }());
    return shared;
}

std::optional<ColorSpace> ColorSpace::fromICCProfile(std::span<const std::uint8_t> icc) {
    silenceLcms();
    if (icc.empty()) return std::nullopt;
    cmsHPROFILE p = cmsOpenProfileFromMem(icc.data(), static_cast<cmsUInt32Number>(icc.size()));
    if (!p) return std::nullopt;
    ColorSpaceModel model;
    switch (cmsGetColorSpace(p)) {
    case cmsSigRgbData:
        model = ColorSpaceModel::rgb;
        break;
    case cmsSigGrayData:
        model = ColorSpaceModel::monochrome;
        break;
    case cmsSigCmykData:
        model = ColorSpaceModel::cmyk;
        break;
    case cmsSigLabData:
        model = ColorSpaceModel::lab;
        break;
    case cmsSigXYZData:
        model = ColorSpaceModel::xyz;
        break;
    default:
        cmsCloseProfile(p);
        return std::nullopt;
    }
    return make(std::nullopt, model, p);
}

std::optional<ColorSpace> ColorSpace::named(const std::string& name) {
    for (ColorSpace (*f)() :
         {deviceRGB, deviceGray, sRGB, linearSRGB, displayP3, adobeRGB1998, genericXYZ}) {
        ColorSpace s = f();
        if (s.name() == name) return s;
    }
    return std::nullopt;
}

const std::optional<std::string>& ColorSpace::name() const { return impl_->name; }
ColorSpaceModel ColorSpace::model() const { return impl_->model; }
int ColorSpace::numberOfComponents() const { return componentCount(impl_->model) - 1; }

std::vector<std::uint8_t> ColorSpace::iccData() const {
    std::lock_guard lock(lcmsMutex());
    cmsUInt32Number size = 0;
    if (!cmsSaveProfileToMem(impl_->profile, nullptr, &size)) return {};
    std::vector<std::uint8_t> out(size);
    if (!cmsSaveProfileToMem(impl_->profile, out.data(), &size)) return {};
    return out;
}

std::optional<ColorSpace> ColorSpace::grayAsRGB() const {
    if (impl_->model != ColorSpaceModel::monochrome) return std::nullopt;
    std::lock_guard lock(lcmsMutex());
    const auto* curve =
        static_cast<const cmsToneCurve*>(cmsReadTag(impl_->profile, cmsSigGrayTRCTag));
    if (!curve) return std::nullopt;
    return make(std::nullopt, ColorSpaceModel::rgb,
                rgbProfile(kSRGBPrimaries, cmsDupToneCurve(curve)));
}

bool operator==(const ColorSpace& a, const ColorSpace& b) {
    if (a.impl_ == b.impl_) return true;
    if (a.name() || b.name()) return a.name() == b.name();
    return a.model() == b.model() && a.iccData() == b.iccData();
}

int componentCount(ColorSpaceModel model) {
    switch (model) {
    case ColorSpaceModel::monochrome:
        return 2;
    case ColorSpaceModel::rgb:
    case ColorSpaceModel::lab:
    case ColorSpaceModel::xyz:
        return 4;
    case ColorSpaceModel::cmyk:
        return 5;
    default:
        return 0;
    }
}

namespace lcms {

cmsUInt32Number doubleFormat(ColorSpaceModel model) {
    switch (model) {
    case ColorSpaceModel::rgb:
        return TYPE_RGB_DBL;
    case ColorSpaceModel::monochrome:
        return TYPE_GRAY_DBL;
    case ColorSpaceModel::lab:
        return TYPE_Lab_DBL;
    case ColorSpaceModel::xyz:
        return TYPE_XYZ_DBL;
    case ColorSpaceModel::cmyk:
        return TYPE_CMYK_DBL;
    default:
        return 0;
    }
}

cmsUInt32Number intent(RenderingIntent intent) {
    switch (intent) {
    case RenderingIntent::absoluteColorimetric:
        return INTENT_ABSOLUTE_COLORIMETRIC;
    case RenderingIntent::relativeColorimetric:
        return INTENT_RELATIVE_COLORIMETRIC;
    case RenderingIntent::saturation:
        return INTENT_SATURATION;
    case RenderingIntent::perceptual:
    case RenderingIntent::defaultIntent:
        return INTENT_PERCEPTUAL;
    }
    return INTENT_PERCEPTUAL;
}

Transform makeTransform(const ColorSpace& from, cmsUInt32Number fromFormat, const ColorSpace& to,
                        cmsUInt32Number toFormat, RenderingIntent renderingIntent,
                        cmsUInt32Number flags) {
    if (!fromFormat || !toFormat) return nullptr;
    std::lock_guard lock(lcmsMutex());
    return Transform(cmsCreateTransform(from.impl().profile, fromFormat, to.impl().profile,
                                        toFormat, intent(renderingIntent), flags));
}

} // namespace lcms
} // namespace bic::cg
