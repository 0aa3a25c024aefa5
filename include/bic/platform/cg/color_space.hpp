#pragma once
// Colour spaces and colour matching, on Little CMS 2.
//
// Device RGB and device grey have no calibration of their own; for matching they behave as
// sRGB and as a grey of the sRGB tone curve, so that a neutral grey keeps its level between
// them. The Lab space of the layered-document format is CIE L*a*b* relative to D50 with a and b
// limited to −128…127; the XYZ space is the D50 connection space with Y = 1 for white.

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace bic::cg {

/// The platform's colour-space model numbers; unknown is −1.
enum class ColorSpaceModel : int {
    unknown = -1,
    monochrome = 0,
    rgb = 1,
    cmyk = 2,
    lab = 3,
    deviceN = 4,
    indexed = 5,
    pattern = 6,
    xyz = 7,
};

enum class RenderingIntent {
    defaultIntent,
    absoluteColorimetric,
    relativeColorimetric,
    perceptual,
    saturation,
};

class ColorSpace {
public:
    static ColorSpace deviceRGB();
    static ColorSpace deviceGray();
    static ColorSpace sRGB();
    static ColorSpace linearSRGB();
    static ColorSpace displayP3();
    static ColorSpace adobeRGB1998();
    /// CIE Lab, D50 white, a and b in −128…127 (the layered-document format's Lab).
    static ColorSpace psdLab();
    static ColorSpace genericXYZ();
    /// A space from an ICC profile; nothing when the profile cannot be read.
    static std::optional<ColorSpace> fromICCProfile(std::span<const std::uint8_t> icc);
    /// One of the names below ("kCGColorSpaceSRGB", …); nothing for unknown names.
    static std::optional<ColorSpace> named(const std::string& name);

    /// The platform's name of the space ("kCGColorSpaceSRGB", …); nothing for unnamed spaces.
    const std::optional<std::string>& name() const;
    ColorSpaceModel model() const;
    /// Colour components, without alpha.
    int numberOfComponents() const;
    std::vector<std::uint8_t> iccData() const;
    /// For a grey space with a tone curve, the RGB space that has that curve on every channel
    /// (and sRGB's primaries): its neutral colours match exactly as the grey levels do, so grey
    /// pixels stored as colour keep their meaning. Nothing for other spaces.
    std::optional<ColorSpace> grayAsRGB() const;

    /// Same name, or same profile for unnamed spaces.
    friend bool operator==(const ColorSpace& a, const ColorSpace& b);

    struct Impl;
    const Impl& impl() const { return *impl_; }

private:
    friend struct ColorSpaceFactory;
    explicit ColorSpace(std::shared_ptr<const Impl> impl) : impl_(std::move(impl)) {}
    std::shared_ptr<const Impl> impl_;
};

/// Number of components (colour plus alpha) for a model; 0 for models we cannot match.
int componentCount(ColorSpaceModel model);

} // namespace bic::cg
