#pragma once
// Everything a colour pixel format offers, written once over its four stored components.
//
// A format derives from RGBAPixelBase<Format, Component> and declares its components in memory
// order. Normalised float values (red(), setRed(), withRGBA(), …) clamp and round for integer
// formats and pass unchanged for float formats. Colours are premultiplied; the colour
// operations below work on the stored values as they are.
//
// The named colours are static functions with a "Color" suffix (redColor(), …) because the
// plain names are the component accessors.

#include "bic/pixels/color_management.hpp"
#include "bic/pixels/pixel.hpp"
#include "bic/pixels/pixel_scaling.hpp"
#include "bic/pixels/text_forms.hpp"
#include "bic/platform/ci/color.hpp"
#include "bic/platform/coding/coder.hpp"
#include "bic/platform/core/pixel_math.hpp"

#include <array>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace bic {

template <class Derived, ComponentTypeProtocol T>
class RGBAPixelBase {
public:
    using ComponentType = T;
    static constexpr int bitDepth = Component<T>::bitDepth;
    static constexpr int componentCount = 4;
    static constexpr cg::ColorSpaceModel model = cg::ColorSpaceModel::rgb;
    static constexpr T whiteValue = Component<T>::whiteValue;

    static cg::ColorSpace deviceColorSpace() { return cg::ColorSpace::deviceRGB(); }
    /// The float rule of the component type; NaN is a precondition violation.
    static T componentValue(float f) { return Component<T>::fromFloatValue(f); }

    // Construction from normalised floats (clamped and rounded for integer formats).
    static Derived withRGBA(float red, float green, float blue, float alpha = 1.0f) {
        Derived p;
        p.redComponent = scaling::writeFloat<T>(red);
        p.greenComponent = scaling::writeFloat<T>(green);
        p.blueComponent = scaling::writeFloat<T>(blue);
        p.alphaComponent = scaling::writeFloat<T>(alpha);
        return p;
    }
    /// From hue in degrees (0 ≤ h < 360), saturation and value (0…1).
    static Derived withHSV(float hue, float saturation, float value, float alpha = 1.0f) {
        const auto rgb = hsvToRGB(hue, saturation, value);
        return withRGBA(rgb[0], rgb[1], rgb[2], alpha);
    }

    // Named colours.
    static Derived blackColor() { return withRGBA(0, 0, 0, 1); }
    static Derived whiteColor() { return withRGBA(1, 1, 1, 1); }
    static Derived clearColor() { return withRGBA(0, 0, 0, 0); }
    static Derived grayColor() { return withRGBA(0.5f, 0.5f, 0.5f, 1); }
    static Derived darkGrayColor() { return withRGBA(1.0f / 3, 1.0f / 3, 1.0f / 3, 1); }
    static Derived lightGrayColor() { return withRGBA(2.0f / 3, 2.0f / 3, 2.0f / 3, 1); }
    static Derived redColor() { return withRGBA(1, 0, 0, 1); }
    static Derived greenColor() { return withRGBA(0, 1, 0, 1); }
    static Derived blueColor() { return withRGBA(0, 0, 1, 1); }

    /// Any pixel format converted into this one (see pixelCast).
    template <Pixel P>
    static Derived from(const P& p) {
        return pixelCast<Derived>(p);
    }

    // Components at 8-bit scale.
    std::uint8_t red8() const { return level8(self().redComponent); }
    std::uint8_t green8() const { return level8(self().greenComponent); }
    std::uint8_t blue8() const { return level8(self().blueComponent); }
    std::uint8_t alpha8() const { return level8(self().alphaComponent); }
    void setRed8(std::uint8_t v) { self().redComponent = scaling::writeLevel<T>(v, 255.0f); }
    void setGreen8(std::uint8_t v) { self().greenComponent = scaling::writeLevel<T>(v, 255.0f); }
    void setBlue8(std::uint8_t v) { self().blueComponent = scaling::writeLevel<T>(v, 255.0f); }
    void setAlpha8(std::uint8_t v) { self().alphaComponent = scaling::writeLevel<T>(v, 255.0f); }

    // Components at 16-bit scale.
    std::uint16_t red16() const { return level16(self().redComponent); }
    std::uint16_t green16() const { return level16(self().greenComponent); }
    std::uint16_t blue16() const { return level16(self().blueComponent); }
    std::uint16_t alpha16() const { return level16(self().alphaComponent); }
    void setRed16(std::uint16_t v) { self().redComponent = scaling::writeLevel<T>(v, 65535.0f); }
    void setGreen16(std::uint16_t v) {
        self().greenComponent = scaling::writeLevel<T>(v, 65535.0f);
    }
    void setBlue16(std::uint16_t v) { self().blueComponent = scaling::writeLevel<T>(v, 65535.0f); }
    void setAlpha16(std::uint16_t v) {
        self().alphaComponent = scaling::writeLevel<T>(v, 65535.0f);
    }

