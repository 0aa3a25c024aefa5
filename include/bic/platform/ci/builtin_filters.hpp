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
#include "bic/platform/ci/kernel.hpp"

#include <algorithm>
#include <cmath>
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
/// The radial ramp's level (0 at radius 0 … 1 at radius 1, clamped) of pixels `start` …
/// `start + n − 1` of `row`, for the circle (cx, cy, radius0, radius1) in `p`: kernels that map
/// the ramp at once compute it exactly as the ramp image does. Inline, so it vectorises in the
/// caller's loop; `n` is a chunk, well below 2³¹.
inline void radialLevels(const KernelRow& row, const std::vector<double>& p, std::int64_t start,
                         std::int64_t n, float* __restrict levels) {
    const double cx = p[0], cy = p[1], inner = p[2], span = p[3] - p[2];
    if (row.place || span == 0) {
        for (std::int64_t j = 0; j < n; ++j) {
            const cg::Point q = row.position(start + j);
            // Image coordinates are far from overflow; sqrt is several times cheaper than hypot.
            const double d = std::sqrt((q.x - cx) * (q.x - cx) + (q.y - cy) * (q.y - cy));
            const double t = span == 0 ? (d < inner ? 0.0 : 1.0) : (d - inner) / span;
            levels[j] = float(std::min(1.0, std::max(0.0, t)));
        }
        return;
    }
    // Whole numbers and halves are exact in doubles, so x + ½ + j is the pixel centre's x.
    const double dy = double(row.y) + 0.5 - cy, dy2 = dy * dy;
    const double x0 = double(row.x + start) + 0.5;
    // An int counter: its conversion to double vectorises, a 64-bit one's does not.
    for (int j = 0; j < int(n); ++j) {
        const double dx = x0 + double(j) - cx;
        const double t = (std::sqrt(dx * dx + dy2) - inner) / span;
        levels[j] = float(std::min(1.0, std::max(0.0, t)));
    }
}

/// A Gaussian blur of standard deviation `sigma` (the image itself for σ ≤ 0).
Image gaussianBlur(const Image& image, double sigma);
/// A box blur of the radius rounded to whole pixels (the image itself below 1).
Image boxBlur(const Image& image, double radius);
/// The image's integral extent repeated over the plane, then transformed.
Image affineTile(const Image& image, const cg::AffineTransform& transform);

} // namespace bic::ci
