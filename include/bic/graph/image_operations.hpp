#pragma once
// The vocabulary of small lazy operations on graph images: filters, colour matrices, opacity,
// blending, masking, mixing, blurs, thresholds, distances and stroke masks, tone curves. Each
// keeps the receiver's intent unless said otherwise, returns a new recipe and renders nothing. A
// built-in filter that gives no image where one is always expected stops the process.

#include "bic/filters/blend_mode.hpp"
#include "bic/graph/image.hpp"
#include "bic/platform/ci/filter.hpp"

#include <string_view>
#include <vector>

namespace bic {

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