    // Components as normalised floats.
    float red() const { return scaling::readFloat(self().redComponent); }
    float green() const { return scaling::readFloat(self().greenComponent); }
    float blue() const { return scaling::readFloat(self().blueComponent); }
    float alpha() const { return scaling::readFloat(self().alphaComponent); }
    void setRed(float v) { self().redComponent = scaling::writeFloat<T>(v); }
    void setGreen(float v) { self().greenComponent = scaling::writeFloat<T>(v); }
    void setBlue(float v) { self().blueComponent = scaling::writeFloat<T>(v); }
    void setAlpha(float v) { self().alphaComponent = scaling::writeFloat<T>(v); }

    /// Alpha decides whether a pixel counts as empty when trimming.
    T trimComponent() const { return self().alphaComponent; }

    /// Largest absolute component difference, alpha included (Chebyshev distance).
    T distance(const Derived& o) const {
        const Derived& s = self();
        T d = absDifference(s.redComponent, o.redComponent);
        for (T e : {absDifference(s.greenComponent, o.greenComponent),
                    absDifference(s.blueComponent, o.blueComponent),
                    absDifference(s.alphaComponent, o.alphaComponent)})
            if (e > d) d = e;
        return d;
    }
    /// Sum of squared differences of the normalised components, alpha included.
    float squaredEuclidianDistance(const Derived& o) const {
        const float dr = red() - o.red(), dg = green() - o.green(), db = blue() - o.blue(),
                    da = alpha() - o.alpha();
        return dr * dr + dg * dg + db * db + da * da;
    }

    /// Each colour component c becomes whiteValue − c; alpha stays.
    Derived inverted() const {
        Derived p = self();
        p.invert();
        return p;
    }
    void invert() {
        Derived& s = self();
        s.redComponent = static_cast<T>(whiteValue - s.redComponent);
        s.greenComponent = static_cast<T>(whiteValue - s.greenComponent);
        s.blueComponent = static_cast<T>(whiteValue - s.blueComponent);
    }

    /// 0.3 r + 0.59 g + 0.11 b; alpha ignored.
    float luminosity() const { return luma(red(), green(), blue()); }

    /// Hue in degrees, 0 ≤ hue < 360; nothing for greys. Ties of the largest component go to
    /// red, then green.
    std::optional<float> hue() const {
        const float r = red(), g = green(), b = blue();
        const float mx = std::fmax(r, std::fmax(g, b));
        const float c = mx - std::fmin(r, std::fmin(g, b));
        if (c == 0) return std::nullopt;
        float h;
        if (mx == r)
            h = std::fmod((g - b) / c + 6.0f, 6.0f);
        else if (mx == g)
            h = (b - r) / c + 2.0f;
        else
            h = (r - g) / c + 4.0f;
        return h * 60.0f;
    }
    float saturation() const {
        const float mx = std::fmax(red(), std::fmax(green(), blue()));
        if (mx == 0) return 0;
        return (mx - std::fmin(red(), std::fmin(green(), blue()))) / mx;
    }
    float value() const { return std::fmax(red(), std::fmax(green(), blue())); }

    /// Ignored unless 0 ≤ hue < 360; saturation, value and alpha are kept.
    void setHue(std::optional<float> h) {
        if (!h || !(*h >= 0 && *h < 360)) return;
        replaceHSV(*h, saturation(), value());
    }
    /// Ignored unless 0 ≤ s ≤ 1; a grey takes hue 0.
    void setSaturation(float s) {
        if (!(s >= 0 && s <= 1)) return;
        replaceHSV(hue().value_or(0), s, value());
    }
    /// Ignored unless 0 ≤ v ≤ 1; a grey takes hue 0.
    void setValue(float v) {
        if (!(v >= 0 && v <= 1)) return;
        replaceHSV(hue().value_or(0), saturation(), v);
    }

    /// Six upper-case hexadecimal digits of the 8-bit red, green and blue; no alpha, no "#".
    std::string hexValue() const {
        char buffer[8];
        std::snprintf(buffer, sizeof buffer, "%02X%02X%02X", red8(), green8(), blue8());
        return buffer;
    }
    /// "#RRGGBB" or "RRGGBB", surrounding white space allowed; alpha is 1. Nothing otherwise.
    static std::optional<Derived> fromHexValue(std::string_view text) {
        const auto rgb = text_forms::parseHex(text);
        if (!rgb) return std::nullopt;
        return withRGBA(((*rgb >> 16) & 0xFF) / 255.0f, ((*rgb >> 8) & 0xFF) / 255.0f,
                        (*rgb & 0xFF) / 255.0f, 1.0f);
    }

    /// "%f %f %f" of red, green, blue, and " %f" of alpha unless alpha is exactly 1.
    std::string stringRepresentation() const {
        return text_forms::formatFloats({red(), green(), blue(), alpha()}, alpha() == 1.0f ? 3 : 4);
    }
    /// One (grey), three (alpha 1) or four numbers separated by single spaces.
    static std::optional<Derived> fromStringRepresentation(std::string_view text) {
        const auto v = text_forms::parseFloats(text);
        if (!v) return std::nullopt;
        return fromFloatList(*v);
    }

