#pragma once
// The six pixel formats named once. Everything made once per format — buffer and accumulator
// classes, the buffer variant, dispatch by model and depth, typed tests — takes its formats from
// here, so a new format is its struct and one line below.

#include "bic/pixels/pixel_formats.hpp"
#include "bic/platform/core/fatal.hpp"

#include <cstddef>
#include <type_traits>

/// Calls X(P) for every pixel format P, in the order of `PixelFormats`. For explicit
/// instantiations and their `extern template` declarations, which the language only takes one
/// type at a time.
#define BIC_EACH_PIXEL_FORMAT(X)                                                                   \
    X(PixelARGB8) X(PixelGray8) X(PixelRGBA16) X(PixelGray16) X(PixelRGBA32) X(PixelGray32)

namespace bic {

/// A list of pixel formats.
template <class... P>
struct PixelFormatList {
    static constexpr std::size_t size = sizeof...(P);
    /// T<P...>: a std::variant or a ::testing::Types of the formats, say.
    template <template <class...> class T>
    using Apply = T<P...>;
    /// Calls f(std::type_identity<P>()) for each format in order.
    template <class F>
    static constexpr void forEach(F&& f) {
        (f(std::type_identity<P>()), ...);
    }
};

namespace detail {
template <class List>
struct DropFirst;
template <class First, class... Rest>
struct DropFirst<PixelFormatList<First, Rest...>> {
    using Type = PixelFormatList<Rest...>;
};
#define BIC_PIXEL_FORMAT_ITEM(P) , P
using EachPixelFormat =
    typename DropFirst<PixelFormatList<void BIC_EACH_PIXEL_FORMAT(BIC_PIXEL_FORMAT_ITEM)>>::Type;
#undef BIC_PIXEL_FORMAT_ITEM

template <class Body, class First, class... Rest>
decltype(auto) withPixelFormat(cg::ColorSpaceModel model, int bitDepth, Body&& body,
                               PixelFormatList<First, Rest...>) {
    if (First::model == model && First::bitDepth == bitDepth)
        return body(std::type_identity<First>());
    if constexpr (sizeof...(Rest) > 0) {
        return withPixelFormat(model, bitDepth, std::forward<Body>(body),
                               PixelFormatList<Rest...>());
    } else {
        fatalError(bitDepth == 8 || bitDepth == 16 || bitDepth == 32 ? "Unsupported color model."
                                                                     : "Unsupported bit depth.");
    }
}
} // namespace detail

/// ARGB8, Gray8, RGBA16, Gray16, RGBA32, Gray32.
using PixelFormats = detail::EachPixelFormat;
static_assert(PixelFormats::size == 6);

/// Returns body(std::type_identity<P>()) for the format P of a colour model (RGB or monochrome)
/// and a bit depth (8, 16 or 32); every body must return the same type. Callers check data from
/// outside first: another depth stops the process with "Unsupported bit depth.", another model
/// with "Unsupported color model.".
template <class Body>
decltype(auto) withPixelFormat(cg::ColorSpaceModel model, int bitDepth, Body&& body) {
    return detail::withPixelFormat(model, bitDepth, std::forward<Body>(body), PixelFormats());
}

} // namespace bic
