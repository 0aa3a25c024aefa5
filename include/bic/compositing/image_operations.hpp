#pragma once
// The vocabulary of small lazy operations on images: masking, mixing, opacity, inversion,
// clamping, blurring, thresholds, tone curves. Each returns a new recipe and renders nothing.
//
// Operations on engine images carry the prefix `bic_` (tone curves, surfaceNormals and
// dotProduct do not); operations on graph images keep or set the intent as documented. A
// built-in filter that gives no image where one is always expected stops the process.

#include "bic/filters/blend_mode.hpp"
#include "bic/graph/image.hpp"

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
ci::Image bic_dissolved(const ci::Image& image, const ci::Image& over, double fraction);
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

// ---- Graph images (receiver's intent unless said otherwise) ---------------------------------

/// The filter applied with `image` as input; the filter must give an image.
Image applyingFilter(const Image& image, std::string_view name,
                     const ci::FilterParameters& parameters = {});
Image colorMatrix(const Image& image, const std::vector<double>& red,
                  const std::vector<double>& green, const std::vector<double>& blue,
                  const std::vector<double>& alpha, const std::vector<double>& bias);
Image gammaAdjusted(const Image& image, double power);
/// Alpha scaled by `opacity`, cropped to the extent.
Image applyingOpacity(const Image& image, double opacity);
/// `image` blended over `background` in `mode`; the result has the background's intent.
Image compositedOver(const Image& image, const Image& background, BlendMode mode, double opacity);
/// Blended with the mode (if not normal; the intent becomes the background's), faded by
/// `opacity`, then laid atop the background.
Image compositedAtop(const Image& image, const Image& background, BlendMode mode, double opacity);
/// Needs a mask (intent mask) on a receiver that is not one; otherwise the process stops.
Image masked(const Image& image, const Image& mask);
/// fraction 1 gives `image`, 0 gives `other`.
Image mixed(const Image& image, const Image& other, double fraction);
/// Needs a mask and receiver and other of one intent; otherwise the process stops.
Image mixed(const Image& image, const Image& other, const Image& mask);
Image dissolved(const Image& image, const Image& over, double fraction);
Image saturated(const Image& image);
Image colorClamped(const Image& image, const std::vector<double>& min,
                   const std::vector<double>& max);
Image inverted(const Image& image);
Image luminosityImage(const Image& image);
Image applyingGaussianBlur(const Image& image, double sigma);
/// `passes` (at least 1) box blurs of `radius` in a row.
Image boxBlurred(const Image& image, double radius, int passes);
Image threshold(const Image& image, double level);
Image sobel(const Image& image);
Image cropped(const Image& image, const cg::Rect& rect);
Image clamped(const Image& image, const cg::Rect& rect);
Image offset(const Image& image, const cg::Vector& by);
/// The Euclidean distance (intent data) from every pixel of `outputExtent` to the edge of the
/// image's mask form (thresholded at ½), searching up to `maxSearchRadius`. An empty extent
/// gives black; an infinite one throws ImageCoreError parameterError; a failing transform gives
/// black. Data images stop the process ("Cannot create mask from data.").
Image distance(const Image& image, const cg::Rect& outputExtent, double maxSearchRadius);
/// The band of width `radius` around the mask form's edge, as a mask over `outputExtent`.
Image strokeMask(const Image& image, double radius, const cg::Rect& outputExtent);
/// A mask from a distance image: covered where the distance is at most radius − 1, partly
/// between radius − 1 and radius, empty beyond (clamp(r − d, 0, 1)).
Image strokeMaskFromDistance(const Image& distance, double radius);
/// One curve for all three channels; throws ImageCoreError unknownError when none results.
Image mapped(const Image& image, const std::vector<double>& curve);
Image mapped(const Image& image, const std::vector<double>& redMap,
             const std::vector<double>& greenMap, const std::vector<double>& blueMap);

} // namespace bic