    /// The normalised components as an engine colour.
    ci::Color ciColor() const { return {red(), green(), blue(), alpha(), std::nullopt}; }

    // Colour-managed conversions; `rgbColorSpace` must be an RGB space.
    std::optional<std::array<double, 3>>
    psdLabComponents(const cg::ColorSpace& rgbColorSpace) const {
        return color_management::labFromRGB(rgbColorSpace, floats());
    }
    static std::optional<Derived> fromPSDLab(const cg::ColorSpace& rgbColorSpace, double L,
                                             double a, double b) {
        return fromFloats(color_management::rgbFromLab(rgbColorSpace, {L, a, b}));
    }
    std::optional<std::array<double, 3>> xyzComponents(const cg::ColorSpace& rgbColorSpace) const {
        return color_management::xyzFromRGB(rgbColorSpace, floats());
    }
    static std::optional<Derived> fromXYZ(const cg::ColorSpace& rgbColorSpace, double x, double y,
                                          double z) {
        return fromFloats(color_management::rgbFromXYZ(rgbColorSpace, {x, y, z}));
    }
    /// The colour matched from one RGB space into another. Throws ImageCoreError:
    /// parameterError for a space that is not RGB, unknownError when matching fails.
    Derived converted(const cg::ColorSpace& from, const cg::ColorSpace& to,
                      cg::RenderingIntent intent) const {
        return *fromFloats(color_management::convert(floats(), from, to, intent));
    }
    /// The components as a colour of `colorSpace` (an RGB space); nothing for other spaces.
    std::optional<cg::Color> nsColor(const cg::ColorSpace& colorSpace) const {
        if (colorSpace.model() != cg::ColorSpaceModel::rgb) return std::nullopt;
        return cg::Color::make(colorSpace, {red(), green(), blue(), alpha()});
    }
    /// `color` matched into the RGB space `colorSpace`.
    static std::optional<Derived> fromNSColor(const cg::Color& color,
                                              const cg::ColorSpace& colorSpace) {
        return fromFloats(color_management::rgbFromColor(color, colorSpace));
    }

    /// Three normalised floats, or four when alpha is not exactly 1.
    void encode(coding::Encoder& e) const {
        std::vector<float> v{red(), green(), blue()};
        if (alpha() != 1.0f) v.push_back(alpha());
        e.encodeSingle(v);
    }
    /// One, three or four floats; any other count throws FileReadCorruptError.
    static Derived decode(const coding::Decoder& d) {
        const auto v = d.decodeSingle<std::vector<float>>();
        if (const auto p = fromFloatList(v)) return *p;
        throw coding::FileReadCorruptError();
    }

    friend bool operator==(const RGBAPixelBase&, const RGBAPixelBase&) = default;

private:
    Derived& self() { return static_cast<Derived&>(*this); }
    const Derived& self() const { return static_cast<const Derived&>(*this); }
    static std::uint8_t level8(T v) {
        return static_cast<std::uint8_t>(scaling::readLevel(v, 255.0f));
    }
    static std::uint16_t level16(T v) {
        return static_cast<std::uint16_t>(scaling::readLevel(v, 65535.0f));
    }
    color_management::RGBA floats() const { return {red(), green(), blue(), alpha()}; }
    static std::optional<Derived> fromFloats(const std::optional<color_management::RGBA>& c) {
        if (!c) return std::nullopt;
        return withRGBA((*c)[0], (*c)[1], (*c)[2], (*c)[3]);
    }
    static std::optional<Derived> fromFloatList(const std::vector<float>& v) {
        switch (v.size()) {
        case 1:
            return withRGBA(v[0], v[0], v[0], 1.0f);
        case 3:
            return withRGBA(v[0], v[1], v[2], 1.0f);
        case 4:
            return withRGBA(v[0], v[1], v[2], v[3]);
        default:
            return std::nullopt;
        }
    }
    void replaceHSV(float h, float s, float v) {
        const T a = self().alphaComponent;
        const auto rgb = hsvToRGB(h, s, v);
        self() = withRGBA(rgb[0], rgb[1], rgb[2], 1.0f);
        self().alphaComponent = a;
    }
    static std::array<float, 3> hsvToRGB(float h, float s, float v) {
        const float c = v * s;
        const float hp = h / 60.0f;
        const float x = c * (1.0f - std::fabs(std::fmod(hp, 2.0f) - 1.0f));
        float r = 0, g = 0, b = 0;
        if (hp < 1)
            r = c, g = x;
        else if (hp < 2)
            r = x, g = c;
        else if (hp < 3)
            g = c, b = x;
        else if (hp < 4)
            g = x, b = c;
        else if (hp < 5)
            r = x, b = c;
        else
            r = c, b = x;
        const float m = v - c;
        return {r + m, g + m, b + m};
    }
};

} // namespace bic
