#pragma once
// What every pixel format offers, as concepts, and conversion between formats.

#include "bic/pixels/component_type.hpp"
#include "bic/platform/cg/bitmap_info.hpp"
#include "bic/platform/cg/color_space.hpp"
#include "bic/platform/io/format.hpp"

#include <concepts>
#include <cstdint>

namespace bic {

/// Where a format keeps alpha.
enum class PixelAlphaInfo { first = 0, last = 1, none = 2 };

template <class P>
concept Pixel = std::regular<P> && ComponentTypeProtocol<typename P::ComponentType> &&
    requires(const P& p) {
    { P::bitDepth } -> std::convertible_to<int>;
    { P::componentCount } -> std::convertible_to<int>;
    { P::model } -> std::convertible_to<cg::ColorSpaceModel>;
    { P::ciFormat } -> std::convertible_to<ci::Format>;
    { P::bitmapInfo } -> std::convertible_to<cg::BitmapInfo>;
    { P::alphaInfo } -> std::convertible_to<PixelAlphaInfo>;
    { P::whiteValue } -> std::convertible_to<typename P::ComponentType>;
    { p.trimComponent() } -> std::same_as<typename P::ComponentType>;
    { p.distance(p) } -> std::same_as<typename P::ComponentType>;
    {p.stringRepresentation()};
};

/// A colour format: red, green, blue and (premultiplied) alpha.
template <class P>
concept RGBAPixel = Pixel<P> && P::componentCount == 4 && requires(P p) {
    p.redComponent;
    p.greenComponent;
    p.blueComponent;
    p.alphaComponent;
};

/// A grey format without alpha.
template <class P>
concept GrayPixel = Pixel<P> && P::componentCount == 1 && requires(P p) {
    p.grayComponent;
};

/// Pixels by component width: 8-bit (white 255), 16-bit (white 65535) and float (white 1.0).
template <class P>
concept Pixel8 = Pixel<P> && std::same_as<typename P::ComponentType, std::uint8_t>;
template <class P>
concept Pixel16 = Pixel<P> && std::same_as<typename P::ComponentType, std::uint16_t>;
template <class P>
concept Pixel32 = Pixel<P> && std::same_as<typename P::ComponentType, float>;

/// The pixel `p` in format `To`: the same format copies components; colour to colour goes
/// through normalised floats; grey to colour gives (g, g, g, 1); colour to grey keeps the
/// largest of red, green and blue and drops alpha.
template <Pixel To, Pixel From>
To pixelCast(const From& p) {
    if constexpr (std::same_as<To, From>) {
        return p;
    } else if constexpr (RGBAPixel<To> && RGBAPixel<From>) {
        return To::withRGBA(p.red(), p.green(), p.blue(), p.alpha());
    } else if constexpr (RGBAPixel<To> && GrayPixel<From>) {
        return To::withRGBA(p.gray(), p.gray(), p.gray(), 1.0f);
    } else {
        static_assert(GrayPixel<To> && RGBAPixel<From>);
        const float r = p.red(), g = p.green(), b = p.blue();
        return To::withGray(r > g ? (r > b ? r : b) : (g > b ? g : b));
    }
}

} // namespace bic
