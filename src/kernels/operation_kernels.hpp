#pragma once
// Kernels of the small image operations: thresholds, masks, tone curves, gradient maps, surface
// normals and edges.
//
// Conventions (ours to choose, kept the same everywhere): a colour's "value" is its luminosity
// 0.30 R + 0.59 G + 0.11 B of the unpremultiplied colour; masks are read from their red channel;
// results that are masks or measures are opaque greys.

#include "bic/platform/ci/kernel.hpp"

#include <optional>
#include <vector>

// The kernels as the library calls them, each with its arguments typed; nothing for an empty
// extent. Over the image's extent unless said otherwise.
namespace bic::kernels {

/// Opaque white where the value reaches `level`, black elsewhere.
std::optional<ci::Image> threshold(const ci::Image& image, double level);
/// image × (1 − mask) + other × mask, over the union of image's and other's extents.
std::optional<ci::Image> mixWithMask(const ci::Image& image, const ci::Image& other,
                                     const ci::Image& mask);
/// Opaque grey: the largest difference of any channel to `color`.
std::optional<ci::Image> maxChannelDistance(const ci::Image& image, const ci::Color& color);
/// Tone curves (native-order floats, possibly empty) per straight channel.
std::optional<ci::Image> colorMap(const ci::Image& image, std::vector<std::uint8_t> red,
                                  std::vector<std::uint8_t> green, std::vector<std::uint8_t> blue);
/// Colours from a table of straight RGBA floats by the saturated image's value.
std::optional<ci::Image> gradientMap(const ci::Image& image, std::vector<std::uint8_t> table);
/// The same as gradientMap of the black-to-white radial ramp of that circle, in one pass.
ci::Image radialGradientMap(cg::Point centre, double radius0, double radius1,
                            std::vector<std::uint8_t> table);
/// Grey: the colour's dot product with a three-component vector.
std::optional<ci::Image> dotProduct(const ci::Image& image, std::vector<double> vector);
/// The unit normals of the image read as a height field (reads one pixel around).
std::optional<ci::Image> surfaceNormals(const ci::Image& image);
/// The Sobel gradient magnitude of the value (reads one pixel around).
std::optional<ci::Image> sobel(const ci::Image& image);
/// The bevel shading lit from the unit vector `light` (reads one pixel around).
std::optional<ci::Image> bevel(const ci::Image& image, std::vector<double> light);
/// The custom gamma (or its inverse) of straight colour: [transition point, g red, g green,
/// g blue].
std::optional<ci::Image> customGamma(const ci::Image& image, std::vector<double> parameters,
                                     bool inverse);
/// The image as an 8-bit document keeps it: straight colour and alpha rounded to levels of
/// 255 (colour 0 where alpha rounds to 0), premultiplied again.
std::optional<ci::Image> roundedToEightBit(const ci::Image& image);
/// Straight colour posterised to `levels`, thresholds taken from `noise`.
std::optional<ci::Image> dither(const ci::Image& image, const ci::Image& noise, double levels);
/// The chamfer transform's start over `extent`: 0 on the mask's white, far elsewhere.
std::optional<ci::Image> prepareDT(const ci::Image& mask, const cg::Rect& extent);

} // namespace bic::kernels
