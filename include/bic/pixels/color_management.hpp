#pragma once
// Colour-managed conversions of one normalised colour, shared by every colour pixel format.

#include "bic/platform/cg/color.hpp"

#include <array>
#include <optional>

namespace bic::color_management {

using RGBA = std::array<float, 4>;
using Triple = std::array<double, 3>;

/// (r, g, b) read in `rgbSpace` as Lab of the layered-document Lab space; nothing when the
/// space is not RGB.
std::optional<Triple> labFromRGB(const cg::ColorSpace& rgbSpace, const RGBA& rgba);
std::optional<RGBA> rgbFromLab(const cg::ColorSpace& rgbSpace, const Triple& lab);
std::optional<Triple> xyzFromRGB(const cg::ColorSpace& rgbSpace, const RGBA& rgba);
std::optional<RGBA> rgbFromXYZ(const cg::ColorSpace& rgbSpace, const Triple& xyz);
/// Matches between two RGB spaces; throws ImageCoreError as documented on the pixel formats.
RGBA convert(const RGBA& rgba, const cg::ColorSpace& from, const cg::ColorSpace& to,
             cg::RenderingIntent intent);
/// The colour `color` in the RGB space `space`; nothing when it cannot be matched.
std::optional<RGBA> rgbFromColor(const cg::Color& color, const cg::ColorSpace& space);

} // namespace bic::color_management
