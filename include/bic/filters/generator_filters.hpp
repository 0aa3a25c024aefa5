#pragma once
// Images made from parameters alone, for the colour pickers: a hue ring, a colour wheel at a
// given brightness, square and triangular saturation/value fields for a hue, and a hue spectrum.
//
// Layouts, chosen once for all pickers: hues run counter-clockwise from the positive x axis in
// the kernels (red at 0, green at 120°, blue at 240°); wheels are saturated at the rim and grey at
// the centre; the square panel has saturation along x and value along y (black along the bottom,
// white at the top left, the pure hue at the top right); the triangle has the pure hue at 0°,
// white at 120° and black at 240° about its centre; the spectrum has hue along x and, along y,
// black at the bottom, the pure hues in the middle and white at the top. Edges of discs and
// triangles are anti-aliased over one pixel.
//
// The engine renders in its working space without colour management, so a colour space given
// to these filters is required where stated but does not change the numbers.

#include "bic/platform/cg/color_space.hpp"
#include "bic/platform/cg/geometry.hpp"
#include "bic/platform/ci/filter.hpp"
#include "bic/platform/ci/image.hpp"

#include <optional>

namespace bic {

enum class HueAngleOrientation : int { clockwiseFromTop = 0, counterClockwiseFromX = 1 };

/// The transform that turns hues drawn counter-clockwise from x into hues drawn clockwise from
/// the top, about `center` (a hue at θ moves to 90° − θ).
cg::AffineTransform clockwiseFromTopTransform(const cg::Point& center);

/// The colour pickers' generator filters, made and configured by name like any filter
/// ("BICHueWheelFilter", …, see registerGeneratorFilters). Points travel as two-component
/// vectors ("inputCenter" = [x, y]); the orientation as its number.
class BICHueWheelFilter final : public ci::Filter {
public:
    BICHueWheelFilter();
    std::optional<double> inputRadius() const { return number("inputRadius"); }
    void setInputRadius(std::optional<double> radius);
    std::optional<cg::Point> inputCenter() const;
    void setInputCenter(std::optional<cg::Point> center);
    std::optional<cg::ColorSpace> inputColorSpace() const;
    void setInputColorSpace(std::optional<cg::ColorSpace> space);
    HueAngleOrientation inputHueAngleOrientation() const;
    void setInputHueAngleOrientation(HueAngleOrientation orientation);

    /// Needs radius, centre and colour space: a fully saturated hue ring over the disc.
    std::optional<ci::Image> outputImage() const override;
};

class BICColorWheelFilter final : public ci::Filter {
public:
    BICColorWheelFilter();
    std::optional<double> inputValue() const { return number("inputValue"); }
    void setInputValue(std::optional<double> value);
    std::optional<double> inputRadius() const { return number("inputRadius"); }
    void setInputRadius(std::optional<double> radius);
    std::optional<cg::Point> inputCenter() const;
    void setInputCenter(std::optional<cg::Point> center);
    std::optional<cg::ColorSpace> inputColorSpace() const;
    void setInputColorSpace(std::optional<cg::ColorSpace> space);
    HueAngleOrientation inputHueAngleOrientation() const;
    void setInputHueAngleOrientation(HueAngleOrientation orientation);

    /// Needs value, radius and centre; the colour space is optional.
    std::optional<ci::Image> outputImage() const override;
};

class BICSaturationValuePanelFilter final : public ci::Filter {
public:
    BICSaturationValuePanelFilter();
    /// Radians.
    std::optional<float> inputHue() const;
    void setInputHue(std::optional<float> hue);
    std::optional<cg::Point> inputCenter() const;
    void setInputCenter(std::optional<cg::Point> center);
    std::optional<double> inputRadius() const { return number("inputRadius"); }
    void setInputRadius(std::optional<double> radius);
    std::optional<cg::ColorSpace> inputColorSpace() const;
    void setInputColorSpace(std::optional<cg::ColorSpace> space);

    /// Needs hue, centre and radius: the triangle inscribed in the circle, over the integral
    /// rectangle around it.
    std::optional<ci::Image> outputImage() const override;
};

/// Registers the three generator filters by their class names.
void registerGeneratorFilters();

/// A hue in radians as a position 0…6 on the six hue sectors: hue × 3 ÷ 3.1415925 in single
/// precision (the divisor one unit in the last place below π, so π gives 3.0000002).
float huePosition(float hue);

/// The square panel for `hue` (radians) filling `rect`.
std::optional<ci::Image> bik_saturationValuePanel(float hue, const cg::Rect& rect);
/// The triangular panel; `flipped` mirrors it vertically about the centre (white and black
/// change places).
std::optional<ci::Image>
bik_triangularSaturationValuePanel(float hue, const cg::Point& center, double radius,
                                   std::optional<cg::ColorSpace> colorSpace, bool flipped);
/// A hue spectrum filling `rect`.
std::optional<ci::Image> bic_colorSpectrumImage(const cg::Rect& rect);

} // namespace bic
