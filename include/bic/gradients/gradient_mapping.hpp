#pragma once
// Images coloured through a gradient: each pixel's luminosity (clamped to 0…1) picks a place in
// the gradient's mapping table, whose colour replaces the pixel's and whose opacity scales its
// alpha.

#include "bic/gradients/color_gradient.hpp"
#include "bic/graph/image.hpp"

#include <optional>

namespace bic {

/// Nothing when the gradient's table is not 4096 bytes long or the kernel gives no image.
std::optional<ci::Image> mapped(const ci::Image& image, const ColorGradient& to);
/// Always a picture; throws ImageCoreError::unknownError when no image results.
Image mapped(const Image& image, const ColorGradient& to);

} // namespace bic
