#pragma once
// The engine's built-in filters as typed functions. The filter registry offers the same filters
// by name ("CIColorMatrix", "CIGaussianBlur", …) with key-value inputs for callers that configure
// filters at run time; code that knows which filter it wants calls these, so a wrong argument is
// a compile error rather than a missing key.
//
// Colour filters (matrix, clamp, invert, gamma) work on straight colour: they unpremultiply,
// compute and premultiply. Compositing filters and blends work on premultiplied samples.

#include "bic/platform/cg/geometry.hpp"
#include "bic/platform/ci/color.hpp"
#include "bic/platform/ci/filter.hpp"
#include "bic/platform/ci/image.hpp"

#include <memory>
#include <vector>

namespace bic::ci {

/// A colour matrix: each straight output channel is its row's dot product with (r, g, b, a)
/// plus its bias. Rows shorter than four are filled with zeros.
struct ColorMatrix {
    std::vector<double> red{1, 0, 0, 0};
    std::vector<double> green{0, 1, 0, 0};
    std::vector<double> blue{0, 0, 1, 0};
    std::vector<double> alpha{0, 0, 0, 1};
    std::vector<double> bias{0, 0, 0, 0};
};

Image colorMatrix(const Image& image, const ColorMatrix& matrix);
/// Straight channels clamped to the four-component minimum and maximum.
Image colorClamp(const Image& image, const std::vector<double>& minimum,
                 const std::vector<double>& maximum);
Image colorInvert(const Image& image);
/// Grey becomes coverage: the premultiplied red becomes every channel.
Image maskToAlpha(const Image& image);
/// Straight colour raised to `power` (channels above 0).
Image gammaAdjust(const Image& image, double power);

/// `image` where `background` is, the background elsewhere, over the background's extent.
Image sourceAtopCompositing(const Image& image, const Image& background);
/// `image` where `background` is not, over the image's extent.
Image sourceOutCompositing(const Image& image, const Image& background);
/// Channel products, over the intersection of the extents.
Image multiplyCompositing(const Image& image, const Image& background);
/// background + (image − background) × amount, over the union of the extents.
Image mix(const Image& image, const Image& background, double amount);
/// `mix(blend, background, amount)` for a `blend` made by a kernel of two images whose second
/// is `background` (a blend kernel, `blended`, a compositing operator), computed as each row of
/// the blend is made, so that the background is rendered once; none for any other image.
std::optional<Image> fadedBlend(const Image& blend, const Image& background, double amount);

/// The blend modes the engine has built in.
enum class BuiltinBlendMode {
    darken,
    multiply,
    lighten,
    screen,
    overlay,
    softLight,
    hardLight,
    difference,
    exclusion
};
/// `image` blended over `background` with the general compositing formula, over the union of
/// the extents.
Image blended(BuiltinBlendMode mode, const Image& image, const Image& background);
/// A new registry filter blending by `mode` ("CIDarkenBlendMode", …), its inputs unset.
std::shared_ptr<Filter> blendFilter(BuiltinBlendMode mode);
/// A new registry filter compositing "inputImage" over "inputBackgroundImage", inputs unset.
std::shared_ptr<Filter> sourceOverCompositingFilter();

/// Unbounded ramps from colour 0 at the start to colour 1 at the end, clamped beyond.
Image linearGradient(cg::Point point0, cg::Point point1, const Color& color0, const Color& color1);
Image radialGradient(cg::Point center, double radius0, double radius1, const Color& color0,
                     const Color& color1);

/// A Gaussian blur of standard deviation `sigma` (the image itself for σ ≤ 0).
Image gaussianBlur(const Image& image, double sigma);
/// A box blur of the radius rounded to whole pixels (the image itself below 1).
Image boxBlur(const Image& image, double radius);
/// The image's integral extent repeated over the plane, then transformed.
Image affineTile(const Image& image, const cg::AffineTransform& transform);

} // namespace bic::ci
