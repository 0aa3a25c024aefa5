#include "bic/compositing/image_operations.hpp"

#include "../filters/library_kernels.hpp"
#include "bic/algorithms/distance_transform.hpp"
#include "bic/filters/blend_mode_filters.hpp"
#include "bic/geometry/image_core_error.hpp"
#include "bic/platform/core/fatal.hpp"

#include <cstring>

namespace bic {

namespace {

using V = std::vector<double>;

// A built-in filter with its inputs; it must give an image.
ci::Image filtered(std::string_view name, const ci::FilterParameters& parameters) {
    const auto filter = ci::Filter::named(name);
    if (!filter) fatalError("No filter named " + std::string(name) + ".");
    for (const auto& [key, value] : parameters)
        filter->setValue(key, value);
    auto output = filter->outputImage();
    if (!output) fatalError("The filter " + std::string(name) + " gave no output image.");
    return *output;
}

ci::Image matrix(const ci::Image& image, V r, V g, V b, V a, V bias) {
    return filtered("CIColorMatrix", {{"inputImage", image},
                                      {"inputRVector", std::move(r)},
                                      {"inputGVector", std::move(g)},
                                      {"inputBVector", std::move(b)},
                                      {"inputAVector", std::move(a)},
                                      {"inputBiasVector", std::move(bias)}});
}

std::vector<std::uint8_t> floatBytes(const V& curve) {
    std::vector<std::uint8_t> bytes(curve.size() * sizeof(float));
    for (std::size_t i = 0; i < curve.size(); ++i) {
        const auto f = float(curve[i]);
        std::memcpy(bytes.data() + i * sizeof f, &f, sizeof f);
    }
    return bytes;
}

ci::Image orEmpty(std::optional<ci::Image> image) { return image.value_or(ci::Image::empty()); }

Image with(const Image& like, ci::Image image) { return {std::move(image), like.intent}; }

} // namespace

// ---- Engine images --------------------------------------------------------------------------

ci::Image bic_masked(const ci::Image& image, const ci::Image& mask) {
    const ci::Image alpha = filtered("CIMaskToAlpha", {{"inputImage", mask}});
    return filtered("CIMultiplyCompositing",
                    {{"inputImage", image}, {"inputBackgroundImage", alpha}});
}

ci::Image bic_composited(const ci::Image& image, const ci::Image& atop) {
    return filtered("CISourceAtopCompositing",
                    {{"inputImage", image}, {"inputBackgroundImage", atop}});
}

ci::Image bic_multiplied(const ci::Image& image, const ci::Image& with) {
    return filtered("CIMultiplyCompositing",
                    {{"inputImage", image}, {"inputBackgroundImage", with}});
}

ci::Image bic_mixed(const ci::Image& image, const ci::Image& with, double opacity) {
    return filtered("CIMix", {{"inputImage", image},
                              {"inputBackgroundImage", with},
                              {"inputAmount", double(float(opacity))}});
}

ci::Image bic_dissolved(const ci::Image& image, const ci::Image& over, double fraction) {
    BICDissolveBlendMode dissolve;
    dissolve.setInputImage(image);
    dissolve.setInputBackgroundImage(over);
    dissolve.setInputOpacity(fraction);
    return *dissolve.outputImage();
}

ci::Image bic_inverted(const ci::Image& image) {
    return filtered("CIColorInvert", {{"inputImage", image}});
}

ci::Image bic_saturated(const ci::Image& image) {
    return filtered("CIColorClamp", {{"inputImage", image},
                                     {"inputMinComponents", V{0, 0, 0, 0}},
                                     {"inputMaxComponents", V{1, 1, 1, 1}}});
}

ci::Image bic_applyingBoxBlur(const ci::Image& image, double radius) {
    return filtered("CIBoxBlur", {{"inputImage", image}, {"inputRadius", double(float(radius))}});
}

ci::Image bic_pixelTransformed(const ci::Image& image, const cg::AffineTransform& by) {
    return image.samplingNearest().transformed(by);
}

ci::Image bic_movedToOrigin(const ci::Image& image) {
    const cg::Rect& e = image.extent();
    // The empty image has no origin to move, and an infinite one already covers the origin.
    if (e.isNull() || e.isInfinite()) return image;
    return image.transformed(cg::AffineTransform::translation(-e.minX(), -e.minY()));
}

ci::Image bic_bySettingExtent(const ci::Image& image, const cg::Rect& rect) {
    if (image.extent() == rect) return image;
    return image.composited(ci::Image::clear()).cropped(rect);
}

ci::Image bic_stampingOut(const ci::Image& image, const cg::Rect& rect) {
    return filtered(
        "CISourceOutCompositing",
        {{"inputImage", image}, {"inputBackgroundImage", ci::Image::black().cropped(rect)}});
}

ci::Image bic_frame(const cg::Rect& extent, const ci::Color& color) {
    const ci::Image outline = ci::Image::black()
                                  .cropped(extent.insetBy(1, 1))
                                  .composited(ci::Image::white().cropped(extent));
    const ci::Image alpha = filtered("CIMaskToAlpha", {{"inputImage", outline}});
    return filtered("CIMultiplyCompositing",
                    {{"inputImage", ci::Image::constant(color).cropped(extent)},
                     {"inputBackgroundImage", alpha}});
}

ci::Image bic_threshold(const ci::Image& image, double level) {
    return orEmpty(libraryKernels().colorKernel("threshold").apply(image.extent(), {image, level}));
}

ci::Image bic_mixWithMask(const ci::Image& image, const ci::Image& other, const ci::Image& mask) {
    return orEmpty(libraryKernels()
                       .colorKernel("mixWithMask")
                       .apply(image.extent().unionWith(other.extent()), {image, other, mask}));
}

ci::Image bic_maxDistanceMask(const ci::Image& image, const ci::Color& to) {
    return orEmpty(
        libraryKernels().colorKernel("maxChannelDistance").apply(image.extent(), {image, to}));
}

std::optional<ci::Image> mapped(const ci::Image& image, const V& redMap, const V& greenMap,
                                const V& blueMap) {
    return libraryKernels()
        .colorKernel("colorMap_aa")
        .apply(image.extent(),
               {image, floatBytes(redMap), floatBytes(greenMap), floatBytes(blueMap)});
}

std::optional<ci::Image> mapped(const ci::Image& image, const std::vector<std::uint8_t>& table) {
    if (table.size() != 4096) return std::nullopt;
    // The kernel reads its image saturated itself: one pass instead of a clamp and a map.
    return libraryKernels().colorKernel("gradientMap_aa").apply(image.extent(), {image, table});
}

namespace {
cg::Rect grownByOne(int, const cg::Rect& r) { return r.insetBy(-1, -1); }
} // namespace

ci::Image surfaceNormals(const ci::Image& image) {
    // An image without pixels has no surface: its normals are the empty image too. Only a kernel
    // that fails on real pixels is a fault.
    if (image.extent().isEmpty()) return ci::Image::empty();
    auto normals =
        libraryKernels().generalKernel("surfaceNormals").apply(image.extent(), grownByOne, {image});
    if (!normals) fatalError("The surface normals kernel gave no image.");
    return *normals;
}

std::optional<ci::Image> dotProduct(const ci::Image& image, const V& vector) {
    precondition(vector.size() == 3, "A dot product needs a vector of three components.");
    return libraryKernels().colorKernel("dotProduct").apply(image.extent(), {image, vector});
}

std::optional<ci::Image> bic_sobel(const ci::Image& image) {
    return libraryKernels().generalKernel("sobel").apply(image.extent(), grownByOne, {image});
}

// ---- Graph images ---------------------------------------------------------------------------

Image applyingFilter(const Image& image, std::string_view name,
                     const ci::FilterParameters& parameters) {
    ci::FilterParameters all{{"inputImage", image.ciImage}};
    all.insert(all.end(), parameters.begin(), parameters.end());
    return with(image, filtered(name, all));
}

Image colorMatrix(const Image& image, const V& red, const V& green, const V& blue, const V& alpha,
                  const V& bias) {
    return with(image,
                matrix(image.ciImage, red, green, blue, alpha, bias).cropped(image.extent()));
}

Image gammaAdjusted(const Image& image, double power) {
    return with(image,
                filtered("CIGammaAdjust", {{"inputImage", image.ciImage}, {"inputPower", power}}));
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
    return with(image, filtered("CIMix", {{"inputImage", image.ciImage},
                                          {"inputBackgroundImage", other.ciImage},
                                          {"inputAmount", fraction}}));
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
    return with(image, filtered("CIColorClamp", {{"inputImage", image.ciImage},
                                                 {"inputMinComponents", min},
                                                 {"inputMaxComponents", max}}));
}

Image inverted(const Image& image) {
    return colorMatrix(image, {-1, 0, 0, 0}, {0, -1, 0, 0}, {0, 0, -1, 0}, {0, 0, 0, 1},
                       {1, 1, 1, 0});
}

Image luminosityImage(const Image& image) {
    const V weights{0.3, 0.59, 0.11, 0};
    return colorMatrix(image, weights, weights, weights, {0, 0, 0, 1}, {0, 0, 0, 0});
}

Image applyingGaussianBlur(const Image& image, double sigma) {
    return with(
        image, filtered("CIGaussianBlur", {{"inputImage", image.ciImage}, {"inputRadius", sigma}}));
}

Image boxBlurred(const Image& image, double radius, int passes) {
    precondition(passes >= 1, "A box blur needs at least one pass.");
    ci::Image result = image.ciImage;
    for (int i = 0; i < passes; ++i)
        result =
            filtered("CIBoxBlur", {{"inputImage", result}, {"inputRadius", double(float(radius))}});
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
        matrix(distance.ciImage, invert, invert, invert, {0, 0, 0, 1}, {radius, radius, radius, 0})
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
    if (!result) throw ImageCoreError(ImageCoreError::unknownError);
    return with(image, *result);
}

} // namespace bic
