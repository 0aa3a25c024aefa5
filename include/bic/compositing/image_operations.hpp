#pragma once
// The vocabulary of small lazy operations on engine images: masking, mixing, inversion,
// clamping, blurring, thresholds, tone curves. Each returns a new recipe and renders nothing.
// They carry the prefix `bic_` (tone curves, surfaceNormals and dotProduct do not). A built-in
// filter that gives no image where one is always expected stops the process. The same
// vocabulary for graph images, with their intents, is graph/image_operations.hpp.

#include "bic/platform/ci/image.hpp"

#include <optional>
#include <vector>

namespace bic {

// ---- Engine images --------------------------------------------------------------------------

/// The mask's grey turned into alpha, multiplied into `image`.
ci::Image bic_masked(const ci::Image& image, const ci::Image& mask);
/// Source-atop: `image` where `other` is, `other` elsewhere.
ci::Image bic_composited(const ci::Image& image, const ci::Image& atop);
ci::Image bic_multiplied(const ci::Image& image, const ci::Image& with);
/// `image` × opacity + `with` × (1 − opacity).
ci::Image bic_mixed(const ci::Image& image, const ci::Image& with, double opacity);
ci::Image bic_inverted(const ci::Image& image);
/// Colours clamped to 0…1.
ci::Image bic_saturated(const ci::Image& image);
ci::Image bic_applyingBoxBlur(const ci::Image& image, double radius);
/// Sampled nearest, then transformed: pixels move whole.
ci::Image bic_pixelTransformed(const ci::Image& image, const cg::AffineTransform& by);
/// Moved so that the extent starts at (0, 0).
ci::Image bic_movedToOrigin(const ci::Image& image);
/// The same image object when the extent already is `rect`; otherwise over clear, cropped.
ci::Image bic_bySettingExtent(const ci::Image& image, const cg::Rect& rect);
/// `image` with `rect` cut away.
ci::Image bic_stampingOut(const ci::Image& image, const cg::Rect& rect);
/// A one-pixel frame along the inside of `extent` in `color`.
ci::Image bic_frame(const cg::Rect& extent, const ci::Color& color);
/// Opaque white where the value (luminosity) reaches `level`, black elsewhere.
ci::Image bic_threshold(const ci::Image& image, double level);
/// image × (1 − mask) + other × mask over the union of the two extents.
ci::Image bic_mixWithMask(const ci::Image& image, const ci::Image& other, const ci::Image& mask);
/// Opaque grey: the largest difference of any channel (alpha included) to `color`.
ci::Image bic_maxDistanceMask(const ci::Image& image, const ci::Color& to);

/// Tone curves per channel on unpremultiplied colour, each read with linear interpolation (an
/// empty curve leaves its channel); nothing for an empty extent.
std::optional<ci::Image> mapped(const ci::Image& image, const std::vector<double>& redMap,
                                const std::vector<double>& greenMap,
                                const std::vector<double>& blueMap);
/// Colours mapped through a 256-entry table of straight RGBA floats (4096 bytes) by their
/// luminosity; a table of any other length gives nothing.
std::optional<ci::Image> mapped(const ci::Image& image, const std::vector<std::uint8_t>& table);
/// The unit normals (x, y, z in red, green, blue) of the image read as a height field.
ci::Image surfaceNormals(const ci::Image& image);
/// Grey: the colour's dot product with a three-component vector (another count stops).
std::optional<ci::Image> dotProduct(const ci::Image& image, const std::vector<double>& vector);
/// The Sobel gradient magnitude of the luminosity, 1 for a unit step.
std::optional<ci::Image> bic_sobel(const ci::Image& image);

} // namespace bic
