#include "bic/graph/image_operations.hpp"

#include "bic/algorithms/distance_transform.hpp"
#include "bic/compositing/image_operations.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/platform/ci/builtin_filters.hpp"
#include "bic/platform/core/fatal.hpp"
#include "bic/platform/core/pixel_math.hpp"

#include <string>

namespace bic {

namespace {

using V = std::vector<double>;

Image with(const Image& like, ci::Image image) { return {std::move(image), like.intent}; }

} // namespace

Image applyingFilter(const Image& image, std::string_view name,
                     const ci::FilterParameters& parameters) {
    const auto output = ci::applyingFilter(image.ciImage, name, parameters);
    if (!output) fatalError("The filter " + std::string(name) + " gave no output image.");
    return with(image, *output);
}

Image colorMatrix(const Image& image, const V& red, const V& green, const V& blue, const V& alpha,
                  const V& bias) {
    return with(
        image,
        ci::colorMatrix(image.ciImage, {red, green, blue, alpha, bias}).cropped(image.extent()));
}

Image gammaAdjusted(const Image& image, double power) {
    return with(image, ci::gammaAdjust(image.ciImage, power));
}

Image applyingOpacity(const Image& image, double opacity) {
    return with(image, bic_applying(image.ciImage, opacity).cropped(image.extent()));
}

Image compositedOver(const Image& image, const Image& background, BlendMode mode, double opacity) {
    return with(background, blended(image.ciImage, background.ciImage, mode, opacity));
}

Image compositedAtop(const Image& image, const Image& background, BlendMode mode, double opacity) {
    Image foreground = image;
    if (mode != BlendMode::normal)
        foreground = with(background, blended(image.ciImage, background.ciImage, mode, 1));
    if (opacity < 1) foreground = applyingOpacity(foreground, opacity);
    return with(foreground, bic_composited(foreground.ciImage, background.ciImage));
}

Image masked(const Image& image, const Image& mask) {
    precondition(mask.intent == Image::Intent::mask, "Only a mask can mask an image.");
    precondition(image.intent != Image::Intent::mask, "A mask cannot be masked.");
    return with(image, bic_masked(image.ciImage, mask.ciImage));
}

Image mixed(const Image& image, const Image& other, double fraction) {
    return with(image, ci::mix(image.ciImage, other.ciImage, fraction));
}

Image mixed(const Image& image, const Image& other, const Image& mask) {
    precondition(mask.intent == Image::Intent::mask, "Only a mask can mix two images.");
    precondition(image.intent == other.intent, "Only images of one intent can be mixed.");
    return with(image, bic_mixWithMask(image.ciImage, other.ciImage, mask.ciImage));
}

Image dissolved(const Image& image, const Image& over, double fraction) {
    return with(image, bic_dissolved(image.ciImage, over.ciImage, fraction));
}

Image saturated(const Image& image) { return with(image, bic_saturated(image.ciImage)); }

Image colorClamped(const Image& image, const V& min, const V& max) {
    return with(image, ci::colorClamp(image.ciImage, min, max));
}

Image inverted(const Image& image) {
    return colorMatrix(image, {-1, 0, 0, 0}, {0, -1, 0, 0}, {0, 0, -1, 0}, {0, 0, 0, 1},
                       {1, 1, 1, 0});
}

Image luminosityImage(const Image& image) {
    const V weights{kLumaRed, kLumaGreen, kLumaBlue, 0};
    return colorMatrix(image, weights, weights, weights, {0, 0, 0, 1}, {0, 0, 0, 0});
}

Image applyingGaussianBlur(const Image& image, double sigma) {
    return with(image, ci::gaussianBlur(image.ciImage, sigma));
}

Image boxBlurred(const Image& image, double radius, int passes) {
    precondition(passes >= 1, "A box blur needs at least one pass.");
    ci::Image result = image.ciImage;
    for (int i = 0; i < passes; ++i)
        result = ci::boxBlur(result, double(float(radius)));
    return with(image, result);
}

Image threshold(const Image& image, double level) {
    return with(image, bic_threshold(image.ciImage, level));
}

Image sobel(const Image& image) {
    return with(image, bic_sobel(image.ciImage).value_or(ci::Image::empty()));
}

Image cropped(const Image& image, const cg::Rect& rect) {
    return with(image, image.ciImage.cropped(rect));
}

Image clamped(const Image& image, const cg::Rect& rect) {
    return with(image, image.ciImage.clamped(rect));
}

Image offset(const Image& image, const cg::Vector& by) {
    return with(image, image.ciImage.transformed(cg::AffineTransform::translation(by.dx, by.dy)));
}

Image strokeMaskFromDistance(const Image& distance, double radius) {
    const V invert{-1, 0, 0, 0};
    const ci::Image covered =
        ci::colorMatrix(distance.ciImage,
                        {invert, invert, invert, {0, 0, 0, 1}, {radius, radius, radius, 0}})
            .cropped(distance.extent());
    return Image::mask(bic_saturated(covered));
}

Image distance(const Image& image, const cg::Rect& outputExtent, double maxSearchRadius) {
    if (outputExtent.isInfinite()) throw ImageCoreError(ImageCoreError::parameterError);
    if (outputExtent.isNull() || outputExtent.isEmpty()) return Image::zeroData();
    const Image mask = image.maskRepresentation();
    try {
        const auto edges = bic_sobel(bic_threshold(mask.ciImage, 0.5));
        if (!edges) return Image::zeroData();
        return Image::data(edtMap(*edges, outputExtent, maxSearchRadius));
    } catch (const ImageCoreError&) {
        return Image::zeroData();
    }
}

Image strokeMask(const Image& image, double radius, const cg::Rect& outputExtent) {
    return strokeMaskFromDistance(distance(image, outputExtent, radius), radius);
}

Image mapped(const Image& image, const V& curve) { return mapped(image, curve, curve, curve); }

Image mapped(const Image& image, const V& redMap, const V& greenMap, const V& blueMap) {
    auto result = mapped(image.ciImage, redMap, greenMap, blueMap);
    if (!result)
        throw ImageCoreError(ImageCoreError::unknownError, "the colour-map kernel gave no image");
    return with(image, *result);
}

} // namespace bic
