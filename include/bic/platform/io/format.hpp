#pragma once
// Pixel layouts of surfaces and bitmaps, as the lazy-image engine reads and writes them.

#include <cstdint>
#include <optional>

namespace bic::io {

enum class Format {
    ARGB8,  ///< 8-bit alpha, red, green, blue
    BGRA8,  ///< 8-bit blue, green, red, alpha
    RGBA8,  ///< 8-bit red, green, blue, alpha
    L8,     ///< 8-bit luminance
    RGBA16, ///< 16-bit host-order red, green, blue, alpha
    L16,    ///< 16-bit host-order luminance
    RGBAf,  ///< 32-bit float red, green, blue, alpha
    Lf,     ///< 32-bit float luminance
    Rf,     ///< 32-bit float red only
};

/// Bytes one pixel of the layout occupies.
constexpr int bytesPerPixel(Format f) {
    switch (f) {
    case Format::ARGB8:
    case Format::BGRA8:
    case Format::RGBA8:
        return 4;
    case Format::L8:
        return 1;
    case Format::RGBA16:
        return 8;
    case Format::L16:
        return 2;
    case Format::RGBAf:
        return 16;
    case Format::Lf:
    case Format::Rf:
        return 4;
    }
    return 0;
}

/// The layout of a surface pixel-format code (see surface_format); nothing for others.
std::optional<Format> formatOfSurfaceCode(std::uint32_t code);

} // namespace bic::io

namespace bic::ci {
// The engine names the same layouts.
using io::bytesPerPixel;
using io::Format;
using io::formatOfSurfaceCode;
} // namespace bic::ci
