#pragma once
// Kernels of the generators: colour pickers and gradient ramps.

#include "bic/platform/cg/geometry.hpp"
#include "bic/platform/ci/kernel.hpp"

#include <optional>

// The generator kernels as the library calls them; nothing for an empty extent.
namespace bic::kernels {

/// A saturated hue ring over `extent` (radius, centre).
std::optional<ci::Image> hueWheel(const cg::Rect& extent, double radius, cg::Point center);
/// A colour wheel at `value` over `extent`.
std::optional<ci::Image> colorWheel(const cg::Rect& extent, double value, double radius,
                                    cg::Point center);
/// The square saturation/value field of a hue position (0…6) over `rect`.
std::optional<ci::Image> saturationValuePanel(const cg::Rect& rect, double huePosition);
/// The triangle inscribed in the circle (centre, radius) over `extent`.
std::optional<ci::Image> triangularSaturationValuePanel(const cg::Rect& extent, double huePosition,
                                                        cg::Point center, double radius);
/// A hue spectrum over `rect`.
std::optional<ci::Image> colorSpectrum(const cg::Rect& rect);
/// The unbounded ramps (layouts in gradient_filters.hpp).
ci::Image angleGradient();
ci::Image reflectedGradient(cg::Point point0, cg::Point point1);
ci::Image diamondGradient(cg::Point point0, cg::Point point1);

} // namespace bic::kernels
