#pragma once
// Everything a grey pixel format offers, written once over its stored grey component.

#include "bic/pixels/pixel.hpp"
#include "bic/pixels/pixel_scaling.hpp"
#include "bic/pixels/text_forms.hpp"
#include "bic/platform/ci/color.hpp"
#include "bic/platform/coding/coder.hpp"
#include "bic/platform/core/pixel_math.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bic {

template <class Derived, ComponentTypeProtocol T>
class GrayPixelBase {
public:
    using ComponentType = T;
    static constexpr int bitDepth = Component<T>::bitDepth;
    static constexpr int componentCount = 1;
    static constexpr cg::ColorSpaceModel model = cg::ColorSpaceModel::monochrome;
    static constexpr T whiteValue = Component<T>::whiteValue;
    static constexpr PixelAlphaInfo alphaInfo = PixelAlphaInfo::none;

    static cg::ColorSpace deviceColorSpace() { return cg::ColorSpace::deviceGray(); }
    static T componentValue(float f) { return Component<T>::fromFloatValue(f); }

    /// From a normalised grey (clamped and rounded for integer formats).
    static Derived withGray(float gray) {
        Derived p;
        p.grayComponent = scaling::writeFloat<T>(gray);
        return p;
    }
    static Derived blackColor() { return withGray(0); }
    static Derived whiteColor() { return withGray(1); }
    static Derived grayColor() { return withGray(0.5f); }

    template <Pixel P>
    static Derived from(const P& p) {
        return pixelCast<Derived>(p);
    }

    std::uint8_t gray8() const {
        return static_cast<std::uint8_t>(scaling::readLevel(self().grayComponent, 255.0f));
    }
    std::uint16_t gray16() const {
        return static_cast<std::uint16_t>(scaling::readLevel(self().grayComponent, 65535.0f));
    }
    float gray() const { return scaling::readFloat(self().grayComponent); }
    void setGray8(std::uint8_t v) { self().grayComponent = scaling::writeLevel<T>(v, 255.0f); }
    void setGray16(std::uint16_t v) { self().grayComponent = scaling::writeLevel<T>(v, 65535.0f); }
    void setGray(float v) { self().grayComponent = scaling::writeFloat<T>(v); }

    T trimComponent() const { return self().grayComponent; }
    T distance(const Derived& o) const {
        return absDifference(self().grayComponent, o.grayComponent);
    }
    float squaredEuclidianDistance(const Derived& o) const {
        const float d = gray() - o.gray();
        return d * d;
    }
    Derived inverted() const {
        Derived p = self();
        p.invert();
        return p;
    }
    void invert() { self().grayComponent = static_cast<T>(whiteValue - self().grayComponent); }

    /// The grey formatted with "%f".
    std::string stringRepresentation() const { return text_forms::formatFloats({gray()}, 1); }
    /// Exactly one number; anything else gives nothing.
    static std::optional<Derived> fromStringRepresentation(std::string_view text) {
        const auto v = text_forms::parseFloats(text);
        if (!v || v->size() != 1) return std::nullopt;
        return withGray((*v)[0]);
    }

    ci::Color ciColor() const { return {gray(), gray(), gray(), 1.0, std::nullopt}; }

    /// One normalised float.
    void encode(coding::Encoder& e) const { e.encodeSingle(std::vector<float>{gray()}); }
    /// One float, or three or four read as 0.3 r + 0.59 g + 0.11 b; other counts throw
    /// FileReadCorruptError.
    static Derived decode(const coding::Decoder& d) {
        const auto v = d.decodeSingle<std::vector<float>>();
        if (v.size() == 1) return withGray(v[0]);
        if (v.size() == 3 || v.size() == 4) return withGray(luma(v[0], v[1], v[2]));
        throw coding::FileReadCorruptError();
    }

    friend bool operator==(const GrayPixelBase&, const GrayPixelBase&) = default;

private:
    Derived& self() { return static_cast<Derived&>(*this); }
    const Derived& self() const { return static_cast<const Derived&>(*this); }
};

} // namespace bic
