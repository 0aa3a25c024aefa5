#pragma once
// Premultiplying and unpremultiplying rows of samples between files (straight colour) and
// buffers (premultiplied). Integer samples round to nearest: c·a/max and c·max/a, so that a
// premultiplied value survives being written straight and read back.

#include "bic/pixels/pixel_formats.hpp"
#include "bic/platform/core/pixel_math.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace bic::files::detail {

template <class T>
constexpr T fullSample() {
    if constexpr (std::is_floating_point_v<T>)
        return T(1);
    else
        return std::numeric_limits<T>::max();
}

template <class T>
inline T premultiplied(T c, T a) {
    if constexpr (std::is_floating_point_v<T>) {
        return c * a;
    } else {
        constexpr std::uint32_t m = fullSample<T>();
        return T((std::uint32_t(c) * a + m / 2) / m);
    }
}

template <class T>
inline T unpremultiplied(T c, T a) {
    if constexpr (std::is_floating_point_v<T>) {
        return bic::unpremultiplied(c, a);
    } else {
        constexpr std::uint64_t m = fullSample<T>();
        return a == 0 ? 0 : T(std::min<std::uint64_t>(m, (std::uint64_t(c) * m + a / 2) / a));
    }
}

/// Premultiplies a row of straight colour in place; opaque pixels are left alone.
template <Pixel P>
void premultiplyRow(P* row, std::int64_t count) {
    if constexpr (RGBAPixel<P>) {
        using T = typename P::ComponentType;
        for (std::int64_t x = 0; x < count; ++x) {
            P& p = row[x];
            const T a = p.alphaComponent;
            if (a == fullSample<T>()) continue;
            p.redComponent = premultiplied(p.redComponent, a);
            p.greenComponent = premultiplied(p.greenComponent, a);
            p.blueComponent = premultiplied(p.blueComponent, a);
        }
    }
}

/// Whether every pixel of a row is opaque (always for grey).
template <Pixel P>
bool opaqueRow(const P* row, std::int64_t count) {
    if constexpr (RGBAPixel<P>) {
        using T = typename P::ComponentType;
        if constexpr (std::is_integral_v<T>) {
            // All bits set in every alpha: one AND over the row, which vectorises, where a
            // comparison per pixel does not.
            T all = fullSample<T>();
            for (std::int64_t x = 0; x < count; ++x)
                all &= row[x].alphaComponent;
            return all == fullSample<T>();
        } else {
            bool opaque = true;
            for (std::int64_t x = 0; x < count; ++x)
                opaque &= row[x].alphaComponent == fullSample<T>();
            return opaque;
        }
    } else {
        return true;
    }
}

/// A row of premultiplied pixels as straight colour, in the same layout.
template <Pixel P>
void unpremultiplyRow(const P* in, P* out, std::int64_t count) {
    for (std::int64_t x = 0; x < count; ++x) {
        P p = in[x];
        if constexpr (RGBAPixel<P>) {
            using T = typename P::ComponentType;
            const T a = p.alphaComponent;
            if (a != fullSample<T>()) {
                p.redComponent = unpremultiplied(p.redComponent, a);
                p.greenComponent = unpremultiplied(p.greenComponent, a);
                p.blueComponent = unpremultiplied(p.blueComponent, a);
            }
        }
        out[x] = p;
    }
}

} // namespace bic::files::detail
